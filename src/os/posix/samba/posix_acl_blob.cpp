#include "os/posix/samba/posix_acl_blob.h"

#include <sys/xattr.h>

#include <cerrno>

#include "os/posix/paths/beneath_path.h"
#include "os/posix/samba/ndr_writer.h"

namespace tw::posix::samba {
namespace {

constexpr std::uint32_t kPosixAclXattrVersion = 2;
constexpr std::uint32_t kFirstReferent = 0x00020000;

// The server's tag numbers (its smb_acl_tag_t).
std::uint16_t ServerTag(std::uint16_t kernelTag) {
  switch (kernelTag) {
    case kAclUser:
      return 1;
    case kAclUserObj:
      return 2;
    case kAclGroup:
      return 3;
    case kAclGroupObj:
      return 4;
    case kAclOther:
      return 5;
    case kAclMask:
      return 6;
    default:
      return 0;
  }
}

void PutAcl(NdrWriter& out, const std::vector<PosixAclEntry>& acl) {
  out.U32(static_cast<std::uint32_t>(acl.size()));  // the array's conformance
  out.Align(8);  // the structure itself is aligned as its widest member (the entries' ids)
  out.U32(static_cast<std::uint32_t>(acl.size()));  // count
  out.U32(0);                                       // next
  for (const PosixAclEntry& entry : acl) {
    out.Align(8);
    const std::uint16_t tag = ServerTag(entry.tag);
    out.U16(tag);
    out.U16(tag);  // the union's level
    if (entry.tag == kAclUser || entry.tag == kAclGroup) out.U64(entry.id);
    out.U32(entry.perm & 7u);
    out.Align(8);
  }
}

std::optional<std::vector<std::uint8_t>> ReadAttribute(const std::string& native,
                                                       const char* name) {
  std::vector<std::uint8_t> value(256);
  for (int attempt = 0; attempt < 4; ++attempt) {
    const ssize_t got = LgetxattrBeneath(native, name, value.data(), value.size());
    if (got >= 0) {
      value.resize(static_cast<std::size_t>(got));
      return value;
    }
    if (errno != ERANGE) return std::nullopt;
    const ssize_t size = LgetxattrBeneath(native, name, nullptr, 0);
    if (size < 0) return std::nullopt;
    value.resize(static_cast<std::size_t>(size));
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::vector<PosixAclEntry>> DecodePosixAcl(const std::vector<std::uint8_t>& value) {
  if (value.size() < 4 || (value.size() - 4) % 8 != 0) return std::nullopt;
  auto le = [&](std::size_t at, std::size_t width) {
    std::uint32_t v = 0;
    for (std::size_t i = 0; i < width; ++i)
      v |= static_cast<std::uint32_t>(value[at + i]) << (8 * i);
    return v;
  };
  if (le(0, 4) != kPosixAclXattrVersion) return std::nullopt;
  std::vector<PosixAclEntry> entries;
  for (std::size_t at = 4; at < value.size(); at += 8) {
    entries.push_back(PosixAclEntry{static_cast<std::uint16_t>(le(at, 2)),
                                    static_cast<std::uint16_t>(le(at + 2, 2)), le(at + 4, 4)});
  }
  return entries;
}

std::vector<std::uint8_t> EncodePosixAcl(const std::vector<PosixAclEntry>& entries) {
  NdrWriter out;
  out.U32(kPosixAclXattrVersion);
  for (const PosixAclEntry& entry : entries) {
    out.U16(entry.tag);
    out.U16(entry.perm);
    const bool named = entry.tag == kAclUser || entry.tag == kAclGroup;
    out.U32(named ? entry.id : 0xFFFFFFFFu);
  }
  return std::move(out.bytes());
}

std::vector<PosixAclEntry> AclFromMode(mode_t mode) {
  const auto bits = static_cast<std::uint32_t>(mode);
  return {PosixAclEntry{kAclUserObj, static_cast<std::uint16_t>((bits >> 6) & 7u), 0},
          PosixAclEntry{kAclGroupObj, static_cast<std::uint16_t>((bits >> 3) & 7u), 0},
          PosixAclEntry{kAclOther, static_cast<std::uint16_t>(bits & 7u), 0}};
}

std::vector<std::uint8_t> SysAclBlob(const std::vector<PosixAclEntry>& accessAcl,
                                     const std::optional<std::vector<PosixAclEntry>>& defaultAcl,
                                     std::uint32_t uid, std::uint32_t gid, std::uint32_t mode) {
  NdrWriter out;
  out.U32(kFirstReferent);
  out.U32(defaultAcl ? kFirstReferent + 4 : 0);
  out.U64(uid);
  out.U64(gid);
  out.U32(mode);
  PutAcl(out, accessAcl);
  if (defaultAcl) PutAcl(out, *defaultAcl);
  return std::move(out.bytes());
}

PosixAcls ReadPosixAcls(const std::string& native, const struct stat& info) {
  PosixAcls acls;
  std::optional<std::vector<PosixAclEntry>> access;
  if (auto value = ReadAttribute(native, "system.posix_acl_access"))
    access = DecodePosixAcl(*value);
  acls.access = access ? std::move(*access) : AclFromMode(info.st_mode);
  if (S_ISDIR(info.st_mode)) {
    std::optional<std::vector<PosixAclEntry>> defaults;
    if (auto value = ReadAttribute(native, "system.posix_acl_default")) {
      defaults = DecodePosixAcl(*value);
    }
    acls.defaults = defaults ? std::move(*defaults) : std::vector<PosixAclEntry>{};
  }
  return acls;
}

Sha256Digest SysAclHash(const std::string& native, const struct stat& info) {
  const PosixAcls acls = ReadPosixAcls(native, info);
  return Sha256(SysAclBlob(acls.access, acls.defaults, static_cast<std::uint32_t>(info.st_uid),
                           static_cast<std::uint32_t>(info.st_gid),
                           static_cast<std::uint32_t>(info.st_mode)));
}

}  // namespace tw::posix::samba
