// An in-memory FileSystem for tests: files and folders under their Windows paths (names compare
// case-insensitively and keep the case they were made with, as on Windows), every call is
// counted, and any operation can be made to fail with a chosen Win32 error, for every path or for
// one path only.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ports/file_system.h"

namespace tw::testing {

enum class FileOp {
  kModuleFileName,
  kPathExists,
  kOpen,
  kSeek,
  kQuerySize,
  kWrite,
  kFlush,
  kClose,
  kCopy,
  kFindFirst,
  kFindNext,
  kCloseSearch,
  kGetAttributes,
  kSetAttributes,
  kGetTimes,
  kSetTimes,
  kMakeFolder,
  kMakeFolderPath,
  kDeleteFile,
  kDeleteTree,
  kOpenLocked,
  kLockLog,
  kUnlockLog,
};

class FakeFileSystem : public FileSystem {
 public:
  explicit FakeFileSystem(std::wstring modulePath = L"C:\\Tools\\tarnwick.exe");

  // --- Test controls ---
  // Makes every call of op after the next `succeedFirst` calls fail with error (until cleared).
  void FailOperation(FileOp op, err::Win32Error error, int succeedFirst = 0);
  // Makes every call of op on path fail with error (until cleared). The path of a call is its
  // first path (the source of a copy, the pattern of a search, the file of an open); a path
  // fails also for calls on anything below it ("access denied on this folder").
  void FailPath(FileOp op, std::wstring_view path, err::Win32Error error);
  void ClearFailures();
  // Calls made so far of op (failed calls included); opens also by disposition.
  int Calls(FileOp op) const;
  int Opens(CreationDisposition disposition) const;
  // Files and folders. AddFolder makes the folders on the way too; SetFile does not: a file's
  // folder must exist for the core to create it ("C:\" always does).
  void AddFolder(std::wstring_view path, std::uint32_t attributes = file_attr::kDirectory);
  void SetFile(std::wstring_view path, std::string content,
               std::uint32_t attributes = file_attr::kArchive);
  // A reparse point (a junction or link) at path; searches list it with kReparsePoint.
  void AddReparsePoint(std::wstring_view path, bool folder);
  void SetTimes(std::wstring_view path, const FileTimes& times);
  bool HasFile(std::wstring_view path) const;
  bool HasFolder(std::wstring_view path) const;
  std::string FileContent(std::wstring_view path) const;
  // The attributes and times of path (kInvalid / zero when it does not exist).
  std::uint32_t AttributesOf(std::wstring_view path) const;
  FileTimes TimesOf(std::wstring_view path) const;
  // The names of path's direct children in the case they were made with, in search order.
  std::vector<std::wstring> ChildNames(std::wstring_view path) const;
  // Handles and searches open now.
  int OpenHandles() const;
  int OpenSearches() const;
  // OpenLocked locks: "another process" holding path's lock (OpenLocked on it then fails with
  // kSharingViolation) until released, and whether a handle of this file system holds it.
  void HoldLockElsewhere(std::wstring_view path);
  void ReleaseLockElsewhere(std::wstring_view path);
  bool IsLocked(std::wstring_view path) const;

  // --- FileSystem ---
  std::wstring ModuleFileName() override;
  bool PathExists(std::wstring_view path) override;
  err::Win32Error Open(std::wstring_view path, const FileOpenRequest& request,
                       FileHandle& handle) override;
  err::Win32Error Seek(FileHandle handle, std::int64_t distance, SeekOrigin origin,
                       std::uint64_t& position) override;
  err::Win32Error QuerySize(FileHandle handle, std::uint64_t& size) override;
  err::Win32Error Write(FileHandle handle, const void* data, std::uint32_t byteCount,
                        std::uint32_t& written) override;
  err::Win32Error Flush(FileHandle handle) override;
  err::Win32Error Close(FileHandle handle) override;
  err::Win32Error CopyFileTo(std::wstring_view from, std::wstring_view to,
                             bool failIfExists) override;
  err::Win32Error FindFirstEntry(std::wstring_view pattern, SearchHandle& search,
                                 FindEntry& entry) override;
  err::Win32Error FindNextEntry(SearchHandle search, FindEntry& entry) override;
  err::Win32Error CloseSearch(SearchHandle search) override;
  err::Win32Error GetAttributes(std::wstring_view path, std::uint32_t& attributes) override;
  err::Win32Error SetAttributes(std::wstring_view path, std::uint32_t attributes) override;
  err::Win32Error GetTimes(FileHandle handle, FileTimes& times) override;
  err::Win32Error SetTimes(FileHandle handle, const FileTimes& times) override;
  err::Win32Error MakeFolder(std::wstring_view path) override;
  err::Win32Error MakeFolderPath(std::wstring_view path) override;
  err::Win32Error DeleteFileAt(std::wstring_view path) override;
  err::Win32Error DeleteTree(std::wstring_view path) override;
  // Open, with the file's key held as a lock until the handle is closed.
  err::Win32Error OpenLocked(std::wstring_view path, const FileOpenRequest& request,
                             FileHandle& handle) override;
  // The log lock keeps every caller apart, threads included, so that threads can play the
  // processes that share a log. It needs the file to exist (kFileNotFound).
  err::Win32Error LockLogFile(std::wstring_view path) override;
  err::Win32Error UnlockLogFile(std::wstring_view path) override;

 private:
  // One file or folder; its key is its upper-case path without a trailing backslash.
  struct Node {
    std::wstring name;  // as made, the last element only
    bool folder = false;
    std::uint32_t attributes = 0;
    FileTimes times;
    std::string content;
  };
  struct OpenFile {
    std::wstring key;
    std::uint64_t position = 0;
    bool canWrite = false;
    bool canSetTimes = false;
    bool append = false;  // every write goes to the end
  };
  struct Failure {
    err::Win32Error error = err::kSuccess;
    int succeedFirst = 0;
  };
  struct PathFailure {
    FileOp op;
    std::wstring key;
    err::Win32Error error;
  };
  struct Search {
    std::vector<FindEntry> entries;
    std::size_t next = 0;
  };

  static std::wstring Key(std::wstring_view path);
  static std::wstring ParentKey(const std::wstring& key);
  static std::wstring LastElement(std::wstring_view path);
  // Counts the call and returns the error it must fail with, or kSuccess.
  err::Win32Error Enter(FileOp op, std::wstring_view path = {});
  const Node* FindNode(const std::wstring& key) const;
  bool IsFolder(const std::wstring& key) const;
  bool IsFile(const std::wstring& key) const;
  Node& MakeFile(const std::wstring& key, std::wstring_view path);
  Node& MakeFolderNode(const std::wstring& key, std::wstring_view path);
  FileTime Tick();

  mutable std::mutex mutex_;
  std::wstring modulePath_;
  std::map<std::wstring, Node> nodes_;  // by key
  std::map<FileHandle, OpenFile> handles_;
  std::map<SearchHandle, Search> searches_;
  FileHandle nextHandle_ = 0x40;
  FileTime clock_ = 133000000000000000;  // a 2022 FILETIME; every change moves it on
  std::map<FileOp, int> calls_;
  std::map<CreationDisposition, int> opens_;
  std::map<FileOp, Failure> failures_;
  std::vector<PathFailure> pathFailures_;
  std::map<std::wstring, FileHandle> locks_;  // by key: the handle that holds it
  std::map<std::wstring, int> locksElsewhere_;
  std::set<std::wstring> lockedLogs_;  // keys of the log files locked now
  std::condition_variable logUnlocked_;
};

}  // namespace tw::testing
