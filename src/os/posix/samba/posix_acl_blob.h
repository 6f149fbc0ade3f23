// The POSIX ACL of a file as the file server hashes it into a version 4 "security.NTACL"
// attribute: its access ACL, a folder's default ACL, and the owner, group and mode, NDR-encoded
// as an smb_acl_wrapper (the entries in the kernel's order; tags and permissions in the server's
// numbering), whose SHA-256 is the attribute's POSIX ACL hash. While that hash still matches,
// the server serves the stored descriptor as it is.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "os/posix/samba/sha256.h"

namespace tw::posix::samba {

// One entry of a Linux POSIX ACL, as the kernel keeps it in "system.posix_acl_access" and
// "system.posix_acl_default" (tag: 1 user owner, 2 user, 4 group owner, 8 group, 0x10 mask,
// 0x20 others; perm: 4 read, 2 write, 1 execute; id for user and group entries).
struct PosixAclEntry {
  std::uint16_t tag = 0;
  std::uint16_t perm = 0;
  std::uint32_t id = 0;
  friend bool operator==(const PosixAclEntry&, const PosixAclEntry&) = default;
};

inline constexpr std::uint16_t kAclUserObj = 0x01;
inline constexpr std::uint16_t kAclUser = 0x02;
inline constexpr std::uint16_t kAclGroupObj = 0x04;
inline constexpr std::uint16_t kAclGroup = 0x08;
inline constexpr std::uint16_t kAclMask = 0x10;
inline constexpr std::uint16_t kAclOther = 0x20;

// The entries of a kernel ACL attribute value; nothing when it is not one.
std::optional<std::vector<PosixAclEntry>> DecodePosixAcl(const std::vector<std::uint8_t>& value);
std::vector<std::uint8_t> EncodePosixAcl(const std::vector<PosixAclEntry>& entries);

// The ACL a file without an access ACL attribute has: its three mode triplets.
std::vector<PosixAclEntry> AclFromMode(mode_t mode);

// The wrapper's NDR form. `defaultAcl` is given for folders (empty when they have none).
std::vector<std::uint8_t> SysAclBlob(const std::vector<PosixAclEntry>& accessAcl,
                                     const std::optional<std::vector<PosixAclEntry>>& defaultAcl,
                                     std::uint32_t uid, std::uint32_t gid, std::uint32_t mode);

// The access and default ACL of `native` (never following a link), as they are now.
struct PosixAcls {
  std::vector<PosixAclEntry> access;
  std::optional<std::vector<PosixAclEntry>> defaults;  // folders only
};
PosixAcls ReadPosixAcls(const std::string& native, const struct stat& info);

// The POSIX ACL hash of `native` with status `info`.
Sha256Digest SysAclHash(const std::string& native, const struct stat& info);

}  // namespace tw::posix::samba
