// File-system port: the Win32 file calls the core makes, with Windows paths and Windows error
// codes on every platform. Every operation returns the Win32 error the Windows call would leave
// in GetLastError() (err::kSuccess when it succeeds), so the core's messages and result codes are
// the same everywhere. Paths are Windows-form ("C:\dir\file", "\\server\share\file").
//
// Handles are opaque ids, not RAII objects: the log keeps a closed handle in its map on purpose
// (a write through it must then fail as on Windows), which an owning wrapper could not express.
// On Windows an id is the HANDLE value itself, and the system hands a closed value out again for
// the next object it opens; so what is kept is never the closed value but kClosedFileHandle,
// which no adapter ever gives to an open file. UniqueFileHandle below owns one where ownership is
// wanted.
// Implementations are safe to call from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/win32_error.h"

namespace tw {

// An open file; kInvalidFileHandle is INVALID_HANDLE_VALUE.
using FileHandle = std::uintptr_t;
constexpr FileHandle kInvalidFileHandle = ~FileHandle{0};
// Stands for a handle that was closed and is kept all the same: never an open file (NULL on
// Windows, never issued by the POSIX adapter or the fake). Every operation given it fails with
// kInvalidHandle, as one given a closed handle does, without calling the system.
constexpr FileHandle kClosedFileHandle = 0;

// The FILE_ATTRIBUTE_* bits, with the Win32 values.
namespace file_attr {
constexpr std::uint32_t kReadOnly = 0x1;
constexpr std::uint32_t kHidden = 0x2;
constexpr std::uint32_t kSystem = 0x4;
constexpr std::uint32_t kDirectory = 0x10;
constexpr std::uint32_t kArchive = 0x20;
constexpr std::uint32_t kNormal = 0x80;
constexpr std::uint32_t kTemporary = 0x100;
constexpr std::uint32_t kReparsePoint = 0x400;
constexpr std::uint32_t kNotContentIndexed = 0x2000;
// INVALID_FILE_ATTRIBUTES, what GetFileAttributesW returns when it fails.
constexpr std::uint32_t kInvalid = 0xFFFFFFFF;
}  // namespace file_attr

// CreateFileW's dwCreationDisposition, with the Win32 values.
enum class CreationDisposition : std::uint32_t {
  kCreateNew = 1,         // fails with kFileExists when the file exists
  kCreateAlways = 2,      // creates, or empties an existing file
  kOpenExisting = 3,      // fails with kFileNotFound when it does not exist
  kOpenAlways = 4,        // opens, or creates when missing
  kTruncateExisting = 5,  // empties an existing file; needs write access
};

// Access rights of CreateFileW beyond GENERIC_READ and GENERIC_WRITE, with the Win32 values.
namespace file_access {
constexpr std::uint32_t kFileWriteAttributes = 0x100;
constexpr std::uint32_t kWriteDac = 0x40000;
constexpr std::uint32_t kWriteOwner = 0x80000;
constexpr std::uint32_t kGenericAll = 0x10000000;
constexpr std::uint32_t kGenericWrite = 0x40000000;
constexpr std::uint32_t kGenericRead = 0x80000000;
}  // namespace file_access

// What CreateFileW is asked for. Sharing is honoured on Windows; POSIX has no share modes and
// ignores it.
struct FileOpenRequest {
  bool read = true;          // GENERIC_READ
  bool write = false;        // GENERIC_WRITE
  bool shareRead = true;     // FILE_SHARE_READ
  bool shareWrite = false;   // FILE_SHARE_WRITE
  bool shareDelete = false;  // FILE_SHARE_DELETE
  CreationDisposition disposition = CreationDisposition::kOpenExisting;
  // Further access rights (file_access::...). kGenericAll allows writing as GENERIC_WRITE does;
  // kFileWriteAttributes allows SetTimes.
  std::uint32_t otherAccess = 0;
  // The FILE_ATTRIBUTE_* bits a newly created file gets (kNormal: none).
  std::uint32_t attributes = file_attr::kNormal;
  // FILE_FLAG_BACKUP_SEMANTICS: a folder opens as well (for its times and security); without it
  // opening a folder gives kAccessDenied.
  bool backupSemantics = false;
  // With write: FILE_APPEND_DATA in place of GENERIC_WRITE's FILE_WRITE_DATA (POSIX: O_APPEND).
  // Every write of the handle then goes, in one piece, to the end of the file as it is at that
  // moment, whatever other handles or processes have written since.
  bool append = false;
};

// A FILETIME as one number: 100-nanosecond intervals since 1601-01-01 UTC.
using FileTime = std::uint64_t;

// The three times of a file or folder.
struct FileTimes {
  FileTime creation = 0;
  FileTime lastAccess = 0;
  FileTime lastWrite = 0;
};

// One entry of a directory search (WIN32_FIND_DATAW): the long name only, without its folder.
// Short 8.3 names are neither reported nor matched.
struct FindEntry {
  std::wstring name;
  std::uint32_t attributes = 0;
  FileTimes times;
  std::uint64_t size = 0;
};

// A running directory search; kInvalidSearchHandle is INVALID_HANDLE_VALUE.
using SearchHandle = std::uintptr_t;
constexpr SearchHandle kInvalidSearchHandle = ~SearchHandle{0};

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

