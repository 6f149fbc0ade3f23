#include "security/read_taking_ownership.h"

#include "base/win32_error.h"

namespace tw {

SecurityRead ReadSecurityTakingOwnership(FileSecurity& fileSecurity, std::wstring_view path,
                                         bool takeOwnership, SelfRelativeDescriptor& security,
                                         SelfRelativeDescriptor& saved, AfterOwnershipTaken after) {
  const auto read = [&] {
    err::Win32Error readError = err::kSuccess;
    if (fileSecurity.ReadFileSecurity(path, security, readError)) return hr::kOk;
    return HResultFromWin32(readError);
  };
  const OwnershipRetry retry =
      RetryTakingOwnership(fileSecurity, path, takeOwnership, saved, after, read);
  SecurityRead result;
  result.ownershipTaken = retry.OwnershipTaken();
  if (!retry.tookOver) {
    result.code = retry.first;
  } else if (!result.ownershipTaken || after == AfterOwnershipTaken::kUseSaved) {
    result.code = retry.taken;
  } else {
    result.code = retry.again;
  }
  return result;
}

}  // namespace tw
