#include "platform/posix/descriptor_store.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <span>
#include <vector>

#include "platform/posix/errno_win32.h"
#include "security/codec/ace.h"
#include "security/codec/acl.h"
#include "security/codec/well_known_sids.h"

namespace tw::posix {
namespace {

constexpr std::uint32_t kFileGenericRead = 0x00120089;
constexpr std::uint32_t kFileGenericWrite = 0x00120116;
constexpr std::uint32_t kFileGenericExecute = 0x001200A0;
constexpr std::uint32_t kFileAllAccess = 0x001F01FF;
constexpr std::uint32_t kDelete = 0x00010000;
constexpr std::uint32_t kFileDeleteChild = 0x00000040;
constexpr std::uint32_t kOwnerRights = 0x00060000;  // READ_CONTROL | WRITE_DAC

}  // namespace

err::Win32Error LoadStoredDescriptor(const std::string& native,
                                     std::optional<security::SecurityDescriptor>& sd) {
  sd.reset();
  // Most descriptors fit the first buffer, so one call reads them; a larger one is measured.
  std::array<std::uint8_t, 1024> first;  // only the bytes the call reports are read
  std::vector<std::uint8_t> larger;
  std::span<const std::uint8_t> bytes;
  const ssize_t firstSize =
      ::lgetxattr(native.c_str(), kDescriptorAttribute, first.data(), first.size());
  if (firstSize >= 0) {
    bytes = std::span<const std::uint8_t>(first).first(static_cast<std::size_t>(firstSize));
  } else if (errno == ENODATA || errno == ENOTSUP) {
    return err::kSuccess;
  } else if (errno != ERANGE) {
    return Win32ErrorFromErrno(errno);
  }
  while (firstSize < 0) {
    const ssize_t size = ::lgetxattr(native.c_str(), kDescriptorAttribute, nullptr, 0);
    if (size < 0) {
      if (errno == ENODATA || errno == ENOTSUP) return err::kSuccess;
      return Win32ErrorFromErrno(errno);
    }
    larger.resize(static_cast<std::size_t>(size));
    const ssize_t read =
        ::lgetxattr(native.c_str(), kDescriptorAttribute, larger.data(), larger.size());
    if (read >= 0) {
      bytes = std::span<const std::uint8_t>(larger).first(static_cast<std::size_t>(read));
      break;
    }
    if (errno != ERANGE) {  // ERANGE: it grew between the two calls; ask again
      if (errno == ENODATA || errno == ENOTSUP) return err::kSuccess;
      return Win32ErrorFromErrno(errno);
    }
  }
  sd.emplace();
  if (security::ParseSelfRelative(bytes, &*sd) != err::kSuccess) {
    sd.reset();
    return err::kInvalidSecurityDescr;
  }
  return err::kSuccess;
}

err::Win32Error StoreDescriptor(const std::string& native, const security::SecurityDescriptor& sd) {
  // Never a SACL (SE_SACL_PRESENT cleared, as RemoveSacl leaves a descriptor); the block is made
  // from `sd`'s own parts rather than from a copy of it.
  security::SelfRelativeParts parts = security::SelfRelativeParts::Of(sd);
  parts.control &= static_cast<std::uint16_t>(~security::kSeSaclPresent);
  parts.sacl = nullptr;
  const std::vector<std::uint8_t> bytes = security::MakeSelfRelative(parts);
  if (::lsetxattr(native.c_str(), kDescriptorAttribute, bytes.data(), bytes.size(), 0) != 0) {
    return Win32ErrorFromErrno(errno);
  }
  return err::kSuccess;
}

std::uint32_t AccessMaskFromModeBits(unsigned rwx, bool isFolder) {
  if ((rwx & 7u) == 7u) return kFileAllAccess;
  std::uint32_t mask = 0;
  if ((rwx & 4u) != 0) mask |= kFileGenericRead;
  if ((rwx & 2u) != 0) mask |= kFileGenericWrite | kDelete | (isFolder ? kFileDeleteChild : 0);
  if ((rwx & 1u) != 0) mask |= kFileGenericExecute;
  return mask;
}

security::SecurityDescriptor DescriptorFromMode(uid_t uid, gid_t gid, mode_t mode) {
  const bool isFolder = S_ISDIR(mode);
  const security::Sid owner = security::UnixUserSid(static_cast<std::uint32_t>(uid));
  const security::Sid group = security::UnixGroupSid(static_cast<std::uint32_t>(gid));
  const auto bits = static_cast<unsigned>(mode);
  std::vector<security::Ace> aces;
  aces.reserve(3);
  aces.push_back(
      security::Ace::Allowed(AccessMaskFromModeBits(bits >> 6, isFolder) | kOwnerRights, owner));
  if (const std::uint32_t mask = AccessMaskFromModeBits(bits >> 3, isFolder); mask != 0) {
    aces.push_back(security::Ace::Allowed(mask, group));
  }
  if (const std::uint32_t mask = AccessMaskFromModeBits(bits, isFolder); mask != 0) {
    aces.push_back(security::Ace::Allowed(mask, security::EveryoneSid()));
  }
  security::Acl dacl;
  security::Acl::FromAces(security::kAclRevision, std::move(aces), &dacl);
  security::SecurityDescriptor sd;
  sd.owner = owner;
  sd.group = group;
  sd.SetDacl(std::move(dacl));
  sd.control |= security::kSeDaclProtected;
  return sd;
}

}  // namespace tw::posix
