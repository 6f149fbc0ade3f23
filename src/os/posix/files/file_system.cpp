// The file-system port over POSIX calls. Windows paths are mapped by native_path.h (drive Z:,
// the share map, names found ignoring case), errno values by errno_win32.h. Handles are ids
// into a table of open descriptors; an id is never reused, so a closed handle stays invalid
// (kInvalidHandle) for good. Share modes do not exist on POSIX and are ignored. Symbolic links
// are never followed on the last element of a path: opening or copying one fails with
// kCantResolveFilename (ELOOP), and searches list them as reparse points. Below a share's folder
// none is followed on the way either (beneath_path.h).
//
// The work is shared out: directory_search_posix (searches), file_info_posix (attributes and
// times), file_copy_posix (CopyFileW), folder_tree_posix (folder creation, deletion).
#include "ports/file_system.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "os/native_ports.h"
#include "os/posix/errno_win32.h"
#include "os/posix/files/directory_search.h"
#include "os/posix/files/file_copy.h"
#include "os/posix/files/file_info.h"
#include "os/posix/files/folder_lock.h"
#include "os/posix/files/folder_tree.h"
#include "os/posix/files/open_file_identity.h"
#include "os/posix/install_layout.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/folder_names.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/security/object_security.h"

namespace tw {
namespace {

using posix::PathError;

// One open descriptor; closed when the last user lets go of it.
struct OpenFileEntry {
  int fd = -1;
  bool canRead = false;
  bool canWrite = false;     // the data
  bool canSetTimes = false;  // write access or FILE_WRITE_ATTRIBUTES
  int lockFd = -1;           // OpenLocked: the locked folder, let go of after the file
  OpenFileEntry() = default;
  OpenFileEntry(const OpenFileEntry&) = delete;
  OpenFileEntry& operator=(const OpenFileEntry&) = delete;
  ~OpenFileEntry() {
    if (fd >= 0) ::close(fd);
    if (lockFd >= 0) ::close(lockFd);
  }
};

// A running search: every entry, read when it started, and the next one to hand out.
struct SearchState {
  std::vector<FindEntry> entries;
  std::size_t next = 0;
};

// The stored attributes of an existing regular file, 0 when none are stored.
std::uint32_t StoredFileAttributes(const std::string& native) {
  std::uint32_t stored = 0;
  return posix::ReadStoredAttributes(native, stored) ? stored : 0;
}

// How an open goes: the access asked for, and what its creation disposition asks.
struct OpenPlan {
  bool readAccess = false;
  bool writeAccess = false;
  bool create = false;
  bool truncate = false;
  bool mustNotExist = false;
};

// The data access a request asks for, directly or through generic rights.
OpenPlan AccessOf(const FileOpenRequest& request) {
  OpenPlan plan;
  plan.writeAccess =
      request.write ||
      (request.otherAccess & (file_access::kGenericAll | file_access::kGenericWrite)) != 0;
  plan.readAccess = request.read || (request.otherAccess &
                                     (file_access::kGenericAll | file_access::kGenericRead)) != 0;
  return plan;
}

// What `disposition` asks; false for one that is not valid (TRUNCATE_EXISTING without write
// access, or an unknown one).
bool AddDisposition(CreationDisposition disposition, OpenPlan& plan) {
  switch (disposition) {
    case CreationDisposition::kCreateNew:
      plan.create = true;
      plan.mustNotExist = true;
      return true;
    case CreationDisposition::kCreateAlways:
      plan.create = true;
      plan.truncate = true;
      return true;
    case CreationDisposition::kOpenExisting:
      return true;
    case CreationDisposition::kOpenAlways:
      plan.create = true;
      return true;
    case CreationDisposition::kTruncateExisting:
      if (!plan.writeAccess) return false;
      plan.truncate = true;
      return true;
    default:
      return false;
  }
}

// An existing file that is to be written or emptied: a read-only one refuses, and replacing a
// hidden or system file needs the same bits asked for, as on Windows.
[[nodiscard]] err::Win32Error CheckReplaceable(const std::string& native,
                                               const FileOpenRequest& request) {
  const std::uint32_t stored = StoredFileAttributes(native);
  if ((stored & file_attr::kReadOnly) != 0) return err::kAccessDenied;
  const std::uint32_t guarded = stored & (file_attr::kHidden | file_attr::kSystem);
  if (request.disposition == CreationDisposition::kCreateAlways &&
      (request.attributes & guarded) != guarded)
    return err::kAccessDenied;
  return err::kSuccess;
}

// The open(2) flags of a file open. A file that is emptied is opened for writing even when only
// writing attributes was asked for; the handle still refuses data writes.
int FileOpenFlags(const FileOpenRequest& request, const OpenPlan& plan) {
  int flags = O_CLOEXEC | O_NOFOLLOW;
  if (plan.create) flags |= O_CREAT;
  if (plan.mustNotExist) flags |= O_EXCL;
  flags |= (plan.writeAccess || plan.truncate) ? O_RDWR : O_RDONLY;
  if (request.append && plan.writeAccess) flags |= O_APPEND;
  return flags;
}

// A new file, or one that CREATE_ALWAYS replaces, gets the attributes asked for and ARCHIVE, as
// Windows gives them.
void StampNewFileAttributes(const std::string& native, const FileOpenRequest& request,
                            bool existed) {
  if (existed && request.disposition != CreationDisposition::kCreateAlways) return;
  const std::uint32_t kept = existed ? StoredFileAttributes(native) : 0;
  const std::uint32_t wanted = (request.attributes & posix::kSettableAttributes) | kept;
  if (wanted != 0 || existed) {
    // Best effort: the file itself was made.
    static_cast<void>(posix::WriteStoredAttributes(native, wanted | file_attr::kArchive));
  }
}

// Whether a handle may stamp times: write access or FILE_WRITE_ATTRIBUTES.
bool CanSetTimes(const FileOpenRequest& request, const OpenPlan& plan) {
  return plan.writeAccess || (request.otherAccess & file_access::kFileWriteAttributes) != 0;
}

class PosixFileSystem final : public FileSystem {
 public:
  std::wstring ModuleFileName() override {
    std::vector<char> buffer(4096);
    for (;;) {
      const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
      if (length < 0) return std::wstring();
      if (static_cast<std::size_t>(length) < buffer.size()) {
        return posix::ToWindowsPath(
            std::string_view(buffer.data(), static_cast<std::size_t>(length)));
      }
      buffer.resize(buffer.size() * 2);
    }
  }

