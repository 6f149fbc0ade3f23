// Where the POSIX adapter keeps a file object's Windows security: the one component that owns
// the on-disk format, so that it can change in one place.
//
// Format: the whole descriptor (owner, group, DACL and the control word; never a SACL) as one
// self-relative block (the codec's MakeSelfRelative layout), stored in the extended attribute
// "user.tarnwick.sd" of the object itself. The attribute is read and written with the l*xattr
// calls, so a symbolic link is never followed: Linux keeps no user attributes on links, so a
// link always reads as its synthesised descriptor and a write to it fails with access denied.
//
// On a file system without user extended attributes (ENOTSUP; every local file system of the
// kernels we run on has them, tmpfs included since Linux 6.6), nothing is ever stored: reads
// give the synthesised descriptor and writes fail with ERROR_NOT_SUPPORTED (50), which the
// migration reports as a failure to set security. We chose this over a side-car store because a
// side-car file would be copied, listed and deleted by the very tree operations that migrate
// profiles.
//
// When nothing is stored, the descriptor is synthesised from the owner, group and mode bits
// (DescriptorFromMode). Once a descriptor is stored it is the truth: later mode changes are not
// reflected, and writing a DACL does not change the mode bits.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "base/win32_error.h"
#include "security/codec/security_descriptor.h"

namespace tw::posix {

// The extended attribute that holds the stored descriptor.
inline constexpr char kDescriptorAttribute[] = "user.tarnwick.sd";

// Reads the descriptor stored on `native`. kSuccess with `sd` empty when none is stored (or the
// file system keeps no user attributes); ERROR_INVALID_SECURITY_DESCR when the attribute holds
// something that is not a valid self-relative descriptor; the mapped errno otherwise.
err::Win32Error LoadStoredDescriptor(const std::string& native,
                                     std::optional<security::SecurityDescriptor>& sd);

// Stores `sd` (its SACL dropped) on `native`, replacing what was there.
err::Win32Error StoreDescriptor(const std::string& native, const security::SecurityDescriptor& sd);

// The access masks the mode bits stand for. One triplet (owner, group or others) maps to:
//   r -> FILE_GENERIC_READ (0x00120089)
//   w -> FILE_GENERIC_WRITE | DELETE (0x00130116), for a folder also FILE_DELETE_CHILD (0x40)
//   x -> FILE_GENERIC_EXECUTE (0x001200A0) (traverse, for a folder)
//   rwx together -> FILE_ALL_ACCESS (0x001F01FF)
// The owner's entry always adds READ_CONTROL | WRITE_DAC (0x00060000): a POSIX owner may always
// read and change the permissions of what it owns.
std::uint32_t AccessMaskFromModeBits(unsigned rwx, bool isFolder);

// The descriptor of an object without a stored one: owner S-1-22-1-uid, group S-1-22-2-gid, and
// a protected DACL (POSIX permissions never come from the parent) with one access-allowed entry,
// without inheritance flags, for each of the owner, the group and Everyone (S-1-1-0), in that
// order, with the masks above; an entry whose mask would be 0 is left out.
security::SecurityDescriptor DescriptorFromMode(uid_t uid, gid_t gid, mode_t mode);

}  // namespace tw::posix
