// The user-profile migration's folder passes over real folders in temp folders, hives made by
// hivexregedit, the fake offline-registry table over the hive engine, and the fake security port
// (to make reads fail and to watch ownership being taken and given back).
#include "profile/user_profile_migration.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fakes/tree_state.h"
#include "ports/file_system.h"
#include "profile/folder_migrator.h"
#include "profile_test_bed.h"
#include "unit/registry/registry_test_bed.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::AnnaSid;
using testing::ExpandValue;
using testing::ExplorerSection;
using testing::kExplorerKeys;
using testing::MakeHive;
using testing::OwnedBy;
using testing::RegHex;
using testing::SecurityOp;
using testing::WinPath;

void Write(const fs::path& file, const std::string& content) {
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

class UserProfileMigrationTest : public ::testing::Test {
 protected:
  UserProfileMigrationTest()
      : table{{0x4, L"Cookies", L"", L""},       {0x8, L"Desktop", L"", L""},
              {0x10, L"Favorites", L"", L""},    {0x800, L"Personal", L"", L""},
              {0x40000, L"Templates", L"", L""}, {0, L"", L"", L""}} {
    currentUserSid.Clear();
    currentUserSid.Set(testing::AdminSid());
    security.userSid = testing::AdminSid();
  }
  ~UserProfileMigrationTest() override { currentUserSid.Clear(); }

  void SetUp() override {
    MakeHive(source() / "ntuser.dat", kExplorerKeys + ExplorerSection("User Shell Folders") +
                                          ExpandValue("Cookies", L"%USERPROFILE%\\Cookies") +
                                          ExpandValue("Desktop", L"%USERPROFILE%\\Desktop") +
                                          ExpandValue("Favorites", L"%USERPROFILE%\\Favorites") +
                                          ExpandValue("Personal", L"%USERPROFILE%\\My Documents") +
                                          ExpandValue("Templates", L"%HOMEDRIVE%\\Templates") +
                                          "\n");
    MakeHive(target() / "ntuser.dat",
             kExplorerKeys + ExplorerSection("User Shell Folders") +
                 ExpandValue("Desktop", L"%USERPROFILE%\\Desktop") +
                 ExpandValue("Favorites", L"%USERPROFILE%\\Favorites") +
                 ExpandValue("Personal", L"%USERPROFILE%\\Documents") +
                 ExpandValue("Templates", L"%USERPROFILE%\\Templates") + "\n" +
                 ExplorerSection("Shell Folders") +
                 "\"Desktop\"=hex(1):" + RegHex(L"C:\\Users\\anna\\Desktop") + "\n\n");
    Write(source() / "Desktop" / "d.txt", "desk");
    Write(source() / "Favorites" / "f.url", "fav");
    Write(source() / "favorites" / "lower.txt", "lower");
    Write(source() / "My Documents" / "sub" / "doc.txt", "doc");
    Write(source() / "Other" / "o.txt", "other");
    Write(source() / "top.txt", "top");
    fs::create_directory_symlink(source() / "Other", source() / "link");
  }

  fs::path source() const { return bed.folder.path() / "anna"; }
  fs::path target() const { return bed.folder.path() / "anna.V2"; }
  std::wstring Source(const wchar_t* rest = L"") const { return Join(WinPath(source()), rest); }
  std::wstring Target(const wchar_t* rest = L"") const { return Join(WinPath(target()), rest); }
  static std::wstring Join(std::wstring base, const wchar_t* rest) {
    if (*rest != L'\0') base += std::wstring(L"\\") + rest;
    return base;
  }
  HResult Folders() {
    FolderMigrator migrator(context, table);
    return MigrateProfileFolders(migrator, Source(), 1, Target(), 2);
  }
  bool Logged(const std::wstring& message) const {
    for (const std::wstring& logged : bed.log.messages()) {
      if (logged == message) return true;
    }
    return false;
  }
  int Count(std::wstring_view part) const {
    int count = 0;
    for (const std::wstring& logged : bed.log.messages()) {
      if (logged.find(part) != std::wstring::npos) ++count;
    }
    return count;
  }

  testing::RealFilesTestBed bed;
  testing::LinkedSecurityPort security{ProcessFileSystem()};
  MigrationContext context{&bed.settings, ProcessFileSystem(), security, bed.fake.offreg()};
  SpecialFolderRow table[6];
};

TEST_F(UserProfileMigrationTest, SpecialFoldersGoWhereTheHivesSayAndTheRestKeepTheirNames) {
  EXPECT_EQ(Folders(), hr::kOk);
  // First pass: from the source hive's location to the target hive's.
  EXPECT_EQ(testing::ReadWholeFile(target() / "Desktop" / "d.txt"), "desk");
  EXPECT_EQ(testing::ReadWholeFile(target() / "Favorites" / "f.url"), "fav");
  EXPECT_EQ(testing::ReadWholeFile(target() / "Documents" / "sub" / "doc.txt"), "doc");
  EXPECT_EQ(table[3].sourceLocation, Source(L"My Documents"));
  EXPECT_EQ(table[3].targetLocation, Target(L"Documents"));
  // Second pass: folders that are not row names, as they are; "favorites" in lower case is not
  // a row name and is copied again (into the same folder, names being case-insensitive).
  EXPECT_EQ(testing::ReadWholeFile(target() / "My Documents" / "sub" / "doc.txt"), "doc");
  EXPECT_EQ(testing::ReadWholeFile(target() / "Other" / "o.txt"), "other");
  EXPECT_EQ(testing::ReadWholeFile(target() / "Favorites" / "lower.txt"), "lower");
  EXPECT_FALSE(fs::exists(target() / "top.txt"));
  EXPECT_FALSE(fs::exists(fs::symlink_status(target() / "link")));

  for (const wchar_t* name : {L"Cookies", L"Desktop", L"Favorites", L"Personal", L"Templates"}) {
    EXPECT_TRUE(Logged(std::wstring(L"Processing folder ") + name)) << name;
  }
  EXPECT_TRUE(Logged(
      L"Cannot migrate profile folders containing environment variables: %HOMEDRIVE%\\Templates"));
  EXPECT_FALSE(fs::exists(target() / "Templates"));
  // A source location that does not exist is passed over without a message.
  EXPECT_FALSE(fs::exists(target() / "Cookies"));
  EXPECT_EQ(Count(L"Cookies"), 1);
  EXPECT_EQ(Count(L"Failed"), 0);
}

TEST_F(UserProfileMigrationTest, TheLowerCaseVariableIsNotExpanded) {
  MakeHive(source() / "ntuser.dat", kExplorerKeys + ExplorerSection("User Shell Folders") +
                                        ExpandValue("Desktop", L"%userprofile%\\Desktop") + "\n");
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(
      L"Cannot migrate profile folders containing environment variables: %userprofile%\\Desktop"));
}

