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

#include <cstdint>
#include <string_view>

namespace tw::hive {

// Three-way comparison (<0, 0, >0) of the upper-cased names in UTF-16 code-unit order.
int CompareNames(std::wstring_view a, std::wstring_view b);
// Equality without regard to case (Windows rule).
bool NamesEqual(std::wstring_view a, std::wstring_view b);
// The lh hash of a name: over its UTF-16 code units, each upper-cased.
std::uint32_t NameHashOf(std::wstring_view name);

}  // namespace tw::hive
