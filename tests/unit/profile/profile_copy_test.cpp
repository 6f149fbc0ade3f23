// The default-profile copy, the recursive folder copy and the target folder path creation, over
// the fakes.
#include "profile/profile_copy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "profile/folder_migrator.h"
#include "profile_test_bed.h"

namespace tw {
namespace {

using testing::AdminSid;
using testing::AnnaSid;
using testing::FileOp;
using testing::OwnedBy;
using testing::SecurityOp;

const wchar_t kSource[] = L"\\\\srv\\profiles\\anna\\Docs";
const wchar_t kTarget[] = L"\\\\srv\\profiles\\anna.V2\\Docs";

std::wstring In(const wchar_t* folder, const wchar_t* rest) {
  return std::wstring(folder) + L"\\" + rest;
}

security::Sid BobSid() { return security::Sid(5, {21, 1, 2, 3, 1002}); }

class CopyFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bed.files.AddFolder(kSource);
    bed.files.AddFolder(L"\\\\srv\\profiles\\anna.V2");
    bed.security.SetObject(kSource, OwnedBy(AnnaSid()));
    AddFile(L"a.txt", "alpha", file_attr::kArchive | file_attr::kHidden, OwnedBy(AnnaSid()));
    bed.files.AddFolder(In(kSource, L"sub"), file_attr::kDirectory | file_attr::kReadOnly);
    bed.security.SetObject(In(kSource, L"sub"), OwnedBy(BobSid()));
    AddFile(L"sub\\b.txt", "beta", file_attr::kArchive, OwnedBy(BobSid()));
  }
  void AddFile(const wchar_t* name, std::string content, std::uint32_t attributes,
               const security::SecurityDescriptor& sd) {
    bed.files.SetFile(In(kSource, name), std::move(content), attributes);
    bed.files.SetTimes(In(kSource, name), {100, 200, 300});
    bed.security.SetObject(In(kSource, name), sd);
  }
  HResult Copy() {
    FolderMigrator migrator(bed.context);
    return CopyFolder(migrator, kSource, kTarget);
  }
  testing::ProfileTestBed bed;
};

TEST_F(CopyFolderTest, CopiesContentAttributesTimesAndSecurityItemByItem) {
  EXPECT_EQ(Copy(), hr::kOk);
  EXPECT_EQ(bed.log.messages(), std::vector<std::wstring>{});
  EXPECT_EQ(bed.files.FileContent(In(kTarget, L"a.txt")), "alpha");
  EXPECT_EQ(bed.files.FileContent(In(kTarget, L"sub\\b.txt")), "beta");
  EXPECT_EQ(bed.files.AttributesOf(In(kTarget, L"a.txt")),
            file_attr::kArchive | file_attr::kHidden);
  EXPECT_EQ(bed.files.AttributesOf(In(kTarget, L"sub")),
            file_attr::kDirectory | file_attr::kReadOnly);
  const FileTimes times = bed.files.TimesOf(In(kTarget, L"a.txt"));
  EXPECT_EQ(times.creation, 100u);
  EXPECT_EQ(times.lastAccess, 200u);
  EXPECT_EQ(times.lastWrite, 300u);
  EXPECT_EQ(bed.security.Object(In(kTarget, L"a.txt"))->owner, AnnaSid());
  EXPECT_EQ(bed.security.Object(In(kTarget, L"sub"))->owner, BobSid());
  EXPECT_EQ(bed.security.Object(In(kTarget, L"sub\\b.txt"))->owner, BobSid());
  // The missing target folder was created with the source folder's security.
  ASSERT_NE(bed.security.Object(kTarget), nullptr);
  EXPECT_EQ(bed.security.Object(kTarget)->owner, AnnaSid());
  EXPECT_EQ(bed.files.OpenHandles(), 0);
  EXPECT_EQ(bed.files.OpenSearches(), 0);
}