TEST_F(UserProfileMigrationTest, AVariableInTheTargetLocationIsReportedWithTheSourceLocation) {
  MakeHive(target() / "ntuser.dat",
           kExplorerKeys + ExplorerSection("User Shell Folders") +
               ExpandValue("Desktop", L"%APPDATA%\\Desktop") +
               ExpandValue("Favorites", L"%USERPROFILE%\\Favorites") + "\n" +
               ExplorerSection("Shell Folders") +
               "\"Favorites\"=hex(1):" + RegHex(L"C:\\Users\\anna\\Favorites") + "\n\n");
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(L"Cannot migrate profile folders containing environment variables: " +
                     Source(L"Desktop")));
  EXPECT_FALSE(fs::exists(target() / "Desktop" / "d.txt"));
  // This target hive gives "Personal" no location: its folder is not copied anywhere, least of
  // all into the current folder.
  EXPECT_TRUE(
      Logged(L"No target location for folder Personal, not migrated: " + Source(L"My Documents")));
  EXPECT_FALSE(fs::exists(fs::current_path() / "sub\\doc.txt"));
  EXPECT_FALSE(fs::exists(fs::current_path() / "sub"));
}

TEST_F(UserProfileMigrationTest, RowsOutsideTheMaskAreSkippedWithTheirSourceLocation) {
  bed.settings.folderMask = 0x8;  // Desktop only
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(L"Skipped processing folder " + Source(L"Favorites")));
  EXPECT_TRUE(Logged(L"Skipped processing folder " + Source(L"My Documents")));
  EXPECT_TRUE(fs::exists(target() / "Desktop" / "d.txt"));
  EXPECT_FALSE(fs::exists(target() / "Documents"));
}

