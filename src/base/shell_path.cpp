#include "base/shell_path.h"

#include <vector>

// Where the Windows documentation is silent, these decisions hold (each is tested):
// - Only the backslash separates elements; "/" is an ordinary character in every function.
// - Canonicalisation (PathCombineW, PathAppendW) removes "." elements with their backslash and
//   lets ".." remove the element before it. The root ("X:\", "X:", "\\server\share",
//   "\\?\UNC\server\share", "\") is never removed. A ".." that has nothing left to remove is
//   dropped; in a relative path it leaves its backslash, so "..\a" becomes "\a" (the documented
//   "..\path1\path2" + "path3" = "\path1\path2\path3"). A trailing "." or ".." leaves no trailing
//   backslash except on a root; any other trailing backslash is kept. Elements such as "..." and
//   names ending in dots are ordinary names. A bare drive "X:" becomes "X:\". Empty elements
//   ("a\\b") are kept as they are.
// - PathCombineW: an empty part counts as an absent one. A file part that starts with "\\" or has
//   a drive ("C:x", "C:\x") replaces dir; one that starts with a single "\" keeps only the root of
//   dir (none when dir has no root). The joined text before canonicalisation and the result must
//   both fit MAX_PATH.
// - PathAppendW: leading backslashes of a non-UNC more are skipped (so "\x" is appended below
//   path), then the two are combined as PathCombineW does: a UNC or drive more replaces path.
// - PathRemoveFileSpecW and PathStripToRootW see "\\server" and "\\server\share" as roots only
//   in the classic shell sense: PathRemoveFileSpecW of "\\srv\share" gives "\\srv".
// - PathIsUNCW: "\\" followed by anything, except a "\\?\" prefix not followed by "UNC\".

