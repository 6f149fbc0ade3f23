// The fake file system's attributes, times, folder creation, deletion and copies answer as the
// Windows calls do, and fail on a switch.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/fake_file_system.h"

namespace tw::testing {
namespace {

TEST(FakeFileOperations, AttributesGetAndSet) {
  FakeFileSystem files;
  files.AddFolder(L"C:\\p");
  files.SetFile(L"C:\\p\\f", "x");
  std::uint32_t attributes = 0;
  ASSERT_EQ(files.GetAttributes(L"c:\\P\\F", attributes), err::kSuccess);
  EXPECT_EQ(attributes, file_attr::kArchive);
  ASSERT_EQ(files.SetAttributes(L"C:\\p", file_attr::kHidden), err::kSuccess);
  EXPECT_EQ(files.AttributesOf(L"C:\\p"), file_attr::kHidden | file_attr::kDirectory);
  ASSERT_EQ(files.SetAttributes(L"C:\\p\\f", 0), err::kSuccess);
  ASSERT_EQ(files.GetAttributes(L"C:\\p\\f", attributes), err::kSuccess);
  EXPECT_EQ(attributes, file_attr::kNormal);
  EXPECT_EQ(files.GetAttributes(L"C:\\p\\g", attributes), err::kFileNotFound);
  EXPECT_EQ(attributes, file_attr::kInvalid);
  EXPECT_EQ(files.GetAttributes(L"C:\\q\\g", attributes), err::kPathNotFound);
  files.FailPath(FileOp::kGetAttributes, L"C:\\p", err::kAccessDenied);
  EXPECT_EQ(files.GetAttributes(L"C:\\p", attributes), err::kAccessDenied);
}

TEST(FakeFileOperations, TimesThroughAFolderOpenedWithBackupSemantics) {
  FakeFileSystem files;
  files.AddFolder(L"C:\\p");
  FileOpenRequest request;
  request.read = false;
  request.otherAccess = file_access::kFileWriteAttributes;
  FileHandle handle = kInvalidFileHandle;
  EXPECT_EQ(files.Open(L"C:\\p", request, handle), err::kAccessDenied);
  request.backupSemantics = true;
  ASSERT_EQ(files.Open(L"C:\\p", request, handle), err::kSuccess);
  ASSERT_EQ(files.SetTimes(handle, FileTimes{11, 0, 33}), err::kSuccess);
  FileTimes times;
  ASSERT_EQ(files.GetTimes(handle, times), err::kSuccess);
  EXPECT_EQ(times.creation, 11u);
  EXPECT_NE(times.lastAccess, 0u);  // zero leaves it
  EXPECT_EQ(times.lastWrite, 33u);
  EXPECT_EQ(files.Close(handle), err::kSuccess);
  request.otherAccess = 0;
  request.read = true;
  ASSERT_EQ(files.Open(L"C:\\p", request, handle), err::kSuccess);
  EXPECT_EQ(files.SetTimes(handle, FileTimes{1, 1, 1}), err::kAccessDenied);
  EXPECT_EQ(files.Close(handle), err::kSuccess);
}

TEST(FakeFileOperations, MarkerFileIsReadOnlyHiddenAndRefusesDeletionUntilCleared) {
  FakeFileSystem files;
  files.AddFolder(L"\\\\srv\\share\\t.V2");
  FileOpenRequest request;
  request.read = false;
  request.otherAccess = file_access::kGenericAll;
  request.disposition = CreationDisposition::kCreateAlways;
  request.attributes = file_attr::kReadOnly | file_attr::kHidden;
  FileHandle handle = kInvalidFileHandle;
  const std::wstring marker = L"\\\\srv\\share\\t.V2\\_qzk_mig_marker_";
  ASSERT_EQ(files.Open(marker, request, handle), err::kSuccess);
  EXPECT_EQ(files.Close(handle), err::kSuccess);
  EXPECT_EQ(files.AttributesOf(marker),
            file_attr::kReadOnly | file_attr::kHidden | file_attr::kArchive);
  EXPECT_EQ(files.DeleteFileAt(marker), err::kAccessDenied);
  ASSERT_EQ(files.SetAttributes(marker, file_attr::kNormal), err::kSuccess);
  EXPECT_EQ(files.DeleteFileAt(marker), err::kSuccess);
  EXPECT_FALSE(files.HasFile(marker));
  EXPECT_EQ(files.DeleteFileAt(marker), err::kFileNotFound);
  EXPECT_EQ(files.DeleteFileAt(L"\\\\srv\\share\\t.V2"), err::kAccessDenied);
}

TEST(FakeFileOperations, FolderCreation) {
  FakeFileSystem files;
  files.AddFolder(L"\\\\srv\\share");
  EXPECT_EQ(files.MakeFolder(L"\\\\srv\\share\\New"), err::kSuccess);
  EXPECT_EQ(files.MakeFolder(L"\\\\srv\\share\\new"), err::kAlreadyExists);
  EXPECT_EQ(files.MakeFolder(L"\\\\srv\\share\\a\\b"), err::kPathNotFound);
  EXPECT_EQ(files.MakeFolderPath(L"\\\\srv\\share\\a\\b\\c"), err::kSuccess);
  EXPECT_TRUE(files.HasFolder(L"\\\\srv\\share\\a\\b"));
  EXPECT_EQ(files.ChildNames(L"\\\\srv\\share\\a"), (std::vector<std::wstring>{L"b"}));
  EXPECT_EQ(files.MakeFolderPath(L"\\\\srv\\share\\A\\B\\C"), err::kAlreadyExists);
  files.SetFile(L"\\\\srv\\share\\f", "");
  EXPECT_EQ(files.MakeFolderPath(L"\\\\srv\\share\\f"), err::kFileExists);
  EXPECT_EQ(files.MakeFolderPath(L"\\\\srv\\share\\f\\x"), err::kPathNotFound);
  EXPECT_EQ(files.MakeFolderPath(L"share\\x"), err::kBadPathname);
  EXPECT_EQ(files.MakeFolderPath(L"\\\\srv\\share\\" + std::wstring(240, L'x')),
            err::kFilenameExcedRange);
  files.FailPath(FileOp::kMakeFolder, L"\\\\srv\\share", err::kAccessDenied);
  EXPECT_EQ(files.MakeFolder(L"\\\\srv\\share\\other"), err::kAccessDenied);
}

TEST(FakeFileOperations, TreeDeletionTakesEverythingBelowAndNothingBeside) {
  FakeFileSystem files;
  files.AddFolder(L"C:\\p\\tree\\sub");
  files.AddFolder(L"C:\\p\\treeside");
  files.SetFile(L"C:\\p\\tree\\sub\\f", "x", file_attr::kReadOnly);
  files.AddReparsePoint(L"C:\\p\\tree\\junction", true);
  EXPECT_EQ(files.DeleteTree(L"C:\\P\\TREE"), err::kSuccess);
  EXPECT_FALSE(files.HasFolder(L"C:\\p\\tree"));
  EXPECT_FALSE(files.HasFile(L"C:\\p\\tree\\sub\\f"));
  EXPECT_TRUE(files.HasFolder(L"C:\\p\\treeside"));
  EXPECT_EQ(files.DeleteTree(L"C:\\p\\tree"), err::kFileNotFound);
  files.FailOperation(FileOp::kDeleteTree, err::kAccessDenied);
  EXPECT_EQ(files.DeleteTree(L"C:\\p\\treeside"), err::kAccessDenied);
  EXPECT_TRUE(files.HasFolder(L"C:\\p\\treeside"));
}

TEST(FakeFileOperations, CopyKeepsContentAttributesAndTimes) {
  FakeFileSystem files;
  files.AddFolder(L"C:\\a");
  files.AddFolder(L"C:\\b");
  files.SetFile(L"C:\\a\\f", "data", file_attr::kHidden);
  files.SetTimes(L"C:\\a\\f", FileTimes{5, 6, 7});
  ASSERT_EQ(files.CopyFileTo(L"C:\\a\\f", L"C:\\b\\f", true), err::kSuccess);
  EXPECT_EQ(files.FileContent(L"C:\\b\\f"), "data");
  EXPECT_EQ(files.AttributesOf(L"C:\\b\\f"), file_attr::kHidden);
  EXPECT_EQ(files.TimesOf(L"C:\\b\\f").lastWrite, 7u);
  EXPECT_EQ(files.CopyFileTo(L"C:\\a\\f", L"C:\\b\\f", true), err::kFileExists);
  files.SetFile(L"C:\\b\\g", "", file_attr::kReadOnly);
  EXPECT_EQ(files.CopyFileTo(L"C:\\a\\f", L"C:\\b\\g", false), err::kAccessDenied);
  files.FailPath(FileOp::kCopy, L"C:\\a\\f", err::kSharingViolation);
  EXPECT_EQ(files.CopyFileTo(L"C:\\a\\f", L"C:\\b\\h", false), err::kSharingViolation);
}

}  // namespace
}  // namespace tw::testing