  std::wstring LogModulePath() override { return posix::LogModulePath(ModuleFileName()); }

  bool PathExists(std::wstring_view path) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    posix::NativeStatus status;
    if (!posix::ToNativePath(path, native, error, &status)) return false;
    struct stat info {};
    return posix::LstatKnown(native, status, info) == 0;
  }

  [[nodiscard]] err::Win32Error Open(std::wstring_view path, const FileOpenRequest& request,
                                     FileHandle& handle) override {
    handle = kInvalidFileHandle;
    OpenPlan plan = AccessOf(request);
    if (request.disposition == CreationDisposition::kOpenExisting && request.backupSemantics &&
        !plan.writeAccess) {
      return OpenExistingObject(path, request, plan.readAccess, handle);
    }

    std::string native;
    err::Win32Error error = err::kSuccess;
    posix::NativeStatus status;
    if (!posix::ToNativePath(path, native, error, &status)) return error;
    if (!AddDisposition(request.disposition, plan)) return err::kInvalidParameter;

    struct stat before {};
    const bool existed = posix::LstatKnown(native, status, before) == 0;
    if (existed && S_ISDIR(before.st_mode)) return OpenFolder(native, request, plan, handle);
    if (existed && plan.mustNotExist) return err::kFileExists;
    if (existed && S_ISREG(before.st_mode) && (plan.writeAccess || plan.truncate)) {
      const err::Win32Error refused = CheckReplaceable(native, request);
      if (refused != err::kSuccess) return refused;
    }
    return OpenFile(native, request, plan, existed, handle);
  }

