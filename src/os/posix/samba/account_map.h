// Which of this server's accounts a SID stands for, and back: the mapping the file server itself
// uses, so that an owner set here is the owner its clients see and the kernel checks.
//
// In order: winbind, when winbindd answers (a domain member); the server's passdb (a standalone
// server's users, made with smbpasswd: the local domain SID + their RID), read straight from its
// tdbsam files (passdb.h) with no program started, its configuration found once per process and
// only when a SID needs it; and always S-1-22-1-<uid> / S-1-22-2-<gid>. A passdb of another
// backend than tdbsam maps nothing here. A SID nothing maps has no uid or gid: the POSIX owner
// then stays as it is.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "descriptor/sid.h"

namespace tw::posix::samba {

class AccountMap {
 public:
  virtual ~AccountMap() = default;
  virtual std::optional<std::uint32_t> UidOf(const security::Sid& sid) = 0;
  virtual std::optional<std::uint32_t> GidOf(const security::Sid& sid) = 0;
  virtual security::Sid SidOfUid(std::uint32_t uid) = 0;
  virtual security::Sid SidOfGid(std::uint32_t gid) = 0;
};

// A new map of the server's accounts (what Accounts() gives unless a test installed another). Its
// passdb is read on first need, from the configuration TARNWICK_SMB_CONF names then, else the
// server's own.
std::unique_ptr<AccountMap> MakeServerAccountMap();

// The process's map (the server's), unless a test installed another.
AccountMap& Accounts();

// Installs `map` as the process's map for the lifetime of this object (tests).
class ScopedAccountMap {
 public:
  explicit ScopedAccountMap(AccountMap& map);
  ~ScopedAccountMap();
  ScopedAccountMap(const ScopedAccountMap&) = delete;
  ScopedAccountMap& operator=(const ScopedAccountMap&) = delete;

 private:
  AccountMap* previous_;
};

}  // namespace tw::posix::samba
