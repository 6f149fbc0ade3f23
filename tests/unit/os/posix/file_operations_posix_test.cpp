// Attributes, times, folder creation, deletion and copies of the POSIX file-system adapter on
// real files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "fakes/sized_file.h"
#include "os/posix/files/file_info.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"

namespace tw {
namespace {

using testing::ReadBytes;
using testing::ScratchFolder;

namespace fs = std::filesystem;

class PosixFileOperationsTest : public ::testing::Test {
 protected:
  std::wstring Win(const std::string& name) const {
    return posix::ToWindowsPath((folder.path() / name).string());
  }
  fs::path Native(const std::string& name) const { return folder.path() / name; }
  void MakeFile(const std::string& name, const std::string& content = "x") const {
    std::ofstream(Native(name), std::ios::binary) << content;
  }
  std::string StoredText(const std::string& name) const {
    char buffer[64] = {};
    const ssize_t length =
        ::lgetxattr(Native(name).c_str(), "user.DOSATTRIB", buffer, sizeof buffer - 1);
    return length < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(length));
  }
  std::uint32_t Attributes(const std::string& name) {
    std::uint32_t attributes = 0;
    EXPECT_EQ(files.GetAttributes(Win(name), attributes), err::kSuccess);
    return attributes;
  }
  FileHandle OpenForTimes(const std::string& name) {
    FileOpenRequest request;
    request.read = false;
    request.otherAccess =
        file_access::kFileWriteAttributes | file_access::kWriteDac | file_access::kWriteOwner;
    request.backupSemantics = true;
    FileHandle handle = kInvalidFileHandle;
    EXPECT_EQ(files.Open(Win(name), request, handle), err::kSuccess);
    return handle;
  }

  ScratchFolder folder;
  FileSystem& files = ProcessFileSystem();
};

TEST_F(PosixFileOperationsTest, AttributesWithoutStoredValueFollowTheType) {
  MakeFile("f");
  fs::create_directory(Native("d"));
  EXPECT_EQ(Attributes("f"), file_attr::kArchive);
  EXPECT_EQ(Attributes("d"), file_attr::kDirectory);
  std::uint32_t attributes = 0;
  EXPECT_EQ(files.GetAttributes(Win("missing"), attributes), err::kFileNotFound);
  EXPECT_EQ(attributes, file_attr::kInvalid);
  EXPECT_EQ(files.GetAttributes(Win("missing\\f"), attributes), err::kPathNotFound);
}

TEST_F(PosixFileOperationsTest, SetAttributesStoresTheServersFormAndKeepsTheTypeBit) {
  MakeFile("f");
  fs::create_directory(Native("d"));
  ASSERT_EQ(files.SetAttributes(Win("f"), file_attr::kHidden | file_attr::kArchive), err::kSuccess);
  // Version 5 with empty hex text, attributes and creation time valid (0x11), attributes 0x22.
  const std::string stored = StoredText("f");
  ASSERT_EQ(stored.size(), 24u);
  EXPECT_EQ(stored.substr(0, 16), std::string("\0\0\x05\0\x05\0\0\0\x11\0\0\0\x22\0\0\0", 16));
  FindEntry entry;
  ASSERT_EQ(posix::QueryFileInfo(Native("f"), entry), err::kSuccess);
  std::uint64_t created = 0;
  std::memcpy(&created, stored.data() + 16, 8);
  EXPECT_EQ(entry.times.creation, created);
  EXPECT_EQ(Attributes("f"), file_attr::kHidden | file_attr::kArchive);
  ASSERT_EQ(files.SetAttributes(Win("d"), file_attr::kReadOnly | file_attr::kDirectory),
            err::kSuccess);
  EXPECT_EQ(Attributes("d"), file_attr::kReadOnly | file_attr::kDirectory);
  ASSERT_EQ(files.SetAttributes(Win("f"), file_attr::kNormal), err::kSuccess);
  EXPECT_EQ(Attributes("f"), file_attr::kNormal);
  EXPECT_EQ(files.SetAttributes(Win("missing"), file_attr::kNormal), err::kFileNotFound);
}

TEST_F(PosixFileOperationsTest, MarkerFileGetsItsAttributesAndBlocksDeletionUntilCleared) {
  fs::create_directory(Native("target"));
  FileOpenRequest request;
  request.read = false;
  request.otherAccess = file_access::kGenericAll;
  request.disposition = CreationDisposition::kCreateAlways;
  request.attributes = file_attr::kReadOnly | file_attr::kHidden;
  FileHandle handle = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("target\\_qzk_mig_marker_"), request, handle), err::kSuccess);
  EXPECT_EQ(files.Close(handle), err::kSuccess);
  EXPECT_EQ(Attributes("target/_qzk_mig_marker_"),
            file_attr::kReadOnly | file_attr::kHidden | file_attr::kArchive);
  // A read-only file cannot be replaced or deleted, as on Windows.
  EXPECT_EQ(files.Open(Win("target\\_qzk_mig_marker_"), request, handle), err::kAccessDenied);
  EXPECT_EQ(files.DeleteFileAt(Win("target\\_qzk_mig_marker_")), err::kAccessDenied);
  ASSERT_EQ(files.SetAttributes(Win("target\\_qzk_mig_marker_"), file_attr::kNormal),
            err::kSuccess);
  EXPECT_EQ(files.DeleteFileAt(Win("target\\_qzk_mig_marker_")), err::kSuccess);
  EXPECT_FALSE(fs::exists(Native("target/_qzk_mig_marker_")));
}

