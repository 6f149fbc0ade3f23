#include "descriptor/security_descriptor.h"

#include <utility>

#include "descriptor/byte_io.h"

namespace tw::security {

namespace {

constexpr std::size_t kOwnerOffsetField = 4;
constexpr std::size_t kGroupOffsetField = 8;
constexpr std::size_t kSaclOffsetField = 12;
constexpr std::size_t kDaclOffsetField = 16;

// Reads the SID at `offset` (non-zero). A SID that does not fit in the block is a broken
// descriptor; one that fits but is malformed is a broken SID.
[[nodiscard]] err::Win32Error ReadSidPart(std::span<const std::uint8_t> bytes, std::uint32_t offset,
                                          std::optional<Sid>* sid) {
  if (offset >= bytes.size() || bytes.size() - offset < Sid::kHeaderSize) {
    return err::kInvalidSecurityDescr;
  }
  const auto part = bytes.subspan(offset);
  if (part[0] != Sid::kRevision || part[1] > Sid::kMaxSubAuthorities) return err::kInvalidSid;
  if (part.size() < Sid::kHeaderSize + 4 * static_cast<std::size_t>(part[1])) {
    return err::kInvalidSecurityDescr;
  }
  // Parsed into its place in the descriptor being built, which the caller drops on failure.
  return Sid::Parse(part, &sid->emplace());
}

// Reads the ACL at `offset` (non-zero), with the same split between the block's error and the
// list's own.
[[nodiscard]] err::Win32Error ReadAclPart(std::span<const std::uint8_t> bytes, std::uint32_t offset,
                                          std::optional<Acl>* acl) {
  if (offset >= bytes.size() || bytes.size() - offset < kAclHeaderSize) {
    return err::kInvalidSecurityDescr;
  }
  const auto part = bytes.subspan(offset);
  if (codec_detail::ReadLe16(part, 2) > part.size()) return err::kInvalidSecurityDescr;
  // Parsed into its place in the descriptor being built, which the caller drops on failure.
  return Acl::Parse(part, &acl->emplace());
}

void PlacePart(std::span<std::uint8_t> block, std::size_t field, std::size_t at) {
  codec_detail::StoreLe32(block, field, static_cast<std::uint32_t>(at));
}

}  // namespace

void SecurityDescriptor::SetDacl(Acl list) {
  control |= kSeDaclPresent;
  dacl = std::move(list);
}

void SecurityDescriptor::SetNullDacl() {
  control |= kSeDaclPresent;
  dacl.reset();
}

void SecurityDescriptor::RemoveDacl() {
  control &= static_cast<std::uint16_t>(~kSeDaclPresent);
  dacl.reset();
}

void SecurityDescriptor::SetSacl(Acl list) {
  control |= kSeSaclPresent;
  sacl = std::move(list);
}

void SecurityDescriptor::SetNullSacl() {
  control |= kSeSaclPresent;
  sacl.reset();
}

void SecurityDescriptor::RemoveSacl() {
  control &= static_cast<std::uint16_t>(~kSeSaclPresent);
  sacl.reset();
}

[[nodiscard]] err::Win32Error ParseSelfRelative(std::span<const std::uint8_t> bytes,
                                                SecurityDescriptor* sd) {
  if (bytes.size() < kSelfRelativeHeaderSize) return err::kInvalidSecurityDescr;
  if (bytes[0] != kSecurityDescriptorRevision) return err::kInvalidSecurityDescr;
  const std::uint16_t control = codec_detail::ReadLe16(bytes, 2);
  if ((control & kSeSelfRelative) == 0) return err::kInvalidSecurityDescr;

  SecurityDescriptor result;
  result.control = static_cast<std::uint16_t>(control & ~kSeSelfRelative);
  err::Win32Error error = err::kSuccess;
  if (const std::uint32_t at = codec_detail::ReadLe32(bytes, kOwnerOffsetField); at != 0) {
    if ((error = ReadSidPart(bytes, at, &result.owner)) != err::kSuccess) return error;
  }
  if (const std::uint32_t at = codec_detail::ReadLe32(bytes, kGroupOffsetField); at != 0) {
    if ((error = ReadSidPart(bytes, at, &result.group)) != err::kSuccess) return error;
  }
  if (result.HasSacl()) {
    if (const std::uint32_t at = codec_detail::ReadLe32(bytes, kSaclOffsetField); at != 0) {
      if ((error = ReadAclPart(bytes, at, &result.sacl)) != err::kSuccess) return error;
    }
  }
  if (result.HasDacl()) {
    if (const std::uint32_t at = codec_detail::ReadLe32(bytes, kDaclOffsetField); at != 0) {
      if ((error = ReadAclPart(bytes, at, &result.dacl)) != err::kSuccess) return error;
    }
  }
  *sd = std::move(result);
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error ValidateSelfRelative(std::span<const std::uint8_t> bytes) {
  SecurityDescriptor ignored;
  return ParseSelfRelative(bytes, &ignored);
}

SelfRelativeParts SelfRelativeParts::Of(const SecurityDescriptor& sd) {
  SelfRelativeParts parts;
  parts.control = sd.control;
  if (sd.owner) parts.owner = &*sd.owner;
  if (sd.group) parts.group = &*sd.group;
  if (sd.dacl) parts.dacl = &*sd.dacl;
  if (sd.sacl) parts.sacl = &*sd.sacl;
  return parts;
}

std::vector<std::uint8_t> MakeSelfRelative(const SecurityDescriptor& sd) {
  return MakeSelfRelative(SelfRelativeParts::Of(sd));
}

std::vector<std::uint8_t> MakeSelfRelative(const SelfRelativeParts& parts) {
  const Acl* sacl = (parts.control & kSeSaclPresent) != 0 ? parts.sacl : nullptr;
  const Acl* dacl = (parts.control & kSeDaclPresent) != 0 ? parts.dacl : nullptr;
  const Sid* owner = parts.owner;
  const Sid* group = parts.group;
  std::size_t size = kSelfRelativeHeaderSize;
  if (sacl != nullptr) size += sacl->size();
  if (dacl != nullptr) size += dacl->size();
  if (owner != nullptr) size += owner->BinarySize();
  if (group != nullptr) size += group->BinarySize();

  // One buffer of the final size, zero-filled, so absent parts keep offset 0.
  std::vector<std::uint8_t> out(size);
  out[0] = kSecurityDescriptorRevision;
  codec_detail::StoreLe16(out, 2, static_cast<std::uint16_t>(parts.control | kSeSelfRelative));
  std::size_t at = kSelfRelativeHeaderSize;
  const std::span<std::uint8_t> block(out);
  if (sacl != nullptr) {
    PlacePart(block, kSaclOffsetField, at);
    sacl->WriteTo(block.subspan(at));
    at += sacl->size();
  }
  if (dacl != nullptr) {
    PlacePart(block, kDaclOffsetField, at);
    dacl->WriteTo(block.subspan(at));
    at += dacl->size();
  }
  if (owner != nullptr) {
    PlacePart(block, kOwnerOffsetField, at);
    owner->WriteTo(block.subspan(at));
    at += owner->BinarySize();
  }
  if (group != nullptr) {
    PlacePart(block, kGroupOffsetField, at);
    group->WriteTo(block.subspan(at));
  }
  return out;
}

std::optional<std::uint16_t> SelfRelativeControl(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kSelfRelativeHeaderSize) return std::nullopt;
  return codec_detail::ReadLe16(bytes, 2);
}

}  // namespace tw::security
