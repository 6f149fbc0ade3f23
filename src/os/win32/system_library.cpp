#include "os/win32/system_library.h"

#include <string>
#include <vector>

namespace tw::win32 {
namespace {

// Whether LoadLibraryExW knows the LOAD_LIBRARY_SEARCH_* flags: Windows 8 and later, and
// Windows 7 with the update that also brings AddDllDirectory. Without them the call fails with
// ERROR_INVALID_PARAMETER, so the flags are only used where that function exists.
bool HasSearchFlags() {
  static const bool has = [] {
    const HMODULE kernel32 = ::GetModuleHandleW(L"kernel32.dll");
    return kernel32 != nullptr && ::GetProcAddress(kernel32, "AddDllDirectory") != nullptr;
  }();
  return has;
}

// The folder of the running program, without a trailing backslash; empty when unknown.
std::wstring ApplicationFolder() {
  std::vector<wchar_t> buffer(MAX_PATH + 1);
  for (;;) {
    const DWORD length =
        ::GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return std::wstring();
    if (length < buffer.size()) {
      std::wstring path(buffer.data(), length);
      const std::wstring::size_type slash = path.find_last_of(L"\\/");
      return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash);
    }
    buffer.resize(buffer.size() * 2);
  }
}

// The system folder (System32), without a trailing backslash; empty when unknown.
std::wstring SystemFolder() {
  const UINT needed = ::GetSystemDirectoryW(nullptr, 0);
  if (needed == 0) return std::wstring();
  std::vector<wchar_t> buffer(needed);
  const UINT length = ::GetSystemDirectoryW(buffer.data(), needed);
  if (length == 0 || length >= needed) return std::wstring();
  std::wstring folder(buffer.data(), length);
  while (!folder.empty() && folder.back() == L'\\') folder.pop_back();
  return folder;
}

// The library by its full path in `folder`; a name that is not a plain file name is refused.
HMODULE LoadFromFolder(const std::wstring& folder, std::wstring_view name) {
  if (folder.empty() || name.empty() || name.find_first_of(L"\\/:") != std::wstring_view::npos) {
    return nullptr;
  }
  const std::wstring path = folder + L'\\' + std::wstring(name);
  return ::LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

HMODULE LoadWithSearchFlag(std::wstring_view name, DWORD flag) {
  if (name.empty() || name.find_first_of(L"\\/:") != std::wstring_view::npos) return nullptr;
  const std::wstring text(name);
  return ::LoadLibraryExW(text.c_str(), nullptr, flag);
}

}  // namespace

HMODULE LoadSystemLibrary(std::wstring_view name) {
  if (HasSearchFlags()) return LoadWithSearchFlag(name, LOAD_LIBRARY_SEARCH_SYSTEM32);
  return LoadFromFolder(SystemFolder(), name);
}

HMODULE LoadApplicationLibrary(std::wstring_view name) {
  if (HasSearchFlags()) return LoadWithSearchFlag(name, LOAD_LIBRARY_SEARCH_APPLICATION_DIR);
  return LoadFromFolder(ApplicationFolder(), name);
}

}  // namespace tw::win32
