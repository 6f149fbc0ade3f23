// A profile whose hives Windows did not close cleanly: the migration says so once per hive file
// when their logs could not be applied, and not at all when they could (or when the library
// cannot tell). Hives made by hivexregedit, made dirty by hand; the whole user-profile migration
// runs (the hive step opens the source ntuser.dat, the shell-folder step opens it again).
#include "registry/unrecovered_hive.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "profile/folder_migrator.h"
#include "profile/user_profile_migration.h"
#include "registry_test_bed.h"
#include "unit/hive/hive_log_builder.h"
#include "unit/hive/hive_test_util.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::ExpandValue;
using testing::ExplorerSection;
using testing::kExplorerKeys;
using testing::MakeHive;
using testing::WinPath;

constexpr wchar_t kMessage[] = L"Hive was not cleanly closed, its logs could not be applied: ";
constexpr const char* kClasses = "Local Settings/Application Data/Microsoft/Windows/UsrClass.dat";

// The hive with its primary sequence number one ahead: a write Windows did not finish.
void MakeDirty(const fs::path& file) {
  const auto bytes = hive::testing::ReadBytes(file);
  const std::uint32_t secondary =
      hive::regf::Get32(bytes.data() + hive::regf::kBaseSecondarySequence);
  hive::testing::WriteBytes(file, hive::testing::WithSequence(bytes, secondary + 1, secondary));
}

// A new-format .LOG1 beside the dirty hive whose one entry rewrites its first page as it is: the
// hive is recovered (to what it holds).
void AddUsableLog(const fs::path& file) {
  const auto bytes = hive::testing::ReadBytes(file);
  const std::uint32_t sequence = hive::regf::Get32(bytes.data() + hive::regf::kBasePrimarySequence);
  auto log = hive::testing::LogBaseBlock(bytes, hive::regf::kFileTypeLogEntries, sequence);
  const auto entry = hive::testing::LogEntry(bytes, sequence, hive::testing::DataSize(bytes), {0});
  log.insert(log.end(), entry.begin(), entry.end());
  hive::testing::WriteBytes(file.string() + ".LOG1", log);
}

class UnrecoveredHiveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string shellFolders = kExplorerKeys + ExplorerSection("User Shell Folders") +
                                     ExpandValue("Desktop", L"%USERPROFILE%\\Desktop") + "\n";
    MakeHive(source() / "ntuser.dat", shellFolders);
    MakeHive(target() / "ntuser.dat",
             shellFolders + ExplorerSection("Shell Folders") +
                 "\"Desktop\"=hex(1):" + testing::RegHex(L"C:\\Users\\anna\\Desktop") + "\n\n");
    MakeHive(source() / kClasses, "");
    MakeHive(target() / kClasses, "");
  }

  fs::path source() const { return bed.folder.path() / "anna"; }
  fs::path target() const { return bed.folder.path() / "anna.V2"; }

  HResult Migrate() {
    FolderMigrator migrator(bed.context, table);
    return MigrateUserProfile(migrator, WinPath(source()), 1, WinPath(target()), 2);
  }
  // The messages about stale hives, in order.
  std::vector<std::wstring> Reports() const {
    std::vector<std::wstring> found;
    for (const std::wstring& message : bed.log.messages()) {
      if (message.rfind(kMessage, 0) == 0) found.push_back(message);
    }
    return found;
  }

  testing::RealFilesTestBed bed;
  SpecialFolderRow table[2] = {{0x8, L"Desktop", L"", L""}, {0, L"", L"", L""}};
};

TEST_F(UnrecoveredHiveTest, EachStaleHiveIsReportedOnceWithItsPath) {
  MakeDirty(source() / "ntuser.dat");
  MakeDirty(source() / kClasses);
  EXPECT_EQ(Migrate(), hr::kOk);
  const std::wstring userHive = WinPath(source()) + L"\\ntuser.dat";
  const std::wstring classesHive =
      WinPath(source()) + L"\\Local Settings\\Application Data\\Microsoft\\Windows\\UsrClass.dat";
  EXPECT_EQ(Reports(), (std::vector<std::wstring>{kMessage + userHive, kMessage + classesHive}));
  // The shell-folder step did open the source hive again.
  int opens = 0;
  for (const auto& call : bed.fake.CallsOf(testing::OffregFunction::kOpenHive)) {
    if (call.subject == userHive) ++opens;
  }
  EXPECT_EQ(opens, 2);
}

TEST_F(UnrecoveredHiveTest, AStaleTargetHiveIsReportedToo) {
  MakeDirty(target() / "ntuser.dat");
  EXPECT_EQ(Migrate(), hr::kOk);
  EXPECT_EQ(Reports(), (std::vector<std::wstring>{kMessage + WinPath(target()) + L"\\ntuser.dat"}));
}

TEST_F(UnrecoveredHiveTest, AHiveRecoveredFromItsLogsIsNotReported) {
  MakeDirty(source() / "ntuser.dat");
  AddUsableLog(source() / "ntuser.dat");
  EXPECT_EQ(Migrate(), hr::kOk);
  EXPECT_TRUE(Reports().empty());
}

TEST_F(UnrecoveredHiveTest, ALibraryThatCannotTellReportsNothing) {
  MakeDirty(source() / "ntuser.dat");
  bed.fake.offreg().TwQueryHiveRecovery = nullptr;
  EXPECT_EQ(Migrate(), hr::kOk);
  EXPECT_TRUE(Reports().empty());
}

TEST_F(UnrecoveredHiveTest, CleanHivesAreNotReported) {
  EXPECT_EQ(Migrate(), hr::kOk);
  EXPECT_TRUE(Reports().empty());
}

}  // namespace
}  // namespace tw
