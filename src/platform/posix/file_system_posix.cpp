// The file-system port over POSIX calls. Windows paths are mapped by native_path.h, errno values
// by errno_win32.h. Handles are ids into a table of open descriptors; an id is never reused, so
// a closed handle stays invalid (kInvalidHandle) for good. Share modes do not exist on POSIX and
// are ignored.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/file_system.h"
#include "platform/posix/directory_search_posix.h"
#include "platform/posix/errno_win32.h"
#include "platform/posix/file_info_posix.h"
#include "platform/posix/native_path.h"

namespace tw {
namespace {

// One open descriptor; closed when the last user lets go of it.
struct OpenFileEntry {
  int fd = -1;
  bool canRead = false;
  bool canWrite = false;
  OpenFileEntry() = default;
  OpenFileEntry(const OpenFileEntry&) = delete;
  OpenFileEntry& operator=(const OpenFileEntry&) = delete;
  ~OpenFileEntry() {
    if (fd >= 0) ::close(fd);
  }
};

using posix::PathError;

// A running search: every entry, read when it started, and the next one to hand out.
struct SearchState {
  std::vector<FindEntry> entries;
  std::size_t next = 0;
};

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

  bool PathExists(std::wstring_view path) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return false;
    struct stat info {};
    return ::lstat(native.c_str(), &info) == 0;
  }

  err::Win32Error Open(std::wstring_view path, const FileOpenRequest& request,
                       FileHandle& handle) override {
    handle = kInvalidFileHandle;
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return error;

    bool truncate = false;
    int flags = O_CLOEXEC;
    switch (request.disposition) {
      case CreationDisposition::kCreateNew:
        flags |= O_CREAT | O_EXCL;
        break;
      case CreationDisposition::kCreateAlways:
        flags |= O_CREAT;
        truncate = true;
        break;
      case CreationDisposition::kOpenExisting:
        break;
      case CreationDisposition::kOpenAlways:
        flags |= O_CREAT;
        break;
      case CreationDisposition::kTruncateExisting:
        if (!request.write) return err::kInvalidParameter;
        truncate = true;
        break;
      default:
        return err::kInvalidParameter;
    }
    // A file that is emptied is opened for writing even when only reading was asked for; the
    // handle still refuses writes.
    const bool needWrite = request.write || truncate;
    flags |= needWrite ? O_RDWR : O_RDONLY;

    auto entry = std::make_shared<OpenFileEntry>();
    entry->fd = ::open(native.c_str(), flags, 0666);
    if (entry->fd < 0) return PathError(native);
    struct stat info {};
    if (::fstat(entry->fd, &info) != 0) return posix::Win32ErrorFromErrno(errno);
    if (S_ISDIR(info.st_mode)) return err::kAccessDenied;  // a folder, without backup semantics
    if (truncate && ::ftruncate(entry->fd, 0) != 0) return posix::Win32ErrorFromErrno(errno);
    entry->canRead = request.read;
    entry->canWrite = request.write;

    const std::lock_guard<std::mutex> guard(mutex_);
    nextId_ += 4;
    handle = nextId_;
    files_.emplace(handle, std::move(entry));
    return err::kSuccess;
  }