  // The path the log takes its folder and name from: the module path itself on Windows, where
  // the log lies beside the executable. The POSIX adapter keeps the name and moves the folder for
  // an installed program (os/posix/install_layout.h).
  virtual std::wstring LogModulePath() { return ModuleFileName(); }

  // PathFileExistsW(path): true when a file or folder of that name exists (a symbolic link counts
  // itself, whether or not its target exists).
  virtual bool PathExists(std::wstring_view path) = 0;

  // CreateFileW(path, access, share, NULL, disposition, attributes and flags, NULL). On success
  // handle is the new file; on failure it is kInvalidFileHandle. A missing file gives
  // kFileNotFound, a missing folder on the way kPathNotFound, a folder (without backup
  // semantics) or a denied file kAccessDenied, a read-only file opened for writing or emptied
  // kAccessDenied.
  [[nodiscard]] virtual err::Win32Error Open(std::wstring_view path, const FileOpenRequest& request,
                                             FileHandle& handle) = 0;

  // SetFilePointerEx(handle, distance, &position, origin): moves the file pointer; position is
  // the new offset from the start.
  [[nodiscard]] virtual err::Win32Error Seek(FileHandle handle, std::int64_t distance,
                                             SeekOrigin origin, std::uint64_t& position) = 0;

  // GetFileSizeEx(handle, &size).
  [[nodiscard]] virtual err::Win32Error QuerySize(FileHandle handle, std::uint64_t& size) = 0;

  // WriteFile(handle, data, byteCount, &written, NULL) at the file pointer, which moves past the
  // bytes written.
  [[nodiscard]] virtual err::Win32Error Write(FileHandle handle, const void* data,
                                              std::uint32_t byteCount, std::uint32_t& written) = 0;

  // FlushFileBuffers(handle): the data written so far reaches the disk.
  [[nodiscard]] virtual err::Win32Error Flush(FileHandle handle) = 0;

  // CloseHandle(handle). A handle that is not open (closed before, or never opened) gives
  // kInvalidHandle.
  [[nodiscard]] virtual err::Win32Error Close(FileHandle handle) = 0;

  // CopyFileW(from, to, failIfExists): copies the content, the attributes and the last-write
  // time; an existing target is overwritten unless failIfExists, which then gives kFileExists.
  // A read-only target gives kAccessDenied, a folder as source or target kAccessDenied.
  [[nodiscard]] virtual err::Win32Error CopyFileTo(std::wstring_view from, std::wstring_view to,
                                                   bool failIfExists) = 0;

