#include "os/posix/files/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "os/posix/errno_win32.h"
#include "os/posix/files/file_info.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/folder_names.h"
#include "os/posix/security/object_security.h"
#include "ports/file_system.h"

namespace tw::posix {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

// Copies by reading and writing; errno is left set on failure.
bool CopyByReading(int in, int out) {
  std::vector<char> buffer(1 << 16);
  for (;;) {
    const ssize_t count = ::read(in, buffer.data(), buffer.size());
    if (count < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (count == 0) return true;
    ssize_t done = 0;
    while (done < count) {
      const ssize_t put =
          ::write(out, buffer.data() + done, static_cast<std::size_t>(count - done));
      if (put < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      done += put;
    }
  }
}

// Copies through copy_file_range, falling back to reading and writing where the kernel or the
// file systems cannot (nothing has been copied then).
// expected: the source's size when it was opened; once that much is copied the copy ends
// without asking for more.
bool CopyContent(int in, int out, off_t expected) {
  bool copiedAny = false;
  off_t copied = 0;
  for (;;) {
    const ssize_t count = ::copy_file_range(in, nullptr, out, nullptr, 1 << 30, 0);
    if (count > 0) {
      copiedAny = true;
      copied += count;
      if (copied >= expected) return true;
      continue;
    }
    if (count == 0) return true;
    if (errno == EINTR) continue;
    if (!copiedAny && (errno == EXDEV || errno == ENOSYS || errno == EINVAL ||
                       errno == EOPNOTSUPP || errno == EBADF || errno == EPERM)) {
      return CopyByReading(in, out);
    }
    return false;
  }
}

}  // namespace

[[nodiscard]] err::Win32Error CopyNativeFile(const std::string& source, const std::string& target,
                                             bool failIfExists, const NativeStatus& targetStatus) {
  const Descriptor in(OpenBeneath(source, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (in.get() < 0) return PathError(source);
  struct stat sourceInfo {};
  if (::fstat(in.get(), &sourceInfo) != 0) return Win32ErrorFromErrno(errno);
  if (S_ISDIR(sourceInfo.st_mode)) return err::kAccessDenied;

  // With failIfExists the exclusive creation below is the test: any object of that name, a
  // link included, makes it fail with EEXIST.
  struct stat targetInfo {};
  const bool targetExists = !failIfExists && LstatKnown(target, targetStatus, targetInfo) == 0;
  if (targetExists) {
    if (targetInfo.st_dev == sourceInfo.st_dev && targetInfo.st_ino == sourceInfo.st_ino)
      return err::kSharingViolation;  // a file copied onto itself is in use by the copy
    if (S_ISDIR(targetInfo.st_mode)) return err::kAccessDenied;
    std::uint32_t stored = 0;
    if (S_ISREG(targetInfo.st_mode) && ReadStoredAttributes(target, stored) &&
        (stored & file_attr::kReadOnly) != 0)
      return err::kAccessDenied;
  }

  const int createFlags = targetExists ? O_TRUNC : (O_CREAT | O_EXCL);
  const Descriptor out(OpenBeneath(target, O_WRONLY | O_NOFOLLOW | O_CLOEXEC | createFlags,
                                   sourceInfo.st_mode & 07777));
  if (out.get() < 0) {
    if (failIfExists && errno == EEXIST) return err::kFileExists;
    return PathError(target);
  }
  if (!targetExists) NoteNameCreated(target);
  if (!CopyContent(in.get(), out.get(), sourceInfo.st_size)) {
    const err::Win32Error error = Win32ErrorFromErrno(errno);
    if (!targetExists && UnlinkBeneath(target) == 0) NoteNameRemoved(target);
    return error;
  }

  std::uint32_t attributes = 0;
  if (ReadStoredAttributes(source, attributes)) {
    // Best effort, as the copy of attributes on Windows.
    static_cast<void>(WriteStoredAttributes(target, attributes));
  } else if (targetExists) {
    RemoveStoredAttributes(target);
  } else {
    ForgetFallbackAttributes(target);
  }
  // As CopyFileW, a new copy inherits from its folder rather than taking the source's security;
  // that failing leaves it as open made it.
  if (!targetExists) static_cast<void>(InheritNewObjectSecurity(target));
  const struct timespec times[2] = {sourceInfo.st_atim, sourceInfo.st_mtim};
  ::futimens(out.get(), times);  // as CopyFileW, the copy keeps the last-write time
  return err::kSuccess;
}

}  // namespace tw::posix
