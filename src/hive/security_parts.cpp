#include "hive/security_parts.h"

#include <algorithm>
#include <span>
#include <utility>

#include "descriptor/ace.h"
#include "descriptor/acl.h"
#include "descriptor/inheritance.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"
#include "descriptor/well_known_sids.h"
#include "hive/regf_layout.h"

namespace tw::hive {

namespace {

using regf::Get16;
using regf::Get32;
using security::SecurityDescriptor;

constexpr std::size_t kOwnerField = 4;
constexpr std::size_t kGroupField = 8;
constexpr std::size_t kSaclField = 12;
constexpr std::size_t kDaclField = 16;

constexpr std::uint16_t kOwnerBits = security::kSeOwnerDefaulted;
constexpr std::uint16_t kGroupBits = security::kSeGroupDefaulted;
constexpr std::uint16_t kDaclBits = security::kSeDaclPresent | security::kSeDaclDefaulted |
                                    kSeDaclAutoInheritReq | security::kSeDaclAutoInherited |
                                    security::kSeDaclProtected;
constexpr std::uint16_t kSaclBits = security::kSeSaclPresent | security::kSeSaclDefaulted |
                                    kSeSaclAutoInheritReq | security::kSeSaclAutoInherited |
                                    security::kSeSaclProtected;

bool Parse(std::span<const std::uint8_t> bytes, SecurityDescriptor* sd) {
  return security::ParseSelfRelative(bytes, sd) == err::kSuccess;
}

void TakeBits(SecurityDescriptor& sd, std::uint16_t from, std::uint16_t bits) {
  sd.control = static_cast<std::uint16_t>((sd.control & ~bits) | (from & bits));
}

// Copies the parts `information` selects, with their control bits, from `from` into `to`.
void CopyParts(const SecurityDescriptor& from, std::uint32_t information, SecurityDescriptor& to) {
  if ((information & kOwnerSecurityInformation) != 0) {
    to.owner = from.owner;
    TakeBits(to, from.control, kOwnerBits);
  }
  if ((information & kGroupSecurityInformation) != 0) {
    to.group = from.group;
    TakeBits(to, from.control, kGroupBits);
  }
  if ((information & kDaclSecurityInformation) != 0) {
    to.dacl = from.dacl;
    TakeBits(to, from.control, kDaclBits);
  }
  if ((information & (kSaclSecurityInformation | kLabelSecurityInformation)) != 0) {
    to.sacl = from.sacl;
    TakeBits(to, from.control, kSaclBits);
  }
}

// The length of a part at the offset in `field`, read from its own header; 0 for none.
std::size_t PartEnd(const std::uint8_t* descriptor, std::size_t field, bool isAcl) {
  const std::uint32_t offset = Get32(descriptor + field);
  if (offset == 0) return 0;
  const std::uint8_t* part = descriptor + offset;
  const std::size_t length =
      isAcl ? Get16(part + 2) : security::Sid::kHeaderSize + 4 * static_cast<std::size_t>(part[1]);
  return offset + length;
}

}  // namespace

const SecurityBytes& DefaultSecurityDescriptor() {
  static const SecurityBytes descriptor = [] {
    constexpr std::uint32_t kKeyAllAccess = 0x000F003F;
    constexpr std::uint32_t kKeyRead = 0x00020019;
    const std::uint8_t inherit = security::kContainerInheritAce;
    SecurityDescriptor sd;
    sd.owner = security::BuiltinAdministratorsSid();
    sd.group = security::LocalSystemSid();
    security::Acl dacl;
    // Fixed, valid ACEs: it cannot fail.
    static_cast<void>(security::Acl::FromAces(
        security::kAclRevision,
        {security::Ace::Allowed(kKeyAllAccess, security::LocalSystemSid(), inherit),
         security::Ace::Allowed(kKeyAllAccess, security::BuiltinAdministratorsSid(), inherit),
         security::Ace::Allowed(kKeyRead, security::BuiltinUsersSid(), inherit)},
        &dacl));
    sd.SetDacl(std::move(dacl));
    return security::MakeSelfRelative(sd);
  }();
  return descriptor;
}

std::size_t SelfRelativeLength(const std::uint8_t* descriptor) {
  const std::size_t end = SelfRelativeExtent(descriptor);
  if (end == 0) return 0;
  const std::span<const std::uint8_t> block(descriptor, end);
  return security::ValidateSelfRelative(block) == err::kSuccess ? end : 0;
}

std::size_t SelfRelativeExtent(const std::uint8_t* descriptor) {
  if (descriptor == nullptr || descriptor[0] != security::kSecurityDescriptorRevision ||
      (Get16(descriptor + 2) & security::kSeSelfRelative) == 0) {
    return 0;
  }
  const std::uint16_t control = Get16(descriptor + 2);
  // Offsets beyond 64 KB are refused before anything there is read: no descriptor the engine
  // accepts is larger (an ACL is at most 64 KB and comes first).
  constexpr std::uint32_t kMaxOffset = 0x10000;
  for (const std::size_t field : {kOwnerField, kGroupField, kSaclField, kDaclField}) {
    const std::uint32_t offset = Get32(descriptor + field);
    if (offset != 0 && (offset < security::kSelfRelativeHeaderSize || offset > kMaxOffset)) {
      return 0;
    }
  }
  std::size_t end = security::kSelfRelativeHeaderSize;
  end = std::max(end, PartEnd(descriptor, kOwnerField, false));
  end = std::max(end, PartEnd(descriptor, kGroupField, false));
  if ((control & security::kSeSaclPresent) != 0) {
    end = std::max(end, PartEnd(descriptor, kSaclField, true));
  }
  if ((control & security::kSeDaclPresent) != 0) {
    end = std::max(end, PartEnd(descriptor, kDaclField, true));
  }
  return end;
}

SecurityBytes SelectParts(const SecurityBytes& descriptor, std::uint32_t information) {
  SecurityDescriptor full;
  if (!Parse(descriptor, &full)) return descriptor;
  SecurityDescriptor selected;
  CopyParts(full, information, selected);
  return security::MakeSelfRelative(selected);
}

bool ReplaceParts(const SecurityBytes& current, const std::uint8_t* incoming,
                  std::uint32_t information, SecurityBytes* result) {
  const std::size_t length = SelfRelativeLength(incoming);
  SecurityDescriptor in;
  if (length == 0 || !Parse(std::span<const std::uint8_t>(incoming, length), &in)) return false;
  SecurityDescriptor sd;
  if (!Parse(current, &sd)) sd = SecurityDescriptor{};
  CopyParts(in, information, sd);
  if ((information & kDaclSecurityInformation) != 0) {
    if ((information & kProtectedDaclSecurityInformation) != 0) {
      sd.control |= security::kSeDaclProtected;
    }
    if ((information & kUnprotectedDaclSecurityInformation) != 0) {
      sd.control = static_cast<std::uint16_t>(sd.control & ~security::kSeDaclProtected);
    }
  }
  if ((information & (kSaclSecurityInformation | kLabelSecurityInformation)) != 0) {
    if ((information & kProtectedSaclSecurityInformation) != 0) {
      sd.control |= security::kSeSaclProtected;
    }
    if ((information & kUnprotectedSaclSecurityInformation) != 0) {
      sd.control = static_cast<std::uint16_t>(sd.control & ~security::kSeSaclProtected);
    }
  }
  *result = security::MakeSelfRelative(sd);
  return true;
}

SecurityBytes InheritedSecurity(const SecurityBytes& parent) {
  SecurityDescriptor parentSd;
  if (!Parse(parent, &parentSd)) Parse(DefaultSecurityDescriptor(), &parentSd);
  const security::Sid owner = parentSd.owner.value_or(security::BuiltinAdministratorsSid());
  const security::Sid group = parentSd.group.value_or(security::LocalSystemSid());
  const SecurityDescriptor child = security::InheritFromParent(
      parentSd, /*isContainer=*/true, owner, group, security::kRegistryKeyMapping);
  return security::MakeSelfRelative(child);
}

}  // namespace tw::hive
