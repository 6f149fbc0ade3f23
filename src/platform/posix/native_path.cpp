#include "platform/posix/native_path.h"

#include "base/text_encoding.h"
#include "platform/posix/unc_path.h"

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

}  // namespace

bool ToNativePath(std::wstring_view path, std::string& native, err::Win32Error& error) {
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

  if (path.starts_with(L"\\\\")) return MapUncPathToNative(path, native, error);

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

  native = WideToUtf8(path);  // a POSIX path, as it stands
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
