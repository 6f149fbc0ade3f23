#include "os/posix/files/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "os/posix/errno_win32.h"
#include "os/posix/files/file_info.h"
#include "os/posix/paths/beneath_path.h"

namespace tw::posix {

[[nodiscard]] err::Win32Error LockNativeFolder(const std::string& native, int& fd) {
  // Below a share's folder the folder is reached without following any link on the way.
  fd = OpenBeneath(native, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOTDIR) return err::kDirectory;
    return PathError(native);
  }
  int locked = -1;
  do {
    locked = ::flock(fd, LOCK_EX | LOCK_NB);
  } while (locked != 0 && errno == EINTR);
  err::Win32Error error = err::kSuccess;
  if (locked != 0) {
    error = errno == EWOULDBLOCK ? err::kSharingViolation : Win32ErrorFromErrno(errno);
  } else {
    // The lock counts only while the path still names the folder it was taken on: a folder
    // removed (and perhaps made anew) meanwhile is someone else's business.
    struct stat held {};
    struct stat named {};
    if (::fstat(fd, &held) != 0 || LstatBeneath(native, named) != 0 ||
        held.st_dev != named.st_dev || held.st_ino != named.st_ino || held.st_nlink == 0)
      error = err::kSharingViolation;
  }
  if (error != err::kSuccess) {
    ::close(fd);
    fd = -1;
  }
  return error;
}

std::string NativeParentFolder(const std::string& native) {
  std::string path = native;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  const std::string::size_type slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

}  // namespace tw::posix
