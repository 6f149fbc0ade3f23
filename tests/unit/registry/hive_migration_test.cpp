#include "registry/hive_migration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "base/win32_error.h"
#include "fakes/temp_folder.h"
#include "registry/hive_save.h"
#include "registry/offreg_calls.h"
#include "registry_test_bed.h"
#include "security/current_user_sid.h"

namespace tw {
namespace {

using ::testing::ElementsAre;
using testing::ExportHive;
using testing::Fields;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::MakeDescriptor;
using testing::MakeHive;
using ::testing::Not;
using testing::OffregFunction;
using testing::RealFilesTestBed;
using testing::ReglookupKey;
using testing::WinPath;

// Every key of the registry key table, with values, and a key outside the table.
constexpr const char* kSourceUser =
    "[\\Console]\n\"FontSize\"=dword:000c0000\n\n"
    "[\\Control Panel]\n\n[\\Control Panel\\Desktop]\n\"Wallpaper\"=\"ann.bmp\"\n\n"
    "[\\Identities]\n\"Default\"=\"id\"\n\n"
    "[\\Keyboard Layout]\n\n[\\Keyboard Layout\\Preload]\n\"1\"=\"00000409\"\n\n"
    "[\\Printers]\n\"DeviceOld\"=\"lp\"\n\n"
    "[\\Software]\n\n[\\Software\\Vendor]\n\"Name\"=\"source\"\n\"Count\"=dword:00000007\n\n"
    "[\\System]\n\"S\"=\"s\"\n\n"
    "[\\AppEvents]\n\"A\"=\"a\"\n\n"
    "[\\Environment]\n\"TEMP\"=\"C:\\\\Temp\"\n\n"
    "[\\EUDC]\n\"E\"=\"e\"\n\n"
    "[\\Network]\n\n[\\Network\\Z]\n\"RemotePath\"=\"\\\\\\\\srv\\\\z\"\n\n"
    "[\\SourceOnly]\n\"X\"=\"x\"\n\n";

// The default profile's hive: some of the same keys with other values, and keys of its own.
constexpr const char* kTargetUser =
    "[\\Software]\n\n[\\Software\\Vendor]\n\"Name\"=\"default\"\n\"Own\"=\"kept\"\n\n"
    "[\\Software\\DefaultOnly]\n\"D\"=\"d\"\n\n"
    "[\\Console]\n\"FontSize\"=dword:00000001\n\"Other\"=\"o\"\n\n"
    "[\\TargetOnly]\n\"T\"=\"t\"\n\n";

class HiveMigrationTest : public ::testing::Test {
 protected:
  std::filesystem::path src() const { return bed.folder.path() / "src"; }
  std::filesystem::path tgt() const { return bed.folder.path() / "tgt"; }
  std::wstring Src() const { return WinPath(src()); }
  std::wstring Tgt() const { return WinPath(tgt()); }
  void MakeUserHives() {
    MakeHive(src() / "ntuser.dat", kSourceUser);
    MakeHive(tgt() / "ntuser.dat", kTargetUser);
  }
  // Gives the root key of a hive file the DACL of `descriptor` (through the engine).
  void SetRootDacl(const std::filesystem::path& file, std::vector<std::uint8_t> descriptor) {
    OrKey hive = nullptr;
    ASSERT_EQ(bed.fake.offreg().OROpenHive(WinPath(file).c_str(), &hive), 0u);
    ASSERT_EQ(bed.fake.offreg().ORSetKeySecurity(hive, 4, descriptor.data()), 0u);
    const std::filesystem::path rewritten = file.string() + ".new";
    ASSERT_EQ(bed.fake.offreg().ORSaveHive(hive, WinPath(rewritten).c_str(), 6, 1), 0u);
    bed.fake.offreg().ORCloseHive(hive);
    std::filesystem::rename(rewritten, file);
  }
  std::vector<std::wstring> Messages() const { return bed.log.messages(); }

