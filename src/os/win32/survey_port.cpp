// The survey port on Windows: a file's first bytes through CreateFileW (a reparse point opened as
// itself and refused), account names by LookupAccountSidW, and temporary profiles from the
// ProfileList key (a registered folder whose name begins with the temporary user's name).
#include "ports/survey_port.h"

#include <cwctype>
#include <string>

#include "os/native_ports.h"
#include "os/win32/windows_headers.h"

namespace tw {
namespace {

// The user name the migration gives CreateProfile for its temporary profile.
constexpr wchar_t kTemporaryUserName[] = L"_tarnwick_";
constexpr wchar_t kProfileListKey[] =
    L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\";

bool StartsWithNoCase(std::wstring_view text, std::wstring_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i)
    if (std::towupper(text[i]) != std::towupper(prefix[i])) return false;
  return true;
}

class Win32SurveyPort final : public SurveyPort {
 public:
  [[nodiscard]] err::Win32Error ReadFileHead(std::wstring_view path, std::size_t count,
                                             std::vector<std::uint8_t>& bytes) override {
    bytes.clear();
    const std::wstring name(path);
    HANDLE file = ::CreateFileW(name.c_str(), GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) return err::Win32Error{::GetLastError()};
    BY_HANDLE_FILE_INFORMATION info{};
    if (!::GetFileInformationByHandle(file, &info) ||
        (info.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) != 0) {
      ::CloseHandle(file);
      return err::kFileNotFound;
    }
    bytes.resize(count);
    std::size_t done = 0;
    while (done < count) {
      DWORD got = 0;
      const DWORD want = static_cast<DWORD>(count - done);
      if (!::ReadFile(file, bytes.data() + done, want, &got, nullptr) || got == 0) break;
      done += got;
    }
    ::CloseHandle(file);
    bytes.resize(done);
    return err::kSuccess;
  }

  std::wstring AccountNameOf(const security::Sid& sid) override {
    std::vector<std::uint8_t> binary = sid.ToBytes();
    wchar_t name[256] = {};
    wchar_t domain[256] = {};
    DWORD nameChars = 256;
    DWORD domainChars = 256;
    SID_NAME_USE use = SidTypeUnknown;
    if (!::LookupAccountSidW(nullptr, binary.data(), name, &nameChars, domain, &domainChars, &use))
      return {};
    return domainChars == 0 ? std::wstring(name) : std::wstring(domain) + L"\\" + name;
  }

  std::wstring TemporaryProfileOf(const security::Sid& sid) override {
    const std::wstring key = std::wstring(kProfileListKey) + sid.ToString();
    wchar_t folder[MAX_PATH] = {};
    DWORD size = sizeof(folder);
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"ProfileImagePath", RRF_RT_REG_SZ, nullptr,
                       folder, &size) != ERROR_SUCCESS)
      return {};
    const std::wstring path(folder);
    const std::size_t slash = path.find_last_of(L'\\');
    const std::wstring_view leaf = slash == std::wstring::npos
                                       ? std::wstring_view(path)
                                       : std::wstring_view(path).substr(slash + 1);
    if (!StartsWithNoCase(leaf, kTemporaryUserName)) return {};
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
      return {};
    return path;
  }
};

}  // namespace

SurveyPort& NativeSurveyPort() {
  static Win32SurveyPort port;
  return port;
}

}  // namespace tw
