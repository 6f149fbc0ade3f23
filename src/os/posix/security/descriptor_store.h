// Where the POSIX adapter keeps a file object's Windows security: the one component that owns
// the on-disk format, so that it can change in one place.
//
// Format: the file server's own, so that its clients see what was set: the descriptor (owner,
// group, DACL and the control word; never a SACL) in the extended attribute "security.NTACL" of
// the object itself, as the version 4 xattr_NTACL the server writes when a client sets a
// descriptor (samba/ntacl_xattr.h), with the hashes that make the server serve it as it is. The
// attribute is read and written with the l*xattr calls, so a symbolic link is never followed.
// Storing a descriptor with a DACL first sets the POSIX access ACL (and a folder's default ACL)
// and "user.SAMBA_PAI" exactly as the server sets them when a client writes that descriptor
// (samba/posix_acl_mapping.h), so that the kernel's checks for the server acting as a user agree
// with the DACL; the attribute's hashes then cover those ACLs.
// Attributes in the "security." namespace need root: the tool runs as root on the server.
//
// Every version (1-4) is read, as the server reads it: a value that is truncated, of an unknown
// version or holds no valid descriptor, and a version 3 or 4 value none of whose hashes still
// describes the file (the server then shows the POSIX view: someone changed the owner, mode or
// POSIX ACL behind its back), is logged once, naming the object, and read as none.
//
// When nothing is stored, the descriptor is the one the server derives from the owner, group,
// mode and POSIX ACL (DerivedDescriptor).
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>

#include "base/win32_error.h"
#include "descriptor/security_descriptor.h"
#include "os/posix/samba/ntacl_xattr.h"

namespace tw::posix {

// The extended attribute that holds the stored descriptor.
inline constexpr const char* kDescriptorAttribute = samba::kNtAclAttribute;

// Reads the descriptor stored on `native`. kSuccess with `sd` empty when none is stored (or the
// file system keeps no such attributes, or the stored value is unreadable: logged); the mapped
// errno otherwise.
[[nodiscard]] err::Win32Error LoadStoredDescriptor(const std::string& native,
                                                   std::optional<security::SecurityDescriptor>& sd);

// Stores `sd` (its SACL dropped) on `native`, replacing what was there. The POSIX owner, group
// and ACL must already be what they will stay: the attribute carries their hash.
[[nodiscard]] err::Win32Error StoreDescriptor(const std::string& native,
                                              const security::SecurityDescriptor& sd);

// The access mask the server shows for one POSIX permission triplet (4 read, 2 write, 1 execute):
//   rwx -> FILE_ALL_ACCESS (0x001F01FF); none -> 0;
//   else r -> FILE_GENERIC_READ (0x00120089), w -> FILE_GENERIC_WRITE (0x00120116, a folder's
//   also FILE_DELETE_CHILD 0x40) with DELETE | WRITE_DAC | WRITE_OWNER (0x000D0000),
//   x -> FILE_GENERIC_EXECUTE (0x001200A0).
std::uint32_t AccessMaskFromModeBits(unsigned rwx, bool isFolder);

// The descriptor the server derives for an object without a stored one, from its owner, group
// and mode (no POSIX ACL): owner and group the accounts' SIDs (samba/account_map.h), control
// SE_DACL_PRESENT alone, and a DACL of three allowed entries without flags for the owner, the
// group and Everyone (S-1-1-0), in that order, with the masks above (0 included). A folder
// without a default ACL adds the server's default for new objects, inherit-only (OI|CI|IO):
// CREATOR OWNER rwx, CREATOR GROUP r-x, Everyone r-x.
security::SecurityDescriptor DescriptorFromMode(uid_t uid, gid_t gid, mode_t mode);

// The same for `native`, with its POSIX ACL when it has one: the owner entry first, then the
// named users and groups and the owning group in the reverse of the kernel's order, Everyone
// last, each masked by the ACL's mask; a folder's default ACL gives the same entries
// inherit-only, the owner's as CREATOR OWNER and the owning group's as CREATOR GROUP.
security::SecurityDescriptor DerivedDescriptor(const std::string& native, const struct stat& info);

}  // namespace tw::posix