  RealFilesTestBed bed;
};

TEST_F(HiveMigrationTest, V1ToV2CopiesEveryTableKeyOverTheDefaultAndSavesAs61) {
  MakeUserHives();
  const std::filesystem::path classes =
      "Local Settings/Application Data/Microsoft/Windows/UsrClass.dat";
  MakeHive(src() / classes, "[\\CLSID]\n\n");
  MakeHive(tgt() / classes, "[\\CLSID]\n\n");
  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 1, Tgt(), 2), hr::kOk);
  EXPECT_THAT(Messages(), IsEmpty());

  const std::string copied = ExportHive(tgt() / "ntuser.dat");
  // Every table key of the source, read by hivex from both files, is in the target.
  for (const char* key : {"\\Control Panel", "\\Identities", "\\Keyboard Layout", "\\Printers",
                          "\\System", "\\AppEvents", "\\Environment", "\\EUDC", "\\Network"}) {
    EXPECT_EQ(ExportHive(tgt() / "ntuser.dat", key), ExportHive(src() / "ntuser.dat", key)) << key;
  }
  // Merged keys: the source's values win, the default's own values and keys stay.
  const std::string vendor = ExportHive(tgt() / "ntuser.dat", "\\Software\\Vendor");
  EXPECT_THAT(vendor, HasSubstr("\"Name\"=hex(1):73,00,6f,00,75,00,72,00,63,00,65,00,00,00"));
  EXPECT_THAT(vendor, HasSubstr("\"Own\"=hex(1):6b,00,65,00,70,00,74,00,00,00"));
  EXPECT_THAT(vendor, HasSubstr("\"Count\"=dword:00000007"));
  EXPECT_THAT(copied, HasSubstr("[\\Software\\DefaultOnly]"));
  EXPECT_THAT(ExportHive(tgt() / "ntuser.dat", "\\Console"),
              HasSubstr("\"FontSize\"=dword:000c0000"));
  EXPECT_THAT(ExportHive(tgt() / "ntuser.dat", "\\Console"), HasSubstr("\"Other\"="));
  EXPECT_THAT(copied, HasSubstr("[\\TargetOnly]"));
  EXPECT_THAT(copied, Not(HasSubstr("SourceOnly")));

  // The table's order is the copy order (each key is opened in the source, then the target).
  const std::vector<std::wstring> table = {
      L"Console",     L"Control Panel", L"Identities", L"Keyboard Layout",
      L"Printers",    L"Software",      L"System",     L"AppEvents",
      L"Environment", L"EUDC",          L"Network"};
  std::vector<std::wstring> opened;
  for (const auto& call : bed.fake.CallsOf(OffregFunction::kOpenKey)) {
    if (std::find(table.begin(), table.end(), call.subject) == table.end()) continue;
    if (opened.empty() || opened.back() != call.subject) opened.push_back(call.subject);
  }
  // (The hive-DACL walk opens them again afterwards, in enumeration order.)
  ASSERT_GE(opened.size(), table.size());
  EXPECT_EQ(std::vector<std::wstring>(opened.begin(), opened.begin() + 11), table);
  // Both hives were saved through "~mighive.dat" in format 6.1; the classes hive was taken from
  // and written to the V1 relative path in both profiles.
  const auto saves = bed.fake.CallsOf(OffregFunction::kSaveHive);
  ASSERT_EQ(saves.size(), 2u);
  EXPECT_EQ(saves[0].subject,
            Tgt() + L"\\Local Settings\\Application Data\\Microsoft\\Windows\\~mighive.dat");
  EXPECT_EQ(saves[1].subject, Tgt() + L"\\~mighive.dat");
  for (const auto& save : saves) {
    EXPECT_EQ(save.first, 6u);
    EXPECT_EQ(save.second, 1u);
  }
  const auto hiveOpens = bed.fake.CallsOf(OffregFunction::kOpenHive);
  ASSERT_GE(hiveOpens.size(), 4u);
  EXPECT_EQ(hiveOpens[2].subject, WinPath(src() / classes));
  EXPECT_EQ(hiveOpens[3].subject, WinPath(tgt() / classes));
  EXPECT_FALSE(std::filesystem::exists(tgt() / "~mighive.dat"));
}

