// Remembers the latest result of each descriptor operation of security_parts.h together with the
// bytes it was computed from. A migration creates, secures and queries key after key with the
// same few descriptors, and comparing bytes costs far less than the codec's parse and rebuild.
// The operations depend on those bytes only, so a remembered result is the one they would give.
// Descriptors are never changed in place: a remembered one is shared by the keys given it.
// Not thread-safe: the engine uses it under its lock.
#pragma once

#include <cstdint>

#include "hive/hive_model.h"

namespace tw::hive {

class SecurityMemo {
 public:
  // InheritedSecurity(parent).
  SharedSecurity Inherited(const SecurityBytes& parent);

  // SelectParts(descriptor, information).
  const SecurityBytes& Selected(const SecurityBytes& descriptor, std::uint32_t information);

  // ReplaceParts(current, incoming, information): false when `incoming` is not a valid
  // descriptor; otherwise `*result` is the new descriptor, or null when it equals `current`.
  bool Replaced(const SecurityBytes& current, const std::uint8_t* incoming,
                std::uint32_t information, SharedSecurity* result);

 private:
  struct InheritedEntry {
    SecurityBytes parent;
    SharedSecurity child;  // null while nothing is remembered
  };
  struct SelectedEntry {
    bool valid = false;
    SecurityBytes descriptor;
    std::uint32_t information = 0;
    SecurityBytes selected;
  };
  struct ReplacedEntry {
    bool valid = false;
    SecurityBytes current;
    SecurityBytes incoming;
    std::uint32_t information = 0;
    SharedSecurity result;
  };

  InheritedEntry inherited_;
  SelectedEntry selected_;
  ReplacedEntry replaced_;
};

}  // namespace tw::hive
