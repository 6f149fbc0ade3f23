#include "base/shell_path.h"

namespace tw {

bool PathCombineW(std::wstring& dest, std::wstring_view dir, std::wstring_view file) {
  dest.assign(dir);
  if (!file.empty()) {
    dest += L'\\';
    dest += file;
  }
  return !dest.empty();
}

bool PathAppendW(std::wstring& path, std::wstring_view more) {
  path += L'\\';
  path += more;
  return true;
}

bool PathAddBackslashW(std::wstring& path) {
  if (!path.empty() && path.back() != L'\\') path += L'\\';
  return true;
}

bool PathRemoveFileSpecW(std::wstring& path) {
  const std::size_t pos = path.rfind(L'\\');
  if (pos == std::wstring::npos) return false;
  path.resize(pos);
  return true;
}

void PathStripPathW(std::wstring& path) {
  const std::size_t pos = path.rfind(L'\\');
  if (pos != std::wstring::npos) path.erase(0, pos + 1);
}

void PathRemoveExtensionW(std::wstring& path) { path.resize(PathFindExtensionW(path)); }

std::size_t PathFindExtensionW(std::wstring_view path) {
  const std::size_t pos = path.rfind(L'.');
  return pos == std::wstring_view::npos ? path.size() : pos;
}

bool PathIsUNCW(std::wstring_view path) { return path.size() >= 2 && path[0] == L'\\' && path[1] == L'\\'; }

bool PathStripToRootW(std::wstring& path) { return !path.empty(); }

}  // namespace tw