TEST_F(HiveMigrationTest, TheClassesHiveGetsTheSourceRootDaclExceptOnProtectedKeys) {
  MakeUserHives();
  const std::filesystem::path classes = "AppData/Local/Microsoft/Windows/UsrClass.dat";
  MakeHive(src() / classes, "");
  SetRootDacl(src() / classes, MakeDescriptor(nullptr, {L"S-1-5-21-5-5-5-1005"}));
  MakeHive(tgt() / classes, "[\\CLSID]\n\n[\\Locked]\n\n[\\Locked\\Child]\n\n");
  {
    // CLSID and Locked\Child unprotected, Locked protected with its own DACL.
    OrKey hive = nullptr;
    ASSERT_EQ(bed.fake.offreg().OROpenHive(WinPath(tgt() / classes).c_str(), &hive), 0u);
    for (const auto& [path, sid, flags] :
         std::vector<std::tuple<const wchar_t*, const wchar_t*, OrDword>>{
             {L"CLSID", L"S-1-5-32-544", 0x20000004u},
             {L"Locked", L"S-1-5-21-9-9-9-1", 0x80000004u},
             {L"Locked\\Child", L"S-1-5-32-544", 0x20000004u}}) {
      OrKey key = nullptr;
      ASSERT_EQ(bed.fake.offreg().OROpenKey(hive, path, &key), 0u);
      std::vector<std::uint8_t> sd = MakeDescriptor(nullptr, {sid}, (flags & 0x80000000u) != 0);
      ASSERT_EQ(bed.fake.offreg().ORSetKeySecurity(key, flags, sd.data()), 0u);
      bed.fake.offreg().ORCloseKey(key);
    }
    const std::filesystem::path rewritten = tgt() / "classes.new";
    ASSERT_EQ(bed.fake.offreg().ORSaveHive(hive, WinPath(rewritten).c_str(), 6, 1), 0u);
    bed.fake.offreg().ORCloseHive(hive);
    std::filesystem::rename(rewritten, tgt() / classes);
  }
  bed.fake.ClearCalls();

  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 2, Tgt(), 2), hr::kOk);
  EXPECT_THAT(Messages(), IsEmpty());
  const std::filesystem::path saved = tgt() / classes;
  const std::string applied =
      "S-1-5-21-5-5-5-1005:ALLOW:QRY_VAL SET_VAL CREATE_KEY ENUM_KEYS NOTIFY CREATE_LNK DELETE "
      "R_CONT W_DAC W_OWNER:";
  EXPECT_EQ(Fields(ReglookupKey(saved, "/CLSID"))[7], applied);
  EXPECT_EQ(Fields(ReglookupKey(saved, "/Locked/Child"))[7], applied);
  EXPECT_THAT(Fields(ReglookupKey(saved, "/Locked"))[7], HasSubstr("S-1-5-21-9-9-9-1:ALLOW"));
  const std::vector<std::string> root = Fields(ReglookupKey(saved, "/"));
  ASSERT_EQ(root.size(), 9u);
  EXPECT_EQ(root[7], applied);
  // The user hive's tree got the source root's DACL as well (MigrateHiveSecurity on ntuser.dat).
  EXPECT_EQ(bed.fake.CallsOf(OffregFunction::kSaveHive).size(), 2u);
}

TEST_F(HiveMigrationTest, AMissingTargetClassesHiveIsLoggedAndTheMigrationStillSucceeds) {
  MakeUserHives();
  MakeHive(src() / "Local Settings/Application Data/Microsoft/Windows/UsrClass.dat", "");
  // The default V2 profile keeps its classes hive under AppData\Local, not at the V1 path.
  MakeHive(tgt() / "AppData/Local/Microsoft/Windows/UsrClass.dat", "");
  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 1, Tgt(), 2), hr::kOk);
  const std::wstring v1 = L"\\Local Settings\\Application Data\\Microsoft\\Windows\\UsrClass.dat";
  EXPECT_THAT(Messages(),
              ElementsAre(L"Failed to open target registry hive (0x80070003): " + Tgt() + v1,
                          L"Failed to migrate UsrClass.dat security (0x80070003): " + Src() + v1));
  EXPECT_THAT(ExportHive(tgt() / "ntuser.dat"), HasSubstr("[\\Environment]"));
}

