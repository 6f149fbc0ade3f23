// Security identifiers: the binary form (revision 1, up to 15 sub-authorities, a 6-byte
// big-endian identifier authority, little-endian 32-bit sub-authorities) and the "S-1-5-..."
// text form in both directions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/win32_error.h"

namespace tw::security {

class Sid {
 public:
  static constexpr std::uint8_t kRevision = 1;
  static constexpr std::size_t kMaxSubAuthorities = 15;
  static constexpr std::uint64_t kMaxAuthority = 0xFFFFFFFFFFFFull;  // 48 bits
  static constexpr std::size_t kHeaderSize = 8;

  // The SID "S-1-0": authority 0 and no sub-authority.
  Sid() = default;
  // Throws HResultError(E_INVALIDARG) for more than 15 sub-authorities or an authority that
  // does not fit in 48 bits: building an impossible SID is a programming error.
  Sid(std::uint64_t authority, std::initializer_list<std::uint32_t> subAuthorities);
  Sid(std::uint64_t authority, std::span<const std::uint32_t> subAuthorities);

  // Reads one SID from the start of `bytes` (trailing bytes are left alone). Fails with
  // ERROR_INVALID_SID when the revision is not 1, there are more than 15 sub-authorities, or
  // the bytes end before the SID does. `used`, when given, receives the SID's length.
  [[nodiscard]] static err::Win32Error Parse(std::span<const std::uint8_t> bytes, Sid* sid,
                                             std::size_t* used = nullptr);

  // Text to SID with the rules of the platform's string-SID conversion:
  //   "S-1-<authority>[-<sub-authority>]..." with "S" in either case and revision 1 only;
  //   the authority in decimal (below 2^32) or as "0x"/"0X" and hexadecimal digits (below
  //   2^48); each sub-authority in decimal or "0x" hexadecimal, at most 0xFFFFFFFF; 0 to 15
  //   sub-authorities (the binary form allows none, so "S-1-5" is accepted);
  //   leading zeros are accepted; no white space, sign or empty field anywhere.
  //   A two-letter SID alias ("BA", "SY", "WD", ...; the table is in well_known_sids.h, upper
  //   case only, as the platform's constants are) is accepted in place of the numeric form.
  // Anything else fails with ERROR_INVALID_SID.
  [[nodiscard]] static err::Win32Error FromString(std::wstring_view text, Sid* sid);

  // "S-1-5-21-..." with the authority in decimal below 2^32, else as "0x" and 12 upper-case
  // hexadecimal digits; sub-authorities in decimal. Never an alias.
  std::wstring ToString() const;

  std::uint64_t authority() const { return authority_; }
  std::span<const std::uint32_t> subAuthorities() const {
    return std::span<const std::uint32_t>(subAuthorities_.data(), count_);
  }
  std::size_t BinarySize() const { return kHeaderSize + 4 * std::size_t{count_}; }

  // The binary form: written to the first BinarySize() bytes of `out`, appended to `out`, or
  // returned.
  void WriteTo(std::span<std::uint8_t> out) const;
  void AppendTo(std::vector<std::uint8_t>& out) const;
  std::vector<std::uint8_t> ToBytes() const;

  // The slots past the count are always zero, so comparing every member compares the SIDs.
  friend bool operator==(const Sid&, const Sid&) = default;

 private:
  // The sub-authorities are kept in place rather than on the heap: SIDs are copied with every
  // entry of every list, and a SID never has more than 15 of them.
  std::uint64_t authority_ = 0;
  std::uint8_t count_ = 0;
  std::array<std::uint32_t, kMaxSubAuthorities> subAuthorities_{};
};

}  // namespace tw::security
