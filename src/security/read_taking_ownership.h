// "Try to read an object; when that is refused, take ownership of it and go on": the one form
// of this step that the profile root, its folders, the folder copy and the hive files share.
#pragma once

#include <string_view>

#include "base/hresult.h"
#include "security/file_security.h"
#include "security/self_relative_descriptor.h"

namespace tw {

// What a step that may take ownership does once it has taken it.
enum class AfterOwnershipTaken {
  kTryAgain,  // tries once more, now as the owner
  kUseSaved,  // tries nothing more: the security the take-over kept is the one to use
};

// What RetryTakingOwnership did.
struct OwnershipRetry {
  HResult first = hr::kOk;  // the first attempt's result
  bool tookOver = false;    // it was E_ACCESSDENIED and the setting allows taking ownership
  HResult taken = hr::kOk;  // then: TakeOwnership's result
  HResult again = hr::kOk;  // then, after a take-over and with kTryAgain: the second attempt's

  bool OwnershipTaken() const { return tookOver && Succeeded(taken); }
};

// Runs `attempt` (an HResult of reading or opening `path`). When it gives E_ACCESSDENIED and
// `takeOwnership` is set, takes ownership of `path` with full control for the running user
// (FileSecurity::TakeOwnership), its prior security kept in `saved`; when that succeeds, runs
// `attempt` once more if `after` says so. Logs nothing: each caller words its own failures.
template <class Attempt>
OwnershipRetry RetryTakingOwnership(FileSecurity& fileSecurity, std::wstring_view path,
                                    bool takeOwnership, SelfRelativeDescriptor& saved,
                                    AfterOwnershipTaken after, Attempt&& attempt) {
  OwnershipRetry retry;
  retry.first = attempt();
  if (retry.first != hr::kAccessDenied || !takeOwnership) return retry;
  retry.tookOver = true;
  retry.taken = fileSecurity.TakeOwnership(path, saved, true);
  if (retry.OwnershipTaken() && after == AfterOwnershipTaken::kTryAgain) retry.again = attempt();
  return retry;
}

struct SecurityRead {
  // 0 when the security was read; else the first read's HRESULT (refused for another reason,
  // or ownership not to be taken), the take-over's result, or, with kTryAgain after a
  // take-over, the second read's HRESULT. With kUseSaved after a take-over: its result.
  HResult code = hr::kOk;
  // Ownership was taken (the take-over succeeded): the object's prior security is in `saved`
  // and the caller gives it back (FileSecurity::ApplySecurity) when done with the object.
  bool ownershipTaken = false;
};

// Reads the owner and DACL of `path` into `security` (FileSecurity::ReadFileSecurity), taking
// ownership where the read is refused (RetryTakingOwnership). `security` and `saved` may be the
// same descriptor.
SecurityRead ReadSecurityTakingOwnership(FileSecurity& fileSecurity, std::wstring_view path,
                                         bool takeOwnership, SelfRelativeDescriptor& security,
                                         SelfRelativeDescriptor& saved, AfterOwnershipTaken after);

}  // namespace tw
