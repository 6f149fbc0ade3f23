// File-system port: the Win32 file calls the core makes, with Windows paths and Windows error
// codes on every platform. Every operation returns the Win32 error the Windows call would leave
// in GetLastError() (err::kSuccess when it succeeds), so the core's messages and result codes are
// the same everywhere. Paths are Windows-form ("C:\dir\file", "\\server\share\file").
//
// Handles are opaque ids, not RAII objects: the log keeps a handle it has already closed in its
// map on purpose (a write through it must then fail as on Windows), which an owning wrapper could
// not express. An id is never reused by the POSIX adapter, so a closed id stays invalid; on
// Windows it is the HANDLE value itself. UniqueFileHandle below owns one where ownership is wanted.
// Implementations are safe to call from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/win32_error.h"

namespace tw {

// An open file; kInvalidFileHandle is INVALID_HANDLE_VALUE.
using FileHandle = std::uintptr_t;
constexpr FileHandle kInvalidFileHandle = ~FileHandle{0};

// CreateFileW's dwCreationDisposition, with the Win32 values.
enum class CreationDisposition : std::uint32_t {
  kCreateNew = 1,         // fails with kFileExists when the file exists
  kCreateAlways = 2,      // creates, or empties an existing file
  kOpenExisting = 3,      // fails with kFileNotFound when it does not exist
  kOpenAlways = 4,        // opens, or creates when missing
  kTruncateExisting = 5,  // empties an existing file; needs write access
};

// What CreateFileW is asked for. Sharing is honoured on Windows; POSIX has no share modes and
// ignores it.
struct FileOpenRequest {
  bool read = true;          // GENERIC_READ
  bool write = false;        // GENERIC_WRITE
  bool shareRead = true;     // FILE_SHARE_READ
  bool shareWrite = false;   // FILE_SHARE_WRITE
  bool shareDelete = false;  // FILE_SHARE_DELETE
  CreationDisposition disposition = CreationDisposition::kOpenExisting;
};

// SetFilePointer's move methods.
enum class SeekOrigin : std::uint32_t { kBegin = 0, kCurrent = 1, kEnd = 2 };

class FileSystem {
 public:
  FileSystem() = default;
  FileSystem(const FileSystem&) = delete;
  FileSystem& operator=(const FileSystem&) = delete;
  FileSystem(FileSystem&&) = delete;
  FileSystem& operator=(FileSystem&&) = delete;
  virtual ~FileSystem() = default;

  // GetModuleFileNameW(NULL): the full Windows-form path of the running program, not truncated.
  virtual std::wstring ModuleFileName() = 0;

  // PathFileExistsW(path): true when a file or folder of that name exists (a symbolic link counts
  // itself, whether or not its target exists).
  virtual bool PathExists(std::wstring_view path) = 0;

  // CreateFileW(path, access, share, NULL, disposition, FILE_ATTRIBUTE_NORMAL, NULL). On success
  // handle is the new file; on failure it is kInvalidFileHandle. A missing file gives
  // kFileNotFound, a missing folder on the way kPathNotFound, a folder or a denied file
  // kAccessDenied.
  virtual err::Win32Error Open(std::wstring_view path, const FileOpenRequest& request,
                               FileHandle& handle) = 0;

  // SetFilePointerEx(handle, distance, &position, origin): moves the file pointer; position is
  // the new offset from the start.
  virtual err::Win32Error Seek(FileHandle handle, std::int64_t distance, SeekOrigin origin,
                               std::uint64_t& position) = 0;

  // GetFileSizeEx(handle, &size).
  virtual err::Win32Error QuerySize(FileHandle handle, std::uint64_t& size) = 0;

  // WriteFile(handle, data, byteCount, &written, NULL) at the file pointer, which moves past the
  // bytes written.
  virtual err::Win32Error Write(FileHandle handle, const void* data, std::uint32_t byteCount,
                                std::uint32_t& written) = 0;

  // FlushFileBuffers(handle): the data written so far reaches the disk.
  virtual err::Win32Error Flush(FileHandle handle) = 0;

  // CloseHandle(handle). A handle that is not open (closed before, or never opened) gives
  // kInvalidHandle.
  virtual err::Win32Error Close(FileHandle handle) = 0;

  // CopyFileW(from, to, failIfExists): copies the content (and, on Windows, the attributes);
  // an existing target is overwritten unless failIfExists, which then gives kFileExists.
  virtual err::Win32Error CopyFileTo(std::wstring_view from, std::wstring_view to,
                                     bool failIfExists) = 0;
};

// Owns one open handle of a FileSystem and closes it when it goes.
class UniqueFileHandle {
 public:
  UniqueFileHandle() = default;
  UniqueFileHandle(FileSystem& fileSystem, FileHandle handle)
      : fileSystem_(&fileSystem), handle_(handle) {}
  UniqueFileHandle(const UniqueFileHandle&) = delete;
  UniqueFileHandle& operator=(const UniqueFileHandle&) = delete;
  UniqueFileHandle(UniqueFileHandle&& other) noexcept
      : fileSystem_(other.fileSystem_), handle_(other.release()) {}
  UniqueFileHandle& operator=(UniqueFileHandle&& other) noexcept {
    if (this != &other) {
      reset();
      fileSystem_ = other.fileSystem_;
      handle_ = other.release();
    }
    return *this;
  }
  ~UniqueFileHandle() { reset(); }

  FileHandle get() const { return handle_; }
  bool is_valid() const { return handle_ != kInvalidFileHandle; }
  FileHandle release() {
    const FileHandle handle = handle_;
    handle_ = kInvalidFileHandle;
    return handle;
  }
  void reset() {
    if (fileSystem_ != nullptr && handle_ != kInvalidFileHandle) fileSystem_->Close(handle_);
    handle_ = kInvalidFileHandle;
  }

 private:
  FileSystem* fileSystem_ = nullptr;
  FileHandle handle_ = kInvalidFileHandle;
};

// The process's real file system (the Win32 calls, or the POSIX adapter). It lives until the
// process exits.
FileSystem& ProcessFileSystem();

}  // namespace tw
