#include "registry/shell_folders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/win32_error.h"
#include "migration/folder_mapping.h"
#include "migration/process_state.h"
#include "registry_test_bed.h"
#include "security/current_user_sid.h"

namespace tw {
namespace {

using ::testing::ElementsAre;
using testing::ExplorerSection;
using testing::ExportHive;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::kExplorerKeys;
using testing::MakeHive;
using testing::OffregFunction;
using testing::RealFilesTestBed;
using testing::RegHex;
using testing::WinPath;

std::string Expand(const std::wstring& text) { return "hex(2):" + RegHex(text) + "\n"; }

class ShellFoldersTest : public ::testing::Test {
 protected:
  ShellFoldersTest()
      : table{{0x8, L"Desktop", L"", L""},
              {0x10, L"Favorites", L"", L""},
              {0x800, L"Personal", L"", L""},
              {0x40000, L"Templates", L"", L""},
              {0, L"", L"", L""}},
        mapping(table) {}

  void MakeSource(const std::string& values) {
    MakeHive(source() / "ntuser.dat",
             kExplorerKeys + ExplorerSection("User Shell Folders") + values + "\n");
  }
  void MakeTarget(const std::string& userShellFolders, const std::string& shellFolders) {
    MakeHive(target() / "ntuser.dat", kExplorerKeys + ExplorerSection("User Shell Folders") +
                                          userShellFolders + "\n" +
                                          ExplorerSection("Shell Folders") + shellFolders + "\n");
  }
  std::filesystem::path source() const { return bed.folder.path() / "src"; }
  std::filesystem::path target() const { return bed.folder.path() / "tgt"; }
  std::vector<std::wstring> Messages() const { return bed.log.messages(); }

