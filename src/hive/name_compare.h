// Case-insensitive comparison of key and value names, as the hive orders them: both names are
// upper-cased character by character and compared by code unit.
//
// TODO: switch to ToUpperWindows/EqualsNoCase of base/wide_string.h once that header exists; the
// table here covers Latin-1, Latin Extended-A, Greek, Cyrillic and full-width Latin, which is the
// part of the Windows upcase table that names in user hives meet.
#pragma once

#include <string_view>

namespace tw::hive {

wchar_t UpcaseChar(wchar_t c);
// <0, 0, >0 like a three-way comparison of the upper-cased names.
int CompareNoCase(std::wstring_view a, std::wstring_view b);
bool EqualsNoCase(std::wstring_view a, std::wstring_view b);

}  // namespace tw::hive