TEST_F(CopyFolderTest, AnExistingTargetFileIsLeftUntouched) {
  bed.files.AddFolder(kTarget);
  bed.files.SetFile(In(kTarget, L"a.txt"), "mine", file_attr::kReadOnly);
  bed.files.SetTimes(In(kTarget, L"a.txt"), {7, 8, 9});
  bed.security.SetObject(In(kTarget, L"a.txt"), OwnedBy(BobSid()));
  EXPECT_EQ(Copy(), hr::kOk);
  EXPECT_EQ(bed.files.FileContent(In(kTarget, L"a.txt")), "mine");
  EXPECT_EQ(bed.files.AttributesOf(In(kTarget, L"a.txt")), file_attr::kReadOnly);
  EXPECT_EQ(bed.files.TimesOf(In(kTarget, L"a.txt")).lastWrite, 9u);
  EXPECT_EQ(bed.security.Object(In(kTarget, L"a.txt"))->owner, BobSid());
  for (const auto& [path, write] : bed.security.writes()) EXPECT_NE(path, In(kTarget, L"a.txt"));
}

TEST_F(CopyFolderTest, AnExistingTargetFolderIsDescendedAndGetsTheSourceState) {
  bed.files.AddFolder(In(kTarget, L"sub"));
  bed.files.SetTimes(In(kSource, L"sub"), {11, 12, 13});
  EXPECT_EQ(Copy(), hr::kOk);
  EXPECT_EQ(bed.files.FileContent(In(kTarget, L"sub\\b.txt")), "beta");
  EXPECT_EQ(bed.files.AttributesOf(In(kTarget, L"sub")),
            file_attr::kDirectory | file_attr::kReadOnly);
  EXPECT_EQ(bed.files.TimesOf(In(kTarget, L"sub")).lastWrite, 13u);
  EXPECT_EQ(bed.security.Object(In(kTarget, L"sub"))->owner, BobSid());
}

TEST_F(CopyFolderTest, ReparsePointsAreNeverEnteredOrCopied) {
  bed.files.AddReparsePoint(In(kSource, L"junction"), true);
  bed.files.AddReparsePoint(In(kSource, L"link.txt"), false);
  EXPECT_EQ(Copy(), hr::kOk);
  EXPECT_FALSE(bed.files.PathExists(In(kTarget, L"junction")));
  EXPECT_FALSE(bed.files.PathExists(In(kTarget, L"link.txt")));
  EXPECT_TRUE(bed.log.messages().empty());
}

TEST_F(CopyFolderTest, AnUnreadableItemWithoutTakeOwnershipIsLoggedAndSkipped) {
  bed.security.FailOn(SecurityOp::kReadNamed, In(kSource, L"a.txt"), err::kAccessDenied);
  EXPECT_EQ(Copy(), hr::kOk);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Failed getting security descriptor (0x80070005): "
                                      L"\\\\srv\\profiles\\anna\\Docs\\a.txt"});
  EXPECT_FALSE(bed.files.PathExists(In(kTarget, L"a.txt")));
  EXPECT_EQ(bed.files.FileContent(In(kTarget, L"sub\\b.txt")), "beta");
}

TEST_F(CopyFolderTest, AnUnreadableItemIsTakenOverCopiedAndGivenItsSecurityBack) {
  bed.settings.takeOwnership = true;
  bed.security.FailOn(SecurityOp::kReadNamed, In(kSource, L"a.txt"), err::kAccessDenied);
  EXPECT_EQ(Copy(), hr::kOk);
  EXPECT_TRUE(bed.log.messages().empty());
  EXPECT_EQ(bed.files.FileContent(In(kTarget, L"a.txt")), "alpha");
  // The target gets the security the source had before it was taken over, and so does the
  // source again.
  EXPECT_EQ(bed.security.Object(In(kTarget, L"a.txt"))->owner, AnnaSid());
  EXPECT_EQ(bed.security.Object(In(kSource, L"a.txt"))->owner, AnnaSid());
  EXPECT_EQ(bed.security.Object(In(kSource, L"a.txt"))->dacl, OwnedBy(AnnaSid()).dacl);
  bool tookOver = false;
  for (const auto& [path, write] : bed.security.writes()) {
    if (path == In(kSource, L"a.txt") && write.writeOwner && write.owner == AdminSid()) {
      tookOver = true;
    }
  }
  EXPECT_TRUE(tookOver);
}

