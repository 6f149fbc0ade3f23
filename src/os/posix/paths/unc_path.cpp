#include "os/posix/paths/unc_path.h"

#include "base/text_encoding.h"
#include "os/posix/paths/share_map.h"

namespace tw::posix {

bool MapUncPathToNative(std::wstring_view uncPath, std::string& native, err::Win32Error& error) {
  native.clear();
  std::wstring_view rest = uncPath.substr(2);  // after the two backslashes
  auto isSeparator = [](wchar_t c) { return c == L'\\' || c == L'/'; };
  std::size_t end = 0;
  while (end < rest.size() && !isSeparator(rest[end])) ++end;
  const std::wstring_view server = rest.substr(0, end);
  rest.remove_prefix(end < rest.size() ? end + 1 : end);
  end = 0;
  while (end < rest.size() && !isSeparator(rest[end])) ++end;
  const std::wstring_view share = rest.substr(0, end);
  rest.remove_prefix(end);  // keeps the separator before the rest

  const ShareMap* map = server.empty() ? nullptr : UsableProcessShareMap();
  if (map == nullptr) {
    error = err::kBadNetPath;
    return false;
  }
  const ShareMapEntry* entry = map->Lookup(server, share, error);
  if (entry == nullptr) return false;
  // The folder, then the rest in UTF-8 with "/" for "\".
  const bool atRoot = entry->folder == "/" && !rest.empty();
  native.reserve(entry->folder.size() + rest.size() + 1);
  native.assign(atRoot ? std::string_view() : std::string_view(entry->folder));
  const std::size_t start = native.size();
  AppendWideAsUtf8(native, rest);
  for (std::size_t i = start; i < native.size(); ++i) {
    if (native[i] == '\\') native[i] = '/';
  }
  return true;
}

}  // namespace tw::posix
