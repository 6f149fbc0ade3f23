#include "profile/folder_location.h"

#include <vector>

#include "base/shell_path.h"

namespace tw {
namespace {

constexpr std::wstring_view kSeparators = L"\\/";

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

// A name such as "...", ". ." or ".. ": Windows trims trailing dots and blanks from names, so
// what such a name stands for is not clear from its text.
bool OnlyDotsAndBlanks(std::wstring_view name) {
  return name.find_first_not_of(L". ") == std::wstring_view::npos;
}

}  // namespace

std::optional<std::wstring> ResolveInsideProfile(std::wstring_view location,
                                                 std::wstring_view profile) {
  while (!profile.empty() && IsSeparator(profile.back())) profile.remove_suffix(1);
  if (profile.empty() || !location.starts_with(profile)) return std::nullopt;
  std::wstring_view rest = location.substr(profile.size());
  if (!rest.empty() && !IsSeparator(rest.front())) return std::nullopt;  // "alice2" for "alice"

  std::vector<std::wstring_view> names;
  for (;;) {
    const std::size_t start = rest.find_first_not_of(kSeparators);
    if (start == std::wstring_view::npos) break;
    rest.remove_prefix(start);
    const std::size_t end = rest.find_first_of(kSeparators);
    const std::wstring_view name = rest.substr(0, end);
    rest = end == std::wstring_view::npos ? std::wstring_view() : rest.substr(end);
    if (name == L".") continue;
    if (name == L"..") {
      if (names.empty()) return std::nullopt;  // above the profile
      names.pop_back();
      continue;
    }
    if (OnlyDotsAndBlanks(name)) return std::nullopt;
    names.push_back(name);
  }

  std::wstring resolved(profile);
  for (const std::wstring_view name : names) {
    resolved += L'\\';
    resolved += name;
  }
  // The form the copy gives the path (it differs only where the profile's own text holds "." or
  // ".." names); a path too long for that form stays as it is, and the copy then fails on it.
  std::wstring canonical;
  if (PathCombineW(canonical, resolved, L"")) return canonical;
  return resolved;
}

}  // namespace tw
