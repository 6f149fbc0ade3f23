#include "base/wide_string.h"

#include <algorithm>
#include <span>

#include "base/case_table.h"

namespace tw {

namespace {

using case_detail::CaseRange;

wchar_t MapCase(wchar_t c, std::span<const CaseRange> ranges) {
  const auto code = static_cast<std::uint32_t>(c);
  if (code > 0xFFFF) return c;
  // The last range that starts at or before c.
  const auto it = std::upper_bound(
      ranges.begin(), ranges.end(), code,
      [](std::uint32_t value, const CaseRange& range) { return value < range.first; });
  if (it == ranges.begin()) return c;
  const CaseRange& range = *(it - 1);
  if (code > range.last || (code - range.first) % range.stride != 0) return c;
  return static_cast<wchar_t>(static_cast<std::int32_t>(code) + range.delta);
}

template <class Fold>
int CompareFolded(std::wstring_view a, std::wstring_view b, Fold fold) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (a[i] == b[i]) continue;  // equal units fold alike; most names differ in a few
    // Compared as unsigned code units, as Windows compares them.
    const auto x = static_cast<std::uint32_t>(fold(a[i]));
    const auto y = static_cast<std::uint32_t>(fold(b[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

}  // namespace

// ASCII, the bulk of every name, is mapped without searching the tables (they map it alike).
wchar_t ToUpperWindows(wchar_t c) {
  if (static_cast<std::uint32_t>(c) < 0x80)
    return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 0x20) : c;
  return MapCase(c, case_detail::UpperCaseRanges());
}

wchar_t ToLowerWindows(wchar_t c) {
  if (static_cast<std::uint32_t>(c) < 0x80)
    return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + 0x20) : c;
  return MapCase(c, case_detail::LowerCaseRanges());
}

int CompareNoCase(std::wstring_view a, std::wstring_view b) {
  return CompareFolded(a, b, ToUpperWindows);
}

bool EqualsNoCase(std::wstring_view a, std::wstring_view b) {
  return a.size() == b.size() && CompareNoCase(a, b) == 0;
}

bool EndsWithNoCase(std::wstring_view text, std::wstring_view suffix) {
  return text.size() >= suffix.size() &&
         EqualsNoCase(text.substr(text.size() - suffix.size()), suffix);
}

bool StartsWithNoCase(std::wstring_view text, std::wstring_view prefix) {
  return text.size() >= prefix.size() && EqualsNoCase(text.substr(0, prefix.size()), prefix);
}

bool StartsWith(std::wstring_view text, std::wstring_view prefix) {
  return text.starts_with(prefix);
}

bool EndsWith(std::wstring_view text, std::wstring_view suffix) { return text.ends_with(suffix); }

wchar_t ToUpperCrt(wchar_t c) {
  return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - (L'a' - L'A')) : c;
}

wchar_t ToLowerCrt(wchar_t c) {
  return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + (L'a' - L'A')) : c;
}

void UpperCaseCrt(std::wstring& text) {
  for (wchar_t& c : text) c = ToUpperCrt(c);
}

void LowerCaseCrt(std::wstring& text) {
  for (wchar_t& c : text) c = ToLowerCrt(c);
}

int CompareNoCaseCrt(std::wstring_view a, std::wstring_view b) {
  return CompareFolded(a, b, ToLowerCrt);
}

bool IsSpaceWindows(wchar_t c) {
  switch (static_cast<std::uint32_t>(c)) {
    case 0x0009:
    case 0x000A:
    case 0x000B:
    case 0x000C:
    case 0x000D:
    case 0x0020:
    case 0x0085:
    case 0x00A0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202F:
    case 0x205F:
    case 0x3000:
      return true;
    default:
      return c >= 0x2000 && c <= 0x200A;
  }
}

std::wstring TrimWhitespace(std::wstring_view text) {
  while (!text.empty() && IsSpaceWindows(text.back())) text.remove_suffix(1);
  while (!text.empty() && IsSpaceWindows(text.front())) text.remove_prefix(1);
  return std::wstring(text);
}

}  // namespace tw
