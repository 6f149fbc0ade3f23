// Target naming, creation with the marker rule, and folder tree deletion, over the fakes.
#include "profile/target_profile.h"

#include <gtest/gtest.h>

#include <string>

#include "profile_test_bed.h"

namespace tw {
namespace {

using testing::FileOp;
using testing::ProfileTestBed;
using testing::SecurityOp;

class TargetPathTest : public ::testing::Test {
 protected:
  std::wstring Target(const std::wstring& source, std::uint32_t version) {
    std::wstring target = L"unchanged";
    EXPECT_EQ(GetTargetPath(bed.context, source, target, version), hr::kOk);
    return target;
  }
  ProfileTestBed bed;
};

TEST_F(TargetPathTest, BesideTheSourceWithV2Suffix) {
  EXPECT_EQ(Target(L"\\\\srv\\profiles\\anna", 2), L"\\\\srv\\profiles\\anna.V2");
}

TEST_F(TargetPathTest, V2SourceToV6UnderTargetRoot) {
  bed.settings.targetPath = L"\\\\srv\\new";
  EXPECT_EQ(Target(L"\\\\srv\\profiles\\anna.V2", 6), L"\\\\srv\\new\\anna.V6");
}

TEST_F(TargetPathTest, LowerCaseSuffixIsStripped) {
  EXPECT_EQ(Target(L"\\\\srv\\profiles\\anna.v5", 6), L"\\\\srv\\profiles\\anna.V6");
  EXPECT_EQ(Target(L"\\\\srv\\profiles\\anna.V5", 5), L"\\\\srv\\profiles\\anna.V5");
}

TEST_F(TargetPathTest, OtherVersionsGiveTheBareName) {
  EXPECT_EQ(Target(L"\\\\srv\\profiles\\anna.V2", 1), L"\\\\srv\\profiles\\anna");
  EXPECT_EQ(Target(L"\\\\srv\\profiles\\anna", 3), L"\\\\srv\\profiles\\anna");
  EXPECT_EQ(Target(L"\\\\srv\\profiles\\anna.V3", 2), L"\\\\srv\\profiles\\anna.V3.V2");
}

TEST_F(TargetPathTest, NoUsableBackslashFails) {
  std::wstring target = L"kept";
  EXPECT_EQ(GetTargetPath(bed.context, L"anna", target, 2), hr::kFail);
  EXPECT_EQ(GetTargetPath(bed.context, L"\\anna", target, 2), hr::kFail);
  EXPECT_EQ(target, L"kept");
}

const wchar_t kTarget[] = L"\\\\srv\\profiles\\anna.V2";

class CreateTargetProfileFolderTest : public ::testing::Test {
 protected:
  static constexpr const wchar_t* kMarker = L"\\\\srv\\profiles\\anna.V2\\_qzk_mig_marker_";
  SelfRelativeDescriptor AnnasSecurity() {
    return SelfRelativeDescriptor::FromAbsolute(testing::OwnedBy(testing::AnnaSid()));
  }
  ProfileTestBed bed;
};

TEST(CreateTargetProfileFolder, CreatesTheFolderWithTheSourceSecurity) {
  ProfileTestBed bed;
  const SelfRelativeDescriptor security =
      SelfRelativeDescriptor::FromAbsolute(testing::OwnedBy(testing::AnnaSid()));
  EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, security), hr::kOk);
  EXPECT_TRUE(bed.files.HasFolder(kTarget));
  ASSERT_NE(bed.security.Object(kTarget), nullptr);
  EXPECT_EQ(bed.security.Object(kTarget)->owner, testing::AnnaSid());
  EXPECT_TRUE(bed.log.messages().empty());
}

TEST_F(CreateTargetProfileFolderTest, FinishedTargetIsNeverTouched) {
  bed.files.AddFolder(kTarget);
  bed.files.SetFile(L"\\\\srv\\profiles\\anna.V2\\ntuser.dat", "hive");
  EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, AnnasSecurity()), hr::kAlreadyExists);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{
                L"The target profile path already exists: \\\\srv\\profiles\\anna.V2"});
  EXPECT_EQ(bed.files.FileContent(L"\\\\srv\\profiles\\anna.V2\\ntuser.dat"), "hive");
  EXPECT_EQ(bed.files.Calls(FileOp::kDeleteTree), 0);
  EXPECT_EQ(bed.security.Calls(SecurityOp::kCreate), 0);
}

