#include "base/wide_string.h"

namespace tw {

wchar_t ToUpperCrt(wchar_t c) { return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 32) : c; }
wchar_t ToLowerCrt(wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + 32) : c; }
wchar_t ToUpperWindows(wchar_t c) { return ToUpperCrt(c); }
wchar_t ToLowerWindows(wchar_t c) { return ToLowerCrt(c); }

int CompareNoCase(std::wstring_view a, std::wstring_view b) {
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    const wchar_t x = ToUpperWindows(a[i]);
    const wchar_t y = ToUpperWindows(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

bool EqualsNoCase(std::wstring_view a, std::wstring_view b) { return CompareNoCase(a, b) == 0; }

bool EndsWithNoCase(std::wstring_view text, std::wstring_view suffix) {
  return text.size() >= suffix.size() && EqualsNoCase(text.substr(text.size() - suffix.size()), suffix);
}

bool StartsWithNoCase(std::wstring_view text, std::wstring_view prefix) {
  return text.size() >= prefix.size() && EqualsNoCase(text.substr(0, prefix.size()), prefix);
}

bool StartsWith(std::wstring_view text, std::wstring_view prefix) { return text.starts_with(prefix); }
bool EndsWith(std::wstring_view text, std::wstring_view suffix) { return text.ends_with(suffix); }

void UpperCaseCrt(std::wstring& text) {
  for (wchar_t& c : text) c = ToUpperCrt(c);
}

void LowerCaseCrt(std::wstring& text) {
  for (wchar_t& c : text) c = ToLowerCrt(c);
}

int CompareNoCaseCrt(std::wstring_view a, std::wstring_view b) {
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    const wchar_t x = ToLowerCrt(a[i]);
    const wchar_t y = ToLowerCrt(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

std::wstring TrimWhitespace(std::wstring_view text) {
  auto isSpace = [](wchar_t c) { return c == L' ' || (c >= L'\t' && c <= L'\r'); };
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  return std::wstring(text);
}

}  // namespace tw
