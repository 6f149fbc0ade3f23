#include "os/posix/files/folder_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "os/posix/errno_win32.h"
#include "os/posix/files/file_info.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/folder_names.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/security/object_security.h"
#include "ports/file_system.h"

namespace tw::posix {
namespace {

// SHCreateDirectoryExW refuses paths of this many characters or more.
constexpr std::size_t kMaxFolderPathLength = 248;

bool IsFullyQualified(std::wstring_view path) {
  if (path.size() >= 3 && path[1] == L':' && (path[2] == L'\\' || path[2] == L'/')) return true;
  return path.size() >= 2 && path[0] == L'\\' && path[1] == L'\\';
}

void Remember(err::Win32Error& first, err::Win32Error error) {
  if (first == err::kSuccess) first = error;
}

// Removes everything inside the folder open as fd; the first failure goes to first.
void EmptyFolder(int fd, err::Win32Error& first) {
  DIR* stream = ::fdopendir(fd);
  if (stream == nullptr) {
    Remember(first, Win32ErrorFromErrno(errno));
    ::close(fd);
    return;
  }
  std::vector<std::string> names;
  while (const struct dirent* item = ::readdir(stream)) {
    const std::string name(item->d_name);
    if (name != "." && name != "..") names.push_back(name);
  }
  for (const std::string& name : names) {
    struct stat info {};
    if (::fstatat(fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno != ENOENT) Remember(first, Win32ErrorFromErrno(errno));
      continue;
    }
    if (S_ISDIR(info.st_mode)) {
      if ((info.st_mode & S_IWUSR) == 0 || (info.st_mode & S_IXUSR) == 0) {
        // A failure shows in the open or the removal below, which report it.
        if (::fchmodat(fd, name.c_str(), (info.st_mode & 07777) | S_IRWXU, 0) != 0) errno = 0;
      }
      const int child = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (child < 0) {
        Remember(first, Win32ErrorFromErrno(errno));
        continue;
      }
      EmptyFolder(child, first);
      if (::unlinkat(fd, name.c_str(), AT_REMOVEDIR) != 0)
        Remember(first, Win32ErrorFromErrno(errno));
    } else if (::unlinkat(fd, name.c_str(), 0) != 0) {
      Remember(first, Win32ErrorFromErrno(errno));
    }
  }
  ::closedir(stream);  // closes fd
}

}  // namespace

[[nodiscard]] err::Win32Error MakeNativeFolder(const std::string& native) {
  if (MakeFolderBeneath(native, 0777) == 0) {
    NoteNameCreated(native);
    // A new folder inherits from its parent; that failing leaves it as mkdir made it.
    static_cast<void>(InheritNewObjectSecurity(native));
    return err::kSuccess;
  }
  if (errno == EEXIST) return err::kAlreadyExists;
  if (errno == ENOENT || errno == ENOTDIR) return err::kPathNotFound;
  return Win32ErrorFromErrno(errno);
}

[[nodiscard]] err::Win32Error MakeFolderPathFromWindows(std::wstring_view path) {
  if (!IsFullyQualified(path)) return err::kBadPathname;
  if (path.size() >= kMaxFolderPathLength) return err::kFilenameExcedRange;
  std::string native;
  err::Win32Error error = err::kSuccess;
  if (!ToNativePath(path, native, error)) return error;
  struct stat info {};
  if (LstatBeneath(native, info) == 0)
    return S_ISDIR(info.st_mode) ? err::kAlreadyExists : err::kFileExists;

  // Create each missing folder from the first one down.
  std::size_t position = native.find_first_not_of('/');
  while (position != std::string::npos && position <= native.size()) {
    std::size_t end = native.find('/', position);
    if (end == std::string::npos) end = native.size();
    const std::string prefix = native.substr(0, end);
    if (LstatBeneath(prefix, info) == 0) {
      if (!S_ISDIR(info.st_mode)) return err::kPathNotFound;  // a file on the way
    } else if (errno != ENOENT) {
      return Win32ErrorFromErrno(errno);
    } else if (MakeFolderBeneath(prefix, 0777) == 0) {
      NoteNameCreated(prefix);
      static_cast<void>(InheritNewObjectSecurity(prefix));
    } else if (errno != EEXIST) {
      return errno == ENOENT ? err::kPathNotFound : Win32ErrorFromErrno(errno);
    }
    if (end == native.size()) break;
    position = end + 1;
  }
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error DeleteNativeFile(const std::string& native) {
  struct stat info {};
  if (LstatBeneath(native, info) != 0) return PathError(native);
  if (S_ISDIR(info.st_mode)) return err::kAccessDenied;
  std::uint32_t stored = 0;
  if (S_ISREG(info.st_mode) && ReadStoredAttributes(native, stored) &&
      (stored & file_attr::kReadOnly) != 0)
    return err::kAccessDenied;
  if (UnlinkBeneath(native) != 0) return PathError(native);
  NoteNameRemoved(native);
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error DeleteNativeTree(const std::string& native) {
  struct stat info {};
  if (LstatBeneath(native, info) != 0) return PathError(native);
  if (!S_ISDIR(info.st_mode)) {
    if (UnlinkBeneath(native) != 0) return PathError(native);
    NoteNameRemoved(native);
    return err::kSuccess;
  }
  if ((info.st_mode & S_IWUSR) == 0 || (info.st_mode & S_IXUSR) == 0)
    ChmodBeneath(native, (info.st_mode & 07777) | S_IRWXU);
  const int fd = OpenBeneath(native, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return PathError(native);
  err::Win32Error first = err::kSuccess;
  EmptyFolder(fd, first);
  if (RemoveFolderBeneath(native) != 0) {
    Remember(first, PathError(native));
  } else {
    NoteNameRemoved(native);
  }
  return first;
}

}  // namespace tw::posix