TEST_F(UserProfileMigrationTest, FolderMigrationSwitchedOffLogsNothingAfterTheHive) {
  bed.settings.folderMask = 0x80000000u;
  FolderMigrator migrator(context, table);
  EXPECT_EQ(MigrateUserProfile(migrator, Source(), 1, Target(), 2), hr::kOk);
  EXPECT_EQ(Count(L"folder"), 0);
  EXPECT_EQ(Count(L"Folder"), 0);
  EXPECT_FALSE(fs::exists(target() / "Desktop"));
  EXPECT_FALSE(fs::exists(target() / "Other"));
}

TEST_F(UserProfileMigrationTest, AFailedHiveMigrationIsTheResultAndNoFolderIsCopied) {
  fs::remove(source() / "ntuser.dat");
  FolderMigrator migrator(context, table);
  EXPECT_EQ(MigrateUserProfile(migrator, Source(), 1, Target(), 2),
            HResultFromWin32(err::kFileNotFound));
  EXPECT_EQ(Count(L"Processing folder"), 0);
  EXPECT_FALSE(fs::exists(target() / "Other"));
}

TEST_F(UserProfileMigrationTest, UnreadableHivesFailTheFolderMigration) {
  fs::remove(target() / "ntuser.dat");
  EXPECT_EQ(Folders(), HResultFromWin32(err::kFileNotFound));
  EXPECT_TRUE(Logged(L"Failed to read target profile folders from hive (0x80070002)"));
  fs::remove(source() / "ntuser.dat");
  EXPECT_EQ(Folders(), HResultFromWin32(err::kFileNotFound));
  EXPECT_TRUE(Logged(L"Failed to read source profile folders from hive (0x80070002)"));
  EXPECT_EQ(Count(L"Processing folder"), 0);
}

TEST_F(UserProfileMigrationTest, AnUnreadableSourceFolderWithoutTakeOwnershipIsNotCopied) {
  security.FailOn(SecurityOp::kReadNamed, Source(L"Desktop"), err::kAccessDenied);
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(L"Failed to take ownership (0x80070005): " + Source(L"Desktop")));
  EXPECT_FALSE(fs::exists(target() / "Desktop"));
  EXPECT_TRUE(fs::exists(target() / "Favorites" / "f.url"));
}

TEST_F(UserProfileMigrationTest, AnUnreadableSourceFolderIsTakenOverCopiedAndRestored) {
  bed.settings.takeOwnership = true;
  security.SetObject(Source(L"Desktop"), OwnedBy(AnnaSid()));
  security.FailOn(SecurityOp::kReadNamed, Source(L"Desktop"), err::kAccessDenied);
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_EQ(Count(L"Failed"), 0);
  EXPECT_EQ(testing::ReadWholeFile(target() / "Desktop" / "d.txt"), "desk");
  EXPECT_EQ(security.Object(Source(L"Desktop"))->owner, AnnaSid());
  EXPECT_EQ(security.Object(Source(L"Desktop"))->dacl, OwnedBy(AnnaSid()).dacl);
  int ownerWrites = 0;
  for (const auto& [path, write] : security.writes()) {
    if (path == Source(L"Desktop") && write.writeOwner) ++ownerWrites;
  }
  EXPECT_EQ(ownerWrites, 2);  // taken, then given back
}