  // FindFirstFileW(pattern, &data): starts a search of the folder that pattern names; its last
  // element may hold "*" and "?", matched case-insensitively against the long names with the
  // Windows rules (a "*" before a "." stops at the last dot of the name, "*.*" matches every
  // name, "?" matches one character but none at a dot or at the end). A folder other than a drive
  // root yields "." and ".." first, as NTFS does, then its entries in the order the file system
  // keeps them. On success search is the running search and entry its first entry; on failure
  // search is kInvalidSearchHandle: a missing folder gives kPathNotFound, a folder without a
  // match kFileNotFound, a pattern ending in a separator kFileNotFound, a folder that is a file
  // kDirectory.
  [[nodiscard]] virtual err::Win32Error FindFirstEntry(std::wstring_view pattern,
                                                       SearchHandle& search, FindEntry& entry) = 0;

  // FindNextFileW(search, &data): the next entry; kNoMoreFiles when none is left (the search
  // stays open until CloseSearch).
  [[nodiscard]] virtual err::Win32Error FindNextEntry(SearchHandle search, FindEntry& entry) = 0;

  // FindClose(search). A search that is not running gives kInvalidHandle.
  [[nodiscard]] virtual err::Win32Error CloseSearch(SearchHandle search) = 0;

  // A quick listing of the folder at path, for walks of whole trees (an addition to the Windows
  // calls above): its entries without "." and "..", in the file system's order, each with its
  // name, its size (files only) and, of the attributes, only kReparsePoint (a link, a junction or
  // anything that is neither a file nor a folder), else kDirectory, else kNormal; times are 0.
  // Nothing but the listing and at most one look at each entry is read. Gives kSuccess (no
  // entries for an empty folder) or FindFirstEntry's error for the folder. The default lists
  // through FindFirstEntry; the POSIX adapter reads no stored attributes.
  [[nodiscard]] virtual err::Win32Error ListFolder(std::wstring_view path,
                                                   std::vector<FindEntry>& entries);

  // GetFileAttributesW(path): on success attributes holds the FILE_ATTRIBUTE_* bits; on failure
  // file_attr::kInvalid, with kFileNotFound / kPathNotFound for what is missing.
  [[nodiscard]] virtual err::Win32Error GetAttributes(std::wstring_view path,
                                                      std::uint32_t& attributes) = 0;

  // SetFileAttributesW(path, attributes). The DIRECTORY and REPARSE_POINT bits follow the
  // object and are ignored; 0 and kNormal clear every settable bit.
  [[nodiscard]] virtual err::Win32Error SetAttributes(std::wstring_view path,
                                                      std::uint32_t attributes) = 0;

  // GetFileTime(handle, &creation, &lastAccess, &lastWrite).
  [[nodiscard]] virtual err::Win32Error GetTimes(FileHandle handle, FileTimes& times) = 0;

  // SetFileTime(handle, ...): sets each time that is not 0 (a zero time is passed as NULL and
  // left as it is). The handle needs write or kFileWriteAttributes access, else kAccessDenied.
  [[nodiscard]] virtual err::Win32Error SetTimes(FileHandle handle, const FileTimes& times) = 0;

  // CreateDirectoryW(path, NULL). An existing file or folder of that name gives kAlreadyExists,
  // a missing folder on the way kPathNotFound.
  [[nodiscard]] virtual err::Win32Error MakeFolder(std::wstring_view path) = 0;

  // SHCreateDirectoryExW(NULL, path, NULL): creates every missing folder of the fully qualified
  // path. Returns kSuccess, kAlreadyExists when the folder exists, kFileExists when a file has
  // its name, kBadPathname for a relative path, kFilenameExcedRange for a path of 248
  // characters or more, kPathNotFound when a file stands on the way or the root does not exist,
  // or the failing creation's error.
  [[nodiscard]] virtual err::Win32Error MakeFolderPath(std::wstring_view path) = 0;