TEST_F(CreateTargetProfileFolderTest, MarkedTargetIsRebuilt) {
  bed.files.AddFolder(kTarget);
  bed.files.SetFile(L"\\\\srv\\profiles\\anna.V2\\_qzk_mig_marker_", "",
                    file_attr::kReadOnly | file_attr::kHidden);
  bed.files.SetFile(L"\\\\srv\\profiles\\anna.V2\\half.txt", "half");
  EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, AnnasSecurity()), hr::kOk);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"The target profile contains an interrupted migration, "
                                      L"rebuilding profile: \\\\srv\\profiles\\anna.V2"});
  EXPECT_TRUE(bed.files.HasFolder(kTarget));
  EXPECT_TRUE(bed.files.ChildNames(kTarget).empty());
  EXPECT_EQ(bed.security.Object(kTarget)->owner, testing::AnnaSid());
  // Its lock was free (the run that left it has ended); it was taken for the deletion and let
  // go of before the folder was made anew.
  EXPECT_EQ(bed.files.Calls(FileOp::kOpenLocked), 1);
  EXPECT_FALSE(bed.files.IsLocked(kMarker));
  EXPECT_EQ(bed.files.OpenHandles(), 0);
}

TEST_F(CreateTargetProfileFolderTest, TargetOfALiveRunIsNeitherRebuiltNorDeleted) {
  bed.files.AddFolder(kTarget);
  bed.files.SetFile(kMarker, "", file_attr::kReadOnly | file_attr::kHidden);
  bed.files.SetFile(L"\\\\srv\\profiles\\anna.V2\\half.txt", "half");
  bed.files.HoldLockElsewhere(kMarker);
  EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, AnnasSecurity()),
            HResultFromWin32(err::kSharingViolation));
  EXPECT_EQ(
      bed.log.messages(),
      std::vector<std::wstring>{
          L"The target profile is being migrated by another run: \\\\srv\\profiles\\anna.V2"});
  EXPECT_EQ(bed.files.Calls(FileOp::kDeleteTree), 0);
  EXPECT_EQ(bed.files.Calls(FileOp::kDeleteFile), 0);
  EXPECT_EQ(bed.security.Calls(SecurityOp::kCreate), 0);
  EXPECT_EQ(bed.files.FileContent(L"\\\\srv\\profiles\\anna.V2\\half.txt"), "half");
  EXPECT_TRUE(bed.files.HasFile(kMarker));
  EXPECT_EQ(bed.files.OpenHandles(), 0);

  // Once that run has ended, the target is an interrupted migration like any other.
  bed.files.ReleaseLockElsewhere(kMarker);
  bed.log.Clear();
  EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, AnnasSecurity()), hr::kOk);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"The target profile contains an interrupted migration, "
                                      L"rebuilding profile: \\\\srv\\profiles\\anna.V2"});
  EXPECT_TRUE(bed.files.ChildNames(kTarget).empty());
}

TEST_F(CreateTargetProfileFolderTest, AMarkerThatCannotBeLockedLeavesTheTargetAlone) {
  bed.files.AddFolder(kTarget);
  bed.files.SetFile(kMarker, "", file_attr::kReadOnly | file_attr::kHidden);
  bed.files.FailPath(FileOp::kOpenLocked, kMarker, err::kAccessDenied);
  EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, AnnasSecurity()), hr::kAccessDenied);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{L"Failed to lock the target profile (0x80070005): "
                                      L"\\\\srv\\profiles\\anna.V2"});
  EXPECT_EQ(bed.files.Calls(FileOp::kDeleteTree), 0);
  EXPECT_TRUE(bed.files.HasFile(kMarker));
}

