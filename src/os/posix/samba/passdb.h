// A standalone server's own accounts as Samba keeps them with its "tdbsam" passdb backend, read
// straight from its files (no program is started):
// - secrets.tdb in the private folder holds the local domain SID under "SECRETS/SID/<NETBIOS
//   NAME>" (no terminating NUL in that key), as Samba's in-memory SID structure: revision, count,
//   6-byte big-endian authority, then 15 sub-authorities in the machine's byte order;
// - passdb.tdb holds, under "RID_<8 lower-case hex digits>\0", the lower-case user name with its
//   NUL, and under "USER_<lower-case name>\0" the account record: 7 32-bit times, 12 strings (a
//   32-bit length, then the bytes; the first is the user name), then the user's RID, all
//   little-endian ("INFO/version\0" says 3 or 4 for that layout).
// A user's SID is the domain SID and its RID. The files are opened read-only (see tdb_file.h);
// a missing, damaged or unexpected file or record maps nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "descriptor/sid.h"
#include "os/posix/paths/smb_conf.h"

namespace tw::posix::samba {

// Samba's compiled-in private folder (`smbd -b`), used when the configuration names none.
inline constexpr char kDefaultPrivateDir[] = "/var/lib/samba/private";

struct PassdbFiles {
  std::string passdb;      // the tdbsam database
  std::string secrets;     // the secrets database holding the domain SID
  std::string domainName;  // the name the domain SID is kept under: the NetBIOS name, upper case
};

// The files of the configuration's passdb: "passdb backend" tdbsam (the default), at
// "tdbsam:<file>" or else <private dir>/passdb.tdb. None for any other backend.
std::optional<PassdbFiles> TdbsamFiles(const SmbConf& conf);

// The domain SID as secrets.tdb stores it.
std::optional<security::Sid> ParseStoredDomainSid(std::span<const std::uint8_t> bytes);

struct SamAccount {
  std::string userName;
  std::uint32_t userRid = 0;
};
// The user name and RID of a passdb account record.
std::optional<SamAccount> ParseSamAccount(std::span<const std::uint8_t> bytes);

// The domain SID is read once, when the passdb is opened; each look-up opens passdb.tdb anew
// (callers keep the answers), so that no database stays open in the process.
class Passdb {
 public:
  // The passdb of `files`, or nullptr when its domain SID cannot be read.
  static std::unique_ptr<Passdb> Open(const PassdbFiles& files);

  const security::Sid& domain() const { return domain_; }
  // Whether `sid` is the domain SID and one RID more (the form of its accounts' SIDs).
  bool InDomain(const security::Sid& sid) const;
  // The user name of the passdb account with this SID, when the SID is the domain's and names
  // one.
  std::optional<std::string> UserOfSid(const security::Sid& sid) const;
  // The SID of the passdb account of this (Unix) user name, when it has one.
  std::optional<security::Sid> SidOfUser(std::string_view name) const;

 private:
  Passdb(std::string file, security::Sid domain)
      : file_(std::move(file)), domain_(std::move(domain)) {}

  std::string file_;
  security::Sid domain_;
};

}  // namespace tw::posix::samba