TEST_F(CopyFolderTest, AFailedReadOtherThanAccessDeniedSkipsEvenWithTakeOwnership) {
  bed.settings.takeOwnership = true;
  bed.security.FailOn(SecurityOp::kReadNamed, In(kSource, L"sub"), err::kSharingViolation);
  EXPECT_EQ(Copy(), hr::kOk);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Failed getting security descriptor (0x80070020): "
                                      L"\\\\srv\\profiles\\anna\\Docs\\sub"});
  EXPECT_FALSE(bed.files.PathExists(In(kTarget, L"sub")));
}

TEST_F(CopyFolderTest, PerItemFailuresAreLoggedWithTheirPathsAndTheCopyGoesOn) {
  bed.files.FailPath(FileOp::kCopy, In(kSource, L"a.txt"), err::kSharingViolation);
  bed.files.FailPath(FileOp::kSetAttributes, In(kTarget, L"sub"), err::kAccessDenied);
  bed.security.FailOn(SecurityOp::kWriteDacl, In(kTarget, L"sub\\b.txt"), err::kAccessDenied);
  EXPECT_EQ(Copy(), hr::kOk);
  const std::vector<std::wstring> expected = {
      L"Failed migrating file (0x80070020): \\\\srv\\profiles\\anna\\Docs\\a.txt",
      L"Failed setting V2 file object attributes (0x80070002): "
      L"\\\\srv\\profiles\\anna.V2\\Docs\\a.txt",
      L"Failed to open the target file object (0x80070002): "
      L"\\\\srv\\profiles\\anna.V2\\Docs\\a.txt",
      L"Failed setting V2 file object attributes (0x80070005): "
      L"\\\\srv\\profiles\\anna.V2\\Docs\\sub\\b.txt",
      L"Failed to set security on object (0x80070005): "
      L"\\\\srv\\profiles\\anna.V2\\Docs\\sub\\b.txt",
      L"Failed setting V2 file object attributes (0x80070005): "
      L"\\\\srv\\profiles\\anna.V2\\Docs\\sub",
  };
  EXPECT_EQ(bed.log.messages(), expected);
  EXPECT_EQ(bed.files.FileContent(In(kTarget, L"sub\\b.txt")), "beta");
}

TEST_F(CopyFolderTest, AFailedEnumerationIsTheResult) {
  FolderMigrator migrator(bed.context);
  EXPECT_EQ(CopyFolder(migrator, L"\\\\srv\\profiles\\missing", kTarget),
            HResultFromWin32(err::kPathNotFound));
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Failed enumerating source folder (0x80070003): "
                                      L"\\\\srv\\profiles\\missing\\*"});
  EXPECT_FALSE(bed.files.PathExists(kTarget));
}

// The fake lists names in upper-case order: "M..." comes after "a.txt" and before "sub".
TEST_F(CopyFolderTest, AnEntryPastThePathLimitIsLoggedAndEndsTheLoop) {
  const std::wstring targetFolder(kTarget);
  const std::wstring longName = L"M" + std::wstring(259 - targetFolder.size() - 1, L'x');
  AddFile(longName.c_str(), "long", file_attr::kArchive, OwnedBy(AnnaSid()));
  EXPECT_EQ(Copy(), hr::kOk);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Path too long, the rest of the folder is not migrated "
                                      L"(0x800700CE): \\\\srv\\profiles\\anna\\Docs: " +
                                      longName});
  EXPECT_EQ(bed.files.FileContent(In(kTarget, L"a.txt")), "alpha");
  EXPECT_FALSE(bed.files.PathExists(In(kTarget, L"sub")));  // the loop ended before it
}

TEST_F(CopyFolderTest, AFolderTooLongForItsSearchIsLogged) {
  // The folder's own path fits (259 characters), its search pattern does not.
  const std::wstring name = std::wstring(259 - std::wstring(kSource).size() - 1, L'n');
  const std::wstring folder = In(kSource, name.c_str());
  bed.files.AddFolder(folder);
  bed.security.SetObject(folder, OwnedBy(AnnaSid()));
  bed.files.SetFile(folder + L"\\f.txt", "lost");
  FolderMigrator migrator(bed.context);
  EXPECT_EQ(CopyFolder(migrator, kSource, L"\\\\srv\\profiles\\t"), hr::kOk);
  const std::vector<std::wstring> expected = {
      L"Path too long, the folder's content is not migrated (0x800700CE): " + folder,
      L"Failed enumerating source folder (0x80070002): ",
      L"Failed migrating folder (0x80070002): " + folder,
  };
  EXPECT_EQ(bed.log.messages(), expected);
  EXPECT_EQ(bed.files.FileContent(L"\\\\srv\\profiles\\t\\a.txt"), "alpha");
}

