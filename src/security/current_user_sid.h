// The SID of the user who runs the program: the owner written when the program takes ownership
// of an object and the trustee of the full-control entry it adds. One process-wide object,
// `currentUserSid`, empty (not valid) at start, filled once by LoadCurrentUserSid and read
// afterwards; it is never freed before the process exits.
#pragma once

#include <optional>

#include "descriptor/sid.h"
#include "ports/security_port.h"

namespace tw {

class ProcessUserSid {
 public:
  // Whether a SID was loaded (IsValidSid of the platform's object).
  bool IsValid() const { return sid_.has_value(); }
  // The loaded SID; only while IsValid().
  const security::Sid& sid() const { return *sid_; }
  const std::optional<security::Sid>& value() const { return sid_; }

  void Set(security::Sid sid) { sid_ = std::move(sid); }
  // Back to the empty state of process start (for tests).
  void Clear() { sid_.reset(); }

 private:
  std::optional<security::Sid> sid_;
};

extern ProcessUserSid currentUserSid;

// Fills `currentUserSid` with the SID of the user whose token the calling thread runs with
// (the port's CurrentUserSid: ImpersonateSelf, OpenThreadToken with TOKEN_QUERY, RevertToSelf,
// GetTokenInformation TokenUser). Does nothing when `currentUserSid` is already valid, so the
// token is read once per process. A failure leaves `currentUserSid` empty and logs nothing.
void LoadCurrentUserSid(SecurityPort& port);

}  // namespace tw