// A marker that is gone when its lock is tried (its run just finished) is a finished target.
TEST_F(CreateTargetProfileFolderTest, AMarkerGoneWhileLookedAtIsLookedAtAgain) {
  bed.files.AddFolder(kTarget);
  bed.files.SetFile(kMarker, "", file_attr::kReadOnly | file_attr::kHidden);
  bed.files.FailPath(FileOp::kOpenLocked, kMarker, err::kFileNotFound);
  EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, AnnasSecurity()),
            HResultFromWin32(err::kFileNotFound));
  EXPECT_EQ(bed.files.Calls(FileOp::kOpenLocked), 3);
  EXPECT_EQ(bed.files.Calls(FileOp::kDeleteTree), 0);
  bed.files.ClearFailures();
  bed.files.SetAttributes(kMarker, file_attr::kNormal);
  ASSERT_EQ(bed.files.DeleteFileAt(kMarker), err::kSuccess);
  bed.log.Clear();
  EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, AnnasSecurity()), hr::kAlreadyExists);
  EXPECT_EQ(bed.log.messages(),
            std::vector<std::wstring>{
                L"The target profile path already exists: \\\\srv\\profiles\\anna.V2"});
}

TEST_F(CreateTargetProfileFolderTest, TheMarkerIsMadeUnderALockHeldUntilReleased) {
  bed.files.AddFolder(kTarget);
  {
    UniqueFileHandle lock;
    ASSERT_EQ(CreateLockedMarker(bed.context, kTarget, lock), err::kSuccess);
    EXPECT_TRUE(lock.is_valid());
    EXPECT_TRUE(bed.files.HasFile(kMarker));
    EXPECT_EQ(bed.files.AttributesOf(kMarker),
              file_attr::kReadOnly | file_attr::kHidden | file_attr::kArchive);
    EXPECT_TRUE(bed.files.IsLocked(kMarker));
    // Another run looking at the target now finds it taken.
    EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, AnnasSecurity()),
              HResultFromWin32(err::kSharingViolation));
    EXPECT_EQ(bed.files.Calls(FileOp::kDeleteTree), 0);
  }
  EXPECT_FALSE(bed.files.IsLocked(kMarker));
  EXPECT_EQ(bed.files.OpenHandles(), 0);

  // A lock held elsewhere all along is waited for briefly, then given up.
  bed.files.SetAttributes(kMarker, file_attr::kNormal);
  ASSERT_EQ(bed.files.DeleteFileAt(kMarker), err::kSuccess);
  bed.files.HoldLockElsewhere(kMarker);
  UniqueFileHandle lock;
  EXPECT_EQ(CreateLockedMarker(bed.context, kTarget, lock), err::kSharingViolation);
  EXPECT_FALSE(lock.is_valid());
  EXPECT_GT(bed.files.Calls(FileOp::kOpenLocked), 2);
  EXPECT_FALSE(bed.files.HasFile(kMarker));
}

TEST_F(CreateTargetProfileFolderTest, ALockedTargetIsDeletedUnderItsLockThenLetGo) {
  bed.files.AddFolder(kTarget);
  UniqueFileHandle lock;
  ASSERT_EQ(CreateLockedMarker(bed.context, kTarget, lock), err::kSuccess);
  bed.files.SetFile(L"\\\\srv\\profiles\\anna.V2\\half.txt", "half");
  EXPECT_EQ(DeleteLockedTarget(bed.context, kTarget, lock), hr::kOk);
  EXPECT_FALSE(bed.files.HasFolder(kTarget));
  EXPECT_FALSE(lock.is_valid());
  EXPECT_FALSE(bed.files.IsLocked(kMarker));
  EXPECT_EQ(bed.files.Calls(FileOp::kDeleteTree), 1);
}

