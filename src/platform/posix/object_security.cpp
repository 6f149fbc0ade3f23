#include "platform/posix/object_security.h"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <vector>

#include "platform/posix/descriptor_store.h"
#include "platform/posix/errno_win32.h"
#include "platform/posix/samba/account_map.h"
#include "security/codec/inheritance.h"
#include "security/codec/well_known_sids.h"

namespace tw::posix {
namespace {

std::string ParentOf(const std::string& native) {
  const std::string::size_type slash = native.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return native.substr(0, slash);
}

// The entries `native` inherits from its parent folder; none for the root or a parent whose
// descriptor cannot be read.
std::vector<security::Ace> InheritedEntries(const std::string& native, bool isFolder,
                                            const security::Sid& owner,
                                            const security::Sid& group) {
  if (native == "/") return {};
  const std::string parent = ParentOf(native);
  struct stat info {};
  if (::stat(parent.c_str(), &info) != 0) return {};
  security::SecurityDescriptor parentSd;
  if (ReadObjectDescriptor(parent, info, parentSd) != err::kSuccess) return {};
  if (!parentSd.HasDacl() || !parentSd.dacl) return {};
  return security::InheritedAcl(*parentSd.dacl, isFolder, owner, group, security::kFileMapping)
      .aces();
}

// Places `dacl` (nothing: the NULL DACL) into `sd` as a write with `protection` does.
err::Win32Error PlaceDacl(const std::string& native, bool isFolder,
                          const std::optional<security::Acl>& dacl, DaclProtection protection,
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
  std::vector<security::Ace> aces;
  for (const security::Ace& ace : dacl->aces()) {
    if (!ace.IsInherited()) aces.push_back(ace);
  }
  const security::Sid owner = sd.owner.value_or(security::Sid());
  const security::Sid group = sd.group.value_or(security::Sid());
  for (security::Ace& ace : InheritedEntries(native, isFolder, owner, group)) {
    aces.push_back(std::move(ace));
  }
  security::Acl combined;
  const err::Win32Error error =
      security::Acl::FromAces(dacl->revision(), std::move(aces), &combined);
  if (error != err::kSuccess) return error;
  sd.SetDacl(std::move(combined));
  return err::kSuccess;
}

// Makes the account `owner` maps to (samba/account_map.h) the POSIX owner too, when the process
// may; an owner no account stands for leaves the POSIX owner as it is.
void ChangePosixOwner(const std::string& native, const struct stat& info,
                      const security::Sid& owner) {
  const std::optional<std::uint32_t> uid = samba::Accounts().UidOf(owner);
  if (!uid || static_cast<uid_t>(*uid) == info.st_uid) return;
  // A refused chown (EPERM for an unprivileged process) leaves only the stored owner changed.
  static_cast<void>(::lchown(native.c_str(), static_cast<uid_t>(*uid), static_cast<gid_t>(-1)));
}

}  // namespace

err::Win32Error ObjectPathError(const std::string& native, int errnum) {
  if (errnum != ENOENT) return Win32ErrorFromErrno(errnum);
  struct stat info {};
  const std::string parent = ParentOf(native);
  if (::stat(parent.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return err::kPathNotFound;
  return err::kFileNotFound;
}

err::Win32Error StatObject(const std::string& native, struct stat& info,
                           const NativeStatus& status) {
  if (LstatKnown(native, status, info) != 0) return ObjectPathError(native, errno);
  return err::kSuccess;
}

err::Win32Error ReadObjectDescriptor(const std::string& native, const struct stat& info,
                                     security::SecurityDescriptor& sd) {
  std::optional<security::SecurityDescriptor> stored;
  const err::Win32Error error = LoadStoredDescriptor(native, stored);
  if (error != err::kSuccess) return error;
  sd = stored ? std::move(*stored) : DerivedDescriptor(native, info);
  return err::kSuccess;
}

err::Win32Error ReadObjectDescriptor(const std::string& native, security::SecurityDescriptor& sd) {
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

err::Win32Error WriteObjectSecurity(const std::string& native, const SecurityWrite& write,
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
  }
  // The owner first: the stored attribute carries the hash of the POSIX owner.
  if (write.writeOwner) ChangePosixOwner(native, info, *write.owner);
  return StoreDescriptor(native, sd);
}

err::Win32Error StoreNewObjectSecurity(const std::string& native,
                                       const security::SecurityDescriptor& given) {
  struct stat info {};
  if (const err::Win32Error error = StatObject(native, info)) return error;
  security::SecurityDescriptor sd = DescriptorFromMode(info.st_uid, info.st_gid, info.st_mode);
  const security::Sid owner =
      given.owner.value_or(security::UnixUserSid(static_cast<std::uint32_t>(::geteuid())));
  sd.owner = owner;
  if (given.HasDacl()) {
    const DaclProtection protection = (given.control & security::kSeDaclProtected) != 0
                                          ? DaclProtection::kProtected
                                          : DaclProtection::kUnprotected;
    const err::Win32Error error =
        PlaceDacl(native, S_ISDIR(info.st_mode), given.dacl, protection, sd);
    if (error != err::kSuccess) return error;
  }
  ChangePosixOwner(native, info, owner);
  return StoreDescriptor(native, sd);
}

}  // namespace tw::posix
