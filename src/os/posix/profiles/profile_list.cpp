#include "os/posix/profiles/profile_list.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include "os/posix/errno_win32.h"
#include "os/posix/files/folder_lock.h"
#include "os/posix/files/folder_tree.h"

namespace tw::posix {
namespace {

// Writes all of text to fd at offset 0; false with errno set on failure.
bool WriteAllAtStart(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written =
        ::pwrite(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(written);
  }
  return true;
}

// A temporary name no other writer uses: process id and a counter of this process.
std::string TemporaryName(const std::string& entry) {
  static std::atomic<unsigned> counter{0};
  return entry + "." + std::to_string(::getpid()) + "." + std::to_string(counter++) + ".tmp";
}

// Takes fd's exclusive lock without waiting; false when another holds it.
bool TryLock(int fd) {
  int result = -1;
  do {
    result = ::flock(fd, LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// The content of the open entry fd, at most a path's length.
std::string ReadEntry(int fd) {
  std::string text(PATH_MAX + 1, '\0');
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count =
        ::pread(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  text.resize(done);
  return text;
}

}  // namespace

ProfileList::ProfileList(std::string root) : root_(std::move(root)) {
  folder_ = root_;
  if (!folder_.empty() && folder_.back() != '/') folder_.push_back('/');
  folder_.append(kProfileListFolderName);
}

std::string ProfileList::EntryPath(const std::string& sidText) const {
  return folder_ + "/" + sidText;
}

[[nodiscard]] err::Win32Error ProfileList::Reserve(const std::string& sidText, int& held) const {
  held = -1;
  if (::mkdir(folder_.c_str(), 0755) != 0 && errno != EEXIST) return Win32ErrorFromErrno(errno);
  const std::string entry = EntryPath(sidText);
  // A temporary file that RemoveAbandoned takes between its creation and its lock is given up
  // for another.
  for (int attempt = 0; attempt < 16; ++attempt) {
    const std::string temporary = TemporaryName(entry);
    const int fd = ::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return Win32ErrorFromErrno(errno);
    struct stat info {};
    if (!TryLock(fd) || ::fstat(fd, &info) != 0 || info.st_nlink == 0) {
      ::close(fd);
      continue;
    }
    err::Win32Error result = err::kSuccess;
    if (::link(temporary.c_str(), entry.c_str()) != 0) {
      result = errno == EEXIST ? err::kAlreadyExists : Win32ErrorFromErrno(errno);
    }
    ::unlink(temporary.c_str());
    if (result != err::kSuccess) {
      ::close(fd);
      return result;
    }
    held = fd;
    return err::kSuccess;
  }
  return err::kSharingViolation;
}

[[nodiscard]] err::Win32Error ProfileList::Record(int held, const std::string& folder) {
  if (::ftruncate(held, 0) != 0 || !WriteAllAtStart(held, folder + "\n") || ::fsync(held) != 0)
    return Win32ErrorFromErrno(errno);
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error ProfileList::Find(const std::string& sidText,
                                                std::string& folder) const {
  std::ifstream stream(EntryPath(sidText), std::ios::binary);
  if (!stream) return err::kFileNotFound;
  std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  if (text.empty() || text.back() != '\n') return err::kInvalidData;  // not one of ours
  text.pop_back();
  folder = text;
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error ProfileList::Remove(const std::string& sidText) const {
  if (::unlink(EntryPath(sidText).c_str()) == 0) return err::kSuccess;
  if (errno == ENOENT) return err::kFileNotFound;
  return Win32ErrorFromErrno(errno);
}

bool ProfileList::RecordsFolder(const std::string& folder) const {
  DIR* stream = ::opendir(folder_.c_str());
  if (stream == nullptr) return false;
  const std::string recorded = folder + "\n";
  bool found = false;
  while (const struct dirent* item = ::readdir(stream)) {
    const std::string name(item->d_name);
    if (name == "." || name == "..") continue;
    const int fd =
        ::openat(::dirfd(stream), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) continue;
    found = ReadEntry(fd) == recorded;
    ::close(fd);
    if (found) break;
  }
  ::closedir(stream);
  return found;
}

void ProfileList::RemoveAbandoned() const {
  std::vector<std::string> names;
  if (DIR* stream = ::opendir(folder_.c_str())) {
    while (const struct dirent* item = ::readdir(stream)) {
      const std::string name(item->d_name);
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(stream);
  }
  for (const std::string& name : names) {
    const std::string entry = folder_ + "/" + name;
    const int fd = ::open(entry.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) continue;
    struct stat held {};
    struct stat named {};
    // Only a regular file that no process holds, and that is still the entry of that name.
    if (::fstat(fd, &held) != 0 || !S_ISREG(held.st_mode) || !TryLock(fd) ||
        ::lstat(entry.c_str(), &named) != 0 || named.st_dev != held.st_dev ||
        named.st_ino != held.st_ino) {
      ::close(fd);
      continue;
    }
    std::string folder = ReadEntry(fd);
    bool removable = true;
    if (!folder.empty() && folder.back() == '\n') {
      folder.pop_back();
      const std::string::size_type slash = folder.rfind('/');
      const std::string leaf = slash == std::string::npos ? folder : folder.substr(slash + 1);
      if (NativeParentFolder(folder) == root_ && leaf != "." && leaf != ".." &&
          leaf != kProfileListFolderName && folder.find('\0') == std::string::npos) {
        const err::Win32Error deleted = DeleteNativeTree(folder);
        removable = deleted == err::kSuccess || deleted == err::kFileNotFound ||
                    deleted == err::kPathNotFound;
      }
    }
    if (removable) ::unlink(entry.c_str());
    ::close(fd);
  }
}

}  // namespace tw::posix
