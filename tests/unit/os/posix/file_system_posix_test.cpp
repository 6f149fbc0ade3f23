// The POSIX file-system adapter on real files in a scratch folder.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "fakes/sized_file.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"

namespace tw {
namespace {

using testing::ReadBytes;
using testing::ScratchFolder;

class PosixFileSystemTest : public ::testing::Test {
 protected:
  std::wstring Win(const std::string& name) const {
    return posix::ToWindowsPath((folder.path() / name).string());
  }
  std::filesystem::path Native(const std::string& name) const { return folder.path() / name; }

  FileOpenRequest ReadWrite(CreationDisposition disposition) const {
    FileOpenRequest request;
    request.read = true;
    request.write = true;
    request.disposition = disposition;
    return request;
  }

  err::Win32Error WriteText(FileHandle handle, std::string_view text) {
    std::uint32_t written = 0;
    const err::Win32Error error =
        files.Write(handle, text.data(), static_cast<std::uint32_t>(text.size()), written);
    if (error == err::kSuccess) {
      EXPECT_EQ(written, text.size());
    }
    return error;
  }

  ScratchFolder folder;
  FileSystem& files = ProcessFileSystem();
};

TEST_F(PosixFileSystemTest, ModuleFileNameIsTheRunningProgramInWindowsForm) {
  const std::wstring module = files.ModuleFileName();
  EXPECT_EQ(module, posix::ToWindowsPath(std::filesystem::read_symlink("/proc/self/exe").string()));
  EXPECT_EQ(module.rfind(L"Z:\\", 0), 0u);
}

TEST_F(PosixFileSystemTest, OpenAlwaysCreatesThenOpensAndAppendsAfterSeekToEnd) {
  FileHandle handle = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("a.log"), ReadWrite(CreationDisposition::kOpenAlways), handle),
            err::kSuccess);
  EXPECT_EQ(WriteText(handle, "one\r\n"), err::kSuccess);
  EXPECT_EQ(files.Flush(handle), err::kSuccess);
  EXPECT_EQ(files.Close(handle), err::kSuccess);

  ASSERT_EQ(files.Open(Win("a.log"), ReadWrite(CreationDisposition::kOpenAlways), handle),
            err::kSuccess);
  std::uint64_t position = 0;
  EXPECT_EQ(files.Seek(handle, 0, SeekOrigin::kEnd, position), err::kSuccess);
  EXPECT_EQ(position, 5u);
  EXPECT_EQ(WriteText(handle, "two\r\n"), err::kSuccess);
  std::uint64_t size = 0;
  EXPECT_EQ(files.QuerySize(handle, size), err::kSuccess);
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(files.Close(handle), err::kSuccess);
  EXPECT_EQ(ReadBytes(Native("a.log")), "one\r\ntwo\r\n");
}

TEST_F(PosixFileSystemTest, CreateAlwaysEmptiesAnExistingFile) {
  testing::WriteSizedFile(Native("b.log"), "old", 100);
  FileHandle handle = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("b.log"), ReadWrite(CreationDisposition::kCreateAlways), handle),
            err::kSuccess);
  std::uint64_t size = 99;
  EXPECT_EQ(files.QuerySize(handle, size), err::kSuccess);
  EXPECT_EQ(size, 0u);
  files.Close(handle);
}

TEST_F(PosixFileSystemTest, OpenFailuresGiveTheWindowsErrors) {
  FileHandle handle = 1;
  EXPECT_EQ(files.Open(Win("missing.log"), ReadWrite(CreationDisposition::kOpenExisting), handle),
            err::kFileNotFound);
  EXPECT_EQ(handle, kInvalidFileHandle);
  EXPECT_EQ(files.Open(Win("no folder/x.log"), ReadWrite(CreationDisposition::kOpenAlways), handle),
            err::kPathNotFound);
  std::filesystem::create_directory(Native("sub"));
  EXPECT_EQ(files.Open(Win("sub"), ReadWrite(CreationDisposition::kOpenAlways), handle),
            err::kAccessDenied);
  FileOpenRequest readOnly;
  readOnly.disposition = CreationDisposition::kOpenExisting;
  EXPECT_EQ(files.Open(Win("sub"), readOnly, handle), err::kAccessDenied);
  testing::WriteSizedFile(Native("exists"), "", 0);
  EXPECT_EQ(files.Open(Win("exists"), ReadWrite(CreationDisposition::kCreateNew), handle),
            err::kFileExists);
  EXPECT_EQ(files.Open(L"C:\\Windows\\x.log", ReadWrite(CreationDisposition::kOpenAlways), handle),
            err::kPathNotFound);
}

