#include "security/current_user_sid.h"

namespace tw {

ProcessUserSid currentUserSid;

void LoadCurrentUserSid(SecurityPort& port) {
  if (currentUserSid.IsValid()) return;
  std::optional<security::Sid> sid = port.CurrentUserSid();
  if (sid) currentUserSid.Set(std::move(*sid));
}

}  // namespace tw
