// The operations on self-relative security descriptors the hive engine needs: measure one, pick
// the parts a SECURITY_INFORMATION selects, replace parts, and compute what a new key inherits.
// Descriptors are kept and returned in self-relative form, as security cells store them; they
// are read and built through the security descriptor codec (descriptor/).
//
// A descriptor read from a hive is kept byte for byte: it is only re-encoded when a caller
// changes it (ORSetKeySecurity) or asks for some of its parts (ORGetKeySecurity), and then in the
// layout the platform's MakeSelfRelativeSD produces (header, SACL, DACL, owner, group).
//
// A new key created without a descriptor gets (our decision where the platform's offline library
// leaves it open: it has no creator token to take an owner from):
// - the owner and the group of its parent key's descriptor (Administrators and SYSTEM when the
//   parent's descriptor has none), which also stand for CREATOR OWNER and CREATOR GROUP;
// - the DACL inherited from the parent by security::InheritFromParent with the registry key
//   mapping (a key is a container): effective entries flagged INHERITED_ACE, inherit-only copies
//   where the rules ask for them, NO_PROPAGATE ending the chain. A parent's SE_DACL_PROTECTED
//   bit is not inherited; an empty DACL results when nothing is inheritable;
// - no SACL.
// A parent whose descriptor cannot be parsed is treated as having the default descriptor.
// A parent whose inheritable entries would make a child DACL over 64 KB cannot have children
// created without a descriptor: InheritedSecurity throws HResultError, which the offline-registry
// functions report as ERROR_INVALID_PARAMETER.
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

// Descriptor control bits the engine handles by part (the codec names the others).
constexpr std::uint16_t kSeDaclAutoInheritReq = 0x0100;
constexpr std::uint16_t kSeSaclAutoInheritReq = 0x0200;
constexpr std::uint16_t kSeDaclProtected = 0x1000;

// The descriptor of a new hive's root key: owner Administrators (S-1-5-32-544), group SYSTEM
// (S-1-5-18), a DACL inherited by sub keys granting full control to SYSTEM and Administrators
// and read access to Users (S-1-5-32-545).
const SecurityBytes& DefaultSecurityDescriptor();

// The length of a self-relative descriptor given by pointer only (as callers of
// ORSetKeySecurity pass it): the end of its furthest part. 0 when it is not a valid revision-1
// self-relative descriptor (the codec's validation of the measured block fails).
std::size_t SelfRelativeLength(const std::uint8_t* descriptor);
// The same length before the codec's validation: what the header and the parts' own headers
// tell. 0 when the header is not one of a revision-1 self-relative descriptor or places a part
// beyond 64 KB.
std::size_t SelfRelativeExtent(const std::uint8_t* descriptor);

// A descriptor with only the parts `information` selects (owner, group, DACL, SACL; LABEL
// counts as SACL), their control bits, and SE_SELF_RELATIVE. A descriptor the codec cannot
// read is returned unchanged.
SecurityBytes SelectParts(const SecurityBytes& descriptor, std::uint32_t information);

// `current` with the parts `information` selects taken from `incoming` (whose control bits come
// along for those parts); PROTECTED_DACL / UNPROTECTED_DACL set / clear SE_DACL_PROTECTED, and
// likewise for the SACL. False when `incoming` is not a valid self-relative descriptor.
bool ReplaceParts(const SecurityBytes& current, const std::uint8_t* incoming,
                  std::uint32_t information, SecurityBytes* result);

// The descriptor of a new key created below a key with descriptor `parent` (rules above).
SecurityBytes InheritedSecurity(const SecurityBytes& parent);

}  // namespace tw::hive