// A deletion that fails while the marker is still there leaves a marked target (the next run
// rebuilds it); one that fails with the marker gone (as when an open marker is removed only at
// its last close) is tried once more after the lock is let go of.
TEST_F(CreateTargetProfileFolderTest, AFailedDeletionIsRetriedOnlyWhenTheMarkerIsGone) {
  bed.files.AddFolder(kTarget);
  bed.files.FailOperation(FileOp::kDeleteTree, err::kAccessDenied);
  UniqueFileHandle lock;
  ASSERT_EQ(CreateLockedMarker(bed.context, kTarget, lock), err::kSuccess);
  EXPECT_EQ(DeleteLockedTarget(bed.context, kTarget, lock), hr::kFail);
  EXPECT_EQ(bed.files.Calls(FileOp::kDeleteTree), 1);
  EXPECT_FALSE(bed.files.IsLocked(kMarker));
  EXPECT_TRUE(bed.files.HasFile(kMarker));

  ASSERT_EQ(CreateLockedMarker(bed.context, kTarget, lock), err::kAccessDenied);  // read-only
  bed.files.SetAttributes(kMarker, file_attr::kNormal);
  ASSERT_EQ(CreateLockedMarker(bed.context, kTarget, lock), err::kSuccess);
  bed.files.SetAttributes(kMarker, file_attr::kNormal);
  ASSERT_EQ(bed.files.DeleteFileAt(kMarker), err::kSuccess);
  EXPECT_EQ(DeleteLockedTarget(bed.context, kTarget, lock), hr::kFail);
  EXPECT_EQ(bed.files.Calls(FileOp::kDeleteTree), 3);
  EXPECT_FALSE(bed.files.IsLocked(kMarker));
}

TEST_F(CreateTargetProfileFolderTest, CreationFailuresAreLoggedByError) {
  const struct {
    err::Win32Error error;
    const wchar_t* message;
  } cases[] = {
      {err::kAlreadyExists,
       L"Failed creating folder (0x800700B7): \\\\srv\\profiles\\anna.V2 already exists"},
      {err::kPathNotFound,
       L"Failed creating folder (0x80070003): \\\\srv\\profiles\\anna.V2 not found"},
      {err::kAccessDenied, L"Failed creating folder (0x80070005): \\\\srv\\profiles\\anna.V2"},
  };
  for (const auto& c : cases) {
    bed.log.Clear();
    bed.files.FailOperation(FileOp::kMakeFolder, c.error);
    EXPECT_EQ(CreateTargetProfileFolder(bed.context, kTarget, AnnasSecurity()),
              HResultFromWin32(c.error));
    EXPECT_EQ(bed.log.messages(), std::vector<std::wstring>{c.message});
    bed.files.ClearFailures();
  }
}

TEST(DeleteFolderTree, DeletesTheTreeAndReportsFailureAsEFail) {
  ProfileTestBed bed;
  bed.files.AddFolder(L"\\\\srv\\profiles\\tmp\\a\\b");
  bed.files.SetFile(L"\\\\srv\\profiles\\tmp\\a\\b\\f.txt", "x", file_attr::kReadOnly);
  EXPECT_EQ(DeleteFolderTree(bed.context, L"\\\\srv\\profiles\\tmp"), hr::kOk);
  EXPECT_FALSE(bed.files.PathExists(L"\\\\srv\\profiles\\tmp"));
  EXPECT_EQ(DeleteFolderTree(bed.context, L"\\\\srv\\profiles\\tmp"), hr::kFail);
  bed.files.AddFolder(L"\\\\srv\\profiles\\tmp");
  bed.files.FailOperation(FileOp::kDeleteTree, err::kAccessDenied);
  EXPECT_EQ(DeleteFolderTree(bed.context, L"\\\\srv\\profiles\\tmp"), hr::kFail);
  EXPECT_TRUE(bed.log.messages().empty());
}

TEST(DeleteFolderTree, PathIsCutAt519Characters) {
  ProfileTestBed bed;
  std::wstring folder = L"\\\\srv\\profiles\\";
  folder.append(519 - folder.size(), L'x');
  ASSERT_EQ(folder.size(), 519u);
  bed.files.AddFolder(folder);
  bed.files.AddFolder(L"\\\\srv\\profiles\\keep");
  EXPECT_EQ(DeleteFolderTree(bed.context, folder + L"yyyy\\more"), hr::kOk);
  EXPECT_FALSE(bed.files.PathExists(folder));
  EXPECT_TRUE(bed.files.PathExists(L"\\\\srv\\profiles\\keep"));
}

}  // namespace
}  // namespace tw
