// Access control entries. Access-allowed (type 0) and access-denied (type 1) entries are read
// into their access mask and SID; every other type is kept as the bytes that follow its 4-byte
// header, so that it is written back unchanged. The header (type, flags, size) is common to all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/sid.h"

namespace tw::security {

// Entry types.
constexpr std::uint8_t kAccessAllowedAceType = 0;
constexpr std::uint8_t kAccessDeniedAceType = 1;
constexpr std::uint8_t kSystemAuditAceType = 2;
constexpr std::uint8_t kAccessDeniedObjectAceType = 6;
constexpr std::uint8_t kAccessDeniedCallbackAceType = 0xA;
constexpr std::uint8_t kAccessDeniedCallbackObjectAceType = 0xC;

// Entry flags.
constexpr std::uint8_t kObjectInheritAce = 0x01;
constexpr std::uint8_t kContainerInheritAce = 0x02;
constexpr std::uint8_t kNoPropagateInheritAce = 0x04;
constexpr std::uint8_t kInheritOnlyAce = 0x08;
constexpr std::uint8_t kInheritedAce = 0x10;
constexpr std::uint8_t kValidInheritFlags = 0x1F;
constexpr std::uint8_t kSuccessfulAccessAceFlag = 0x40;
constexpr std::uint8_t kFailedAccessAceFlag = 0x80;

constexpr std::size_t kAceHeaderSize = 4;

struct Ace {
  std::uint8_t type = kAccessAllowedAceType;
  std::uint8_t flags = 0;
  // Allowed and denied entries only.
  std::uint32_t mask = 0;
  Sid sid;
  // Allowed and denied entries: bytes inside the entry after its SID (normally none).
  // Every other type: everything after the header.
  std::vector<std::uint8_t> body;

  static Ace Allowed(std::uint32_t mask, Sid sid, std::uint8_t flags = 0);
  static Ace Denied(std::uint32_t mask, Sid sid, std::uint8_t flags = 0);
  static Ace Opaque(std::uint8_t type, std::uint8_t flags, std::vector<std::uint8_t> body);

  // Whether mask and SID were read (types 0 and 1).
  static bool IsSidType(std::uint8_t aceType) {
    return aceType == kAccessAllowedAceType || aceType == kAccessDeniedAceType;
  }
  bool HasSid() const { return IsSidType(type); }
  bool IsInherited() const { return (flags & kInheritedAce) != 0; }
  // The access-denied family (plain, object, callback, callback object).
  bool IsDenyType() const;

  // The AceSize field: 4 + 4 + SID + body for allowed/denied, 4 + body otherwise.
  std::size_t Size() const;
  // Whether the entry can be written: a size of at most 0xFFFF that is a multiple of 4.
  bool IsWritable() const;

  // Reads one entry from the start of `bytes`, which ends where the ACL ends. ERROR_INVALID_ACL
  // when the header or the entry overruns `bytes`, the size is below 4 or not a multiple of 4,
  // or an allowed/denied entry is too small for its mask and a valid SID. `ace` is written in
  // place, and only on success.
  [[nodiscard]] static err::Win32Error Parse(std::span<const std::uint8_t> bytes, Ace* ace,
                                             std::size_t* used = nullptr);
  // The binary form, written to the first Size() bytes of `out` / appended to `out`. An entry
  // that is not writable raises HResultError(E_INVALIDARG).
  void WriteTo(std::span<std::uint8_t> out) const;
  void AppendTo(std::vector<std::uint8_t>& out) const;

  friend bool operator==(const Ace&, const Ace&) = default;
};

}  // namespace tw::security
