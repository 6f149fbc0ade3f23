#include "os/posix/paths/native_path.h"

#include <sys/stat.h>

#include <cerrno>

#include "base/text_encoding.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/case_memo.h"
#include "os/posix/paths/folder_names.h"
#include "os/posix/paths/unc_path.h"

namespace tw::posix {
namespace {

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool IsDriveLetter(wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); }

// The rest of a Z: path ("\tmp\x", "tmp\x", "") as a Linux path.
std::string DriveZToNative(std::wstring_view rest) {
  if (rest.empty()) return "/";  // "Z:" stands for the root
  std::wstring converted;
  converted.reserve(rest.size());
  for (const wchar_t c : rest) converted.push_back(IsSeparator(c) ? L'/' : c);
  return WideToUtf8(converted);
}

std::string Join(const std::string& folder, std::string_view name) {
  std::string joined = folder;
  if (!joined.empty() && joined.back() != '/') joined.push_back('/');
  joined.append(name);
  return joined;
}

}  // namespace

int LstatKnown(const std::string& native, const NativeStatus& status, struct stat& info) {
  if (!status.known) return posix::LstatBeneath(native, info);
  if (status.error != 0) {
    errno = status.error;
    return -1;
  }
  info = status.info;
  return 0;
}

namespace {

// The fast paths of ResolveNameCase; true when they decide, with the result in `resolved`.
// A path that exists as given (and has no empty component for the walk to drop) resolves to
// itself: every prefix of a path the kernel resolves exists too, so the walk would keep each
// component as it stands. One lstat instead of one per component. The same holds for the folder
// of a missing last name: when the folder exists as given, the walk would keep it and look only
// for the last name, in that folder.
bool ResolveAsGiven(const std::string& native, NativeStatus* status, std::string& resolved) {
  if (native.find("//") != std::string::npos) return false;
  struct stat info {};
  if (posix::LstatBeneath(native, info) == 0) {
    if (status != nullptr) {
      status->known = true;
      status->info = info;
    }
    resolved = native;
    return true;
  }
  const int missing = errno;
  const std::string::size_type slash = native.rfind('/');
  if (slash == std::string::npos || slash + 1 >= native.size()) return false;
  const std::string_view leaf(native.data() + slash + 1, native.size() - slash - 1);
  const std::string folder = slash == 0 ? std::string("/") : native.substr(0, slash);
  struct stat folderInfo {};
  if (leaf == "." || leaf == ".." || posix::LstatBeneath(folder, folderInfo) != 0) return false;
  const std::string other = missing == ENOENT ? FindNameNoCase(folder, folderInfo, leaf) : "";
  if (!other.empty()) {
    resolved = Join(folder, other);
    return true;
  }
  if (status != nullptr) {
    status->known = true;
    status->error = missing;
  }
  resolved = native;
  return true;
}

// The walk of ResolveNameCase: component by component, each name that does not exist as written
// is looked for ignoring case; from the first one found in neither way on, the rest is kept as
// given.
std::string ResolveByWalk(const std::string& native) {
  std::string resolved;
  std::size_t position = 0;
  if (native[0] == '/') {
    resolved = "/";
    position = 1;
  }
  bool resolving = true;
  while (position < native.size()) {
    std::size_t end = native.find('/', position);
    if (end == std::string::npos) end = native.size();
    const std::string_view component(native.data() + position, end - position);
    position = end + 1;
    if (component.empty()) continue;
    std::string candidate = Join(resolved, component);
    if (resolving && component != "." && component != "..") {
      struct stat info {};
      if (posix::LstatBeneath(candidate, info) != 0) {
        const std::string other = errno == ENOENT ? ReadNameNoCase(resolved, component) : "";
        if (other.empty()) {
          resolving = false;  // the rest does not exist: kept as given
        } else {
          candidate = Join(resolved, other);
          RememberCaseResolution(native.substr(0, end), candidate);
        }
      }
    }
    resolved = std::move(candidate);
  }
  if (native.size() > 1 && native.back() == '/' && resolved.back() != '/') resolved.push_back('/');
  return resolved;
}

}  // namespace

