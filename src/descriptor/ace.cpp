#include "descriptor/ace.h"

#include <algorithm>
#include <utility>

#include "base/hresult.h"
#include "base/hresult_error.h"
#include "descriptor/byte_io.h"

namespace tw::security {

namespace {

Ace MakeSidAce(std::uint8_t type, std::uint32_t mask, Sid sid, std::uint8_t flags) {
  Ace ace;
  ace.type = type;
  ace.flags = flags;
  ace.mask = mask;
  ace.sid = std::move(sid);
  return ace;
}

}  // namespace

Ace Ace::Allowed(std::uint32_t mask, Sid sid, std::uint8_t flags) {
  return MakeSidAce(kAccessAllowedAceType, mask, std::move(sid), flags);
}

Ace Ace::Denied(std::uint32_t mask, Sid sid, std::uint8_t flags) {
  return MakeSidAce(kAccessDeniedAceType, mask, std::move(sid), flags);
}

Ace Ace::Opaque(std::uint8_t type, std::uint8_t flags, std::vector<std::uint8_t> body) {
  Ace ace;
  ace.type = type;
  ace.flags = flags;
  ace.body = std::move(body);
  return ace;
}

bool Ace::IsDenyType() const {
  return type == kAccessDeniedAceType || type == kAccessDeniedObjectAceType ||
         type == kAccessDeniedCallbackAceType || type == kAccessDeniedCallbackObjectAceType;
}

std::size_t Ace::Size() const {
  if (HasSid()) return kAceHeaderSize + 4 + sid.BinarySize() + body.size();
  return kAceHeaderSize + body.size();
}

bool Ace::IsWritable() const {
  const std::size_t size = Size();
  return size <= 0xFFFF && size % 4 == 0;
}

[[nodiscard]] err::Win32Error Ace::Parse(std::span<const std::uint8_t> bytes, Ace* ace,
                                         std::size_t* used) {
  if (bytes.size() < kAceHeaderSize) return err::kInvalidAcl;
  const std::size_t size = codec_detail::ReadLe16(bytes, 2);
  if (size < kAceHeaderSize || size % 4 != 0 || size > bytes.size()) return err::kInvalidAcl;
  const std::span<const std::uint8_t> entry = bytes.first(size);

  // Everything that can fail is checked before `ace` is touched (Sid::Parse writes only on
  // success), so that a list can parse its entries straight into place.
  const std::uint8_t type = entry[0];
  std::size_t bodyStart = kAceHeaderSize;
  if (IsSidType(type)) {
    if (size < kAceHeaderSize + 4) return err::kInvalidAcl;
    std::size_t sidSize = 0;
    if (Sid::Parse(entry.subspan(kAceHeaderSize + 4), &ace->sid, &sidSize) != err::kSuccess) {
      return err::kInvalidAcl;
    }
    ace->mask = codec_detail::ReadLe32(entry, kAceHeaderSize);
    bodyStart += 4 + sidSize;
  } else {
    ace->mask = 0;
    ace->sid = Sid();
  }
  ace->type = type;
  ace->flags = entry[1];
  const auto rest = entry.subspan(bodyStart);
  ace->body.assign(rest.begin(), rest.end());
  if (used != nullptr) *used = size;
  return err::kSuccess;
}

void Ace::WriteTo(std::span<std::uint8_t> out) const {
  if (!IsWritable()) ThrowHResult(hr::kInvalidArg);
  out[0] = type;
  out[1] = flags;
  codec_detail::StoreLe16(out, 2, static_cast<std::uint16_t>(Size()));
  std::size_t at = kAceHeaderSize;
  if (HasSid()) {
    codec_detail::StoreLe32(out, at, mask);
    sid.WriteTo(out.subspan(at + 4));
    at += 4 + sid.BinarySize();
  }
  std::copy(body.begin(), body.end(), out.begin() + static_cast<std::ptrdiff_t>(at));
}

void Ace::AppendTo(std::vector<std::uint8_t>& out) const {
  if (!IsWritable()) ThrowHResult(hr::kInvalidArg);
  const std::size_t start = out.size();
  out.resize(start + Size());
  WriteTo(std::span<std::uint8_t>(out).subspan(start));
}

}  // namespace tw::security