TEST_F(PosixFileOperationsTest, DeleteFileErrors) {
  fs::create_directory(Native("d"));
  EXPECT_EQ(files.DeleteFileAt(Win("d")), err::kAccessDenied);
  EXPECT_EQ(files.DeleteFileAt(Win("missing")), err::kFileNotFound);
  EXPECT_EQ(files.DeleteFileAt(Win("nofolder\\missing")), err::kPathNotFound);
}

TEST_F(PosixFileOperationsTest, TimesAreSetThroughAnOpenedFolderOrFileCreationTimeToo) {
  fs::create_directory(Native("d"));
  MakeFile("f");
  constexpr FileTime kAccess = 130000000000000000;  // 2012
  constexpr FileTime kWrite = 129000000000000000;   // 2009
  for (const char* name : {"d", "f"}) {
    const FileHandle handle = OpenForTimes(name);
    FileTimes before;
    ASSERT_EQ(files.GetTimes(handle, before), err::kSuccess);
    ASSERT_EQ(files.SetTimes(handle, FileTimes{kWrite, kAccess, kWrite}), err::kSuccess);
    FileTimes after;
    ASSERT_EQ(files.GetTimes(handle, after), err::kSuccess);
    EXPECT_EQ(after.lastAccess, kAccess) << name;
    EXPECT_EQ(after.lastWrite, kWrite) << name;
    // The creation time is kept where the file server keeps it, beside unchanged attributes.
    EXPECT_NE(before.creation, kWrite) << name;
    EXPECT_EQ(after.creation, kWrite) << name;
    FindEntry entry;
    ASSERT_EQ(posix::QueryFileInfo(Native(name), entry), err::kSuccess);
    EXPECT_EQ(entry.times.creation, kWrite) << name;
    EXPECT_EQ(entry.attributes,
              std::string(name) == "d" ? file_attr::kDirectory : file_attr::kArchive);
    // A zero time is left as it is.
    ASSERT_EQ(files.SetTimes(handle, FileTimes{0, 0, kAccess}), err::kSuccess);
    ASSERT_EQ(files.GetTimes(handle, after), err::kSuccess);
    EXPECT_EQ(after.lastAccess, kAccess);
    EXPECT_EQ(after.lastWrite, kAccess);
    EXPECT_EQ(files.Close(handle), err::kSuccess);
  }
}

TEST_F(PosixFileOperationsTest, FolderOpensOnlyWithBackupSemanticsAndTimesNeedAccess) {
  fs::create_directory(Native("d"));
  MakeFile("f");
  FileOpenRequest plain;
  FileHandle handle = kInvalidFileHandle;
  EXPECT_EQ(files.Open(Win("d"), plain, handle), err::kAccessDenied);
  ASSERT_EQ(files.Open(Win("f"), plain, handle), err::kSuccess);  // read only
  EXPECT_EQ(files.SetTimes(handle, FileTimes{0, 1, 1}), err::kAccessDenied);
  EXPECT_EQ(files.Close(handle), err::kSuccess);
  EXPECT_EQ(files.SetTimes(handle, FileTimes{}), err::kInvalidHandle);
}

TEST_F(PosixFileOperationsTest, MakeFolderResults) {
  EXPECT_EQ(files.MakeFolder(Win("new")), err::kSuccess);
  EXPECT_TRUE(fs::is_directory(Native("new")));
  EXPECT_EQ(files.MakeFolder(Win("new")), err::kAlreadyExists);
  MakeFile("f");
  EXPECT_EQ(files.MakeFolder(Win("f")), err::kAlreadyExists);
  EXPECT_EQ(files.MakeFolder(Win("missing\\new")), err::kPathNotFound);
}

TEST_F(PosixFileOperationsTest, MakeFolderPathResults) {
  EXPECT_EQ(files.MakeFolderPath(Win("a\\b\\c")), err::kSuccess);
  EXPECT_TRUE(fs::is_directory(Native("a/b/c")));
  EXPECT_EQ(files.MakeFolderPath(Win("a\\b\\c")), err::kAlreadyExists);
  EXPECT_EQ(files.MakeFolderPath(Win("A\\B")), err::kAlreadyExists);  // any case
  MakeFile("f");
  EXPECT_EQ(files.MakeFolderPath(Win("f")), err::kFileExists);
  EXPECT_EQ(files.MakeFolderPath(Win("f\\sub")), err::kPathNotFound);
  EXPECT_EQ(files.MakeFolderPath(L"relative\\path"), err::kBadPathname);
  EXPECT_EQ(files.MakeFolderPath(Win(std::string(250, 'x'))), err::kFilenameExcedRange);
  EXPECT_EQ(files.MakeFolderPath(L"Q:\\x"), err::kPathNotFound);
}

