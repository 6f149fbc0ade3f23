// Security descriptors. `SecurityDescriptor` is the absolute form: a structure that owns its
// owner, group, DACL and SACL. The self-relative form is one byte block: a 20-byte header
// (revision 1, reserved byte, control word, then the offsets of owner, group, SACL and DACL from
// the start of the block, 0 for none) followed by the parts.
//
// A DACL (and likewise a SACL) has three states: absent (SE_DACL_PRESENT clear), NULL (present
// without a list: everyone has full access), and a list (which may be empty: no access at all).
// The `dacl` field holds a list only while SE_DACL_PRESENT is set; use the setters to keep
// control bits and fields in step.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/acl.h"
#include "descriptor/sid.h"

namespace tw::security {

constexpr std::uint8_t kSecurityDescriptorRevision = 1;
constexpr std::size_t kSelfRelativeHeaderSize = 20;

// Control bits.
constexpr std::uint16_t kSeOwnerDefaulted = 0x0001;
constexpr std::uint16_t kSeGroupDefaulted = 0x0002;
constexpr std::uint16_t kSeDaclPresent = 0x0004;
constexpr std::uint16_t kSeDaclDefaulted = 0x0008;
constexpr std::uint16_t kSeSaclPresent = 0x0010;
constexpr std::uint16_t kSeSaclDefaulted = 0x0020;
constexpr std::uint16_t kSeDaclAutoInherited = 0x0400;
constexpr std::uint16_t kSeSaclAutoInherited = 0x0800;
constexpr std::uint16_t kSeDaclProtected = 0x1000;
constexpr std::uint16_t kSeSaclProtected = 0x2000;
constexpr std::uint16_t kSeSelfRelative = 0x8000;

struct SecurityDescriptor {
  // Never holds SE_SELF_RELATIVE: that bit belongs to the byte form and is set when one is made.
  std::uint16_t control = 0;
  std::optional<Sid> owner;
  std::optional<Sid> group;
  std::optional<Acl> dacl;  // a list only while SE_DACL_PRESENT is set
  std::optional<Acl> sacl;  // a list only while SE_SACL_PRESENT is set

  bool HasDacl() const { return (control & kSeDaclPresent) != 0; }
  bool IsNullDacl() const { return HasDacl() && !dacl.has_value(); }
  bool HasSacl() const { return (control & kSeSaclPresent) != 0; }
  bool IsNullSacl() const { return HasSacl() && !sacl.has_value(); }

  void SetDacl(Acl list);  // present, with this list
  void SetNullDacl();      // present, no list
  void RemoveDacl();       // not present
  void SetSacl(Acl list);
  void SetNullSacl();
  void RemoveSacl();

  friend bool operator==(const SecurityDescriptor&, const SecurityDescriptor&) = default;
};

// Reads a self-relative descriptor (the whole of `bytes` is the block; bytes past the last part
// are allowed). Rules, which are also the validation of a self-relative block:
// - ERROR_INVALID_SECURITY_DESCR: fewer than 20 bytes, revision not 1, SE_SELF_RELATIVE not set,
//   an offset that points outside the block, or a part whose header or length runs past its end;
// - ERROR_INVALID_SID: an owner or group whose revision is not 1 or that has more than 15
//   sub-authorities;
// - ERROR_INVALID_ACL: a DACL or SACL that is not a valid list (see Acl::Parse).
// A DACL offset is read only when SE_DACL_PRESENT is set, and a present DACL at offset 0 is the
// NULL DACL (the platform ignores the offset otherwise; so do we). The same holds for the SACL.
// Offsets need not be aligned and parts may overlap: neither makes a read unsafe here.
[[nodiscard]] err::Win32Error ParseSelfRelative(std::span<const std::uint8_t> bytes,
                                                SecurityDescriptor* sd);
[[nodiscard]] err::Win32Error ValidateSelfRelative(std::span<const std::uint8_t> bytes);

// The parts a self-relative block is made from, borrowed from where they live, so that a block can
// be made from a selection of a descriptor's parts without copying the descriptor first. A list
// is written only while its present bit is set in `control`.
struct SelfRelativeParts {
  std::uint16_t control = 0;  // without SE_SELF_RELATIVE
  const Sid* owner = nullptr;
  const Sid* group = nullptr;
  const Acl* dacl = nullptr;
  const Acl* sacl = nullptr;

  // All the parts of `sd`, which must outlive the result.
  static SelfRelativeParts Of(const SecurityDescriptor& sd);
};

// Makes the self-relative block in the layout the platform's MakeSelfRelativeSD produces:
// header, then SACL, DACL, owner, group, each directly after the one before (every part is a
// multiple of 4 bytes long, so none needs padding); absent parts take no space and have offset 0.
// The control word is `sd.control` with SE_SELF_RELATIVE added.
std::vector<std::uint8_t> MakeSelfRelative(const SecurityDescriptor& sd);
std::vector<std::uint8_t> MakeSelfRelative(const SelfRelativeParts& parts);

// The control word of a self-relative block; nothing when the block is shorter than its header.
std::optional<std::uint16_t> SelfRelativeControl(std::span<const std::uint8_t> bytes);

}  // namespace tw::security
