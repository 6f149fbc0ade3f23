// Access control lists: an 8-byte header (revision, reserved byte, AclSize, AceCount, reserved
// word) followed by the entries, with free space up to AclSize. The list keeps its AclSize, so
// the InitializeAcl / AddAce rules of the platform hold: the size is fixed when the list is
// initialised and an entry that does not fit is refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/ace.h"

namespace tw::security {

constexpr std::uint8_t kAclRevision = 2;
constexpr std::uint8_t kAclRevisionDs = 4;
constexpr std::size_t kAclHeaderSize = 8;
// AddAce's starting index that appends at the end (MAXDWORD).
constexpr std::uint32_t kAppendAce = 0xFFFFFFFFu;

class Acl {
 public:
  // An empty list of revision 2 that is exactly its header (AclSize 8).
  Acl() = default;

  // A list of `revision` whose AclSize is exactly the header and `aces`. Fails with
  // ERROR_INVALID_ACL when an entry is not writable or the total exceeds 0xFFFF bytes, and
  // ERROR_INVALID_PARAMETER for a revision outside 2..4.
  [[nodiscard]] static err::Win32Error FromAces(std::uint8_t revision, std::vector<Ace> aces,
                                                Acl* acl);

  // InitializeAcl: an empty list of `length` bytes. A length below 8 fails with
  // ERROR_INSUFFICIENT_BUFFER; a length above 0xFFFF or a revision outside 2..4 with
  // ERROR_INVALID_PARAMETER. A length that is not a multiple of 4 is rounded down (the caller's
  // buffer is never overrun; our decision, as the platform only asks for aligned lengths).
  [[nodiscard]] err::Win32Error Initialize(std::uint32_t length, std::uint32_t revision);

  // AddAce: inserts `aces` before entry `startingIndex` (kAppendAce, or any index at or past the
  // end, appends). An entry that is not writable, or an ACE revision outside 2..4, fails with
  // ERROR_INVALID_PARAMETER; entries that do not all fit in the free space fail with
  // ERROR_INSUFFICIENT_BUFFER and leave the list unchanged. An ACE revision above the list's
  // raises the list's revision.
  [[nodiscard]] err::Win32Error AddAce(std::uint32_t aceRevision, std::uint32_t startingIndex,
                                       std::span<const Ace> aces);

  // Reads a list from the start of `bytes` (at least AclSize long). ERROR_INVALID_ACL when the
  // header is cut short, the revision is not 2..4, AclSize is below 8, not a multiple of 4 or
  // beyond `bytes`, or an entry overruns AclSize or is malformed.
  [[nodiscard]] static err::Win32Error Parse(std::span<const std::uint8_t> bytes, Acl* acl);

  // The binary form: AclSize bytes, free space zero-filled; written to the first AclSize bytes
  // of `out`, appended to `out`, or returned.
  void WriteTo(std::span<std::uint8_t> out) const;
  void AppendTo(std::vector<std::uint8_t>& out) const;
  std::vector<std::uint8_t> ToBytes() const;

  std::uint8_t revision() const { return revision_; }
  std::uint16_t size() const { return size_; }  // AclSize
  const std::vector<Ace>& aces() const& { return aces_; }
  // The entries of a list that is going away, taken over rather than copied.
  std::vector<Ace> aces() && { return std::move(aces_); }
  std::size_t UsedBytes() const;
  std::size_t FreeBytes() const { return size_ - UsedBytes(); }

  friend bool operator==(const Acl&, const Acl&) = default;

 private:
  std::uint8_t revision_ = kAclRevision;
  std::uint16_t size_ = kAclHeaderSize;
  std::vector<Ace> aces_;
};

}  // namespace tw::security
