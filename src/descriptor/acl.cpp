#include "descriptor/acl.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "descriptor/byte_io.h"

namespace tw::security {

namespace {

constexpr std::uint32_t kMinAclRevision = 2;
constexpr std::uint32_t kMaxAclRevision = 4;

bool IsKnownRevision(std::uint32_t revision) {
  return revision >= kMinAclRevision && revision <= kMaxAclRevision;
}

}  // namespace

[[nodiscard]] err::Win32Error Acl::FromAces(std::uint8_t revision, std::vector<Ace> aces,
                                            Acl* acl) {
  if (!IsKnownRevision(revision)) return err::kInvalidParameter;
  std::size_t size = kAclHeaderSize;
  for (const Ace& ace : aces) {
    if (!ace.IsWritable()) return err::kInvalidAcl;
    size += ace.Size();
  }
  if (size > 0xFFFF || aces.size() > 0xFFFF) return err::kInvalidAcl;
  acl->revision_ = revision;
  acl->size_ = static_cast<std::uint16_t>(size);
  acl->aces_ = std::move(aces);
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error Acl::Initialize(std::uint32_t length, std::uint32_t revision) {
  if (length < kAclHeaderSize) return err::kInsufficientBuffer;
  if (!IsKnownRevision(revision) || length > 0xFFFF) return err::kInvalidParameter;
  revision_ = static_cast<std::uint8_t>(revision);
  size_ = static_cast<std::uint16_t>(length & ~3u);
  aces_.clear();
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error Acl::AddAce(std::uint32_t aceRevision, std::uint32_t startingIndex,
                                          std::span<const Ace> aces) {
  if (!IsKnownRevision(aceRevision)) return err::kInvalidParameter;
  std::size_t needed = 0;
  for (const Ace& ace : aces) {
    if (!ace.IsWritable()) return err::kInvalidParameter;
    needed += ace.Size();
  }
  if (needed > FreeBytes() || aces_.size() + aces.size() > 0xFFFF) {
    return err::kInsufficientBuffer;
  }
  const std::size_t at = startingIndex >= aces_.size() ? aces_.size() : startingIndex;
  aces_.insert(aces_.begin() + static_cast<std::ptrdiff_t>(at), aces.begin(), aces.end());
  if (aceRevision > revision_) revision_ = static_cast<std::uint8_t>(aceRevision);
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error Acl::Parse(std::span<const std::uint8_t> bytes, Acl* acl) {
  if (bytes.size() < kAclHeaderSize) return err::kInvalidAcl;
  const std::uint8_t revision = bytes[0];
  const std::size_t size = codec_detail::ReadLe16(bytes, 2);
  const std::size_t count = codec_detail::ReadLe16(bytes, 4);
  if (!IsKnownRevision(revision)) return err::kInvalidAcl;
  if (size < kAclHeaderSize || size % 4 != 0 || size > bytes.size()) return err::kInvalidAcl;

  Acl result;
  result.revision_ = revision;
  result.size_ = static_cast<std::uint16_t>(size);
  // Each entry is at least 4 bytes, so the count cannot claim more than the size holds; this
  // also bounds the reservation below.
  if (count > (size - kAclHeaderSize) / kAceHeaderSize) return err::kInvalidAcl;
  result.aces_.reserve(count);
  std::size_t offset = kAclHeaderSize;
  for (std::size_t i = 0; i < count; ++i) {
    std::size_t used = 0;
    const err::Win32Error error =
        Ace::Parse(bytes.subspan(offset, size - offset), &result.aces_.emplace_back(), &used);
    if (error != err::kSuccess) return error;
    offset += used;
  }
  *acl = std::move(result);
  return err::kSuccess;
}

std::size_t Acl::UsedBytes() const {
  std::size_t used = kAclHeaderSize;
  for (const Ace& ace : aces_) used += ace.Size();
  return used;
}

void Acl::WriteTo(std::span<std::uint8_t> out) const {
  out[0] = revision_;
  out[1] = 0;
  codec_detail::StoreLe16(out, 2, size_);
  codec_detail::StoreLe16(out, 4, static_cast<std::uint16_t>(aces_.size()));
  codec_detail::StoreLe16(out, 6, 0);
  std::size_t at = kAclHeaderSize;
  for (const Ace& ace : aces_) {
    ace.WriteTo(out.subspan(at));
    at += ace.Size();
  }
  std::fill(out.begin() + static_cast<std::ptrdiff_t>(at), out.begin() + size_, std::uint8_t{0});
}

void Acl::AppendTo(std::vector<std::uint8_t>& out) const {
  const std::size_t start = out.size();
  out.resize(start + size_);
  WriteTo(std::span<std::uint8_t>(out).subspan(start));
}

std::vector<std::uint8_t> Acl::ToBytes() const {
  std::vector<std::uint8_t> out(size_);
  WriteTo(out);
  return out;
}

}  // namespace tw::security