TEST_F(CopyFolderTest, ANameTheTargetRefusesIsLoggedWithItsCode) {
  bed.files.FailPath(FileOp::kCopy, In(kSource, L"a.txt"), err::kInvalidName);
  bed.files.FailPath(FileOp::kCopy, In(kSource, L"sub\\b.txt"), err::kFilenameExcedRange);
  EXPECT_EQ(Copy(), hr::kOk);
  const std::vector<std::wstring> messages = bed.log.messages();
  ASSERT_GE(messages.size(), 2u);
  EXPECT_EQ(messages[0],
            L"Failed migrating file (0x8007007B): \\\\srv\\profiles\\anna\\Docs\\a.txt");
  EXPECT_NE(std::find(messages.begin(), messages.end(),
                      L"Failed migrating file (0x800700CE): "
                      L"\\\\srv\\profiles\\anna\\Docs\\sub\\b.txt"),
            messages.end());
}

TEST_F(CopyFolderTest, CreateTargetFolderPathMakesEveryFolderWithSourceSecurityAndAttributes) {
  bed.files.SetAttributes(kSource, file_attr::kDirectory | file_attr::kSystem);
  FolderMigrator migrator(bed.context);
  const std::wstring deep = L"\\\\srv\\profiles\\anna.V2\\x\\y";
  EXPECT_EQ(CreateTargetFolderPath(migrator, kSource, deep), hr::kOk);
  EXPECT_TRUE(bed.files.HasFolder(deep));
  EXPECT_EQ(bed.security.Object(deep)->owner, AnnaSid());
  EXPECT_EQ(bed.files.AttributesOf(deep), file_attr::kDirectory | file_attr::kSystem);
  // An existing folder counts as created.
  EXPECT_EQ(CreateTargetFolderPath(migrator, kSource, deep), hr::kOk);
  EXPECT_TRUE(bed.log.messages().empty());
}

TEST_F(CopyFolderTest, CreateTargetFolderPathFailuresAreLogged) {
  FolderMigrator migrator(bed.context);
  bed.files.FailOperation(FileOp::kMakeFolderPath, err::kAccessDenied);
  EXPECT_EQ(CreateTargetFolderPath(migrator, kSource, kTarget), hr::kAccessDenied);
  bed.files.ClearFailures();
  bed.files.FailOperation(FileOp::kSetAttributes, err::kAccessDenied);
  EXPECT_EQ(CreateTargetFolderPath(migrator, kSource, kTarget), hr::kOk);
  EXPECT_EQ(CreateTargetFolderPath(migrator, L"\\\\srv\\profiles\\gone", kTarget), hr::kOk);
  const std::vector<std::wstring> expected = {
      L"Failed to create target profile path (0x80070005): \\\\srv\\profiles\\anna.V2\\Docs",
      L"Failed setting target folder attributes (0x80070005): \\\\srv\\profiles\\anna.V2\\Docs",
      L"Failed getting source folder attributes (0x80070002): \\\\srv\\profiles\\gone",
  };
  EXPECT_EQ(bed.log.messages(), expected);
}

// --- the default profile ---

const wchar_t kDefault[] = L"C:\\Users\\_tarnwick_";
const wchar_t kNewProfile[] = L"\\\\srv\\profiles\\anna.V2";

class CopyDefaultProfileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bed.files.AddFolder(kDefault);
    bed.files.SetFile(In(kDefault, L"NTUSER.DAT"), "default hive", file_attr::kHidden);
    bed.files.AddFolder(In(kDefault, L"AppData\\Local"),
                        file_attr::kDirectory | file_attr::kHidden);
    bed.files.SetFile(In(kDefault, L"AppData\\Local\\x.ini"), "x");
    bed.files.AddReparsePoint(In(kDefault, L"Application Data"), true);
    bed.files.AddFolder(kNewProfile);
  }
  testing::ProfileTestBed bed;
  SelfRelativeDescriptor annas = SelfRelativeDescriptor::FromAbsolute(OwnedBy(AnnaSid()));
};

