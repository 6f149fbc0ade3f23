#include "base/file_name_pattern.h"

#include "base/wide_string.h"

namespace tw {
namespace {

// The DOS wildcards of the Windows name matcher, as private characters.
constexpr wchar_t kDosStar = L'<';
constexpr wchar_t kDosQm = L'>';
constexpr wchar_t kDosDot = L'"';

std::wstring ToDosExpression(std::wstring_view pattern) {
  std::wstring expression(pattern);
  for (std::size_t i = 0; i < expression.size(); ++i) {
    const wchar_t next = i + 1 < pattern.size() ? pattern[i + 1] : L'\0';
    if (pattern[i] == L'?') {
      expression[i] = kDosQm;
    } else if (pattern[i] == L'*' && next == L'.') {
      expression[i] = kDosStar;
    } else if (pattern[i] == L'.' && (next == L'*' || next == L'?' || next == L'\0')) {
      expression[i] = kDosDot;
    }
  }
  return expression;
}

// Backtracking match of expression[e..] against name[n..]; names are short.
bool MatchFrom(std::wstring_view expression, std::size_t e, std::wstring_view name, std::size_t n,
               std::size_t lastDot) {
  while (e < expression.size()) {
    const wchar_t c = expression[e];
    if (c == L'*') {
      for (std::size_t k = n; k <= name.size(); ++k) {
        if (MatchFrom(expression, e + 1, name, k, lastDot)) return true;
      }
      return false;
    }
    if (c == kDosStar) {
      // Any characters, but never the last dot of the name.
      const std::size_t limit =
          (lastDot != std::wstring_view::npos && lastDot >= n) ? lastDot : name.size();
      for (std::size_t k = n; k <= limit; ++k) {
        if (MatchFrom(expression, e + 1, name, k, lastDot)) return true;
      }
      return false;
    }
    if (c == kDosQm) {
      if (n < name.size() && name[n] != L'.') ++n;  // else it matches nothing here
      ++e;
      continue;
    }
    if (c == kDosDot) {
      if (n < name.size()) {
        if (name[n] != L'.') return false;
        ++n;
      }
      ++e;
      continue;
    }
    if (n >= name.size() || ToUpperWindows(c) != ToUpperWindows(name[n])) return false;
    ++e;
    ++n;
  }
  return n == name.size();
}

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

}  // namespace

bool HasWildcards(std::wstring_view text) {
  return text.find_first_of(L"*?") != std::wstring_view::npos;
}

bool MatchesSearchPattern(std::wstring_view pattern, std::wstring_view name) {
  if (!HasWildcards(pattern)) return EqualsNoCase(pattern, name);
  const std::wstring expression = ToDosExpression(pattern);
  return MatchFrom(expression, 0, name, 0, name.rfind(L'.'));
}

SearchPatternParts SplitSearchPattern(std::wstring_view pattern) {
  std::size_t slash = std::wstring_view::npos;
  for (std::size_t i = pattern.size(); i > 0; --i) {
    if (IsSeparator(pattern[i - 1])) {
      slash = i - 1;
      break;
    }
  }
  SearchPatternParts parts;
  if (slash == std::wstring_view::npos) {
    if (pattern.size() >= 2 && pattern[1] == L':') {
      parts.folder.assign(pattern.substr(0, 2));
      parts.name.assign(pattern.substr(2));
    } else {
      parts.name.assign(pattern);
    }
    return parts;
  }
  parts.name.assign(pattern.substr(slash + 1));
  // Keep the separator of a root: "\", "C:\".
  const bool driveRoot = slash == 2 && pattern[1] == L':';
  const bool currentDriveRoot = slash == 0;
  parts.folder.assign(pattern.substr(0, (driveRoot || currentDriveRoot) ? slash + 1 : slash));
  return parts;
}

}  // namespace tw
