#include "platform/posix/unc_path.h"

#include "base/text_encoding.h"
#include "platform/posix/share_map.h"

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

  std::wstring problem;
  if (server.empty() || !LoadProcessShareMap(problem)) {
    error = err::kBadNetPath;
    return false;
  }
  std::string folder;
  if (!ProcessShareMap().Find(server, share, folder, error)) return false;
  std::wstring tail(rest);
  for (wchar_t& c : tail) {
    if (c == L'\\') c = L'/';
  }
  native = folder;
  if (!tail.empty()) {
    if (native == "/") native.clear();
    native += WideToUtf8(tail);
  }
  return true;
}

}  // namespace tw::posix