TEST_F(HiveMigrationTest, TargetVersionsFiveAndSixSkipTheHiveDaclAndClassesAndSaveAs100) {
  for (const std::int32_t version : {5, 6}) {
    MakeUserHives();
    bed.fake.ClearCalls();
    EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 2, Tgt(), version), hr::kOk);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(bed.fake.CallsOf(OffregFunction::kOpenHive).size(), 3u);  // two, and the re-open
    // No DACL-only read of the hive root: the hive-DACL step did not run.
    for (const auto& call : bed.fake.CallsOf(OffregFunction::kGetKeySecurity)) {
      EXPECT_EQ(call.first, 5u);
    }
    for (const auto& call : bed.fake.CallsOf(OffregFunction::kSetKeySecurity)) {
      EXPECT_EQ(call.first, 5u);  // new keys only, never a DACL walk
    }
    const auto saves = bed.fake.CallsOf(OffregFunction::kSaveHive);
    ASSERT_EQ(saves.size(), 1u);
    EXPECT_EQ(saves[0].first, 10u);
    EXPECT_EQ(saves[0].second, 0u);
    EXPECT_THAT(ExportHive(tgt() / "ntuser.dat"), HasSubstr("[\\Network\\Z]"));
  }
}

TEST_F(HiveMigrationTest, RegistryMigrationSwitchedOffStillCopiesSoftwareAndNothingElse) {
  for (const std::uint32_t mask : {0x80000000u, 0x800001DFu}) {
    MakeUserHives();
    bed.settings.registryMask = mask;
    EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 2, Tgt(), 6), hr::kOk);
    const std::string copied = ExportHive(tgt() / "ntuser.dat");
    EXPECT_THAT(copied, HasSubstr("\"Count\"=dword:00000007"));
    for (const char* key : {"[\\Control Panel]", "[\\Identities]", "[\\Printers]",
                            "[\\Environment]", "[\\Network]", "[\\System]", "[\\EUDC]"}) {
      EXPECT_THAT(copied, Not(HasSubstr(key))) << key;
    }
    EXPECT_THAT(ExportHive(tgt() / "ntuser.dat", "\\Console"),
                HasSubstr("\"FontSize\"=dword:00000001"));
  }
}

TEST_F(HiveMigrationTest, AMaskWithoutTableBitsCopiesNothing) {
  MakeUserHives();
  bed.settings.registryMask = 0x7FFFF800u;
  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 2, Tgt(), 6), hr::kOk);
  EXPECT_THAT(ExportHive(tgt() / "ntuser.dat", "\\Software\\Vendor"),
              HasSubstr("\"Name\"=hex(1):64,00,65,00,66,00"));
}

TEST_F(HiveMigrationTest, AccessDeniedWithoutTakeOwnershipIsReturnedWithoutRetry) {
  MakeUserHives();
  bed.fake.Fail(OffregFunction::kOpenHive, err::kAccessDenied, L"ntuser.dat", 0, 1);
  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 1, Tgt(), 2), hr::kAccessDenied);
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to open registry hive (0x80070005): " + Src() +
                                      L"\\ntuser.dat"));
  EXPECT_EQ(bed.fake.CallsOf(OffregFunction::kOpenHive).size(), 1u);
}

// Under the take-ownership setting a refused open takes the hive file over and opens it once
// more; the file gets its owner back at the end. A take-over that fails leaves the first access
// denied as the result, without a second open.
TEST_F(HiveMigrationTest, AnOpenRefusedUnderTakeOwnershipIsTakenOverAndTriedOnceMore) {
  MakeUserHives();
  bed.settings.takeOwnership = true;
  LoadCurrentUserSid(ProcessSecurityPort());
  const std::wstring hivePath = Src() + L"\\ntuser.dat";
  security::SecurityDescriptor before;
  ASSERT_EQ(ProcessSecurityPort().ReadNamedSecurity(hivePath, before), 0u);
  bed.fake.Fail(OffregFunction::kOpenHive, err::kAccessDenied, L"ntuser.dat", 0, 1);
  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 2, Tgt(), 6), hr::kOk);
  std::size_t sourceOpens = 0;
  for (const auto& call : bed.fake.CallsOf(OffregFunction::kOpenHive)) {
    if (call.subject == hivePath) ++sourceOpens;
  }
  EXPECT_EQ(sourceOpens, 2u);
  security::SecurityDescriptor after;
  ASSERT_EQ(ProcessSecurityPort().ReadNamedSecurity(hivePath, after), 0u);
  EXPECT_EQ(after.owner, before.owner);

  currentUserSid.Clear();  // without a running user's SID the take-over fails
  bed.log.Clear();
  bed.fake.ClearCalls();
  bed.fake.Fail(OffregFunction::kOpenHive, err::kAccessDenied, L"ntuser.dat", 0, 1);
  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 2, Tgt(), 6),
            static_cast<HResult>(0x80070005u));
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to open registry hive (0x80070005): " + hivePath));
  EXPECT_EQ(bed.fake.CallsOf(OffregFunction::kOpenHive).size(), 1u);
}