std::string ResolveNameCase(const std::string& native, NativeStatus* status) {
  if (status != nullptr) *status = NativeStatus{};
  if (native.empty()) return native;
  std::string resolved;
  if (ResolveAsGiven(native, status, resolved)) return resolved;
  const std::string remembered = ApplyCaseResolution(native);
  if (!remembered.empty() && ResolveAsGiven(remembered, status, resolved)) return resolved;
  return ResolveByWalk(native);
}

namespace {

// ResolveNameCase for a name about to be created (see ToNativePathForCreation): when the folder
// exists as written, the last name is looked up in its listing only. Should that pick another
// entry than the one named exactly (two names differing only in case), the creation fails as
// "exists" either way.
std::string ResolveNameCaseForCreation(const std::string& native) {
  const std::string::size_type slash = native.rfind('/');
  if (native.find("//") == std::string::npos && slash != std::string::npos &&
      slash + 1 < native.size()) {
    const std::string_view leaf(native.data() + slash + 1, native.size() - slash - 1);
    const std::string folder = slash == 0 ? std::string("/") : native.substr(0, slash);
    struct stat folderInfo {};
    if (leaf != "." && leaf != ".." && posix::LstatBeneath(folder, folderInfo) == 0) {
      const std::string other = FindNameNoCase(folder, folderInfo, leaf);
      return other.empty() ? native : Join(folder, other);
    }
  }
  return ResolveNameCase(native);
}

}  // namespace

bool MapNativePathAsWritten(std::wstring_view path, std::string& native, err::Win32Error& error) {
  native.clear();
  error = err::kSuccess;
  if (path.empty()) {
    error = err::kPathNotFound;
    return false;
  }
  if (path.find(L'\0') != std::wstring_view::npos) {
    error = err::kInvalidName;
    return false;
  }

  // The Win32 long-path prefix: "\\?\Z:\x" and "\\?\UNC\server\share\x".
  std::wstring unprefixed;
  if (path.starts_with(L"\\\\?\\")) {
    const std::wstring_view rest = path.substr(4);
    if (rest.size() >= 4 && (rest[0] == L'U' || rest[0] == L'u') &&
        (rest[1] == L'N' || rest[1] == L'n') && (rest[2] == L'C' || rest[2] == L'c') &&
        rest[3] == L'\\') {
      unprefixed = L"\\\\";
      unprefixed.append(rest.substr(4));
    } else {
      unprefixed.assign(rest);
    }
    path = unprefixed;
  }

  if (path.starts_with(L"\\\\")) {
    return MapUncPathToNative(path, native, error);
  }

  if (path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == L':') {
    if (path[0] != L'Z' && path[0] != L'z') {
      error = err::kPathNotFound;  // no such drive
      return false;
    }
    native = DriveZToNative(path.substr(2));
    return true;
  }

  if (path[0] == L'\\') {  // rooted on the current drive, Z:
    native = DriveZToNative(path);
    return true;
  }

  if (path[0] == L'/') {
    native = WideToUtf8(path);  // a POSIX path
    return true;
  }
  // A relative path: Windows separates its names with backslashes ("alice\ntuser.dat", as the
  // bare "*" source builds them), so both separators count, as in a Z: path.
  native = DriveZToNative(path);
  return true;
}

bool ToNativePath(std::wstring_view path, std::string& native, err::Win32Error& error,
                  NativeStatus* status) {
  if (status != nullptr) *status = NativeStatus{};
  if (!MapNativePathAsWritten(path, native, error)) return false;
  native = ResolveNameCase(native, status);
  return true;
}

bool ToNativePathForCreation(std::wstring_view path, std::string& native, err::Win32Error& error) {
  if (!MapNativePathAsWritten(path, native, error)) return false;
  native = ResolveNameCaseForCreation(native);
  return true;
}

std::wstring ToWindowsPath(std::string_view native) {
  std::wstring path = Utf8ToWide(native);
  for (wchar_t& c : path) {
    if (c == L'/') c = L'\\';
  }
  if (!path.empty() && path[0] == L'\\') path.insert(0, L"Z:");
  return path;
}

}  // namespace tw::posix
