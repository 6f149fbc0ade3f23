#include "os/posix/security/descriptor_store.h"

#include <sys/xattr.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <vector>

#include "base/text_encoding.h"
#include "descriptor/ace.h"
#include "descriptor/acl.h"
#include "descriptor/well_known_sids.h"
#include "os/posix/errno_win32.h"
#include "os/posix/files/file_info.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/samba/account_map.h"
#include "os/posix/samba/ntacl_xattr.h"
#include "os/posix/samba/posix_acl_blob.h"
#include "os/posix/samba/posix_acl_mapping.h"
#include "ports/diagnostics.h"

namespace tw::posix {
namespace {

constexpr std::uint32_t kFileGenericRead = 0x00120089;
constexpr std::uint32_t kFileGenericWrite = 0x00120116;
constexpr std::uint32_t kFileGenericExecute = 0x001200A0;
constexpr std::uint32_t kFileAllAccess = 0x001F01FF;
constexpr std::uint32_t kWriterRights = 0x000D0000;  // DELETE | WRITE_DAC | WRITE_OWNER
constexpr std::uint32_t kFileDeleteChild = 0x00000040;
constexpr std::uint8_t kDefaultEntryFlags = 0x0B;  // OBJECT | CONTAINER | INHERIT_ONLY
std::uint64_t NowAsFileTime() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return FileTimeFromUnix(now.tv_sec, static_cast<std::uint32_t>(now.tv_nsec));
}

// The entries of one POSIX ACL in the server's order (see the header).
void AppendEntries(const std::vector<samba::PosixAclEntry>& acl, bool isFolder, bool asDefault,
                   const security::Sid& owner, const security::Sid& group,
                   std::vector<security::Ace>& aces) {
  unsigned mask = 7;
  for (const samba::PosixAclEntry& entry : acl) {
    if (entry.tag == samba::kAclMask) mask = entry.perm & 7u;
  }
  const std::uint8_t flags = asDefault ? kDefaultEntryFlags : 0;
  auto ace = [&](unsigned perm, const security::Sid& sid) {
    return security::Ace::Allowed(AccessMaskFromModeBits(perm, isFolder), sid, flags);
  };
  std::vector<security::Ace> middle;
  std::optional<security::Ace> first;
  std::optional<security::Ace> last;
  for (const samba::PosixAclEntry& entry : acl) {
    switch (entry.tag) {
      case samba::kAclUserObj:
        first = ace(entry.perm, asDefault ? security::CreatorOwnerSid() : owner);
        break;
      case samba::kAclUser:
        middle.push_back(ace(entry.perm & mask, samba::Accounts().SidOfUid(entry.id)));
        break;
      case samba::kAclGroupObj:
        middle.push_back(ace(entry.perm & mask, asDefault ? security::CreatorGroupSid() : group));
        break;
      case samba::kAclGroup:
        middle.push_back(ace(entry.perm & mask, samba::Accounts().SidOfGid(entry.id)));
        break;
      case samba::kAclOther:
        last = ace(entry.perm, security::EveryoneSid());
        break;
      default:
        break;
    }
  }
  if (first) aces.push_back(std::move(*first));
  for (auto it = middle.rbegin(); it != middle.rend(); ++it) aces.push_back(std::move(*it));
  if (last) aces.push_back(std::move(*last));
}

security::SecurityDescriptor Assemble(const security::Sid& owner, const security::Sid& group,
                                      std::vector<security::Ace> aces) {
  security::Acl dacl;
  // ACEs decoded from a stored descriptor: it cannot fail.
  static_cast<void>(security::Acl::FromAces(security::kAclRevision, std::move(aces), &dacl));
  security::SecurityDescriptor sd;
  sd.owner = owner;
  sd.group = group;
  sd.SetDacl(std::move(dacl));
  return sd;
}

// What a folder without a default ACL passes on, as the server shows it.
const std::vector<samba::PosixAclEntry>& ServerDefaultAcl() {
  static const std::vector<samba::PosixAclEntry> acl = {
      {samba::kAclUserObj, 7, 0}, {samba::kAclGroupObj, 5, 0}, {samba::kAclOther, 5, 0}};
  return acl;
}

// The descriptor the server hashes to judge a stored one (the derived descriptor as its POSIX
// layer makes it, before the folder defaults it adds for display): the entries of the access
// ACL and of a real default ACL, protected.
security::SecurityDescriptor HashedDescriptor(const struct stat& info,
                                              const samba::PosixAcls& acls) {
  const bool isFolder = S_ISDIR(info.st_mode);
  const security::Sid owner = samba::Accounts().SidOfUid(static_cast<std::uint32_t>(info.st_uid));
  const security::Sid group = samba::Accounts().SidOfGid(static_cast<std::uint32_t>(info.st_gid));
  std::vector<security::Ace> aces;
  AppendEntries(acls.access, isFolder, false, owner, group, aces);
  if (acls.defaults && !acls.defaults->empty()) {
    AppendEntries(*acls.defaults, isFolder, true, owner, group, aces);
  }
  security::SecurityDescriptor sd = Assemble(owner, group, std::move(aces));
  sd.control |= security::kSeDaclProtected;
  return sd;
}

constexpr const char* kDefaultAclAttribute = "system.posix_acl_default";

bool SetAttribute(const std::string& native, const char* name,
                  const std::vector<std::uint8_t>& value) {
  return LsetxattrBeneath(native, name, value.data(), value.size(), 0) == 0;
}

// Sets the access ACL (and a folder's default ACL) and "user.SAMBA_PAI" the server sets when a
// client writes `sd`, and brings `info`'s mode and `acls` up to date (the access ACL sets the
// mode's permission bits, as the kernel does). False when the object's ACLs could not be set as
// computed (a file system without POSIX ACLs): `info` and `acls` must then be read again.
bool SetServersPosixAcls(const std::string& native, const security::SecurityDescriptor& sd,
                         struct stat& info, samba::PosixAcls& acls) {
  if (!sd.HasDacl() || !sd.dacl) return false;  // a NULL DACL leaves the POSIX ACL as it is
  const bool isFolder = S_ISDIR(info.st_mode);
  samba::ServerPosixAcls server = samba::PosixAclsForDescriptor(
      sd, isFolder, static_cast<std::uint32_t>(info.st_uid),
      static_cast<std::uint32_t>(info.st_gid), info.st_mode, samba::Accounts());
  if (!SetAttribute(native, "system.posix_acl_access", samba::EncodePosixAcl(server.access))) {
    return false;
  }
  if (server.defaults && !server.defaults->empty() &&
      !SetAttribute(native, kDefaultAclAttribute, samba::EncodePosixAcl(*server.defaults))) {
    return false;
  }
  if (server.defaults && server.defaults->empty() &&
      LremovexattrBeneath(native, kDefaultAclAttribute) != 0 && errno != ENODATA) {
    return false;
  }
  if (!SetAttribute(native, samba::kPaiAttribute, server.pai)) {
    ReportDiagnostic(L"The inheritance record of %s could not be written.", Utf8ToWide(native));
  }
  unsigned perms = 0;
  for (const samba::PosixAclEntry& entry : server.access) {
    if (entry.tag == samba::kAclUserObj) perms |= (entry.perm & 7u) << 6;
    if (entry.tag == samba::kAclMask) perms |= (entry.perm & 7u) << 3;
    if (entry.tag == samba::kAclOther) perms |= entry.perm & 7u;
  }
  info.st_mode = static_cast<mode_t>((info.st_mode & ~0777u) | perms);
  acls.access = std::move(server.access);
  acls.defaults = std::move(server.defaults);
  return true;
}

bool FirstBytesAre(const std::vector<std::uint8_t>& field, const samba::Sha256Digest& digest) {
  return field.size() >= digest.size() && std::equal(digest.begin(), digest.end(), field.begin());
}

// Whether the server would serve a stored attribute as it is: versions 1 and 2 always; versions
// 3 and 4 only with SHA-256 hashes of which one still describes the file (a version 4 one's
// POSIX ACL hash, else the hash of the descriptor derived from the POSIX permissions).
bool StillCurrent(const std::string& native, const samba::NtAclBlob& blob) {
  if (blob.version < 3) return true;
  if (blob.hashType != samba::kHashTypeSha256) return false;
  struct stat info {};
  if (LstatBeneath(native, info) != 0) return true;  // the caller's next look reports it
  if (blob.version == 4 && FirstBytesAre(blob.sysAclHash, samba::SysAclHash(native, info))) {
    return true;
  }
  return FirstBytesAre(
      blob.hash, samba::DescriptorHash(HashedDescriptor(info, samba::ReadPosixAcls(native, info))));
}

}  // namespace

