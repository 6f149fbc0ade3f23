// An account map that knows only the S-1-22 SIDs (S-1-22-1-<uid>, S-1-22-2-<gid>), so that
// tests do not depend on the machine's Samba accounts.
#pragma once

#include <cstdint>
#include <optional>

#include "descriptor/sid.h"
#include "descriptor/well_known_sids.h"
#include "os/posix/samba/account_map.h"

namespace tw::testing {

class UnixSidsOnly final : public posix::samba::AccountMap {
 public:
  std::optional<std::uint32_t> UidOf(const security::Sid& sid) override {
    return security::UnixUidFromSid(sid);
  }
  std::optional<std::uint32_t> GidOf(const security::Sid& sid) override {
    return security::UnixGidFromSid(sid);
  }
  security::Sid SidOfUid(std::uint32_t uid) override { return security::UnixUserSid(uid); }
  security::Sid SidOfGid(std::uint32_t gid) override { return security::UnixGroupSid(gid); }
};

}  // namespace tw::testing
