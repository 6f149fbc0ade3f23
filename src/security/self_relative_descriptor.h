// A kept security descriptor: the owner and DACL of a file object, held as one self-relative
// block (the form MakeSelfRelativeSD gives), never with a group or SACL. An empty object (no
// block) is allowed and means that there is nothing to write. The migration reads a source's
// security into one, hands it to the creation of the target and restores it later.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"

namespace tw {

class SelfRelativeDescriptor {
 public:
  // Empty: no descriptor.
  SelfRelativeDescriptor() = default;

  // A self-relative copy of the owner and DACL of `sd`, with the control bits that belong to
  // them (group, SACL and their bits are dropped).
  static SelfRelativeDescriptor FromAbsolute(const security::SecurityDescriptor& sd);

  bool empty() const { return bytes_.empty(); }
  void Clear() { bytes_.clear(); }
  // The self-relative block; empty when there is no descriptor.
  const std::vector<std::uint8_t>& bytes() const { return bytes_; }
  // The block's control word (with SE_SELF_RELATIVE); 0 when empty.
  std::uint16_t Control() const;
  // The absolute form (an empty descriptor when there is none). A block that does not parse
  // cannot be made here; it raises HResultError with the codec's error as an HRESULT.
  security::SecurityDescriptor ToAbsolute() const;
  // The owner; nothing when empty or the descriptor has none.
  std::optional<security::Sid> Owner() const;
  // Replaces the owner (made absolute first, then self-relative again); the owner-defaulted bit
  // is cleared. On an empty object it makes a descriptor holding only this owner.
  void SetOwner(const security::Sid& owner);

  friend bool operator==(const SelfRelativeDescriptor&, const SelfRelativeDescriptor&) = default;

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace tw