TEST_F(UserProfileMigrationTest, AnyOtherReadFailureSkipsTheFolderEvenWithTakeOwnership) {
  bed.settings.takeOwnership = true;
  fs::create_directories(target() / "Favorites");
  security.FailOn(SecurityOp::kReadNamed, Target(L"Favorites"), err::kSharingViolation);
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(L"Failed to take ownership (0x80070020): " + Target(L"Favorites")));
  EXPECT_FALSE(fs::exists(target() / "Favorites" / "f.url"));
}

TEST_F(UserProfileMigrationTest, RemainingFoldersLogTheTruncatedSearchFormat) {
  FolderMigrator migrator(context, table);
  const std::wstring missing = Source(L"gone");
  EXPECT_EQ(MigrateRemainingFolders(migrator, missing, Target()),
            HResultFromWin32(err::kPathNotFound));
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Failed searching \"" + missing + L"\\*\": 0x80070003"});
  // The formatter prints "0x%08" as "0x%08X" would, so the literal itself is checked.
  EXPECT_EQ(std::wstring_view(kFailedSearchingFormat), L"Failed searching \"%s\": 0x%08");
}

TEST_F(UserProfileMigrationTest, RemainingFoldersGetAttributesTimesAndSecurityOfTheSource) {
  security.SetObject(Source(L"Other"), OwnedBy(AnnaSid()));
  ProcessFileSystem().SetAttributes(Source(L"Other"), file_attr::kDirectory | file_attr::kHidden);
  fs::last_write_time(source() / "Other", fs::file_time_type(std::chrono::hours(24 * 365 * 40)));
  FolderMigrator migrator(context, table);
  EXPECT_EQ(MigrateRemainingFolders(migrator, Source(), Target()), hr::kOk);
  std::uint32_t attributes = 0;
  ProcessFileSystem().GetAttributes(Target(L"Other"), attributes);
  EXPECT_EQ(attributes & file_attr::kHidden, file_attr::kHidden);
  EXPECT_EQ(fs::last_write_time(target() / "Other"), fs::last_write_time(source() / "Other"));
  EXPECT_EQ(security.Object(Target(L"Other"))->owner, AnnaSid());
  // The special folders are left to the first pass.
  EXPECT_FALSE(fs::exists(target() / "Desktop"));
}

TEST_F(UserProfileMigrationTest, ARemainingFolderPastThePathLimitIsLoggedAndLeftOut) {
  const std::wstring longName(260 - Target().size() - 1, L'T');  // the target path: 260
  fs::create_directories(source() / std::string(longName.begin(), longName.end()) / "inner");
  FolderMigrator migrator(context, table);
  static_cast<void>(MigrateRemainingFolders(migrator, Source(), Target()));  // the log tells
  EXPECT_TRUE(Logged(L"Path too long, the folder is not migrated (0x800700CE): " + Source() +
                     L": " + longName));
  EXPECT_TRUE(fs::exists(target() / "Other"));  // the loop went on
}

TEST_F(UserProfileMigrationTest, ASecurityFailureOfARemainingFolderShowsTheLastError) {
  security.FailOn(SecurityOp::kWriteOwner, Target(L"Other"), err::kAccessDenied);
  FolderMigrator migrator(context, table);
  static_cast<void>(MigrateRemainingFolders(migrator, Source(), Target()));  // the log tells
  EXPECT_TRUE(Logged(L"Failed to set security on object (0x00000000): " + Target(L"Other")));
}

}  // namespace
}  // namespace tw