[[nodiscard]] err::Win32Error LoadStoredDescriptor(
    const std::string& native, std::optional<security::SecurityDescriptor>& sd) {
  sd.reset();
  // Most descriptors fit the first buffer, so one call reads them; a larger one is measured.
  std::array<std::uint8_t, 1024> first;  // only the bytes the call reports are read
  std::vector<std::uint8_t> larger;
  std::span<const std::uint8_t> bytes;
  const ssize_t firstSize =
      LgetxattrBeneath(native, samba::kNtAclAttribute, first.data(), first.size());
  if (firstSize >= 0) {
    bytes = std::span<const std::uint8_t>(first).first(static_cast<std::size_t>(firstSize));
  } else if (errno == ENODATA || errno == ENOTSUP) {
    return err::kSuccess;
  } else if (errno != ERANGE) {
    return Win32ErrorFromErrno(errno);
  }
  while (firstSize < 0) {
    const ssize_t size = LgetxattrBeneath(native, samba::kNtAclAttribute, nullptr, 0);
    if (size < 0) {
      if (errno == ENODATA || errno == ENOTSUP) return err::kSuccess;
      return Win32ErrorFromErrno(errno);
    }
    larger.resize(static_cast<std::size_t>(size));
    const ssize_t read =
        LgetxattrBeneath(native, samba::kNtAclAttribute, larger.data(), larger.size());
    if (read >= 0) {
      bytes = std::span<const std::uint8_t>(larger).first(static_cast<std::size_t>(read));
      break;
    }
    if (errno != ERANGE) {  // ERANGE: it grew between the two calls; ask again
      if (errno == ENODATA || errno == ENOTSUP) return err::kSuccess;
      return Win32ErrorFromErrno(errno);
    }
  }
  samba::NtAclBlob blob;
  const samba::NtAclProblem problem = samba::DecodeNtAcl(bytes, blob);
  if (problem != samba::NtAclProblem::kNone) {
    ReportDiagnostic(L"The stored security descriptor of %s is %s; it is read as none.",
                     Utf8ToWide(native), std::wstring(samba::NtAclProblemText(problem)));
    return err::kSuccess;
  }
  if (!StillCurrent(native, blob)) {
    ReportDiagnostic(
        L"The stored security descriptor of %s has a hash that does not match the file; it is "
        L"read as none.",
        Utf8ToWide(native));
    return err::kSuccess;
  }
  sd.emplace(std::move(blob.sd));
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error StoreDescriptor(const std::string& native,
                                              const security::SecurityDescriptor& sd) {
  struct stat info {};
  if (LstatBeneath(native, info) != 0) return Win32ErrorFromErrno(errno);
  // Links and special files keep no Windows security, as before the server's format was used.
  if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) return err::kAccessDenied;
  // Never a SACL (SE_SACL_PRESENT cleared, as RemoveSacl leaves a descriptor).
  security::SecurityDescriptor stored;
  stored.control = static_cast<std::uint16_t>(sd.control & ~security::kSeSaclPresent);
  stored.owner = sd.owner;
  stored.group = sd.group;
  stored.dacl = sd.dacl;
  // The POSIX ACLs the server sets for this descriptor first: the hashes cover them.
  samba::PosixAcls acls;
  if (!SetServersPosixAcls(native, stored, info, acls)) {
    if (LstatBeneath(native, info) != 0) return Win32ErrorFromErrno(errno);
    acls = samba::ReadPosixAcls(native, info);
  }
  const samba::Sha256Digest derivedHash = samba::DescriptorHash(HashedDescriptor(info, acls));
  const samba::Sha256Digest sysAclHash = samba::Sha256(samba::SysAclBlob(
      acls.access, acls.defaults, static_cast<std::uint32_t>(info.st_uid),
      static_cast<std::uint32_t>(info.st_gid), static_cast<std::uint32_t>(info.st_mode)));
  const std::vector<std::uint8_t> bytes =
      samba::EncodeNtAclV4(stored, derivedHash, NowAsFileTime(), sysAclHash);
  if (LsetxattrBeneath(native, samba::kNtAclAttribute, bytes.data(), bytes.size(), 0) != 0) {
    return Win32ErrorFromErrno(errno);
  }
  return err::kSuccess;
}

