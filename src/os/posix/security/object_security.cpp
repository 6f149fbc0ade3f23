#include "os/posix/security/object_security.h"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <vector>

#include "descriptor/inheritance.h"
#include "descriptor/well_known_sids.h"
#include "os/posix/errno_win32.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/samba/account_map.h"
#include "os/posix/security/dacl_propagation.h"
#include "os/posix/security/descriptor_store.h"

namespace tw::posix {
namespace {

std::string ParentOf(const std::string& native) {
  const std::string::size_type slash = native.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return native.substr(0, slash);
}

// The descriptor of `native`'s parent folder; nothing for the root or a parent whose descriptor
// cannot be read.
std::optional<security::SecurityDescriptor> ParentDescriptor(const std::string& native) {
  if (native == "/") return std::nullopt;
  // The stored descriptor is read first, so a parent that has one is not looked at otherwise.
  security::SecurityDescriptor parentSd;
  if (ReadObjectDescriptor(ParentOf(native), parentSd) != err::kSuccess) return std::nullopt;
  return parentSd;
}

// Places `dacl` (nothing: the NULL DACL) into `sd` as a write with `protection` does. A protected
// DACL leaves SE_DACL_AUTO_INHERITED to the caller; an unprotected one always sets it.
[[nodiscard]] err::Win32Error PlaceDacl(const std::string& native, bool isFolder,
                                        const std::optional<security::Acl>& dacl,
                                        DaclProtection protection,
                                        security::SecurityDescriptor& sd) {
  if (protection == DaclProtection::kKeep) {
    protection = (sd.control & security::kSeDaclProtected) != 0 ? DaclProtection::kProtected
                                                                : DaclProtection::kUnprotected;
  }
  sd.control &= static_cast<std::uint16_t>(~security::kSeDaclDefaulted);
  if (protection == DaclProtection::kProtected) {
    if (dacl) {
      sd.SetDacl(*dacl);
    } else {
      sd.SetNullDacl();
    }
    sd.control |= security::kSeDaclProtected;
    return err::kSuccess;
  }
  sd.control &= static_cast<std::uint16_t>(~security::kSeDaclProtected);
  sd.control |= security::kSeDaclAutoInherited;
  if (!dacl) {
    sd.SetNullDacl();
    return err::kSuccess;
  }
  const std::optional<security::SecurityDescriptor> parent = ParentDescriptor(native);
  const security::Acl* parentDacl =
      parent && parent->HasDacl() && parent->dacl ? &*parent->dacl : nullptr;
  security::Acl combined;
  const err::Win32Error error = security::ReinheritedAcl(
      *dacl, parentDacl, isFolder, sd.owner.value_or(security::Sid()),
      sd.group.value_or(security::Sid()), security::kFileMapping, &combined);
  if (error != err::kSuccess) return error;
  sd.SetDacl(std::move(combined));
  return err::kSuccess;
}

// The default DACL of the process's token: full control for its user and for SYSTEM.
security::Acl ProcessDefaultDacl(const security::Sid& user) {
  security::Acl dacl;
  // Fixed, valid ACEs: it cannot fail.
  static_cast<void>(security::Acl::FromAces(
      security::kAclRevision,
      {security::Ace::Allowed(security::kGenericAll, user),
       security::Ace::Allowed(security::kGenericAll, security::LocalSystemSid())},
      &dacl));
  return dacl;
}

// The owner (`owner`, else the object's POSIX owner) and group (its POSIX group) of a new
// object, named as the server names its accounts; no DACL yet.
security::SecurityDescriptor NewObjectOwnerAndGroup(const struct stat& info,
                                                    const std::optional<security::Sid>& owner) {
  const security::SecurityDescriptor server =
      DescriptorFromMode(info.st_uid, info.st_gid, info.st_mode);
  security::SecurityDescriptor sd;
  sd.owner = owner.value_or(
      server.owner.value_or(security::UnixUserSid(static_cast<std::uint32_t>(info.st_uid))));
  sd.group = server.group.value_or(security::UnixGroupSid(static_cast<std::uint32_t>(info.st_gid)));
  return sd;
}

// The descriptor a new object at `native` receives without a DACL of its own: owner and group
// as NewObjectOwnerAndGroup gives them, DACL as CreateChildDescriptor computes it with the
// process's default DACL.
security::SecurityDescriptor ChildDescriptor(const std::string& native, const struct stat& info,
                                             const std::optional<security::Sid>& owner) {
  const security::SecurityDescriptor process = NewObjectOwnerAndGroup(info, std::nullopt);
  const std::optional<security::SecurityDescriptor> parent = ParentDescriptor(native);
  return security::CreateChildDescriptor(
      parent ? &*parent : nullptr, S_ISDIR(info.st_mode), owner.value_or(*process.owner),
      *process.group, ProcessDefaultDacl(*process.owner), security::kFileMapping);
}

// Makes the account `owner` maps to (samba/account_map.h) the POSIX owner too, when the process
// may; an owner no account stands for leaves the POSIX owner as it is.
void ChangePosixOwner(const std::string& native, const struct stat& info,
                      const security::Sid& owner) {
  const std::optional<std::uint32_t> uid = samba::Accounts().UidOf(owner);
  if (!uid || static_cast<uid_t>(*uid) == info.st_uid) return;
  // A refused chown (EPERM for an unprivileged process) leaves only the stored owner changed.
  if (LchownBeneath(native, static_cast<uid_t>(*uid), static_cast<gid_t>(-1)) != 0) errno = 0;
}

}  // namespace

[[nodiscard]] err::Win32Error ObjectPathError(const std::string& native, int errnum) {
  if (errnum != ENOENT) return Win32ErrorFromErrno(errnum);
  const std::string parent = ParentOf(native);
  if (!IsFolderBeneath(parent)) return err::kPathNotFound;
  return err::kFileNotFound;
}

[[nodiscard]] err::Win32Error StatObject(const std::string& native, struct stat& info,
                                         const NativeStatus& status) {
  if (LstatKnown(native, status, info) != 0) return ObjectPathError(native, errno);
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error ReadObjectDescriptor(const std::string& native,
                                                   const struct stat& info,
                                                   security::SecurityDescriptor& sd) {
  std::optional<security::SecurityDescriptor> stored;
  const err::Win32Error error = LoadStoredDescriptor(native, stored);
  if (error != err::kSuccess) return error;
  sd = stored ? std::move(*stored) : DerivedDescriptor(native, info);
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error ReadObjectDescriptor(const std::string& native,
                                                   security::SecurityDescriptor& sd) {
  std::optional<security::SecurityDescriptor> stored;
  const err::Win32Error loaded = LoadStoredDescriptor(native, stored);
  if (loaded == err::kSuccess && stored) {
    sd = std::move(*stored);
    return err::kSuccess;
  }
  struct stat info {};
  if (const err::Win32Error error = StatObject(native, info)) return error;
  if (loaded != err::kSuccess) return loaded;
  sd = DerivedDescriptor(native, info);
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error WriteObjectSecurity(const std::string& native,
                                                  const SecurityWrite& write,
                                                  const NativeStatus& status) {
  struct stat info {};
  if (const err::Win32Error error = StatObject(native, info, status)) return error;
  if (write.writeOwner && !write.owner) return err::kInvalidOwner;

  security::SecurityDescriptor sd;
  if (ReadObjectDescriptor(native, info, sd) != err::kSuccess) {
    // An unreadable stored value is replaced, starting from the synthesised descriptor.
    sd = DescriptorFromMode(info.st_uid, info.st_gid, info.st_mode);
  }
  if (write.writeOwner) {
    sd.owner = *write.owner;
    sd.control &= static_cast<std::uint16_t>(~security::kSeOwnerDefaulted);
  }
  if (write.writeDacl) {
    const err::Win32Error error =
        PlaceDacl(native, S_ISDIR(info.st_mode), write.dacl, write.protection, sd);
    if (error != err::kSuccess) return error;
    // A DACL written by name takes part in automatic inheritance whether it is protected or not:
    // Windows documents that SetNamedSecurityInfo imposes the current inheritance model and sets
    // SE_DACL_AUTO_INHERITED on the objects it converts ("Automatic Propagation of Inheritable
    // ACEs"), and on NTFS such writes read back as "D:PAI" (protected) or "D:AI".
    sd.control |= security::kSeDaclAutoInherited;
  }
  // The owner first: the stored attribute carries the hash of the POSIX owner.
  if (write.writeOwner) ChangePosixOwner(native, info, *write.owner);
  if (const err::Win32Error error = StoreDescriptor(native, sd)) return error;
  if (write.writeDacl && S_ISDIR(info.st_mode)) return PropagateInheritance(native, sd);
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error StoreNewObjectSecurity(const std::string& native,
                                                     const security::SecurityDescriptor& given) {
  struct stat info {};
  if (const err::Win32Error error = StatObject(native, info)) return error;
  security::SecurityDescriptor sd;
  if (given.HasDacl()) {
    // The given DACL decides, with the control bits its placing gives.
    sd = NewObjectOwnerAndGroup(info, given.owner);
    // A protected DACL given at creation keeps the given automatic-inheritance bit, so a copy
    // made with a source's descriptor carries its control bits.
    sd.control |= static_cast<std::uint16_t>(given.control & security::kSeDaclAutoInherited);
    const DaclProtection protection = (given.control & security::kSeDaclProtected) != 0
                                          ? DaclProtection::kProtected
                                          : DaclProtection::kUnprotected;
    const err::Win32Error error =
        PlaceDacl(native, S_ISDIR(info.st_mode), given.dacl, protection, sd);
    if (error != err::kSuccess) return error;
  } else {
    sd = ChildDescriptor(native, info, given.owner);
  }
  // The owner first: the stored attribute carries the hash of the POSIX owner.
  if (sd.owner) ChangePosixOwner(native, info, *sd.owner);
  return StoreDescriptor(native, sd);
}

[[nodiscard]] err::Win32Error InheritNewObjectSecurity(const std::string& native) {
  struct stat info {};
  if (const err::Win32Error error = StatObject(native, info)) return error;
  return StoreDescriptor(native, ChildDescriptor(native, info, std::nullopt));
}

}  // namespace tw::posix
