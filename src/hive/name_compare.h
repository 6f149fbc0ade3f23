// Case-insensitive comparison of key and value names, as the hive orders and hashes them.
//
// Case rule: the Windows one (tw::ToUpperWindows of base/wide_string.h), applied to each UTF-16
// code unit of a name. Characters outside the Basic Multilingual Plane have no case mapping and
// their surrogate halves none either, so they compare as they are.
//
// Order: sub key lists on disk are sorted by the upper-cased names compared code unit by code
// unit in UTF-16, shorter name first when one is a prefix of the other. Where wchar_t is 32 bits
// a character above U+FFFF is one wchar_t, which would sort after U+E000-U+FFFF; CompareNames
// therefore compares such characters by their UTF-16 form (surrogates, D800-DFFF) so that the
// model keeps the on-disk order on every platform.
//
// Hash: the lh leaf hash is computed over the upper-cased UTF-16 code units of the name
// (hash = hash * 37 + unit, starting from 0), see NameHashOf.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/wide_string.h"

namespace tw::hive {

// The upper case of one character by the Windows rule. ASCII, the bulk of all names, is mapped
// here without a call; the case tables map it alike.
inline std::uint32_t UpperCaseOf(wchar_t c) {
  const auto code = static_cast<std::uint32_t>(c);
  if (code <= 0x7F) return code >= 0x61u && code <= 0x7Au ? code - 0x20u : code;  // a-z
  return static_cast<std::uint32_t>(ToUpperWindows(c));
}

// Three-way comparison (<0, 0, >0) of the upper-cased names in UTF-16 code-unit order.
int CompareNames(std::wstring_view a, std::wstring_view b);

// Equality without regard to case (Windows rule). Inline: lookups compare many names.
inline bool NamesEqual(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  // From the end: names that share a beginning ("Value1", "Value2") differ there.
  for (std::size_t i = a.size(); i-- > 0;) {
    if (a[i] == b[i]) continue;
    const auto x = static_cast<std::uint32_t>(a[i]);
    const auto y = static_cast<std::uint32_t>(b[i]);
    if ((x | y) <= 0x7F && (x ^ y) != 0x20) return false;  // ASCII: no letter and its other case
    if (UpperCaseOf(a[i]) != UpperCaseOf(b[i])) return false;
  }
  return true;
}

// The lh hash of a name: over its UTF-16 code units, each upper-cased.
std::uint32_t NameHashOf(std::wstring_view name);

}  // namespace tw::hive
