// The POSIX ACLs the file server gives a file or folder when a client writes a security
// descriptor (shares with "map acl inherit = yes"), so that the kernel's checks for the server
// acting as a user agree with the DACL, and the "user.SAMBA_PAI" attribute that records the
// entries' inheritance flags and the descriptor's control word beside them.
//
// As the server maps them: allow entries whose SID maps to an account give that account's entry
// (the owner's gives user::, the owning group's gives group::, Everyone gives other::); read
// comes from FILE_READ_DATA, FILE_READ_EA or FILE_READ_ATTRIBUTES, write from FILE_WRITE_DATA,
// FILE_APPEND_DATA or FILE_WRITE_EA, execute from FILE_EXECUTE (or the generic rights); a deny
// entry takes its bits from the account's later allows, and a deny for Everyone from every
// entry; Everyone's allowed bits are also given to every other entry; the mask is rwx. The
// owner's entry without any entry of the DACL for it keeps the owner's mode bits; the owner can
// always read a file, and has rwx on a folder and in its default ACL. Entries that
// are inherit-only stay out of the access ACL; a folder's entries inheriting to both files and
// folders make its default ACL (CREATOR OWNER giving user::, CREATOR GROUP giving group::), and
// a folder without such entries has none. Both ACLs always name the owner and the owning group
// once more as a named user and group. SIDs that map to no account are left out.
//
// "user.SAMBA_PAI" (version 2): the version byte, the control word, the number of access and of
// default entries (16 bits each), then per entry its DACL entry's flags, its kind (0 user, 1
// group, 2 Everyone) and its id (32 bits), in the server's order: the entries the DACL makes in
// the order of their first allow (deny-only ones after them), with the ones each ACL needs and
// the DACL did not give added in front (user::, group::, other::, then the owner and owning
// group by name, each in front of the last).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "descriptor/security_descriptor.h"
#include "os/posix/samba/account_map.h"
#include "os/posix/samba/posix_acl_blob.h"

namespace tw::posix::samba {

inline constexpr const char* kPaiAttribute = "user.SAMBA_PAI";

struct ServerPosixAcls {
  std::vector<PosixAclEntry> access;  // in the kernel's order
  // Folders only; empty when none of the DACL's entries inherits to both files and folders:
  // the folder then has no default ACL.
  std::optional<std::vector<PosixAclEntry>> defaults;
  std::vector<std::uint8_t> pai;  // the "user.SAMBA_PAI" value
};

// The ACLs for `sd` on an object with owner `uid`, group `gid` and mode `mode` (whose owner bits
// the user:: entry keeps when no entry of the DACL names the owner).
ServerPosixAcls PosixAclsForDescriptor(const security::SecurityDescriptor& sd, bool isFolder,
                                       std::uint32_t uid, std::uint32_t gid, mode_t mode,
                                       AccountMap& accounts);

}  // namespace tw::posix::samba
