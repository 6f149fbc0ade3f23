#include "hive/name_compare.h"

#include <cstddef>
#include <cstdint>

namespace tw::hive {

wchar_t UpcaseChar(wchar_t c) {
  const auto u = static_cast<std::uint32_t>(c);
  if (u < 0x80) return (u >= 'a' && u <= 'z') ? static_cast<wchar_t>(u - 0x20) : c;
  if (u >= 0xE0 && u <= 0xFE && u != 0xF7) return static_cast<wchar_t>(u - 0x20);
  if (u == 0xFF) return static_cast<wchar_t>(0x178);
  if (u == 0xB5) return static_cast<wchar_t>(0x39C);
  // Latin Extended-A: pairs of upper and lower case letters.
  if ((u >= 0x100 && u <= 0x137) || (u >= 0x14A && u <= 0x177)) {
    return (u & 1u) ? static_cast<wchar_t>(u - 1) : c;
  }
  if ((u >= 0x139 && u <= 0x148) || (u >= 0x179 && u <= 0x17E)) {
    return (u & 1u) ? c : static_cast<wchar_t>(u - 1);
  }
  // Greek.
  if (u >= 0x3B1 && u <= 0x3CB && u != 0x3C2) return static_cast<wchar_t>(u - 0x20);
  if (u == 0x3C2) return static_cast<wchar_t>(0x3A3);
  if (u == 0x3AC) return static_cast<wchar_t>(0x386);
  if (u >= 0x3AD && u <= 0x3AF) return static_cast<wchar_t>(u - 0x25);
  if (u == 0x3CC) return static_cast<wchar_t>(0x38C);
  if (u == 0x3CD || u == 0x3CE) return static_cast<wchar_t>(u - 0x3F);
  // Cyrillic.
  if (u >= 0x430 && u <= 0x44F) return static_cast<wchar_t>(u - 0x20);
  if (u >= 0x450 && u <= 0x45F) return static_cast<wchar_t>(u - 0x50);
  if (u >= 0x460 && u <= 0x481) return (u & 1u) ? static_cast<wchar_t>(u - 1) : c;
  if (u >= 0x48A && u <= 0x4BF) return (u & 1u) ? static_cast<wchar_t>(u - 1) : c;
  // Full-width Latin.
  if (u >= 0xFF41 && u <= 0xFF5A) return static_cast<wchar_t>(u - 0x20);
  return c;
}

int CompareNoCase(std::wstring_view a, std::wstring_view b) {
  const std::size_t n = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < n; ++i) {
    const auto ca = static_cast<std::uint32_t>(UpcaseChar(a[i]));
    const auto cb = static_cast<std::uint32_t>(UpcaseChar(b[i]));
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

bool EqualsNoCase(std::wstring_view a, std::wstring_view b) {
  return a.size() == b.size() && CompareNoCase(a, b) == 0;
}

}  // namespace tw::hive