  [[nodiscard]] err::Win32Error Seek(FileHandle handle, std::int64_t distance, SeekOrigin origin,
                                     std::uint64_t& position) override {
    const std::shared_ptr<OpenFileEntry> entry = Find(handle);
    if (!entry) return err::kInvalidHandle;
    int whence = SEEK_SET;
    if (origin == SeekOrigin::kCurrent) whence = SEEK_CUR;
    if (origin == SeekOrigin::kEnd) whence = SEEK_END;
    const off_t result = ::lseek(entry->fd, static_cast<off_t>(distance), whence);
    if (result < 0) return posix::Win32ErrorFromErrno(errno);
    position = static_cast<std::uint64_t>(result);
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error QuerySize(FileHandle handle, std::uint64_t& size) override {
    const std::shared_ptr<OpenFileEntry> entry = Find(handle);
    if (!entry) return err::kInvalidHandle;
    struct stat info {};
    if (::fstat(entry->fd, &info) != 0) return posix::Win32ErrorFromErrno(errno);
    size = S_ISREG(info.st_mode) ? static_cast<std::uint64_t>(info.st_size) : 0;
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error Write(FileHandle handle, const void* data, std::uint32_t byteCount,
                                      std::uint32_t& written) override {
    written = 0;
    const std::shared_ptr<OpenFileEntry> entry = Find(handle);
    if (!entry) return err::kInvalidHandle;
    if (!entry->canWrite) return err::kAccessDenied;
    const char* bytes = static_cast<const char*>(data);
    while (written < byteCount) {
      const ssize_t count = ::write(entry->fd, bytes + written, byteCount - written);
      if (count < 0) {
        if (errno == EINTR) continue;
        return posix::Win32ErrorFromErrno(errno);
      }
      written += static_cast<std::uint32_t>(count);
    }
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error Flush(FileHandle handle) override {
    const std::shared_ptr<OpenFileEntry> entry = Find(handle);
    if (!entry) return err::kInvalidHandle;
    if (!entry->canWrite) return err::kAccessDenied;
    if (::fsync(entry->fd) != 0) return posix::Win32ErrorFromErrno(errno);
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error Close(FileHandle handle) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    return files_.erase(handle) == 1 ? err::kSuccess : err::kInvalidHandle;
  }

  [[nodiscard]] err::Win32Error CopyFileTo(std::wstring_view from, std::wstring_view to,
                                           bool failIfExists) override {
    // A source that cannot be mapped, or is missing, is reported before anything about the
    // target.
    std::string source;
    std::string target;
    err::Win32Error error = err::kSuccess;
    posix::NativeStatus targetStatus;
    if (!posix::MapNativePathAsWritten(from, source, error)) return error;
    const bool mapped = failIfExists ? posix::ToNativePathForCreation(to, target, error)
                                     : posix::ToNativePath(to, target, error, &targetStatus);
    if (!mapped) return error;
    return posix::OnExistingNativePath(source, [&](const std::string& resolvedSource) {
      return posix::CopyNativeFile(resolvedSource, target, failIfExists, targetStatus);
    });
  }

  [[nodiscard]] err::Win32Error FindFirstEntry(std::wstring_view pattern, SearchHandle& search,
                                               FindEntry& entry) override {
    search = kInvalidSearchHandle;
    SearchState state;
    if (const err::Win32Error error = posix::CollectSearchEntries(pattern, state.entries);
        error != err::kSuccess)
      return error;
    entry = std::move(state.entries[0]);
    state.next = 1;
    const std::lock_guard<std::mutex> guard(mutex_);
    nextId_ += 4;
    search = nextId_;
    searches_.emplace(search, std::move(state));
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error FindNextEntry(SearchHandle search, FindEntry& entry) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = searches_.find(search);
    if (found == searches_.end()) return err::kInvalidHandle;
    SearchState& state = found->second;
    if (state.next >= state.entries.size()) return err::kNoMoreFiles;
    entry = std::move(state.entries[state.next++]);  // each entry is handed out once
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error ListFolder(std::wstring_view path,
                                           std::vector<FindEntry>& entries) override {
    return posix::ListFolderEntries(path, entries);
  }

  [[nodiscard]] err::Win32Error CloseSearch(SearchHandle search) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    return searches_.erase(search) == 1 ? err::kSuccess : err::kInvalidHandle;
  }

  [[nodiscard]] err::Win32Error GetAttributes(std::wstring_view path,
                                              std::uint32_t& attributes) override {
    attributes = file_attr::kInvalid;
    FindEntry info;
    const err::Win32Error error = posix::OnExistingObject(
        path, [&info](const std::string& native) { return posix::QueryFileInfo(native, info); });
    if (error == err::kSuccess) attributes = info.attributes;
    return error;
  }

  [[nodiscard]] err::Win32Error SetAttributes(std::wstring_view path,
                                              std::uint32_t attributes) override {
    return posix::OnExistingObject(path, [attributes](const std::string& native) {
      return posix::WriteStoredAttributes(native, attributes & posix::kSettableAttributes);
    });
  }

  [[nodiscard]] err::Win32Error GetTimes(FileHandle handle, FileTimes& times) override {
    const std::shared_ptr<OpenFileEntry> entry = Find(handle);
    if (!entry) return err::kInvalidHandle;
    return posix::QueryDescriptorTimes(entry->fd, times);
  }

  // Linux keeps no settable creation time: it goes where the file server keeps it.
  [[nodiscard]] err::Win32Error SetTimes(FileHandle handle, const FileTimes& times) override {
    const std::shared_ptr<OpenFileEntry> entry = Find(handle);
    if (!entry) return err::kInvalidHandle;
    if (!entry->canSetTimes) return err::kAccessDenied;
    if (times.creation != 0) {
      const err::Win32Error stored = posix::StoreDescriptorCreationTime(entry->fd, times.creation);
      if (stored != err::kSuccess) return stored;
    }
    struct timespec stamps[2];
    const FileTime values[2] = {times.lastAccess, times.lastWrite};
    for (int i = 0; i < 2; ++i) {
      if (values[i] == 0) {
        stamps[i].tv_sec = 0;
        stamps[i].tv_nsec = UTIME_OMIT;
      } else {
        std::int64_t seconds = 0;
        std::int64_t nanoseconds = 0;
        posix::UnixFromFileTime(values[i], seconds, nanoseconds);
        stamps[i].tv_sec = static_cast<time_t>(seconds);
        stamps[i].tv_nsec = static_cast<long>(nanoseconds);
      }
    }
    if (::futimens(entry->fd, stamps) != 0) return posix::Win32ErrorFromErrno(errno);
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error MakeFolder(std::wstring_view path) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePathForCreation(path, native, error)) return error;
    return posix::MakeNativeFolder(native);
  }

  [[nodiscard]] err::Win32Error MakeFolderPath(std::wstring_view path) override {
    return posix::MakeFolderPathFromWindows(path);
  }

  [[nodiscard]] err::Win32Error DeleteFileAt(std::wstring_view path) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return error;
    return posix::DeleteNativeFile(native);
  }

  [[nodiscard]] err::Win32Error DeleteTree(std::wstring_view path) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return error;
    return posix::DeleteNativeTree(native);
  }

