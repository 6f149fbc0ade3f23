#include "os/posix/errno_win32.h"

#include <cerrno>

namespace tw::posix {

err::Win32Error Win32ErrorFromErrno(int errnum) {
  struct Entry {
    int errnum;
    err::Win32Error error;
  };
  static constexpr Entry kTable[] = {
      {0, err::kSuccess},
      {EPERM, err::kAccessDenied},
      {EACCES, err::kAccessDenied},
      {EISDIR, err::kAccessDenied},  // CreateFileW on a folder without backup semantics
      {ENOENT, err::kFileNotFound},
      {ENOTDIR, err::kPathNotFound},
      {ENAMETOOLONG, err::kFilenameExcedRange},
      {EILSEQ, err::kInvalidName},  // a name the file system's encoding refuses
      {ELOOP, err::kCantResolveFilename},
      {EEXIST, err::kFileExists},
      {ENOTEMPTY, err::kDirNotEmpty},
      {EBADF, err::kInvalidHandle},
      {EMFILE, err::kTooManyOpenFiles},
      {ENFILE, err::kTooManyOpenFiles},
      {ENOMEM, err::kNotEnoughMemory},
      {EINVAL, err::kInvalidParameter},
      {EROFS, err::kWriteProtect},
      {ENOSPC, err::kDiskFull},
      {EDQUOT, err::kDiskFull},
      {EFBIG, err::kFileTooLarge},
      {EXDEV, err::kNotSameDevice},
      {EBUSY, err::kBusy},
      {ETXTBSY, err::kSharingViolation},
      {EAGAIN, err::kLockViolation},
      {EPIPE, err::kBrokenPipe},
      {ENOSYS, err::kCallNotImplemented},
      {ENOTSUP, err::kNotSupported},
      {ENODEV, err::kPathNotFound},
      {ENXIO, err::kPathNotFound},
      {EIO, err::kGenFailure},
      {ENETUNREACH, err::kNetworkUnreachable},
      {EHOSTUNREACH, err::kBadNetPath},
  };
  for (const Entry& entry : kTable) {
    if (entry.errnum == errnum) return entry.error;
  }
  return err::kGenFailure;
}

}  // namespace tw::posix
