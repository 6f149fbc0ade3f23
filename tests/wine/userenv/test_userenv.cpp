// A test-only userenv.dll: CreateProfile and DeleteProfileW for running tarnwick.exe under Wine,
// with the results Windows gives. Never shipped.
//
// Profiles are folders under the profile root, copied from a default profile template and
// registered by SID in small files. Decisions where Windows documents nothing:
// - The profile root is %TARNWICK_PROFILE_ROOT%, else "C:\users", made when missing. The template
//   is %TARNWICK_DEFAULT_PROFILE%, else the folder "default-profile" beside this DLL.
// - A registration is the file "<root>\[ProfileList]\<SID>" (the SID as ConvertSidToStringSidW
//   writes it) holding the profile folder's path and "\n" (ASCII; the test paths are ASCII), the
//   same layout the Linux build's built-in functions use.
// - CreateProfile checks, in this order: sid, userName and profilePath not null, else E_INVALIDARG;
//   a valid user name, else E_INVALIDARG; a valid SID, else HRESULT of ERROR_INVALID_SID; an SID
//   that already has a profile gives HRESULT of ERROR_ALREADY_EXISTS (0x800700B7); a template
//   that is not a folder HRESULT of ERROR_PATH_NOT_FOUND. The folder name is the user name, then
//   "<name>.<COMPUTER>", then ".000" to ".999" after that, as Windows picks it; a buffer too
//   small for the path gives HRESULT of ERROR_INSUFFICIENT_BUFFER before anything is made. A copy
//   that fails removes the new folder again.
// - DeleteProfileW: sid null gives ERROR_INVALID_PARAMETER, an invalid SID ERROR_INVALID_SID, a
//   computer other than this one ERROR_BAD_NETPATH, an SID without a profile ERROR_FILE_NOT_FOUND,
//   a profilePath naming another folder ERROR_INVALID_PARAMETER. The folder tree is removed (a
//   missing one is fine), then the registration.
#include <cstdint>
#include <string>

#include "os/win32/windows_headers.h"
// After the SDK's base headers, which it needs.
#include <sddl.h>