  // The lock is the flock of the file's folder (folder_lock_posix.h), taken before the file is
  // looked at, so that a file made under it is never seen unlocked; the handle keeps both.
  [[nodiscard]] err::Win32Error OpenLocked(std::wstring_view path, const FileOpenRequest& request,
                                           FileHandle& handle) override {
    handle = kInvalidFileHandle;
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return error;
    int lockFd = -1;
    error = posix::LockNativeFolder(posix::NativeParentFolder(native), lockFd);
    if (error != err::kSuccess) return error == err::kDirectory ? err::kPathNotFound : error;
    error = Open(path, request, handle);
    const std::shared_ptr<OpenFileEntry> entry = error == err::kSuccess ? Find(handle) : nullptr;
    if (!entry) {
      ::close(lockFd);
      return error == err::kSuccess ? err::kInvalidHandle : error;
    }
    entry->lockFd = lockFd;
    return err::kSuccess;
  }

  // flock on a read-only descriptor of the log, kept open by path. Once it is held, the file at
  // path must still be the one locked: a log that was deleted or replaced meanwhile is opened
  // and locked again, so that every writer locks the file it writes.
  [[nodiscard]] err::Win32Error LockLogFile(std::wstring_view path) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return error;
    for (int attempt = 0; attempt < 8; ++attempt) {
      const int fd = LogLockDescriptor(native);
      if (fd < 0) return PathError(native);
      while (::flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) return posix::Win32ErrorFromErrno(errno);
      }
      struct stat held {};
      struct stat named {};
      if (::fstat(fd, &held) == 0 && ::lstat(native.c_str(), &named) == 0 &&
          held.st_dev == named.st_dev && held.st_ino == named.st_ino)
        return err::kSuccess;
      ::flock(fd, LOCK_UN);
      const std::lock_guard<std::mutex> guard(mutex_);
      ::close(fd);
      logLocks_.erase(native);
    }
    return err::kLockViolation;
  }

  [[nodiscard]] err::Win32Error UnlockLogFile(std::wstring_view path) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return error;
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = logLocks_.find(native);
    if (found == logLocks_.end()) return err::kNotLocked;
    if (::flock(found->second, LOCK_UN) != 0) return posix::Win32ErrorFromErrno(errno);
    return err::kSuccess;
  }

  bool StatHandle(FileHandle handle, struct stat& info) {
    const std::shared_ptr<OpenFileEntry> entry = Find(handle);
    return entry && ::fstat(entry->fd, &info) == 0;
  }

 private:
  // The descriptor LockLogFile locks for native, opened on first use; -1 (errno set) when the
  // file cannot be opened. O_NONBLOCK keeps a named pipe from waiting for a writer.
  int LogLockDescriptor(const std::string& native) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = logLocks_.find(native);
    if (found != logLocks_.end()) return found->second;
    const int fd = ::open(native.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0) logLocks_.emplace(native, fd);
    return fd;
  }

  // Open for an object that must exist, asking for no data writes, with backup semantics: files
  // and folders open alike, so the object needs no look before it is opened. O_NONBLOCK keeps a
  // named pipe from waiting for a writer.
  [[nodiscard]] err::Win32Error OpenExistingObject(std::wstring_view path,
                                                   const FileOpenRequest& request, bool readAccess,
                                                   FileHandle& handle) {
    return posix::OnExistingObject(path, [&](const std::string& native) {
      auto entry = std::make_shared<OpenFileEntry>();
      entry->fd = posix::OpenBeneath(native, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
      if (entry->fd < 0) return PathError(native);
      entry->canRead = readAccess;
      entry->canSetTimes = (request.otherAccess & file_access::kFileWriteAttributes) != 0;
      return Register(std::move(entry), handle);
    });
  }

  // An existing folder opens only with backup semantics, and only to be looked at or stamped.
  [[nodiscard]] err::Win32Error OpenFolder(const std::string& native,
                                           const FileOpenRequest& request, const OpenPlan& plan,
                                           FileHandle& handle) {
    if (!request.backupSemantics || plan.mustNotExist || plan.truncate) {
      return plan.mustNotExist ? err::kFileExists : err::kAccessDenied;
    }
    auto entry = std::make_shared<OpenFileEntry>();
    entry->fd = posix::OpenBeneath(native, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (entry->fd < 0) return PathError(native);
    entry->canSetTimes = CanSetTimes(request, plan);
    return Register(std::move(entry), handle);
  }

  // Opens, creates or empties a file as the plan says. A new file inherits from its folder;
  // that failing leaves it as open made it.
  [[nodiscard]] err::Win32Error OpenFile(const std::string& native, const FileOpenRequest& request,
                                         const OpenPlan& plan, bool existed, FileHandle& handle) {
    auto entry = std::make_shared<OpenFileEntry>();
    entry->fd = posix::OpenBeneath(native, FileOpenFlags(request, plan), 0666);
    if (entry->fd < 0) return PathError(native);
    if (!existed && plan.create) {
      posix::NoteNameCreated(native);
      static_cast<void>(posix::InheritNewObjectSecurity(native));
    }
    if (plan.truncate && ::ftruncate(entry->fd, 0) != 0) return posix::Win32ErrorFromErrno(errno);
    entry->canRead = plan.readAccess;
    entry->canWrite = plan.writeAccess;
    entry->canSetTimes = CanSetTimes(request, plan);
    StampNewFileAttributes(native, request, existed);
    return Register(std::move(entry), handle);
  }

  [[nodiscard]] err::Win32Error Register(std::shared_ptr<OpenFileEntry> entry, FileHandle& handle) {
    const std::lock_guard<std::mutex> guard(mutex_);
    nextId_ += 4;
    handle = nextId_;
    files_.emplace(handle, std::move(entry));
    return err::kSuccess;
  }

  std::shared_ptr<OpenFileEntry> Find(FileHandle handle) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = files_.find(handle);
    if (found == files_.end()) return nullptr;
    return found->second;
  }

  std::mutex mutex_;
  FileHandle nextId_ = 0x100;
  std::map<FileHandle, std::shared_ptr<OpenFileEntry>> files_;
  std::map<SearchHandle, SearchState> searches_;
  std::map<std::string, int> logLocks_;  // native path of a log -> its lock descriptor
};

}  // namespace

namespace {

PosixFileSystem& ProcessPosixFileSystem() {
  static PosixFileSystem fileSystem;
  return fileSystem;
}

}  // namespace

FileSystem& NativeFileSystem() { return ProcessPosixFileSystem(); }

bool posix::StatOpenFile(FileHandle handle, struct stat& info) {
  return ProcessPosixFileSystem().StatHandle(handle, info);
}

}  // namespace tw