TEST_F(PosixFileSystemTest, ReadOnlyHandleRefusesWrites) {
  testing::WriteSizedFile(Native("r.txt"), "data", 4);
  FileOpenRequest readOnly;
  readOnly.disposition = CreationDisposition::kOpenExisting;
  FileHandle handle = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("r.txt"), readOnly, handle), err::kSuccess);
  EXPECT_EQ(WriteText(handle, "x"), err::kAccessDenied);
  files.Close(handle);
  EXPECT_EQ(ReadBytes(Native("r.txt")), "data");
}

TEST_F(PosixFileSystemTest, ClosedHandleStaysInvalidAndIsNeverReused) {
  FileHandle first = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("c.log"), ReadWrite(CreationDisposition::kOpenAlways), first),
            err::kSuccess);
  EXPECT_EQ(files.Close(first), err::kSuccess);
  FileHandle second = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("c.log"), ReadWrite(CreationDisposition::kOpenAlways), second),
            err::kSuccess);
  EXPECT_NE(second, first);
  EXPECT_EQ(WriteText(first, "x"), err::kInvalidHandle);
  std::uint64_t size = 0;
  EXPECT_EQ(files.QuerySize(first, size), err::kInvalidHandle);
  EXPECT_EQ(files.Flush(first), err::kInvalidHandle);
  EXPECT_EQ(files.Close(first), err::kInvalidHandle);
  EXPECT_EQ(WriteText(kInvalidFileHandle, "x"), err::kInvalidHandle);
  files.Close(second);
}

TEST_F(PosixFileSystemTest, CopyOverwritesOrRefusesAnExistingTarget) {
  testing::WriteSizedFile(Native("from"), "new content", 11);
  testing::WriteSizedFile(Native("to"), "old", 3);
  EXPECT_EQ(files.CopyFileTo(Win("from"), Win("to"), true), err::kFileExists);
  EXPECT_EQ(ReadBytes(Native("to")), "old");
  EXPECT_EQ(files.CopyFileTo(Win("from"), Win("to"), false), err::kSuccess);
  EXPECT_EQ(ReadBytes(Native("to")), "new content");
  EXPECT_EQ(files.CopyFileTo(Win("from"), Win("fresh"), true), err::kSuccess);
  EXPECT_EQ(ReadBytes(Native("fresh")), "new content");
  EXPECT_EQ(std::filesystem::last_write_time(Native("fresh")),
            std::filesystem::last_write_time(Native("from")));
}

TEST_F(PosixFileSystemTest, CopyFailuresGiveTheWindowsErrors) {
  testing::WriteSizedFile(Native("from"), "x", 1);
  EXPECT_EQ(files.CopyFileTo(Win("missing"), Win("to"), false), err::kFileNotFound);
  EXPECT_EQ(files.CopyFileTo(Win("from"), Win("no folder/to"), false), err::kPathNotFound);
  EXPECT_EQ(files.CopyFileTo(Win("from"), Win("from"), false), err::kSharingViolation);
  EXPECT_EQ(ReadBytes(Native("from")), "x");
}

TEST_F(PosixFileSystemTest, PathExistsForFilesFoldersAndDanglingLinks) {
  testing::WriteSizedFile(Native("f"), "", 0);
  std::filesystem::create_directory(Native("d"));
  std::filesystem::create_symlink(Native("nowhere"), Native("link"));
  EXPECT_TRUE(files.PathExists(Win("f")));
  EXPECT_TRUE(files.PathExists(Win("d")));
  EXPECT_TRUE(files.PathExists(Win("link")));
  EXPECT_FALSE(files.PathExists(Win("nowhere")));
  EXPECT_FALSE(files.PathExists(L"C:\\Windows"));
}

