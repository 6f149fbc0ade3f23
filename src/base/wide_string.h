// Small helpers over wide strings: case rules and white space.
//
// Two case rules are offered because the tool needs both:
// - the Windows rule (ToUpperWindows, ToLowerWindows, CompareNoCase, EqualsNoCase,
//   EndsWithNoCase): the simple one-to-one case mapping of the Basic Multilingual Plane, which
//   is how Windows compares names of files, shares and registry keys;
// - the C runtime's rule in the "C" locale the tool runs in (ToUpperCrt, ToLowerCrt,
//   CompareNoCaseCrt, the in-place UpperCaseCrt / LowerCaseCrt): only A-Z and a-z are changed,
//   as _wcsupr_s, _wcslwr_s and _wcsicmp do. The command line uses this rule.
#pragma once

#include <string>
#include <string_view>

namespace tw {

// Upper and lower case of one character by the Windows rule. Characters outside the Basic
// Multilingual Plane and characters without a one-to-one mapping are returned as they are.
wchar_t ToUpperWindows(wchar_t c);
wchar_t ToLowerWindows(wchar_t c);

// Ordinal comparison of the upper-case forms (Windows rule): < 0, 0 or > 0.
int CompareNoCase(std::wstring_view a, std::wstring_view b);
bool EqualsNoCase(std::wstring_view a, std::wstring_view b);
bool EndsWithNoCase(std::wstring_view text, std::wstring_view suffix);
bool StartsWithNoCase(std::wstring_view text, std::wstring_view prefix);

// Case-sensitive begins-with and ends-with tests.
bool StartsWith(std::wstring_view text, std::wstring_view prefix);
bool EndsWith(std::wstring_view text, std::wstring_view suffix);

// The C runtime's rule in the "C" locale: only ASCII letters change.
wchar_t ToUpperCrt(wchar_t c);
wchar_t ToLowerCrt(wchar_t c);
void UpperCaseCrt(std::wstring& text);  // _wcsupr_s
void LowerCaseCrt(std::wstring& text);  // _wcslwr_s
// _wcsicmp: compares the lower-case forms (so '_' sorts after letters): < 0, 0 or > 0.
int CompareNoCaseCrt(std::wstring_view a, std::wstring_view b);

// White space as the Windows C runtime's iswspace tells in every locale: tab, line feed, vertical
// tab, form feed, carriage return, space, U+0085, and the Unicode space and line/paragraph
// separators (U+00A0, U+1680, U+2000-U+200A, U+2028, U+2029, U+202F, U+205F, U+3000).
bool IsSpaceWindows(wchar_t c);

// text without white space (IsSpaceWindows) at its end, then at its start.
std::wstring TrimWhitespace(std::wstring_view text);

}  // namespace tw
