#include "descriptor/sid.h"

#include <algorithm>

#include "base/format.h"
#include "base/hresult.h"
#include "base/hresult_error.h"
#include "descriptor/byte_io.h"
#include "descriptor/well_known_sids.h"

namespace tw::security {

namespace {

bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

int HexValue(wchar_t c) {
  if (c >= L'0' && c <= L'9') return c - L'0';
  if (c >= L'a' && c <= L'f') return c - L'a' + 10;
  if (c >= L'A' && c <= L'F') return c - L'A' + 10;
  return -1;
}

bool HasHexPrefix(std::wstring_view field) {
  return field.size() > 2 && field[0] == L'0' && (field[1] == L'x' || field[1] == L'X');
}

// Parses one dash-separated field as a decimal number, or a "0x" hexadecimal number when
// `allowHex`, no larger than `limit` (at most 2^48 - 1, so no step can overflow).
bool ParseNumber(std::wstring_view field, bool allowHex, std::uint64_t limit,
                 std::uint64_t* value) {
  std::uint64_t result = 0;
  if (allowHex && HasHexPrefix(field)) {
    for (wchar_t c : field.substr(2)) {
      const int digit = HexValue(c);
      if (digit < 0) return false;
      result = (result << 4) | static_cast<std::uint64_t>(digit);
      if (result > limit) return false;
    }
  } else {
    if (field.empty()) return false;
    for (wchar_t c : field) {
      if (!IsDigit(c)) return false;
      result = result * 10 + static_cast<std::uint64_t>(c - L'0');
      if (result > limit) return false;  // also stops any overflow of long digit runs
    }
  }
  if (result > limit) return false;
  *value = result;
  return true;
}

void CheckOrThrow(std::uint64_t authority, std::size_t count) {
  if (authority > Sid::kMaxAuthority || count > Sid::kMaxSubAuthorities) {
    ThrowHResult(hr::kInvalidArg);
  }
}

}  // namespace

Sid::Sid(std::uint64_t authority, std::initializer_list<std::uint32_t> subAuthorities)
    : Sid(authority,
          std::span<const std::uint32_t>(subAuthorities.begin(), subAuthorities.size())) {}

Sid::Sid(std::uint64_t authority, std::span<const std::uint32_t> subAuthorities)
    : authority_(authority) {
  CheckOrThrow(authority, subAuthorities.size());
  count_ = static_cast<std::uint8_t>(subAuthorities.size());
  std::copy(subAuthorities.begin(), subAuthorities.end(), subAuthorities_.begin());
}

[[nodiscard]] err::Win32Error Sid::Parse(std::span<const std::uint8_t> bytes, Sid* sid,
                                         std::size_t* used) {
  if (bytes.size() < kHeaderSize) return err::kInvalidSid;
  if (bytes[0] != kRevision) return err::kInvalidSid;
  const std::size_t count = bytes[1];
  if (count > kMaxSubAuthorities) return err::kInvalidSid;
  const std::size_t size = kHeaderSize + 4 * count;
  if (bytes.size() < size) return err::kInvalidSid;

  std::uint64_t authority = 0;
  for (std::size_t i = 2; i < kHeaderSize; ++i) authority = (authority << 8) | bytes[i];
  *sid = Sid();
  sid->authority_ = authority;
  sid->count_ = static_cast<std::uint8_t>(count);
  for (std::size_t i = 0; i < count; ++i) {
    sid->subAuthorities_[i] = codec_detail::ReadLe32(bytes, kHeaderSize + 4 * i);
  }
  if (used != nullptr) *used = size;
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error Sid::FromString(std::wstring_view text, Sid* sid) {
  if (const Sid* alias = FindSidAlias(text)) {
    *sid = *alias;
    return err::kSuccess;
  }
  if (text.size() < 2 || (text[0] != L'S' && text[0] != L's') || text[1] != L'-') {
    return err::kInvalidSid;
  }
  // Split the rest at '-': revision, authority, sub-authorities.
  std::vector<std::wstring_view> fields;
  std::wstring_view rest = text.substr(2);
  while (true) {
    const std::size_t dash = rest.find(L'-');
    fields.push_back(rest.substr(0, dash));
    if (dash == std::wstring_view::npos) break;
    rest = rest.substr(dash + 1);
  }
  if (fields.size() < 2 || fields.size() - 2 > kMaxSubAuthorities) return err::kInvalidSid;

  std::uint64_t revision = 0;
  if (!ParseNumber(fields[0], false, 0xFF, &revision) || revision != kRevision) {
    return err::kInvalidSid;
  }
  Sid result;
  if (!ParseNumber(fields[1], true, HasHexPrefix(fields[1]) ? kMaxAuthority : 0xFFFFFFFFull,
                   &result.authority_)) {
    return err::kInvalidSid;
  }
  for (std::size_t i = 2; i < fields.size(); ++i) {
    std::uint64_t value = 0;
    if (!ParseNumber(fields[i], true, 0xFFFFFFFFull, &value)) return err::kInvalidSid;
    result.subAuthorities_[result.count_++] = static_cast<std::uint32_t>(value);
  }
  *sid = result;
  return err::kSuccess;
}

std::wstring Sid::ToString() const {
  std::wstring text = L"S-1-";
  if (authority_ <= 0xFFFFFFFFull) {
    text += std::to_wstring(authority_);
  } else {
    text += Format(L"0x%012I64X", authority_);
  }
  for (std::uint32_t sub : subAuthorities()) {
    text += L'-';
    text += std::to_wstring(sub);
  }
  return text;
}

void Sid::WriteTo(std::span<std::uint8_t> out) const {
  out[0] = kRevision;
  out[1] = count_;
  for (std::size_t i = 2; i < kHeaderSize; ++i) {
    out[i] = static_cast<std::uint8_t>((authority_ >> (8 * (kHeaderSize - 1 - i))) & 0xFF);
  }
  for (std::size_t i = 0; i < count_; ++i) {
    codec_detail::StoreLe32(out, kHeaderSize + 4 * i, subAuthorities_[i]);
  }
}

void Sid::AppendTo(std::vector<std::uint8_t>& out) const {
  const std::size_t start = out.size();
  out.resize(start + BinarySize());
  WriteTo(std::span<std::uint8_t>(out).subspan(start));
}

std::vector<std::uint8_t> Sid::ToBytes() const {
  std::vector<std::uint8_t> out(BinarySize());
  WriteTo(out);
  return out;
}

}  // namespace tw::security