// Every call finds a name in whatever case it has on disk, whether the call goes to the path as
// written first or looks the name up before creating it.
TEST_F(PosixFileSystemTest, EveryCallFindsNamesInAnyCase) {
  std::filesystem::create_directories(Native("Folder/Sub"));
  testing::WriteSizedFile(Native("Folder/File.txt"), "content", 7);
  EXPECT_TRUE(files.PathExists(Win("FOLDER/FILE.TXT")));

  std::uint32_t attributes = 0;
  EXPECT_EQ(files.GetAttributes(Win("folder/file.TXT"), attributes), err::kSuccess);
  EXPECT_EQ(attributes, file_attr::kArchive);
  EXPECT_EQ(files.SetAttributes(Win("FOLDER/file.txt"), file_attr::kHidden), err::kSuccess);
  EXPECT_EQ(files.GetAttributes(Win("Folder/File.txt"), attributes), err::kSuccess);
  EXPECT_EQ(attributes, file_attr::kHidden);

  FileOpenRequest backup;
  backup.read = false;
  backup.disposition = CreationDisposition::kOpenExisting;
  backup.otherAccess = file_access::kFileWriteAttributes;
  backup.backupSemantics = true;
  for (const char* name : {"FOLDER/FILE.TXT", "folder/sub"}) {
    FileHandle handle = kInvalidFileHandle;
    EXPECT_EQ(files.Open(Win(name), backup, handle), err::kSuccess) << name;
    EXPECT_EQ(files.SetTimes(handle, FileTimes{0, 0, 116444736000000000}), err::kSuccess);
    files.Close(handle);
  }
  for (const char* name : {"Folder/File.txt", "Folder/Sub"}) {
    struct stat info {};
    ASSERT_EQ(::lstat(Native(name).c_str(), &info), 0);
    EXPECT_EQ(info.st_mtime, 0) << name;  // 116444736000000000 is 1970-01-01
  }
  FileHandle missing = 1;
  EXPECT_EQ(files.Open(Win("FOLDER/GONE.TXT"), backup, missing), err::kFileNotFound);
  EXPECT_EQ(files.Open(Win("GONE/FILE.TXT"), backup, missing), err::kPathNotFound);
  EXPECT_EQ(missing, kInvalidFileHandle);

  EXPECT_EQ(files.CopyFileTo(Win("FOLDER/FILE.TXT"), Win("FOLDER/COPY.TXT"), true), err::kSuccess);
  EXPECT_EQ(ReadBytes(Native("Folder/COPY.TXT")), "content");
  EXPECT_EQ(files.CopyFileTo(Win("folder/file.txt"), Win("folder/copy.txt"), true),
            err::kFileExists);
  EXPECT_FALSE(std::filesystem::exists(Native("Folder/copy.txt")));

  EXPECT_EQ(files.MakeFolder(Win("FOLDER/New")), err::kSuccess);
  EXPECT_TRUE(std::filesystem::is_directory(Native("Folder/New")));
  EXPECT_EQ(files.MakeFolder(Win("folder/NEW")), err::kAlreadyExists);
  EXPECT_FALSE(std::filesystem::exists(Native("Folder/NEW")));

  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  ASSERT_EQ(files.FindFirstEntry(Win("FOLDER/f*"), search, entry), err::kSuccess);
  EXPECT_EQ(entry.name, L"File.txt");
  files.CloseSearch(search);
}

// A link in the place of the object is opened neither for its times nor as a copy's source.
TEST_F(PosixFileSystemTest, LinksAreNotOpenedWithBackupSemanticsNorCopied) {
  testing::WriteSizedFile(Native("real"), "x", 1);
  std::filesystem::create_symlink(Native("real"), Native("link"));
  FileOpenRequest backup;
  backup.disposition = CreationDisposition::kOpenExisting;
  backup.backupSemantics = true;
  FileHandle handle = 1;
  EXPECT_EQ(files.Open(Win("LINK"), backup, handle), err::kCantResolveFilename);
  EXPECT_EQ(files.CopyFileTo(Win("Link"), Win("copy"), true), err::kCantResolveFilename);
  EXPECT_FALSE(std::filesystem::exists(Native("copy")));
}

}  // namespace
}  // namespace tw
