#include "hive/name_compare.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "base/wide_string.h"
#include "hive/regf_layout.h"
#include "hive/regf_text.h"

namespace tw::hive {

namespace {

constexpr std::uint32_t kLastBmp = 0xFFFF;

std::u16string UpperUtf16(std::wstring_view name) {
  std::u16string units = ToUtf16(name);
  for (char16_t& c : units) c = static_cast<char16_t>(ToUpperWindows(static_cast<wchar_t>(c)));
  return units;
}

}  // namespace

int CompareNames(std::wstring_view a, std::wstring_view b) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    // Equal characters fold alike, in UTF-16 too: the rest of the names decides.
    if (a[i] == b[i]) continue;
    const auto x = static_cast<std::uint32_t>(a[i]);
    const auto y = static_cast<std::uint32_t>(b[i]);
    if (x > kLastBmp || y > kLastBmp) {
      // A character beyond the BMP (only where wchar_t is 32 bits): compare the rest in UTF-16.
      const std::u16string ua = UpperUtf16(a.substr(i));
      const std::u16string ub = UpperUtf16(b.substr(i));
      const int order = ua.compare(ub);
      return order < 0 ? -1 : (order > 0 ? 1 : 0);
    }
    const std::uint32_t ux = UpperCaseOf(a[i]);
    const std::uint32_t uy = UpperCaseOf(b[i]);
    if (ux != uy) return ux < uy ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

std::uint32_t NameHashOf(std::wstring_view name) {
  std::uint32_t hash = 0;
  for (const wchar_t c : name) {
    // A character beyond the BMP (only where wchar_t is 32 bits) counts as its UTF-16 units.
    if (static_cast<std::uint32_t>(c) > kLastBmp) return regf::NameHash(UpperUtf16(name));
    hash = hash * 37u + UpperCaseOf(c);
  }
  return hash;
}

}  // namespace tw::hive