namespace tw {
namespace {

TEST_F(UserProfileMigrationTest, AUncRedirectedFolderStaysRedirectedAndIsNotCopied) {
  MakeHive(source() / "ntuser.dat", kExplorerKeys + ExplorerSection("User Shell Folders") +
                                        ExpandValue("Desktop", L"%USERPROFILE%\\Desktop") +
                                        ExpandValue("Personal", L"\\\\server\\share\\docs") + "\n");
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_FALSE(Logged(L"Processing folder Personal"));
  EXPECT_TRUE(Logged(L"Processing folder Desktop"));
  EXPECT_FALSE(fs::exists(target() / "Documents"));
  const std::string exported = testing::ExportHive(
      target() / "ntuser.dat",
      "\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders");
  EXPECT_NE(exported.find("\"Personal\"=hex(2):" + RegHex(L"\\\\server\\share\\docs", false)),
            std::string::npos)
      << exported;
}

}  // namespace
}  // namespace tw

// Folder locations that the hives' owner could point anywhere: only locations inside their own
// profile (after "." and ".." are resolved by text) are used; everything else is logged and
// left alone. Deliberately stricter than the documented behaviour, for safety.
namespace tw {
namespace {

class HostileLocationTest : public UserProfileMigrationTest {
 protected:
  void SourceValue(const char* name, const std::wstring& value) {
    MakeHive(source() / "ntuser.dat",
             kExplorerKeys + ExplorerSection("User Shell Folders") + ExpandValue(name, value) +
                 ExpandValue("Favorites", L"%USERPROFILE%\\Favorites") + "\n");
  }
  void TargetValue(const char* name, const std::wstring& value) {
    MakeHive(target() / "ntuser.dat",
             kExplorerKeys + ExplorerSection("User Shell Folders") + ExpandValue(name, value) +
                 ExpandValue("Favorites", L"%USERPROFILE%\\Favorites") + "\n" +
                 ExplorerSection("Shell Folders") +
                 "\"Favorites\"=hex(1):" + RegHex(L"C:\\Users\\anna\\Favorites") + "\n\n");
  }
  // No security was read or written anywhere below `folder`, in any spelling.
  bool SecurityUntouchedBelow(const fs::path& folder, const std::wstring& spelling) const {
    for (const auto& [path, write] : security.writes()) {
      if (path.find(spelling) != std::wstring::npos) return false;
    }
    return security.Object(WinPath(folder)) == nullptr;
  }
  fs::path Bob() const { return bed.folder.path() / "bob"; }
};

TEST_F(HostileLocationTest, ADotDotIntoAnotherProfileIsNotFollowed) {
  Write(Bob() / "Desktop" / "secret.txt", "bob's");
  SourceValue("Desktop", L"%USERPROFILE%\\..\\bob\\Desktop");
  const testing::TreeState bobBefore = testing::CaptureTreeState(Bob());
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(
      Logged(L"Folder location outside the profile, not migrated: Desktop: "
             L"%USERPROFILE%\\..\\bob\\Desktop"));
  EXPECT_EQ(testing::DescribeTreeChanges(bobBefore, testing::CaptureTreeState(Bob())), "");
  EXPECT_FALSE(fs::exists(target() / "Desktop"));
  EXPECT_TRUE(SecurityUntouchedBelow(Bob() / "Desktop", L"bob"));
  // The row loop goes on.
  EXPECT_EQ(testing::ReadWholeFile(target() / "Favorites" / "f.url"), "fav");
}

TEST_F(HostileLocationTest, ATargetLocationBesideTheTargetIsNotWritten) {
  TargetValue("Desktop", L"%USERPROFILE%\\..\\beside");
  const testing::TreeState sourceBefore = testing::CaptureTreeState(source());
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(
      L"Folder location outside the profile, not migrated: Desktop: %USERPROFILE%\\..\\beside"));
  EXPECT_FALSE(fs::exists(bed.folder.path() / "beside"));
  EXPECT_TRUE(SecurityUntouchedBelow(bed.folder.path() / "beside", L"beside"));
  EXPECT_EQ(testing::ReadWholeFile(target() / "Favorites" / "f.url"), "fav");
  EXPECT_EQ(testing::DescribeTreeChanges(sourceBefore, testing::CaptureTreeState(source())), "");
}

TEST_F(HostileLocationTest, ADrivePathOutsideTheProfileIsNotRead) {
  const fs::path outside = bed.folder.path() / "outside";
  Write(outside / "server.txt", "server");
  const std::wstring value = WinPath(outside);  // the Z: view of a server folder
  SourceValue("Desktop", value);
  const testing::TreeState outsideBefore = testing::CaptureTreeState(outside);
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(L"Folder location outside the profile, not migrated: Desktop: " + value));
  EXPECT_EQ(testing::DescribeTreeChanges(outsideBefore, testing::CaptureTreeState(outside)), "");
  EXPECT_FALSE(fs::exists(target() / "Desktop"));
  EXPECT_TRUE(SecurityUntouchedBelow(outside, L"outside"));
}