  // DeleteFileW(path). A read-only file or a folder gives kAccessDenied; a symbolic link is
  // removed itself.
  [[nodiscard]] virtual err::Win32Error DeleteFileAt(std::wstring_view path) = 0;

  // SHFileOperationW(FO_DELETE, path, FOF_NOCONFIRMATION | FOF_NOERRORUI): deletes the file or
  // the folder with everything in it for good, read-only and hidden items included; links and
  // junctions inside are removed, never entered. Returns kSuccess (0) or SHFileOperationW's
  // non-zero result: the POSIX adapter and the fake give the Win32 error of the first item that
  // could not be removed (kFileNotFound or kPathNotFound when path does not exist). Wildcards
  // in path are not expanded.
  [[nodiscard]] virtual err::Win32Error DeleteTree(std::wstring_view path) = 0;

  // Open(path, request, handle), with the handle held as a lock: until it is closed, or until
  // the process ends in any way (the system then lets go of it), the same call on the same path
  // from another process, or through another handle, fails with kSharingViolation and opens
  // nothing. The holder may still set the file's attributes and delete it. A file created this
  // way is never seen unlocked. Nothing waits: a held lock fails at once.
  // Windows: CreateFileW with FILE_SHARE_DELETE as the only sharing (the request's share flags
  // are not used). POSIX: an flock on the folder that holds path, taken before the file is
  // opened or created; so every file of that folder shares the one lock.
  [[nodiscard]] virtual err::Win32Error OpenLocked(std::wstring_view path,
                                                   const FileOpenRequest& request,
                                                   FileHandle& handle) = 0;

  // The lock of a log file that several processes write (an addition to the Windows calls
  // above): LockLogFile waits for and takes the exclusive lock that every writer of the existing
  // file at path holds while it sizes, rotates and writes it; UnlockLogFile gives it back. The
  // lock belongs to the file, not to a handle of it, so closing and reopening the file while
  // holding it keeps it, and the system releases it when the process ends. It keeps processes
  // apart, not the threads of one process: a process serialises its own writers. POSIX: flock on
  // a descriptor kept for the purpose; Windows: LockFileEx on one byte far beyond any content,
  // through a handle kept for the purpose.
  [[nodiscard]] virtual err::Win32Error LockLogFile(std::wstring_view path) = 0;
  [[nodiscard]] virtual err::Win32Error UnlockLogFile(std::wstring_view path) = 0;
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

// Owns one running search of a FileSystem and closes it when it goes.
class UniqueSearchHandle {
 public:
  UniqueSearchHandle() = default;
  UniqueSearchHandle(FileSystem& fileSystem, SearchHandle search)
      : fileSystem_(&fileSystem), search_(search) {}
  UniqueSearchHandle(const UniqueSearchHandle&) = delete;
  UniqueSearchHandle& operator=(const UniqueSearchHandle&) = delete;
  UniqueSearchHandle(UniqueSearchHandle&& other) noexcept
      : fileSystem_(other.fileSystem_), search_(other.release()) {}
  UniqueSearchHandle& operator=(UniqueSearchHandle&& other) noexcept {
    if (this != &other) {
      reset();
      fileSystem_ = other.fileSystem_;
      search_ = other.release();
    }
    return *this;
  }
  ~UniqueSearchHandle() { reset(); }

  SearchHandle get() const { return search_; }
  bool is_valid() const { return search_ != kInvalidSearchHandle; }
  SearchHandle release() {
    const SearchHandle search = search_;
    search_ = kInvalidSearchHandle;
    return search;
  }
  void reset() {
    if (fileSystem_ != nullptr && search_ != kInvalidSearchHandle)
      fileSystem_->CloseSearch(search_);
    search_ = kInvalidSearchHandle;
  }

 private:
  FileSystem* fileSystem_ = nullptr;
  SearchHandle search_ = kInvalidSearchHandle;
};

// The process's real file system (the Win32 calls, or the POSIX adapter). It lives until the
// process exits.
FileSystem& ProcessFileSystem();

}  // namespace tw
