// The file-system port over the Win32 calls it is named after. Handles are the HANDLE values.
#include "ports/file_system.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "os/native_ports.h"
#include "os/win32/windows_headers.h"

// After the setup header: the shell's file operations (SHFileOperationW, SHCreateDirectoryExW).
#include <shellapi.h>
#include <shlobj.h>

namespace tw {
namespace {

HANDLE ToHandle(FileHandle handle) { return reinterpret_cast<HANDLE>(handle); }

[[nodiscard]] err::Win32Error LastError() { return static_cast<err::Win32Error>(::GetLastError()); }

FileTime ToFileTime(const FILETIME& time) {
  return (static_cast<FileTime>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

FILETIME ToWin32FileTime(FileTime time) {
  FILETIME result;
  result.dwLowDateTime = static_cast<DWORD>(time & 0xFFFFFFFFu);
  result.dwHighDateTime = static_cast<DWORD>(time >> 32);
  return result;
}

void FromFindData(const WIN32_FIND_DATAW& data, FindEntry& entry) {
  entry.name = data.cFileName;
  entry.attributes = data.dwFileAttributes;
  entry.times.creation = ToFileTime(data.ftCreationTime);
  entry.times.lastAccess = ToFileTime(data.ftLastAccessTime);
  entry.times.lastWrite = ToFileTime(data.ftLastWriteTime);
  entry.size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// The request of OpenLocked: shared for deletion only, so that every other opening of the file's
// data (and so every other OpenLocked) fails with ERROR_SHARING_VIOLATION while the handle is
// open, and the holder can still delete the file. The system closes the handle when the
// process ends.
FileOpenRequest LockingRequest(FileOpenRequest request) {
  request.shareRead = false;
  request.shareWrite = false;
  request.shareDelete = true;
  return request;
}

class Win32FileSystem final : public FileSystem {
 public:
  std::wstring ModuleFileName() override {
    std::vector<wchar_t> buffer(MAX_PATH + 1);
    for (;;) {
      const DWORD length =
          ::GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
      if (length == 0) return std::wstring();
      if (length < buffer.size()) return std::wstring(buffer.data(), length);
      buffer.resize(buffer.size() * 2);
    }
  }

  bool PathExists(std::wstring_view path) override {
    const std::wstring text(path);
    return ::PathFileExistsW(text.c_str()) != FALSE;
  }

  [[nodiscard]] err::Win32Error Open(std::wstring_view path, const FileOpenRequest& request,
                                     FileHandle& handle) override {
    const std::wstring text(path);
    DWORD access = 0;
    if (request.read) access |= GENERIC_READ;
    if (request.write) {
      // Appending: FILE_APPEND_DATA without FILE_WRITE_DATA sends every write to the end.
      access |= request.append ? static_cast<DWORD>(FILE_GENERIC_WRITE & ~FILE_WRITE_DATA)
                               : static_cast<DWORD>(GENERIC_WRITE);
    }
    access |= request.otherAccess;
    DWORD share = 0;
    if (request.shareRead) share |= FILE_SHARE_READ;
    if (request.shareWrite) share |= FILE_SHARE_WRITE;
    if (request.shareDelete) share |= FILE_SHARE_DELETE;
    DWORD flags = request.attributes;
    if (request.backupSemantics) flags |= FILE_FLAG_BACKUP_SEMANTICS;
    const HANDLE opened = ::CreateFileW(text.c_str(), access, share, nullptr,
                                        static_cast<DWORD>(request.disposition), flags, nullptr);
    if (opened == INVALID_HANDLE_VALUE) {
      handle = kInvalidFileHandle;
      return LastError();
    }
    handle = reinterpret_cast<FileHandle>(opened);
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error Seek(FileHandle handle, std::int64_t distance, SeekOrigin origin,
                                     std::uint64_t& position) override {
    if (handle == kClosedFileHandle) return err::kInvalidHandle;
    LARGE_INTEGER move;
    move.QuadPart = distance;
    LARGE_INTEGER result;
    result.QuadPart = 0;
    if (!::SetFilePointerEx(ToHandle(handle), move, &result, static_cast<DWORD>(origin)))
      return LastError();
    position = static_cast<std::uint64_t>(result.QuadPart);
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error QuerySize(FileHandle handle, std::uint64_t& size) override {
    if (handle == kClosedFileHandle) return err::kInvalidHandle;
    LARGE_INTEGER result;
    result.QuadPart = 0;
    if (!::GetFileSizeEx(ToHandle(handle), &result)) return LastError();
    size = static_cast<std::uint64_t>(result.QuadPart);
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error Write(FileHandle handle, const void* data, std::uint32_t byteCount,
                                      std::uint32_t& written) override {
    if (handle == kClosedFileHandle) return err::kInvalidHandle;
    DWORD done = 0;
    const BOOL ok = ::WriteFile(ToHandle(handle), data, byteCount, &done, nullptr);
    written = done;
    return ok ? err::kSuccess : LastError();
  }

  [[nodiscard]] err::Win32Error Flush(FileHandle handle) override {
    if (handle == kClosedFileHandle) return err::kInvalidHandle;
    return ::FlushFileBuffers(ToHandle(handle)) ? err::kSuccess : LastError();
  }

  [[nodiscard]] err::Win32Error Close(FileHandle handle) override {
    if (handle == kClosedFileHandle) return err::kInvalidHandle;
    return ::CloseHandle(ToHandle(handle)) ? err::kSuccess : LastError();
  }

  [[nodiscard]] err::Win32Error CopyFileTo(std::wstring_view from, std::wstring_view to,
                                           bool failIfExists) override {
    const std::wstring source(from);
    const std::wstring target(to);
    return ::CopyFileW(source.c_str(), target.c_str(), failIfExists ? TRUE : FALSE) ? err::kSuccess
                                                                                    : LastError();
  }

  [[nodiscard]] err::Win32Error FindFirstEntry(std::wstring_view pattern, SearchHandle& search,
                                               FindEntry& entry) override {
    const std::wstring text(pattern);
    WIN32_FIND_DATAW data;
    const HANDLE found = ::FindFirstFileW(text.c_str(), &data);
    if (found == INVALID_HANDLE_VALUE) {
      search = kInvalidSearchHandle;
      return LastError();
    }
    search = reinterpret_cast<SearchHandle>(found);
    FromFindData(data, entry);
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error FindNextEntry(SearchHandle search, FindEntry& entry) override {
    WIN32_FIND_DATAW data;
    if (!::FindNextFileW(reinterpret_cast<HANDLE>(search), &data)) return LastError();
    FromFindData(data, entry);
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error CloseSearch(SearchHandle search) override {
    return ::FindClose(reinterpret_cast<HANDLE>(search)) ? err::kSuccess : LastError();
  }

  [[nodiscard]] err::Win32Error GetAttributes(std::wstring_view path,
                                              std::uint32_t& attributes) override {
    const std::wstring text(path);
    attributes = ::GetFileAttributesW(text.c_str());
    return attributes == INVALID_FILE_ATTRIBUTES ? LastError() : err::kSuccess;
  }

  [[nodiscard]] err::Win32Error SetAttributes(std::wstring_view path,
                                              std::uint32_t attributes) override {
    const std::wstring text(path);
    return ::SetFileAttributesW(text.c_str(), attributes) ? err::kSuccess : LastError();
  }

  [[nodiscard]] err::Win32Error GetTimes(FileHandle handle, FileTimes& times) override {
    if (handle == kClosedFileHandle) return err::kInvalidHandle;
    FILETIME creation;
    FILETIME lastAccess;
    FILETIME lastWrite;
    if (!::GetFileTime(ToHandle(handle), &creation, &lastAccess, &lastWrite)) return LastError();
    times.creation = ToFileTime(creation);
    times.lastAccess = ToFileTime(lastAccess);
    times.lastWrite = ToFileTime(lastWrite);
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error SetTimes(FileHandle handle, const FileTimes& times) override {
    if (handle == kClosedFileHandle) return err::kInvalidHandle;
    const FILETIME creation = ToWin32FileTime(times.creation);
    const FILETIME lastAccess = ToWin32FileTime(times.lastAccess);
    const FILETIME lastWrite = ToWin32FileTime(times.lastWrite);
    return ::SetFileTime(ToHandle(handle), times.creation != 0 ? &creation : nullptr,
                         times.lastAccess != 0 ? &lastAccess : nullptr,
                         times.lastWrite != 0 ? &lastWrite : nullptr)
               ? err::kSuccess
               : LastError();
  }

  [[nodiscard]] err::Win32Error MakeFolder(std::wstring_view path) override {
    const std::wstring text(path);
    return ::CreateDirectoryW(text.c_str(), nullptr) ? err::kSuccess : LastError();
  }

  [[nodiscard]] err::Win32Error MakeFolderPath(std::wstring_view path) override {
    const std::wstring text(path);
    return static_cast<err::Win32Error>(::SHCreateDirectoryExW(nullptr, text.c_str(), nullptr));
  }

  [[nodiscard]] err::Win32Error DeleteFileAt(std::wstring_view path) override {
    const std::wstring text(path);
    return ::DeleteFileW(text.c_str()) ? err::kSuccess : LastError();
  }

  [[nodiscard]] err::Win32Error DeleteTree(std::wstring_view path) override {
    // pFrom is a list of paths ended by an empty one: the path and two terminating zeros.
    std::wstring from(path);
    from.push_back(L'\0');
    SHFILEOPSTRUCTW operation = {};
    operation.hwnd = nullptr;
    operation.wFunc = FO_DELETE;
    operation.pFrom = from.c_str();
    operation.pTo = nullptr;
    operation.fFlags = FOF_NOCONFIRMATION | FOF_NOERRORUI;
    operation.lpszProgressTitle = nullptr;
    return static_cast<err::Win32Error>(::SHFileOperationW(&operation));
  }

  [[nodiscard]] err::Win32Error OpenLocked(std::wstring_view path, const FileOpenRequest& request,
                                           FileHandle& handle) override {
    return Open(path, LockingRequest(request), handle);
  }

  // LockFileEx on one byte at 2^63 - 2, far beyond any content (so that no read or write of
  // the log meets it), through a read-only handle kept open by path that shares everything.
  [[nodiscard]] err::Win32Error LockLogFile(std::wstring_view path) override {
    HANDLE lockHandle = INVALID_HANDLE_VALUE;
    {
      const std::lock_guard<std::mutex> guard(logLocksMutex_);
      const std::wstring text(path);
      const auto found = logLocks_.find(text);
      if (found != logLocks_.end()) {
        lockHandle = found->second;
      } else {
        lockHandle = ::CreateFileW(text.c_str(), GENERIC_READ,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (lockHandle == INVALID_HANDLE_VALUE) return LastError();
        logLocks_.emplace(text, lockHandle);
      }
    }
    OVERLAPPED at = LogLockOffset();
    return ::LockFileEx(lockHandle, LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &at) ? err::kSuccess
                                                                           : LastError();
  }

  [[nodiscard]] err::Win32Error UnlockLogFile(std::wstring_view path) override {
    HANDLE lockHandle = INVALID_HANDLE_VALUE;
    {
      const std::lock_guard<std::mutex> guard(logLocksMutex_);
      const auto found = logLocks_.find(std::wstring(path));
      if (found == logLocks_.end()) return err::kNotLocked;
      lockHandle = found->second;
    }
    OVERLAPPED at = LogLockOffset();
    return ::UnlockFileEx(lockHandle, 0, 1, 0, &at) ? err::kSuccess : LastError();
  }

 private:
  static OVERLAPPED LogLockOffset() {
    OVERLAPPED at = {};
    at.Offset = 0xFFFFFFFEu;
    at.OffsetHigh = 0x7FFFFFFFu;
    return at;
  }

  std::mutex logLocksMutex_;
  std::map<std::wstring, HANDLE> logLocks_;  // log path -> the handle its lock is taken through
};

}  // namespace

FileSystem& NativeFileSystem() {
  static Win32FileSystem fileSystem;
  return fileSystem;
}

}  // namespace tw