TEST_F(HiveMigrationTest, ATargetHiveThatCannotBeOpenedClosesTheSource) {
  MakeHive(src() / "ntuser.dat", kSourceUser);
  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 1, Tgt(), 2),
            HResultFromWin32(err::kPathNotFound));
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to open registry hive (0x80070003): " + Tgt() +
                                      L"\\ntuser.dat"));
  EXPECT_EQ(bed.fake.CallsOf(OffregFunction::kCloseHive).size(), 1u);
}

TEST_F(HiveMigrationTest, AFailingSaveIsFollowedByTheFailedCopyAndLeavesTheFileAsItWas) {
  MakeUserHives();
  const std::string before = testing::ReadWholeFile(tgt() / "ntuser.dat");
  bed.fake.Fail(OffregFunction::kSaveHive, err::kAccessDenied);
  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 2, Tgt(), 6), hr::kOk);
  const std::wstring temporary = Tgt() + L"\\~mighive.dat";
  const std::wstring hive = Tgt() + L"\\ntuser.dat";
  EXPECT_THAT(Messages(),
              ElementsAre(L"Failed saving hive file (0x80070005): " + temporary,
                          L"Failed copying " + temporary + L" --> " + hive + L" (0x80070002)",
                          L"Failed to save target registry hive (0x80070002): " + hive));
  EXPECT_EQ(testing::ReadWholeFile(tgt() / "ntuser.dat"), before);
}

TEST_F(HiveMigrationTest, AnUnboundOpenFailsWithErrorOne) {
  MakeUserHives();
  bed.fake.offreg().OROpenHive = nullptr;
  EXPECT_EQ(MigrateRegistryHive(bed.context, Src(), 1, Tgt(), 2), hr::kNotBound);
}

TEST_F(HiveMigrationTest, TheClassesHivePathFollowsTheSourceVersionOnly) {
  EXPECT_STREQ(ClassesHiveRelativePath(0),
               L"Local Settings\\Application Data\\Microsoft\\Windows\\UsrClass.dat");
  EXPECT_STREQ(ClassesHiveRelativePath(1),
               L"Local Settings\\Application Data\\Microsoft\\Windows\\UsrClass.dat");
  EXPECT_STREQ(ClassesHiveRelativePath(2), L"AppData\\Local\\Microsoft\\Windows\\UsrClass.dat");
  EXPECT_STREQ(ClassesHiveRelativePath(5), L"AppData\\Local\\Microsoft\\Windows\\UsrClass.dat");
}

TEST_F(HiveMigrationTest, AnUnboundKeySecurityReadFailsTheHiveDacl) {
  bed.fake.offreg().ORGetKeySecurity = nullptr;
  MakeUserHives();
  OrKey source = nullptr;
  ASSERT_EQ(bed.fake.offreg().OROpenHive(WinPath(src() / "ntuser.dat").c_str(), &source), 0u);
  EXPECT_EQ(MigrateHiveSecurity(bed.context, source, 1, source, 2), hr::kNotBound);
  EXPECT_EQ(MigrateHiveSecurity(bed.context, registry::kNoOrKey, 1, source, 2), hr::kHandle);
  EXPECT_THAT(Messages(), ElementsAre(L"Failed to query for the hive DACL (0x80070001)",
                                      L"Failed to query for the hive DACL (0x80070006)"));
  bed.fake.offreg().ORCloseHive(source);
}

}  // namespace
}  // namespace tw