TEST_F(HostileLocationTest, ADrivePathToTheProfileItselfIsRefusedToo) {
  // Only the profile's own spelling counts: another view of the same folder is refused.
  const std::wstring value = WinPath(source() / "Desktop");
  TargetValue("Desktop", value);
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(L"Folder location outside the profile, not migrated: Desktop: " + value));
}

TEST_F(HostileLocationTest, RelativeAndClimbingValuesAreRefused) {
  MakeHive(source() / "ntuser.dat",
           kExplorerKeys + ExplorerSection("User Shell Folders") +
               ExpandValue("Desktop", L"..\\..") +
               ExpandValue("Favorites", L"%USERPROFILE%\\..\\..") +
               ExpandValue("Personal", L"%USERPROFILE%\\My Documents\\..\\..\\anna\\My Documents") +
               "\n");
  const testing::TreeState sourceBefore = testing::CaptureTreeState(source());
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(L"Folder location outside the profile, not migrated: Desktop: ..\\.."));
  EXPECT_TRUE(Logged(
      L"Folder location outside the profile, not migrated: Favorites: %USERPROFILE%\\..\\.."));
  EXPECT_TRUE(
      Logged(L"Folder location outside the profile, not migrated: Personal: "
             L"%USERPROFILE%\\My Documents\\..\\..\\anna\\My Documents"));
  EXPECT_EQ(Count(L"Folder location outside the profile"), 3);
  EXPECT_FALSE(fs::exists(target() / "Desktop"));
  EXPECT_FALSE(fs::exists(target() / "Documents"));
  EXPECT_FALSE(fs::exists(target() / "Favorites" / "f.url"));
  EXPECT_EQ(testing::DescribeTreeChanges(sourceBefore, testing::CaptureTreeState(source())), "");
}

TEST_F(HostileLocationTest, DotsInsideTheProfileAreResolvedByTextForEveryStep) {
  // "gone" does not exist, so the system could not resolve "gone\.."; the text can, and the
  // existence test, the security steps and the copy all use the resolved path.
  SourceValue("Desktop", L"%USERPROFILE%\\gone\\..\\.\\Desktop");
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_EQ(Count(L"Folder location outside the profile"), 0);
  EXPECT_EQ(testing::ReadWholeFile(target() / "Desktop" / "d.txt"), "desk");
  EXPECT_NE(security.Object(Source(L"Desktop")), nullptr);
  for (const auto& [path, write] : security.writes()) {
    EXPECT_EQ(path.find(L"gone"), std::wstring::npos) << path;
  }

  security.FailOn(SecurityOp::kReadNamed, Source(L"Desktop"), err::kAccessDenied);
  bed.log.Clear();
  EXPECT_EQ(Folders(), hr::kOk);
  EXPECT_TRUE(Logged(L"Failed to take ownership (0x80070005): " + Source(L"Desktop")));
}

}  // namespace
}  // namespace tw