  RealFilesTestBed bed;
  SpecialFolderRow table[5];
  FolderMapping mapping;
};

TEST_F(ShellFoldersTest, ReadModeFillsSourceLocationsAndLogsWhatItPassesOver) {
  MakeSource(
      "\"Personal\"=\"\\\\\\\\server\\\\share\\\\docs\"\n"
      "\"Desktop\"=" +
      Expand(L"%USERPROFILE%\\Desktop") +
      "\"Weird\"=dword:00000001\n"
      "\"Unknown\"=\"x\"\n");
  EXPECT_EQ(SyncUserShellFolders(bed.context, mapping, WinPath(source()), 1, false), hr::kOk);
  EXPECT_EQ(table[2].sourceLocation, L"\\\\server\\share\\docs");
  EXPECT_EQ(table[0].sourceLocation, L"%USERPROFILE%\\Desktop");
  EXPECT_EQ(table[1].sourceLocation, L"");
  EXPECT_THAT(Messages(), ElementsAre(L"The value of Weird is not a string",
                                      L"Unable to find Unknown in folder mapping",
                                      L"No more value of Unknown 259"));
  EXPECT_EQ(mapping.count(), 4u);
  EXPECT_THAT(bed.fake.CallsOf(OffregFunction::kSaveHive), IsEmpty());
}

TEST_F(ShellFoldersTest, AUncFolderIsWrittenIntoTheTargetAndDroppedFromTheMapping) {
  MakeSource(
      "\"Personal\"=\"\\\\\\\\server\\\\share\\\\docs\"\n"
      "\"Desktop\"=" +
      Expand(L"%USERPROFILE%\\Desktop"));
  MakeTarget("\"Personal\"=" + Expand(L"%USERPROFILE%\\Documents") +
                 "\"Desktop\"=" + Expand(L"%USERPROFILE%\\Desktop"),
             "\"Desktop\"=\"C:\\\\Users\\\\ann\\\\Desktop\"\n"
             "\"Favorites\"=\"C:\\\\Users\\\\ann\\\\Favorites\"\n"
             "\"Templates\"=\"D:\\\\Other\\\\Templates\"\n");
  currentUserSid.Clear();
  ASSERT_EQ(SyncUserShellFolders(bed.context, mapping, WinPath(source()), 1, false), hr::kOk);
  bed.log.Clear();
  EXPECT_EQ(SyncUserShellFolders(bed.context, mapping, WinPath(target()), 2, true), hr::kOk);

  // The mapping lost Personal; the others keep their order.
  ASSERT_EQ(mapping.count(), 3u);
  EXPECT_EQ(mapping.NameAt(0), L"Desktop");
  EXPECT_EQ(mapping.NameAt(1), L"Favorites");
  EXPECT_EQ(mapping.NameAt(2), L"Templates");
  EXPECT_EQ(mapping.Find(L"Personal"), FolderMapping::kNotFound);
  EXPECT_EQ(table[0].targetLocation, L"%USERPROFILE%\\Desktop");
  // Completed from "Shell Folders": Favorites below the profile folder; Templates on another
  // drive stays empty.
  EXPECT_EQ(table[1].targetLocation, L"%USERPROFILE%\\Favorites");
  EXPECT_EQ(table[3].targetLocation, L"");
  EXPECT_THAT(Messages(),
              ElementsAre(L"No more value of Desktop 259", L"Profile path is: C:\\Users\\ann"));

  // The target hive was saved through the temporary file in format 6.1 and replaced.
  const auto saves = bed.fake.CallsOf(OffregFunction::kSaveHive);
  ASSERT_EQ(saves.size(), 1u);
  EXPECT_EQ(saves[0].subject, WinPath(target() / "~mighive.dat"));
  EXPECT_EQ(saves[0].first, 6u);
  EXPECT_EQ(saves[0].second, 1u);
  EXPECT_FALSE(std::filesystem::exists(target() / "~mighive.dat"));
  // Read back independently: the value holds the UNC path with the type found in the target
  // (REG_EXPAND_SZ), and its bytes end without a terminating zero.
  const std::string exported =
      ExportHive(target() / "ntuser.dat",
                 "\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User "
                 "Shell Folders");
  EXPECT_THAT(exported,
              HasSubstr("\"Personal\"=hex(2):" + RegHex(L"\\\\server\\share\\docs", false) + "\n"));
  const auto sets = bed.fake.CallsOf(OffregFunction::kSetValue);
  ASSERT_EQ(sets.size(), 1u);
  EXPECT_EQ(sets[0].first, 2u);
  EXPECT_EQ(sets[0].second, 38u);  // 19 characters, no terminator
}

TEST_F(ShellFoldersTest, AFailedWriteKeepsTheEntryWithTheTargetsOwnValue) {
  MakeSource("\"Personal\"=\"\\\\\\\\server\\\\share\\\\docs\"\n");
  MakeTarget("\"Personal\"=" + Expand(L"%USERPROFILE%\\Documents"),
             "\"Personal\"=\"C:\\\\Users\\\\ann\\\\Documents\"\n");
  ASSERT_EQ(SyncUserShellFolders(bed.context, mapping, WinPath(source()), 1, false), hr::kOk);
  bed.log.Clear();
  bed.fake.Fail(OffregFunction::kSetValue, err::kAccessDenied, L"Personal");
  EXPECT_EQ(SyncUserShellFolders(bed.context, mapping, WinPath(target()), 2, true), hr::kOk);
  EXPECT_THAT(Messages(),
              ElementsAre(L"Failed to set target registry value (0x80070005): Personal = "
                          L"\\\\server\\share\\docs",
                          L"No more value of Personal 259", L"Profile path is: C:\\Users\\ann"));
  EXPECT_EQ(mapping.count(), 4u);
  EXPECT_EQ(table[2].targetLocation, L"%USERPROFILE%\\Documents");
  EXPECT_THAT(bed.fake.CallsOf(OffregFunction::kSaveHive), IsEmpty());
}

TEST_F(ShellFoldersTest, ADwordValueIsOnlyLogged) {
  MakeSource("\"Desktop\"=dword:00000005\n");
  EXPECT_EQ(SyncUserShellFolders(bed.context, mapping, WinPath(source()), 1, false), hr::kOk);
  EXPECT_THAT(Messages(), ElementsAre(L"The value of Desktop is not a string",
                                      L"No more value of Desktop 259"));
  EXPECT_EQ(table[0].sourceLocation, L"");
}

TEST_F(ShellFoldersTest, AnEmptyProfilePathFallsBackOnTheProfilePathOption) {
  MakeSource("\"Desktop\"=" + Expand(L"%USERPROFILE%\\Desktop"));
  const std::wstring saved = g_profilePath;
  g_profilePath = WinPath(source());
  EXPECT_EQ(SyncUserShellFolders(bed.context, mapping, L"", 1, false), hr::kOk);
  g_profilePath = saved;
  EXPECT_EQ(table[0].sourceLocation, L"%USERPROFILE%\\Desktop");
}

TEST_F(ShellFoldersTest, HiveAndKeyFailuresAreLoggedAndReturned) {
  const std::wstring missing = WinPath(bed.folder.path() / "none");
  // The folder does not exist: ERROR_PATH_NOT_FOUND.
  EXPECT_EQ(SyncUserShellFolders(bed.context, mapping, missing, 1, false),
            HResultFromWin32(err::kPathNotFound));
  MakeHive(source() / "ntuser.dat", "[\\Software]\n\n");
  bed.fake.Fail(OffregFunction::kOpenHive, err::kAccessDenied, L"ntuser.dat", 0, 1);
  EXPECT_EQ(SyncUserShellFolders(bed.context, mapping, WinPath(source()), 1, false),
            hr::kAccessDenied);
  EXPECT_EQ(SyncUserShellFolders(bed.context, mapping, WinPath(source()), 1, false),
            HResultFromWin32(err::kFileNotFound));
  EXPECT_THAT(
      Messages(),
      ElementsAre(L"Failed opening registry (0x80070003): " + missing + L"\\ntuser.dat",
                  L"Failed opening registry (0x80070005): " + WinPath(source()) + L"\\ntuser.dat",
                  L"Failed to open source 'User Shell Folders' registry key (0x80070002)"));
}

TEST_F(ShellFoldersTest, AccessDeniedWithTakeOwnershipTakesItOpensAgainAndRestores) {
  MakeSource("\"Desktop\"=" + Expand(L"%USERPROFILE%\\Desktop"));
  bed.settings.takeOwnership = true;
  LoadCurrentUserSid(ProcessSecurityPort());
  const std::wstring hivePath = WinPath(source() / "ntuser.dat");
  security::SecurityDescriptor before;
  ASSERT_EQ(ProcessSecurityPort().ReadNamedSecurity(hivePath, before), 0u);
  bed.fake.Fail(OffregFunction::kOpenHive, err::kAccessDenied, L"ntuser.dat", 0, 1);
  EXPECT_EQ(SyncUserShellFolders(bed.context, mapping, WinPath(source()), 1, false), hr::kOk);
  EXPECT_EQ(table[0].sourceLocation, L"%USERPROFILE%\\Desktop");
  EXPECT_EQ(bed.fake.CallsOf(OffregFunction::kOpenHive).size(), 2u);
  security::SecurityDescriptor after;
  ASSERT_EQ(ProcessSecurityPort().ReadNamedSecurity(hivePath, after), 0u);
  EXPECT_EQ(after.owner, before.owner);
  // The file's own entries come back; a DACL that is not protected also gains what its folder
  // passes on, as Windows gives it.
  auto own = [](const security::SecurityDescriptor& sd) {
    std::vector<security::Ace> aces;
    for (const security::Ace& ace : sd.dacl->aces()) {
      if (!ace.IsInherited()) aces.push_back(ace);
    }
    return aces;
  };
  ASSERT_TRUE(after.dacl.has_value() && before.dacl.has_value());
  EXPECT_EQ(own(after), own(before));

  // Without a running user's SID, taking ownership fails: the deliberate format is kept.
  currentUserSid.Clear();
  bed.log.Clear();
  bed.fake.Fail(OffregFunction::kOpenHive, err::kAccessDenied, L"ntuser.dat", 0, 1);
  const HResult failed = SyncUserShellFolders(bed.context, mapping, WinPath(source()), 1, false);
  EXPECT_TRUE(Failed(failed));
  EXPECT_THAT(Messages(), ElementsAre(Format(L"Failed getting ownership of hive (0x%08X): %s",
                                             failed, hivePath)));
  // The formatter prints "0x%08" as "0x%08X" would, so the literal itself is checked.
  EXPECT_EQ(std::wstring_view(kHiveOwnershipFailedFormat),
            L"Failed getting ownership of hive (0x%08): %s");
}

TEST_F(ShellFoldersTest, ATailFoundOnlyAtTheStartGivesNoProfileFolder) {
  MakeTarget("",
             "\"Desktop\"=\"\\\\Desktop\"\n\"Favorites\"=\"C:\\\\Users\\\\ann\\\\Favorites\"\n");
  table[0].targetLocation = L"%USERPROFILE%\\Desktop";
  OrKey hive = nullptr;
  ASSERT_EQ(bed.fake.offreg().OROpenHive(WinPath(target() / "ntuser.dat").c_str(), &hive), 0u);
  EXPECT_EQ(CompleteSpecialFolderPaths(bed.context, hive, table), hr::kFail);
  EXPECT_THAT(Messages(), ElementsAre(L"Profile path is empty"));
  // A second row that holds its tail further in gives the folder.
  table[1].targetLocation = L"%USERPROFILE%\\Favorites";
  bed.log.Clear();
  EXPECT_EQ(CompleteSpecialFolderPaths(bed.context, hive, table), hr::kOk);
  EXPECT_THAT(Messages(), ElementsAre(L"Profile path is: C:\\Users\\ann"));
  bed.fake.offreg().ORCloseHive(hive);
}

}  // namespace
}  // namespace tw
