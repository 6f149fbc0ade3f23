// An in-memory FileSystem for tests: files are byte strings under their Windows paths (names
// compare case-insensitively, as on Windows), every call is counted, and any operation can be
// made to fail with a chosen Win32 error.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/file_system.h"

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
  kCopy
};

class FakeFileSystem : public FileSystem {
 public:
  explicit FakeFileSystem(std::wstring modulePath = L"C:\\Tools\\tarnwick.exe");

  // --- Test controls ---
  // Makes every call of op after the next `succeedFirst` calls fail with error (until cleared).
  void FailOperation(FileOp op, err::Win32Error error, int succeedFirst = 0);
  void ClearFailures();
  // Calls made so far of op (failed calls included); opens also by disposition.
  int Calls(FileOp op) const;
  int Opens(CreationDisposition disposition) const;
  // Files and folders. A file's folder must exist for it to be created ("C:\" always does).
  void AddFolder(std::wstring_view path);
  void SetFile(std::wstring_view path, std::string content);
  bool HasFile(std::wstring_view path) const;
  std::string FileContent(std::wstring_view path) const;
  // Handles open now.
  int OpenHandles() const;

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

 private:
  struct OpenFile {
    std::wstring key;
    std::uint64_t position = 0;
    bool canWrite = false;
  };
  struct Failure {
    err::Win32Error error = err::kSuccess;
    int succeedFirst = 0;
  };

  static std::wstring Key(std::wstring_view path);
  static std::wstring ParentKey(const std::wstring& key);
  // Counts the call and returns the error it must fail with, or kSuccess.
  err::Win32Error Enter(FileOp op);

  mutable std::mutex mutex_;
  std::wstring modulePath_;
  std::map<std::wstring, std::string> files_;  // by upper-case path
  std::map<std::wstring, bool> folders_;       // by upper-case path, no trailing backslash
  std::map<FileHandle, OpenFile> handles_;
  FileHandle nextHandle_ = 0x40;
  std::map<FileOp, int> calls_;
  std::map<CreationDisposition, int> opens_;
  std::map<FileOp, Failure> failures_;
};

}  // namespace tw::testing