  err::Win32Error Seek(FileHandle handle, std::int64_t distance, SeekOrigin origin,
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

  err::Win32Error QuerySize(FileHandle handle, std::uint64_t& size) override {
    const std::shared_ptr<OpenFileEntry> entry = Find(handle);
    if (!entry) return err::kInvalidHandle;
    struct stat info {};
    if (::fstat(entry->fd, &info) != 0) return posix::Win32ErrorFromErrno(errno);
    size = static_cast<std::uint64_t>(info.st_size);
    return err::kSuccess;
  }

  err::Win32Error Write(FileHandle handle, const void* data, std::uint32_t byteCount,
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

  err::Win32Error Flush(FileHandle handle) override {
    const std::shared_ptr<OpenFileEntry> entry = Find(handle);
    if (!entry) return err::kInvalidHandle;
    if (!entry->canWrite) return err::kAccessDenied;
    if (::fsync(entry->fd) != 0) return posix::Win32ErrorFromErrno(errno);
    return err::kSuccess;
  }

  err::Win32Error Close(FileHandle handle) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    return files_.erase(handle) == 1 ? err::kSuccess : err::kInvalidHandle;
  }

  // Copies the bytes, the permission bits and the last-write time. The file attributes kept in
  // extended attributes belong to the attribute component and are not copied here.
  err::Win32Error CopyFileTo(std::wstring_view from, std::wstring_view to,
                             bool failIfExists) override {
    std::string source;
    std::string target;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(from, source, error)) return error;
    if (!posix::ToNativePath(to, target, error)) return error;

    OpenFileEntry in;
    in.fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (in.fd < 0) return PathError(source);
    struct stat sourceInfo {};
    if (::fstat(in.fd, &sourceInfo) != 0) return posix::Win32ErrorFromErrno(errno);
    if (S_ISDIR(sourceInfo.st_mode)) return err::kAccessDenied;
    struct stat targetInfo {};
    if (::stat(target.c_str(), &targetInfo) == 0) {
      if (failIfExists) return err::kFileExists;
      if (targetInfo.st_dev == sourceInfo.st_dev && targetInfo.st_ino == sourceInfo.st_ino)
        return err::kSharingViolation;  // a file copied onto itself is in use by the copy
      if (S_ISDIR(targetInfo.st_mode)) return err::kAccessDenied;
    }

    OpenFileEntry out;
    const int createFlags = failIfExists ? (O_CREAT | O_EXCL) : (O_CREAT | O_TRUNC);
    out.fd = ::open(target.c_str(), O_WRONLY | O_CLOEXEC | createFlags, sourceInfo.st_mode & 07777);
    if (out.fd < 0) return PathError(target);

    std::vector<char> buffer(1 << 16);
    for (;;) {
      const ssize_t count = ::read(in.fd, buffer.data(), buffer.size());
      if (count < 0) {
        if (errno == EINTR) continue;
        return posix::Win32ErrorFromErrno(errno);
      }
      if (count == 0) break;
      ssize_t done = 0;
      while (done < count) {
        const ssize_t put =
            ::write(out.fd, buffer.data() + done, static_cast<std::size_t>(count - done));
        if (put < 0) {
          if (errno == EINTR) continue;
          return posix::Win32ErrorFromErrno(errno);
        }
        done += put;
      }
    }
    const struct timespec times[2] = {sourceInfo.st_atim, sourceInfo.st_mtim};
    ::futimens(out.fd, times);  // as CopyFileW, the copy keeps the last-write time
    return err::kSuccess;
  }

  err::Win32Error FindFirstEntry(std::wstring_view pattern, SearchHandle& search,
                                 FindEntry& entry) override {
    search = kInvalidSearchHandle;
    SearchState state;
    if (const err::Win32Error error = posix::CollectSearchEntries(pattern, state.entries);
        error != err::kSuccess)
      return error;
    entry = state.entries[0];
    state.next = 1;
    const std::lock_guard<std::mutex> guard(mutex_);
    nextId_ += 4;
    search = nextId_;
    searches_.emplace(search, std::move(state));
    return err::kSuccess;
  }

  err::Win32Error FindNextEntry(SearchHandle search, FindEntry& entry) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = searches_.find(search);
    if (found == searches_.end()) return err::kInvalidHandle;
    SearchState& state = found->second;
    if (state.next >= state.entries.size()) return err::kNoMoreFiles;
    entry = state.entries[state.next++];
    return err::kSuccess;
  }

  err::Win32Error CloseSearch(SearchHandle search) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    return searches_.erase(search) == 1 ? err::kSuccess : err::kInvalidHandle;
  }

 private:
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
};

}  // namespace

FileSystem& ProcessFileSystem() {
  static PosixFileSystem fileSystem;
  return fileSystem;
}

}  // namespace tw
