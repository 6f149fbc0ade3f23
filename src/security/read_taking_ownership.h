// "Read an object's security; when that is refused, take ownership of it and go on": the one
// form of this step that the profile copy, the profile's folders and the profile root share.
#pragma once

#include <string_view>

#include "base/hresult.h"
#include "security/file_security.h"
#include "security/self_relative_descriptor.h"

namespace tw {

// What ReadSecurityTakingOwnership does once it has taken ownership of an object.
enum class AfterOwnershipTaken {
  kReadAgain,  // reads the object's security once more, now as its owner
  kUseSaved,   // reads nothing more: the security the take-over kept is the one to use
};

struct SecurityRead {
  // 0 when the security was read; else the first read's HRESULT (refused for another reason,
  // or ownership not to be taken), the take-over's result, or, with kReadAgain after a
  // take-over, the second read's HRESULT. With kUseSaved after a take-over: its result.
  HResult code = hr::kOk;
  // Ownership was taken (the take-over succeeded): the object's prior security is in `saved`
  // and the caller gives it back (FileSecurity::ApplySecurity) when done with the object.
  bool ownershipTaken = false;
};

// Reads the owner and DACL of `path` into `security`. When the read gives E_ACCESSDENIED and
// `takeOwnership` is set, takes ownership of the object with full control for the running user
// (FileSecurity::TakeOwnership), its prior security kept in `saved`; when that succeeds, goes on
// as `after` says. `security` and `saved` may be the same descriptor. Logs nothing.
SecurityRead ReadSecurityTakingOwnership(FileSecurity& fileSecurity, std::wstring_view path,
                                         bool takeOwnership, SelfRelativeDescriptor& security,
                                         SelfRelativeDescriptor& saved, AfterOwnershipTaken after);

}  // namespace tw