namespace tw::wine_test {
namespace {

constexpr HRESULT kOk = 0;
constexpr HRESULT kInvalidArg = static_cast<HRESULT>(0x80070057u);

HRESULT FromWin32(DWORD error) {
  if (error == ERROR_SUCCESS) return kOk;
  return static_cast<HRESULT>(0x80070000u | (error & 0xFFFFu));
}

std::wstring Environment(const wchar_t* name) {
  wchar_t buffer[MAX_PATH * 2];
  const DWORD length = ::GetEnvironmentVariableW(name, buffer, MAX_PATH * 2);
  if (length == 0 || length >= MAX_PATH * 2) return std::wstring();
  return std::wstring(buffer, length);
}

HMODULE ThisModule() {
  HMODULE module = nullptr;
  ::GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCWSTR>(&ThisModule), &module);
  return module;
}

std::wstring ProfileRoot() {
  std::wstring root = Environment(L"TARNWICK_PROFILE_ROOT");
  if (root.empty()) root = L"C:\\users";
  while (root.size() > 3 && root.back() == L'\\') root.pop_back();
  return root;
}

std::wstring TemplateFolder() {
  std::wstring folder = Environment(L"TARNWICK_DEFAULT_PROFILE");
  if (!folder.empty()) return folder;
  wchar_t path[MAX_PATH];
  const DWORD length = ::GetModuleFileNameW(ThisModule(), path, MAX_PATH);
  folder.assign(path, length);
  folder.resize(folder.find_last_of(L'\\') + 1);
  return folder + L"default-profile";
}

std::wstring ComputerName() {
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
  DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
  if (!::GetComputerNameW(name, &size)) return L"COMPUTER";
  return std::wstring(name, size);
}

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool Exists(const std::wstring& path) {
  return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool IsValidUserName(const std::wstring& name) {
  if (name.empty()) return false;
  bool onlyDotsAndBlanks = true;
  for (const wchar_t c : name) {
    if (c < 0x20 || std::wstring(L"\"/\\[]:;|=,+*?<>").find(c) != std::wstring::npos) return false;
    if (c != L'.' && c != L' ') onlyDotsAndBlanks = false;
  }
  return !onlyDotsAndBlanks;
}

// The SID's canonical text, or false when it is not a SID string.
bool CanonicalSid(const wchar_t* text, std::wstring& canonical) {
  PSID sid = nullptr;
  if (!::ConvertStringSidToSidW(text, &sid)) return false;
  wchar_t* converted = nullptr;
  const bool ok = ::ConvertSidToStringSidW(sid, &converted) != FALSE;
  if (ok) {
    canonical = converted;
    ::LocalFree(converted);
  }
  ::LocalFree(sid);
  return ok;
}

std::wstring RegistrationFolder(const std::wstring& root) { return root + L"\\[ProfileList]"; }

// The registered folder of sid, or ERROR_FILE_NOT_FOUND.
DWORD FindRegistration(const std::wstring& root, const std::wstring& sid, std::wstring& folder) {
  const HANDLE file =
      ::CreateFileW((RegistrationFolder(root) + L"\\" + sid).c_str(), GENERIC_READ, FILE_SHARE_READ,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return ERROR_FILE_NOT_FOUND;
  char buffer[4096];
  DWORD read = 0;
  const BOOL ok = ::ReadFile(file, buffer, sizeof(buffer), &read, nullptr);
  ::CloseHandle(file);
  if (!ok) return ::GetLastError();
  std::string text(buffer, read);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  folder.assign(text.begin(), text.end());
  return ERROR_SUCCESS;
}

DWORD WriteRegistration(const std::wstring& root, const std::wstring& sid,
                        const std::wstring& folder) {
  const std::wstring registrations = RegistrationFolder(root);
  if (!::CreateDirectoryW(registrations.c_str(), nullptr) &&
      ::GetLastError() != ERROR_ALREADY_EXISTS)
    return ::GetLastError();
  const HANDLE file = ::CreateFileW((registrations + L"\\" + sid).c_str(), GENERIC_WRITE, 0,
                                    nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return ::GetLastError();
  std::string text;
  for (const wchar_t c : folder) text.push_back(static_cast<char>(c));
  text.push_back('\n');
  DWORD written = 0;
  const BOOL ok =
      ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  const DWORD error = ok ? ERROR_SUCCESS : ::GetLastError();
  ::CloseHandle(file);
  return error;
}

DWORD CopyTree(const std::wstring& from, const std::wstring& to) {
  WIN32_FIND_DATAW item;
  const HANDLE search = ::FindFirstFileW((from + L"\\*").c_str(), &item);
  if (search == INVALID_HANDLE_VALUE) return ::GetLastError();
  DWORD error = ERROR_SUCCESS;
  do {
    const std::wstring name = item.cFileName;
    if (name == L"." || name == L"..") continue;
    const std::wstring source = from + L"\\" + name;
    const std::wstring target = to + L"\\" + name;
    if (item.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      if (!::CreateDirectoryW(target.c_str(), nullptr)) error = ::GetLastError();
      if (error == ERROR_SUCCESS) error = CopyTree(source, target);
    } else if (!::CopyFileW(source.c_str(), target.c_str(), TRUE)) {
      error = ::GetLastError();
    }
  } while (error == ERROR_SUCCESS && ::FindNextFileW(search, &item));
  ::FindClose(search);
  return error;
}

DWORD DeleteTree(const std::wstring& folder) {
  WIN32_FIND_DATAW item;
  const HANDLE search = ::FindFirstFileW((folder + L"\\*").c_str(), &item);
  if (search == INVALID_HANDLE_VALUE) return ::GetLastError();
  DWORD error = ERROR_SUCCESS;
  do {
    const std::wstring name = item.cFileName;
    if (name == L"." || name == L"..") continue;
    const std::wstring path = folder + L"\\" + name;
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (item.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      error = DeleteTree(path);
    } else if (!::DeleteFileW(path.c_str())) {
      error = ::GetLastError();
    }
  } while (error == ERROR_SUCCESS && ::FindNextFileW(search, &item));
  ::FindClose(search);
  if (error == ERROR_SUCCESS && !::RemoveDirectoryW(folder.c_str())) error = ::GetLastError();
  return error;
}

std::wstring FolderCandidate(const std::wstring& user, const std::wstring& computer, int attempt) {
  if (attempt == 0) return user;
  if (attempt == 1) return user + L"." + computer;
  if (attempt > 1001) return std::wstring();
  const int number = attempt - 2;
  std::wstring suffix = L".000";
  suffix[1] = static_cast<wchar_t>(L'0' + number / 100);
  suffix[2] = static_cast<wchar_t>(L'0' + number / 10 % 10);
  suffix[3] = static_cast<wchar_t>(L'0' + number % 10);
  return user + L"." + computer + suffix;
}

bool IsThisComputer(const wchar_t* computer) {
  if (computer == nullptr) return true;
  std::wstring name(computer);
  if (name.rfind(L"\\\\", 0) == 0) name.erase(0, 2);
  return name.empty() || ::lstrcmpiW(name.c_str(), ComputerName().c_str()) == 0;
}

}  // namespace

extern "C" __declspec(dllexport) HRESULT WINAPI
    CreateProfile(LPCWSTR sid, LPCWSTR userName, LPWSTR profilePath, DWORD cchProfilePath) {
  if (sid == nullptr || userName == nullptr || profilePath == nullptr) return kInvalidArg;
  if (!IsValidUserName(userName)) return kInvalidArg;
  std::wstring sidText;
  if (!CanonicalSid(sid, sidText)) return FromWin32(ERROR_INVALID_SID);

  const std::wstring root = ProfileRoot();
  if (!IsFolder(root) && !::CreateDirectoryW(root.c_str(), nullptr))
    return FromWin32(::GetLastError());
  std::wstring registered;
  if (FindRegistration(root, sidText, registered) == ERROR_SUCCESS)
    return FromWin32(ERROR_ALREADY_EXISTS);
  const std::wstring templateFolder = TemplateFolder();
  if (!IsFolder(templateFolder)) return FromWin32(ERROR_PATH_NOT_FOUND);

  const std::wstring computer = ComputerName();
  std::wstring folder;
  for (int attempt = 0;; ++attempt) {
    const std::wstring name = FolderCandidate(userName, computer, attempt);
    if (name.empty()) return FromWin32(ERROR_FILE_EXISTS);
    folder = root + L"\\" + name;
    if (Exists(folder)) continue;
    if (folder.size() + 1 > cchProfilePath) return FromWin32(ERROR_INSUFFICIENT_BUFFER);
    if (::CreateDirectoryW(folder.c_str(), nullptr)) break;
    if (::GetLastError() != ERROR_ALREADY_EXISTS) return FromWin32(::GetLastError());
  }
  DWORD error = CopyTree(templateFolder, folder);
  if (error == ERROR_NO_MORE_FILES) error = ERROR_SUCCESS;
  if (error == ERROR_SUCCESS) error = WriteRegistration(root, sidText, folder);
  if (error != ERROR_SUCCESS) {
    DeleteTree(folder);
    return FromWin32(error);
  }
  folder.copy(profilePath, folder.size());
  profilePath[folder.size()] = L'\0';
  return kOk;
}

extern "C" __declspec(dllexport) BOOL WINAPI
    DeleteProfileW(LPCWSTR sid, LPCWSTR profilePath, LPCWSTR computerName) {
  DWORD error = ERROR_SUCCESS;
  std::wstring sidText;
  std::wstring folder;
  const std::wstring root = ProfileRoot();
  if (sid == nullptr) {
    error = ERROR_INVALID_PARAMETER;
  } else if (!CanonicalSid(sid, sidText)) {
    error = ERROR_INVALID_SID;
  } else if (!IsThisComputer(computerName)) {
    error = ERROR_BAD_NETPATH;
  } else {
    error = FindRegistration(root, sidText, folder);
  }
  if (error == ERROR_SUCCESS && profilePath != nullptr && *profilePath != L'\0' &&
      ::lstrcmpiW(profilePath, folder.c_str()) != 0)
    error = ERROR_INVALID_PARAMETER;
  if (error == ERROR_SUCCESS && Exists(folder)) error = DeleteTree(folder);
  if (error == ERROR_SUCCESS &&
      !::DeleteFileW((RegistrationFolder(root) + L"\\" + sidText).c_str()))
    error = ::GetLastError();
  if (error == ERROR_SUCCESS) return TRUE;
  ::SetLastError(error);
  return FALSE;
}

}  // namespace tw::wine_test
