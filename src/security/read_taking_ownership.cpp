#include "security/read_taking_ownership.h"

#include "base/win32_error.h"

namespace tw {

SecurityRead ReadSecurityTakingOwnership(FileSecurity& fileSecurity, std::wstring_view path,
                                         bool takeOwnership, SelfRelativeDescriptor& security,
                                         SelfRelativeDescriptor& saved, AfterOwnershipTaken after) {
  SecurityRead read;
  err::Win32Error readError = err::kSuccess;
  if (fileSecurity.ReadFileSecurity(path, security, readError)) return read;
  read.code = HResultFromWin32(readError);
  if (read.code != hr::kAccessDenied || !takeOwnership) return read;

  read.code = fileSecurity.TakeOwnership(path, saved, true);
  read.ownershipTaken = Succeeded(read.code);
  if (!read.ownershipTaken || after == AfterOwnershipTaken::kUseSaved) return read;
  read.code = fileSecurity.ReadFileSecurity(path, security, readError)
                  ? hr::kOk
                  : HResultFromWin32(readError);
  return read;
}

}  // namespace tw
