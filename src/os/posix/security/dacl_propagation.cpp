#include "os/posix/security/dacl_propagation.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "descriptor/inheritance.h"
#include "os/posix/errno_win32.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/security/descriptor_store.h"
#include "os/posix/security/object_security.h"

namespace tw::posix {
namespace {

void Remember(err::Win32Error& first, err::Win32Error error) {
  if (first == err::kSuccess) first = error;
}

// The child's descriptor with its inherited entries taken from `parentDacl` again; false when
// nothing changes (or the child is protected and keeps its DACL).
bool Reinherit(const security::Acl* parentDacl, bool isFolder, security::SecurityDescriptor& sd,
               err::Win32Error& error) {
  if ((sd.control & security::kSeDaclProtected) != 0) return false;
  const security::Sid owner = sd.owner.value_or(security::Sid());
  const security::Sid group = sd.group.value_or(security::Sid());
  security::Acl dacl;
  if (sd.dacl) {
    error = security::ReinheritedAcl(*sd.dacl, parentDacl, isFolder, owner, group,
                                     security::kFileMapping, &dacl);
  } else {
    // A NULL or missing DACL has no entries of its own; it stays so while nothing is inherited.
    error = security::ReinheritedAcl(security::Acl(), parentDacl, isFolder, owner, group,
                                     security::kFileMapping, &dacl);
    if (error == err::kSuccess && dacl.aces().empty()) return false;
  }
  if (error != err::kSuccess) return false;
  const auto control = static_cast<std::uint16_t>(sd.control | security::kSeDaclAutoInherited);
  if (sd.HasDacl() && sd.dacl == dacl && sd.control == control) return false;
  sd.SetDacl(std::move(dacl));
  sd.control = static_cast<std::uint16_t>(sd.control | security::kSeDaclAutoInherited);
  return true;
}

void PropagateBelow(const std::string& folder, const security::Acl* folderDacl,
                    err::Win32Error& first) {
  const int fd = OpenBeneath(folder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    Remember(first, Win32ErrorFromErrno(errno));
    return;
  }
  DIR* stream = ::fdopendir(fd);
  if (stream == nullptr) {
    Remember(first, Win32ErrorFromErrno(errno));
    ::close(fd);
    return;
  }
  while (const struct dirent* item = ::readdir(stream)) {
    if (std::strcmp(item->d_name, ".") == 0 || std::strcmp(item->d_name, "..") == 0) continue;
    struct stat info {};
    if (::fstatat(fd, item->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
      Remember(first, Win32ErrorFromErrno(errno));
      continue;
    }
    const bool isFolder = S_ISDIR(info.st_mode);
    if (!isFolder && !S_ISREG(info.st_mode)) continue;
    const std::string child = folder + "/" + item->d_name;
    security::SecurityDescriptor sd;
    if (const err::Win32Error error = ReadObjectDescriptor(child, info, sd)) {
      Remember(first, error);
      continue;
    }
    err::Win32Error error = err::kSuccess;
    if (!Reinherit(folderDacl, isFolder, sd, error)) {
      Remember(first, error);
      continue;
    }
    if (error = StoreDescriptor(child, sd); error != err::kSuccess) {
      Remember(first, error);
      continue;
    }
    if (isFolder) PropagateBelow(child, sd.dacl ? &*sd.dacl : nullptr, first);
  }
  ::closedir(stream);  // closes fd
}

}  // namespace

[[nodiscard]] err::Win32Error PropagateInheritance(const std::string& folder,
                                                   const security::SecurityDescriptor& folderSd) {
  err::Win32Error first = err::kSuccess;
  const security::Acl* dacl = folderSd.HasDacl() && folderSd.dacl ? &*folderSd.dacl : nullptr;
  PropagateBelow(folder, dacl, first);
  return first;
}

}  // namespace tw::posix