std::uint32_t AccessMaskFromModeBits(unsigned rwx, bool isFolder) {
  rwx &= 7u;
  if (rwx == 7u) return kFileAllAccess;
  std::uint32_t mask = 0;
  if ((rwx & 4u) != 0) mask |= kFileGenericRead;
  if ((rwx & 2u) != 0)
    mask |= kFileGenericWrite | kWriterRights | (isFolder ? kFileDeleteChild : 0);
  if ((rwx & 1u) != 0) mask |= kFileGenericExecute;
  return mask;
}

security::SecurityDescriptor DescriptorFromMode(uid_t uid, gid_t gid, mode_t mode) {
  const bool isFolder = S_ISDIR(mode);
  const security::Sid owner = samba::Accounts().SidOfUid(static_cast<std::uint32_t>(uid));
  const security::Sid group = samba::Accounts().SidOfGid(static_cast<std::uint32_t>(gid));
  std::vector<security::Ace> aces;
  AppendEntries(samba::AclFromMode(mode), isFolder, false, owner, group, aces);
  if (isFolder) AppendEntries(ServerDefaultAcl(), isFolder, true, owner, group, aces);
  return Assemble(owner, group, std::move(aces));
}

security::SecurityDescriptor DerivedDescriptor(const std::string& native, const struct stat& info) {
  const bool isFolder = S_ISDIR(info.st_mode);
  const security::Sid owner = samba::Accounts().SidOfUid(static_cast<std::uint32_t>(info.st_uid));
  const security::Sid group = samba::Accounts().SidOfGid(static_cast<std::uint32_t>(info.st_gid));
  const samba::PosixAcls acls = samba::ReadPosixAcls(native, info);
  std::vector<security::Ace> aces;
  AppendEntries(acls.access, isFolder, false, owner, group, aces);
  if (isFolder) {
    const bool hasDefault = acls.defaults && !acls.defaults->empty();
    AppendEntries(hasDefault ? *acls.defaults : ServerDefaultAcl(), isFolder, true, owner, group,
                  aces);
  }
  return Assemble(owner, group, std::move(aces));
}

}  // namespace tw::posix