TEST_F(CopyDefaultProfileTest, CopiesEveryItemAndGivesItTheSourceOwner) {
  EXPECT_EQ(CopyDefaultProfile(bed.context, kDefault, kNewProfile, annas), hr::kOk);
  EXPECT_TRUE(bed.log.messages().empty());
  EXPECT_EQ(bed.files.FileContent(In(kNewProfile, L"NTUSER.DAT")), "default hive");
  EXPECT_EQ(bed.files.FileContent(In(kNewProfile, L"AppData\\Local\\x.ini")), "x");
  EXPECT_EQ(bed.files.AttributesOf(In(kNewProfile, L"AppData\\Local")),
            file_attr::kDirectory | file_attr::kHidden);
  EXPECT_FALSE(bed.files.PathExists(In(kNewProfile, L"Application Data")));
  for (const wchar_t* item :
       {L"NTUSER.DAT", L"AppData", L"AppData\\Local", L"AppData\\Local\\x.ini"}) {
    EXPECT_EQ(bed.security.Object(In(kNewProfile, item))->owner, AnnaSid()) << item;
  }
  EXPECT_EQ(bed.files.OpenSearches(), 0);
}

TEST_F(CopyDefaultProfileTest, AnExistingFileIsKeptAndATrailingBackslashIsHonoured) {
  bed.files.SetFile(In(kNewProfile, L"NTUSER.DAT"), "migrated");
  EXPECT_EQ(CopyDefaultProfile(bed.context, std::wstring(kDefault) + L"\\", kNewProfile, annas),
            hr::kOk);
  EXPECT_EQ(bed.files.FileContent(In(kNewProfile, L"NTUSER.DAT")), "migrated");
}

TEST_F(CopyDefaultProfileTest, WithoutAnOwnerEveryItemIsLogged) {
  EXPECT_EQ(CopyDefaultProfile(bed.context, kDefault, kNewProfile, SelfRelativeDescriptor()),
            hr::kOk);
  EXPECT_EQ(bed.log.messages().front(),
            L"Failed getting profile owner (0x8007051B): C:\\Users\\_tarnwick_");
  EXPECT_EQ(bed.Count(L"Failed setting object owner (0x8007051B): \\\\srv\\profiles\\anna.V2\\"),
            4);
  EXPECT_EQ(bed.files.FileContent(In(kNewProfile, L"NTUSER.DAT")), "default hive");
}

TEST_F(CopyDefaultProfileTest, ItemFailuresAreLoggedAndTheCopyGoesOn) {
  bed.files.FailPath(FileOp::kCopy, In(kDefault, L"NTUSER.DAT"), err::kSharingViolation);
  bed.security.FailOn(SecurityOp::kWriteOwner, In(kNewProfile, L"NTUSER.DAT"), err::kFileNotFound);
  bed.files.AddFolder(In(kNewProfile, L"AppData"));
  EXPECT_EQ(CopyDefaultProfile(bed.context, kDefault, kNewProfile, annas), hr::kOk);
  EXPECT_TRUE(
      bed.Logged(L"Failed copying file (0x80070020): \\\\srv\\profiles\\anna.V2\\NTUSER.DAT"));
  EXPECT_TRUE(bed.Logged(
      L"Failed setting object owner (0x80070002): \\\\srv\\profiles\\anna.V2\\NTUSER.DAT"));
  EXPECT_TRUE(
      bed.Logged(L"Failed creating folder (0x800700B7): \\\\srv\\profiles\\anna.V2\\AppData"));
  EXPECT_EQ(bed.log.messages().size(), 3u);
}

TEST_F(CopyDefaultProfileTest, AFailedEnumerationIsTheResult) {
  EXPECT_EQ(CopyDefaultProfile(bed.context, L"C:\\Users\\none", kNewProfile, annas),
            HResultFromWin32(err::kPathNotFound));
  EXPECT_EQ(bed.log.messages(), std::vector<std::wstring>{
                                    L"Failed enumerating folder(0x80070003): C:\\Users\\none\\*"});
}

}  // namespace
}  // namespace tw