TEST_F(PosixFileOperationsTest, DeleteTreeRemovesReadOnlyItemsAndLeavesNothing) {
  fs::create_directories(Native("tree/sub/deeper"));
  MakeFile("tree/a.txt");
  MakeFile("tree/sub/deeper/b.txt");
  ASSERT_EQ(files.SetAttributes(Win("tree\\a.txt"), file_attr::kReadOnly), err::kSuccess);
  ASSERT_EQ(files.SetAttributes(Win("tree\\sub"), file_attr::kReadOnly | file_attr::kHidden),
            err::kSuccess);
  fs::permissions(Native("tree/sub/deeper/b.txt"), fs::perms::owner_read);
  fs::permissions(Native("tree/sub/deeper"), fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(files.DeleteTree(Win("tree")), err::kSuccess);
  EXPECT_FALSE(fs::exists(Native("tree")));
  EXPECT_EQ(files.DeleteTree(Win("tree")), err::kFileNotFound);
  EXPECT_EQ(files.DeleteTree(Win("missing\\tree")), err::kPathNotFound);
}

TEST_F(PosixFileOperationsTest, SymbolicLinkInsideAProfileIsAReparsePointNeverFollowed) {
  ScratchFolder outside;
  std::ofstream(outside.path() / "precious.txt") << "keep";
  fs::create_directories(Native("profile"));
  fs::create_directory_symlink(outside.path(), Native("profile/Link"));
  std::uint32_t attributes = 0;
  ASSERT_EQ(files.GetAttributes(Win("profile\\link"), attributes), err::kSuccess);
  EXPECT_EQ(attributes, file_attr::kReparsePoint);
  EXPECT_EQ(files.SetAttributes(Win("profile\\Link"), file_attr::kHidden), err::kAccessDenied);
  EXPECT_EQ(files.CopyFileTo(Win("profile\\Link"), Win("copy"), false), err::kCantResolveFilename);
  EXPECT_EQ(files.DeleteTree(Win("profile")), err::kSuccess);
  EXPECT_FALSE(fs::exists(Native("profile")));
  EXPECT_EQ(ReadBytes(outside.path() / "precious.txt"), "keep");
}

TEST_F(PosixFileOperationsTest, CopyKeepsContentAttributesAndTimes) {
  std::string content;
  for (int i = 0; i < 300000; ++i) content.push_back(static_cast<char>(i * 7 + i / 256));
  MakeFile("source.bin", content);
  ASSERT_EQ(files.SetAttributes(Win("source.bin"), file_attr::kHidden | file_attr::kSystem),
            err::kSuccess);
  const FileHandle handle = OpenForTimes("source.bin");
  constexpr FileTime kStamp = 128000000000000000;
  ASSERT_EQ(files.SetTimes(handle, FileTimes{0, kStamp, kStamp + 10}), err::kSuccess);
  ASSERT_EQ(files.Close(handle), err::kSuccess);

  ASSERT_EQ(files.CopyFileTo(Win("source.bin"), Win("copy.bin"), true), err::kSuccess);
  // Times first: reading the copy may move its last-access time.
  const FileHandle copy = OpenForTimes("copy.bin");
  FileTimes times;
  ASSERT_EQ(files.GetTimes(copy, times), err::kSuccess);
  EXPECT_EQ(times.lastAccess, kStamp);
  EXPECT_EQ(times.lastWrite, kStamp + 10);
  ASSERT_EQ(files.Close(copy), err::kSuccess);
  EXPECT_EQ(ReadBytes(Native("copy.bin")), content);
  EXPECT_EQ(Attributes("copy.bin"), file_attr::kHidden | file_attr::kSystem);
}

TEST_F(PosixFileOperationsTest, CopyResults) {
  MakeFile("a", "new");
  MakeFile("b", "old");
  fs::create_directory(Native("d"));
  EXPECT_EQ(files.CopyFileTo(Win("a"), Win("b"), true), err::kFileExists);
  EXPECT_EQ(ReadBytes(Native("b")), "old");
  EXPECT_EQ(files.CopyFileTo(Win("a"), Win("b"), false), err::kSuccess);
  EXPECT_EQ(ReadBytes(Native("b")), "new");
  EXPECT_EQ(Attributes("b"), file_attr::kArchive);  // the source has no stored attributes
  ASSERT_EQ(files.SetAttributes(Win("b"), file_attr::kReadOnly), err::kSuccess);
  EXPECT_EQ(files.CopyFileTo(Win("a"), Win("b"), false), err::kAccessDenied);
  EXPECT_EQ(files.CopyFileTo(Win("d"), Win("c"), false), err::kAccessDenied);
  EXPECT_EQ(files.CopyFileTo(Win("a"), Win("d"), false), err::kAccessDenied);
  EXPECT_EQ(files.CopyFileTo(Win("missing"), Win("c"), false), err::kFileNotFound);
  EXPECT_EQ(files.CopyFileTo(Win("a"), Win("nofolder\\c"), false), err::kPathNotFound);
}

}  // namespace
}  // namespace tw
