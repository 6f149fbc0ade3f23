// The few operations on self-relative security descriptors the hive engine needs: measure one,
// pick the parts a SECURITY_INFORMATION selects, and replace parts. Descriptors are kept and
// returned in self-relative form, as security cells store them.
//
// TODO: once the security descriptor codec (security/codec/) is in, parse and build through it
// and give new keys the descriptor inherited from their parent by the platform's rule (owner and
// group from the parent, a DACL made of the parent's inheritable ACEs: CONTAINER_INHERIT ACEs
// kept, INHERIT_ONLY cleared, NO_PROPAGATE ending the chain, INHERITED_ACE set). Until then a new
// key shares its parent's descriptor unchanged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "hive/hive_model.h"

namespace tw::hive {

// SECURITY_INFORMATION bits.
constexpr std::uint32_t kOwnerSecurityInformation = 0x00000001;
constexpr std::uint32_t kGroupSecurityInformation = 0x00000002;
constexpr std::uint32_t kDaclSecurityInformation = 0x00000004;
constexpr std::uint32_t kSaclSecurityInformation = 0x00000008;
constexpr std::uint32_t kLabelSecurityInformation = 0x00000010;
constexpr std::uint32_t kUnprotectedSaclSecurityInformation = 0x10000000;
constexpr std::uint32_t kUnprotectedDaclSecurityInformation = 0x20000000;
constexpr std::uint32_t kProtectedSaclSecurityInformation = 0x40000000;
constexpr std::uint32_t kProtectedDaclSecurityInformation = 0x80000000;

// Descriptor control bits.
constexpr std::uint16_t kSeOwnerDefaulted = 0x0001;
constexpr std::uint16_t kSeGroupDefaulted = 0x0002;
constexpr std::uint16_t kSeDaclPresent = 0x0004;
constexpr std::uint16_t kSeDaclDefaulted = 0x0008;
constexpr std::uint16_t kSeSaclPresent = 0x0010;
constexpr std::uint16_t kSeSaclDefaulted = 0x0020;
constexpr std::uint16_t kSeDaclAutoInheritReq = 0x0100;
constexpr std::uint16_t kSeSaclAutoInheritReq = 0x0200;
constexpr std::uint16_t kSeDaclAutoInherited = 0x0400;
constexpr std::uint16_t kSeSaclAutoInherited = 0x0800;
constexpr std::uint16_t kSeDaclProtected = 0x1000;
constexpr std::uint16_t kSeSaclProtected = 0x2000;
constexpr std::uint16_t kSeSelfRelative = 0x8000;

// The descriptor of a new hive's root key: owner Administrators (S-1-5-32-544), group SYSTEM
// (S-1-5-18), a DACL inherited by sub keys granting full control to SYSTEM and Administrators
// and read access to Users (S-1-5-32-545).
const SecurityBytes& DefaultSecurityDescriptor();

// The length of a self-relative descriptor given by pointer only (as callers of
// ORSetKeySecurity pass it): the end of its furthest part. 0 when it is not a revision-1
// self-relative descriptor, or a part is malformed.
std::size_t SelfRelativeLength(const std::uint8_t* descriptor);

// A descriptor with only the parts `information` selects (owner, group, DACL, SACL; LABEL
// counts as SACL), their control bits, and SE_SELF_RELATIVE.
SecurityBytes SelectParts(const SecurityBytes& descriptor, std::uint32_t information);

// `current` with the parts `information` selects taken from `incoming` (whose control bits come
// along for those parts); PROTECTED_DACL / UNPROTECTED_DACL set / clear SE_DACL_PROTECTED, and
// likewise for the SACL. False when `incoming` is not a valid self-relative descriptor.
bool ReplaceParts(const SecurityBytes& current, const std::uint8_t* incoming,
                  std::uint32_t information, SecurityBytes* result);

}  // namespace tw::hive