namespace tw {

namespace {

constexpr wchar_t kSep = L'\\';

bool HasDrive(std::wstring_view path) { return path.size() >= 2 && path[1] == L':'; }

bool Fits(std::size_t length) { return length < kMaxPath; }

// Length of the root prefix that ".." never removes.
std::size_t RootLength(std::wstring_view path) {
  if (HasDrive(path)) return (path.size() >= 3 && path[2] == kSep) ? 3 : 2;
  if (path.starts_with(L"\\\\")) {
    // "\\server\share" or "\\?\UNC\server\share": the root ends before the backslash that follows
    // the share name.
    std::size_t start = 2;
    if (path.starts_with(L"\\\\?\\UNC\\")) start = 8;
    const std::size_t server = path.find(kSep, start);
    if (server == std::wstring_view::npos) return path.size();
    const std::size_t share = path.find(kSep, server + 1);
    return share == std::wstring_view::npos ? path.size() : share;
  }
  if (!path.empty() && path[0] == kSep) return 1;
  return 0;
}

// True when path holds a "." or ".." element.
bool HasDotElement(std::wstring_view path) {
  for (std::size_t dot = path.find(L'.'); dot != std::wstring_view::npos;
       dot = path.find(L'.', dot + 1)) {
    if (dot > 0 && path[dot - 1] != kSep) continue;
    std::size_t end = dot + 1;
    if (end < path.size() && path[end] == L'.') ++end;
    if (end == path.size() || path[end] == kSep) return true;
  }
  return false;
}

// The canonical form of path: "." and ".." elements resolved.
std::wstring Canonicalize(std::wstring_view path) {
  if (path.empty()) return std::wstring(1, kSep);
  const std::size_t rootLength = RootLength(path);
  // Without dot elements a path stays as it is, but for a bare drive ("X:" becomes "X:\") and a
  // UNC root followed by a lone backslash (which goes).
  if (!HasDotElement(path) && !(path.size() == 2 && HasDrive(path)) &&
      !(path.starts_with(L"\\\\") && path.size() == rootLength + 1)) {
    return std::wstring(path);
  }
  std::wstring root(path.substr(0, rootLength));
  std::wstring_view rest = path.substr(rootLength);
  // A UNC root is followed by the backslash that starts its first element.
  const bool uncRoot = path.starts_with(L"\\\\");
  if (uncRoot && !rest.empty() && rest[0] == kSep) rest.remove_prefix(1);
  if (rest.empty() && root.size() == 2 && HasDrive(root)) root += kSep;  // bare drive "X:"

  std::vector<std::wstring_view> elements;
  bool rootedByDotDot = false;
  bool trailingSeparator = false;
  while (!rest.empty()) {
    const std::size_t end = rest.find(kSep);
    const std::wstring_view element = rest.substr(0, end);
    const bool last = end == std::wstring_view::npos;
    rest = last ? std::wstring_view() : rest.substr(end + 1);
    trailingSeparator = !last && rest.empty();
    if (element == L".") continue;
    if (element == L"..") {
      if (!elements.empty()) {
        elements.pop_back();
      } else if (root.empty()) {
        rootedByDotDot = true;
      }
      continue;
    }
    elements.push_back(element);
  }
  if (rootedByDotDot) root.assign(1, kSep);

  std::wstring result = root;
  for (std::size_t i = 0; i < elements.size(); ++i) {
    // Only a UNC root ends without the backslash that leads to its first element.
    if (i > 0 || (uncRoot && !result.empty() && result.back() != kSep)) result += kSep;
    result += elements[i];
  }
  if (trailingSeparator && !elements.empty()) result += kSep;
  // Everything resolved away in a relative path: Windows gives the backslash.
  if (result.empty()) result.assign(1, kSep);
  return result;
}

// Classic PathIsRoot: "\", "X:\", "\\server", "\\server\share" (no further backslash).
bool IsRoot(std::wstring_view path) {
  if (path == L"\\") return true;
  if (path.size() == 3 && HasDrive(path) && path[2] == kSep) return true;
  if (path.starts_with(L"\\\\")) {
    const std::wstring_view rest = path.substr(2);
    const std::size_t first = rest.find(kSep);
    return first == std::wstring_view::npos ||
           rest.find(kSep, first + 1) == std::wstring_view::npos;
  }
  return false;
}

}  // namespace

bool PathCombineW(std::wstring& dest, std::wstring_view dir, std::wstring_view file) {
  // dir or file may be a view of dest: dest changes only at the end.
  if ((dir.empty() && file.empty()) || !Fits(dir.size()) || !Fits(file.size())) {
    dest.clear();
    return false;
  }

  std::wstring joined;
  if (file.empty()) {
    joined.assign(dir);
  } else if (file.starts_with(L"\\\\") || HasDrive(file)) {
    joined.assign(file);
  } else if (file[0] == kSep) {
    joined.assign(dir.substr(0, RootLength(dir)));
    if (!joined.empty() && joined.back() == kSep) joined.pop_back();
    joined += file;
  } else {
    joined.assign(dir);
    if (!joined.empty() && joined.back() != kSep) joined += kSep;
    joined += file;
  }
  std::wstring result;
  if (Fits(joined.size())) result = Canonicalize(joined);
  if (result.empty() || !Fits(result.size())) {
    dest.clear();
    return false;
  }
  dest = std::move(result);
  return true;
}

bool PathAppendW(std::wstring& path, std::wstring_view more) {
  if (!PathIsUNCW(more)) {
    while (!more.empty() && more[0] == kSep) more.remove_prefix(1);
  }
  std::wstring combined;
  if (!PathCombineW(combined, path, more)) return false;
  path = std::move(combined);
  return true;
}

bool PathAddBackslashW(std::wstring& path) {
  if (path.empty()) return true;
  if (!Fits(path.size() + 1)) return false;
  if (path.back() != kSep) path += kSep;
  return true;
}

bool PathRemoveFileSpecW(std::wstring& path) {
  // The position where the path is cut: after a leading "\" or "\\", after "X:" or "X:\", or at
  // the last backslash after those.
  std::size_t pos = 0;
  std::size_t cut = 0;
  if (pos < path.size() && path[pos] == kSep) cut = ++pos;
  if (pos < path.size() && path[pos] == kSep) cut = ++pos;
  while (pos < path.size()) {
    if (path[pos] == kSep) {
      cut = pos;
    } else if (path[pos] == L':') {
      cut = ++pos;
      if (pos < path.size() && path[pos] == kSep) cut = pos + 1;
    }
    ++pos;
  }
  if (cut >= path.size()) return false;
  path.resize(cut);
  return true;
}

void PathStripPathW(std::wstring& path) {
  // The file name starts after the last "\" or ":" that is followed by something other than a
  // backslash.
  std::size_t start = 0;
  for (std::size_t i = 0; i + 1 < path.size(); ++i) {
    if ((path[i] == kSep || path[i] == L':') && path[i + 1] != kSep) start = i + 1;
  }
  path.erase(0, start);
}

void PathRemoveExtensionW(std::wstring& path) { path.resize(PathFindExtensionW(path)); }

std::size_t PathFindExtensionW(std::wstring_view path) {
  std::size_t dot = path.size();
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] == kSep || path[i] == L' ') {
      dot = path.size();
    } else if (path[i] == L'.') {
      dot = i;
    }
  }
  return dot;
}

bool PathIsUNCW(std::wstring_view path) {
  if (!path.starts_with(L"\\\\")) return false;
  if (path.starts_with(L"\\\\?\\")) return path.substr(4).starts_with(L"UNC\\");
  return true;
}

bool PathStripToRootW(std::wstring& path) {
  while (!IsRoot(path)) {
    if (!PathRemoveFileSpecW(path)) return false;
  }
  return true;
}

}  // namespace tw
