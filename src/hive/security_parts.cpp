#include "hive/security_parts.h"

#include <algorithm>

#include "hive/regf_layout.h"

namespace tw::hive {

namespace {

using regf::Get16;
using regf::Get32;
using regf::Put16;
using regf::Put32;

constexpr std::size_t kHeaderSize = 20;
constexpr std::size_t kOwnerField = 4;
constexpr std::size_t kGroupField = 8;
constexpr std::size_t kSaclField = 12;
constexpr std::size_t kDaclField = 16;

constexpr std::uint16_t kOwnerBits = kSeOwnerDefaulted;
constexpr std::uint16_t kGroupBits = kSeGroupDefaulted;
constexpr std::uint16_t kDaclBits = kSeDaclPresent | kSeDaclDefaulted | kSeDaclAutoInheritReq |
                                    kSeDaclAutoInherited | kSeDaclProtected;
constexpr std::uint16_t kSaclBits = kSeSaclPresent | kSeSaclDefaulted | kSeSaclAutoInheritReq |
                                    kSeSaclAutoInherited | kSeSaclProtected;

// A descriptor taken apart. An empty part is absent (or, for an ACL, null).
struct Parts {
  std::uint16_t control = kSeSelfRelative;
  std::vector<std::uint8_t> owner, group, sacl, dacl;
};

std::size_t SidLength(const std::uint8_t* sid, std::size_t room) {
  if (room < 8 || sid[0] != 1 || sid[1] > 15) return 0;
  const std::size_t length = 8 + 4 * static_cast<std::size_t>(sid[1]);
  return length <= room ? length : 0;
}

std::size_t AclLength(const std::uint8_t* acl, std::size_t room) {
  if (room < 8) return 0;
  const std::size_t length = Get16(acl + 2);
  return length >= 8 && length <= room ? length : 0;
}

// Reads one part at the offset in `field`; a zero offset is an absent part.
bool ReadPart(const std::uint8_t* sd, std::size_t size, std::size_t field, bool isAcl,
              std::vector<std::uint8_t>* out) {
  const std::uint32_t offset = Get32(sd + field);
  if (offset == 0) return true;
  if (offset < kHeaderSize || offset >= size) return false;
  const std::size_t length =
      isAcl ? AclLength(sd + offset, size - offset) : SidLength(sd + offset, size - offset);
  if (length == 0) return false;
  out->assign(sd + offset, sd + offset + length);
  return true;
}

bool Parse(const std::uint8_t* sd, std::size_t size, Parts* parts) {
  if (size < kHeaderSize || sd[0] != 1) return false;
  parts->control = Get16(sd + 2);
  if ((parts->control & kSeSelfRelative) == 0) return false;
  return ReadPart(sd, size, kOwnerField, false, &parts->owner) &&
         ReadPart(sd, size, kGroupField, false, &parts->group) &&
         ReadPart(sd, size, kSaclField, true, &parts->sacl) &&
         ReadPart(sd, size, kDaclField, true, &parts->dacl);
}

// Builds the self-relative form: header, SACL, DACL, owner, group.
SecurityBytes Build(const Parts& parts) {
  SecurityBytes out(kHeaderSize, 0);
  out[0] = 1;
  Put16(out.data() + 2, static_cast<std::uint16_t>(parts.control | kSeSelfRelative));
  const auto append = [&out](const std::vector<std::uint8_t>& part, std::size_t field) {
    if (part.empty()) return;
    Put32(out.data() + field, static_cast<std::uint32_t>(out.size()));
    out.insert(out.end(), part.begin(), part.end());
  };
  if ((parts.control & kSeSaclPresent) != 0) append(parts.sacl, kSaclField);
  if ((parts.control & kSeDaclPresent) != 0) append(parts.dacl, kDaclField);
  append(parts.owner, kOwnerField);
  append(parts.group, kGroupField);
  return out;
}

std::vector<std::uint8_t> Sid(std::uint32_t authority, std::initializer_list<std::uint32_t> subs) {
  std::vector<std::uint8_t> sid(8 + 4 * subs.size(), 0);
  sid[0] = 1;
  sid[1] = static_cast<std::uint8_t>(subs.size());
  sid[7] = static_cast<std::uint8_t>(authority);
  std::size_t at = 8;
  for (const std::uint32_t sub : subs) {
    Put32(sid.data() + at, sub);
    at += 4;
  }
  return sid;
}

void AppendAllowAce(std::vector<std::uint8_t>& acl, std::uint8_t flags, std::uint32_t mask,
                    const std::vector<std::uint8_t>& sid) {
  const std::size_t at = acl.size();
  acl.resize(at + 8 + sid.size(), 0);
  acl[at] = 0;  // ACCESS_ALLOWED_ACE_TYPE
  acl[at + 1] = flags;
  Put16(acl.data() + at + 2, static_cast<std::uint16_t>(8 + sid.size()));
  Put32(acl.data() + at + 4, mask);
  std::copy(sid.begin(), sid.end(), acl.begin() + static_cast<std::ptrdiff_t>(at + 8));
}

}  // namespace

const SecurityBytes& DefaultSecurityDescriptor() {
  static const SecurityBytes descriptor = [] {
    constexpr std::uint8_t kContainerInherit = 0x02;
    constexpr std::uint32_t kKeyAllAccess = 0x000F003F;
    constexpr std::uint32_t kKeyRead = 0x00020019;
    const auto system = Sid(5, {18});
    const auto admins = Sid(5, {32, 544});
    const auto users = Sid(5, {32, 545});
    Parts parts;
    parts.control = kSeSelfRelative | kSeDaclPresent;
    parts.owner = admins;
    parts.group = system;
    std::vector<std::uint8_t> acl(8, 0);
    AppendAllowAce(acl, kContainerInherit, kKeyAllAccess, system);
    AppendAllowAce(acl, kContainerInherit, kKeyAllAccess, admins);
    AppendAllowAce(acl, kContainerInherit, kKeyRead, users);
    acl[0] = 2;  // ACL_REVISION
    Put16(acl.data() + 2, static_cast<std::uint16_t>(acl.size()));
    Put16(acl.data() + 4, 3);
    parts.dacl = acl;
    return Build(parts);
  }();
  return descriptor;
}

std::size_t SelfRelativeLength(const std::uint8_t* descriptor) {
  if (descriptor == nullptr || descriptor[0] != 1 ||
      (Get16(descriptor + 2) & kSeSelfRelative) == 0) {
    return 0;
  }
  // Parts lie within 64 KB of the header (an ACL is at most 64 KB, offsets are in the header).
  constexpr std::size_t kRoom = 0x40000;
  std::size_t end = kHeaderSize;
  const std::size_t fields[] = {kOwnerField, kGroupField, kSaclField, kDaclField};
  for (const std::size_t field : fields) {
    const std::uint32_t offset = Get32(descriptor + field);
    if (offset == 0) continue;
    if (offset < kHeaderSize || offset > 0x10000) return 0;
    const bool isAcl = field == kSaclField || field == kDaclField;
    const std::size_t length =
        isAcl ? AclLength(descriptor + offset, kRoom) : SidLength(descriptor + offset, kRoom);
    if (length == 0) return 0;
    end = std::max(end, offset + length);
  }
  return end;
}

SecurityBytes SelectParts(const SecurityBytes& descriptor, std::uint32_t information) {
  Parts parts;
  if (!Parse(descriptor.data(), descriptor.size(), &parts)) return descriptor;
  Parts selected;
  selected.control = kSeSelfRelative;
  if ((information & kOwnerSecurityInformation) != 0) {
    selected.owner = parts.owner;
    selected.control |= parts.control & kOwnerBits;
  }
  if ((information & kGroupSecurityInformation) != 0) {
    selected.group = parts.group;
    selected.control |= parts.control & kGroupBits;
  }
  if ((information & kDaclSecurityInformation) != 0) {
    selected.dacl = parts.dacl;
    selected.control |= parts.control & kDaclBits;
  }
  if ((information & (kSaclSecurityInformation | kLabelSecurityInformation)) != 0) {
    selected.sacl = parts.sacl;
    selected.control |= parts.control & kSaclBits;
  }
  return Build(selected);
}

bool ReplaceParts(const SecurityBytes& current, const std::uint8_t* incoming,
                  std::uint32_t information, SecurityBytes* result) {
  const std::size_t length = SelfRelativeLength(incoming);
  Parts in;
  if (length == 0 || !Parse(incoming, length, &in)) return false;
  Parts parts;
  if (!Parse(current.data(), current.size(), &parts)) parts = Parts{};
  const auto take = [&](std::uint16_t bits) {
    parts.control = static_cast<std::uint16_t>((parts.control & ~bits) | (in.control & bits));
  };
  if ((information & kOwnerSecurityInformation) != 0) {
    parts.owner = in.owner;
    take(kOwnerBits);
  }
  if ((information & kGroupSecurityInformation) != 0) {
    parts.group = in.group;
    take(kGroupBits);
  }
  if ((information & kDaclSecurityInformation) != 0) {
    parts.dacl = in.dacl;
    take(kDaclBits);
    if ((information & kProtectedDaclSecurityInformation) != 0) parts.control |= kSeDaclProtected;
    if ((information & kUnprotectedDaclSecurityInformation) != 0) {
      parts.control = static_cast<std::uint16_t>(parts.control & ~kSeDaclProtected);
    }
  }
  if ((information & (kSaclSecurityInformation | kLabelSecurityInformation)) != 0) {
    parts.sacl = in.sacl;
    take(kSaclBits);
    if ((information & kProtectedSaclSecurityInformation) != 0) parts.control |= kSeSaclProtected;
    if ((information & kUnprotectedSaclSecurityInformation) != 0) {
      parts.control = static_cast<std::uint16_t>(parts.control & ~kSeSaclProtected);
    }
  }
  *result = Build(parts);
  return true;
}

}  // namespace tw::hive
