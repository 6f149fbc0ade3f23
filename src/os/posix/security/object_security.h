// The owner and DACL of a Linux file object in Windows terms, over the descriptor store
// (descriptor_store.h): what the POSIX security port reads and writes once a Windows path has
// been mapped to its Linux path. Nothing here follows a symbolic link at the last component.
#pragma once

#include <sys/stat.h>

#include <string>

#include "base/win32_error.h"
#include "descriptor/security_descriptor.h"
#include "os/posix/paths/native_path.h"
#include "ports/security_port.h"

namespace tw::posix {

// The Win32 error for errno `errnum` of a call on `native`: a missing last component is
// kFileNotFound, a missing folder on the way kPathNotFound; everything else goes through the
// errno table.
[[nodiscard]] err::Win32Error ObjectPathError(const std::string& native, int errnum);

// lstat of `native`, with the error mapped as above; taken from `status` when the path mapping
// made it.
[[nodiscard]] err::Win32Error StatObject(const std::string& native, struct stat& info,
                                         const NativeStatus& status = NativeStatus{});

// The whole descriptor of an object (owner, group, DACL): the stored one, else the one
// synthesised from `info`. A stored value that is not a valid descriptor reads as
// ERROR_INVALID_SECURITY_DESCR.
[[nodiscard]] err::Win32Error ReadObjectDescriptor(const std::string& native,
                                                   const struct stat& info,
                                                   security::SecurityDescriptor& sd);

// The same without a prior lstat: the stored descriptor is read first, and the object looked at
// only when none is stored (to synthesise one) or the read failed (for the error, which is
// lstat's when the object is missing, as StatObject gives it).
[[nodiscard]] err::Win32Error ReadObjectDescriptor(const std::string& native,
                                                   security::SecurityDescriptor& sd);

// SetNamedSecurityInfoW on `native`, for the port's WriteNamedSecurity (after the request was
// found to ask for something):
// - the owner replaces the stored one (SE_OWNER_DEFAULTED cleared); an S-1-22-1-uid owner also
//   becomes the file's POSIX owner (lchown) when the process may chown: a refused chown is not
//   an error, the stored owner is what the port reports;
// - a DACL written protected is stored exactly as given, with SE_DACL_PROTECTED;
// - a DACL written unprotected keeps the entries given that are not marked INHERITED_ACE and
//   appends those the object inherits from its parent folder's descriptor (the codec's
//   inheritance rules, file rights), with SE_DACL_AUTO_INHERITED and without SE_DACL_PROTECTED;
//   a NULL DACL stays NULL; a parent whose security cannot be read passes nothing on;
// - kKeep writes the DACL with the protection the object has now;
// - an owner requested without a SID fails with ERROR_INVALID_OWNER and changes nothing;
// - a DACL written on a folder (protected or not) is then propagated to what the folder holds
//   (dacl_propagation.h); an owner-only write propagates nothing. The result is that of the
//   object's own write when it fails, else the first error the propagation met (every child
//   is tried all the same): the object's own security is then written, and the caller learns
//   that some object below did not receive it.
[[nodiscard]] err::Win32Error WriteObjectSecurity(const std::string& native,
                                                  const SecurityWrite& write,
                                                  const NativeStatus& status = NativeStatus{});

// Gives a new object the security of a SECURITY_ATTRIBUTES descriptor: its owner (the process's
// user when it has none) and its DACL, placed as an unprotected or protected write places it; a
// descriptor without a DACL gives the DACL InheritNewObjectSecurity computes. Stores the result.
[[nodiscard]] err::Win32Error StoreNewObjectSecurity(const std::string& native,
                                                     const security::SecurityDescriptor& sd);

// Gives an object just created without a descriptor of its own (CreateDirectoryW or CreateFileW
// without SECURITY_ATTRIBUTES, SHCreateDirectoryExW's folders, the target of CopyFileW, a saved
// hive) the descriptor Windows computes for it, and stores it:
// - owner and group: those the server gives the new object (its POSIX owner and group, named as
//   DescriptorFromMode names them), that is the process's user and group. A Windows
//   administrator's elevated process would own it as BUILTIN\Administrators (its token's
//   default owner); on the server the tool runs as root, and we name root's own account
//   instead, so that the owner shown is the file's POSIX owner and CREATOR OWNER entries
//   resolve to an account the server knows;
// - DACL: the one inherited from the parent folder's descriptor (security::CreateChildDescriptor
//   with file rights: object and container inheritance, inherit-only and no-propagate entries,
//   CREATOR OWNER and CREATOR GROUP replaced, generic rights mapped, INHERITED_ACE on every
//   entry, SE_DACL_AUTO_INHERITED when the parent's DACL has it); when the parent's DACL holds
//   no inheritable entry (or cannot be read), the process's default DACL: full control
//   (0x001F01FF) for the process's user, then for SYSTEM, as an administrator's token gives it
//   with the same substitution as for the owner.
// The callers create first and call this after; a failure leaves the object as created (it then
// reads as the descriptor the server derives) and is returned for the caller to ignore.
[[nodiscard]] err::Win32Error InheritNewObjectSecurity(const std::string& native);

}  // namespace tw::posix
