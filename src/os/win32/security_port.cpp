// The security port over the Win32 calls it is named after. Descriptors cross the boundary as
// self-relative blocks: what the system returns is parsed by the codec and released with
// LocalFree at once; what is handed to the system is built by the codec (MakeSelfRelative,
// Sid::ToBytes, Acl::ToBytes) into buffers that live for the call.
//
// The running user's SID is read with plain calls in the order of the platform's token helper
// (ImpersonateSelf, OpenThreadToken as self, RevertToSelf, GetTokenInformation TokenUser); the
// main thread never impersonates, so no earlier impersonation is put back after the revert. The
// TokenUser buffer always comes from the heap.
#include "ports/security_port.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "os/native_ports.h"
#include "os/win32/windows_headers.h"
// The SDK's security and shell headers, after the setup header.
#include <aclapi.h>
#include <shlobj.h>

namespace tw {
namespace {

[[nodiscard]] err::Win32Error LastError() { return static_cast<err::Win32Error>(::GetLastError()); }

struct LocalFreeDeleter {
  void operator()(void* memory) const {
    if (memory != nullptr) ::LocalFree(memory);
  }
};
using UniqueLocalMemory = std::unique_ptr<void, LocalFreeDeleter>;

struct HandleCloser {
  void operator()(void* handle) const {
    if (handle != nullptr && handle != INVALID_HANDLE_VALUE) ::CloseHandle(handle);
  }
};
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

// The owner and DACL of a self-relative descriptor the system returned; frees it at once.
[[nodiscard]] err::Win32Error TakeSystemDescriptor(PSECURITY_DESCRIPTOR returned,
                                                   security::SecurityDescriptor& sd) {
  const UniqueLocalMemory owned(returned);
  if (returned == nullptr) return err::kInvalidSecurityDescr;
  const DWORD length = ::GetSecurityDescriptorLength(returned);
  const std::span<const std::uint8_t> bytes(static_cast<const std::uint8_t*>(returned), length);
  security::SecurityDescriptor parsed;
  const err::Win32Error error = security::ParseSelfRelative(bytes, &parsed);
  if (error != err::kSuccess) return error;
  sd = OwnerAndDaclOf(parsed);
  return err::kSuccess;
}

// SECURITY_ATTRIBUTES {24, a self-relative copy of the owner and DACL of sd, FALSE}; the block
// lives in `block`.
SECURITY_ATTRIBUTES MakeAttributes(const security::SecurityDescriptor* sd,
                                   std::vector<std::uint8_t>& block) {
  SECURITY_ATTRIBUTES attributes{};
  attributes.nLength = sizeof attributes;
  attributes.bInheritHandle = FALSE;
  if (sd != nullptr) {
    block = security::MakeSelfRelative(OwnerAndDaclOf(*sd));
    attributes.lpSecurityDescriptor = block.data();
  }
  return attributes;
}

// What SetNamedSecurityInfoW and SetSecurityInfo are handed for a SecurityWrite: the
// SECURITY_INFORMATION bits and the owner and DACL, built into buffers that live as long as this.
struct SystemSecurityWrite {
  explicit SystemSecurityWrite(const SecurityWrite& write) {
    if (write.writeOwner) {
      information |= OWNER_SECURITY_INFORMATION;
      if (write.owner) {
        ownerBytes = write.owner->ToBytes();
        owner = ownerBytes.data();
      }
    }
    if (write.writeDacl) {
      information |= DACL_SECURITY_INFORMATION;
      if (write.protection == DaclProtection::kProtected) {
        information |= PROTECTED_DACL_SECURITY_INFORMATION;
      } else if (write.protection == DaclProtection::kUnprotected) {
        information |= UNPROTECTED_DACL_SECURITY_INFORMATION;
      }
      if (write.dacl) {
        daclBytes = write.dacl->ToBytes();
        dacl = reinterpret_cast<PACL>(daclBytes.data());
      }
    }
  }
  SystemSecurityWrite(const SystemSecurityWrite&) = delete;
  SystemSecurityWrite& operator=(const SystemSecurityWrite&) = delete;

  SECURITY_INFORMATION information = 0;
  std::vector<std::uint8_t> ownerBytes;
  PSID owner = nullptr;
  std::vector<std::uint8_t> daclBytes;
  PACL dacl = nullptr;
};

class Win32SecurityPort final : public SecurityPort {
 public:
  BoolCallResult OpenPrivilegeToken(TokenHandle& token) override {
    HANDLE opened = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &opened)) {
      token = kInvalidTokenHandle;
      return {false, LastError()};
    }
    token = reinterpret_cast<TokenHandle>(opened);
    return {true, LastError()};
  }

  BoolCallResult EnablePrivilege(TokenHandle token, std::wstring_view name) override {
    const std::wstring text(name);
    LUID luid{};
    if (!::LookupPrivilegeValueW(nullptr, text.c_str(), &luid)) return {false, LastError()};
    TOKEN_PRIVILEGES record{};
    record.PrivilegeCount = 1;
    record.Privileges[0].Luid = luid;
    record.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    const BOOL adjusted = ::AdjustTokenPrivileges(reinterpret_cast<HANDLE>(token), FALSE, &record,
                                                  0, nullptr, nullptr);
    return {adjusted != FALSE, LastError()};
  }

  void CloseToken(TokenHandle token) override { ::CloseHandle(reinterpret_cast<HANDLE>(token)); }

  std::optional<security::Sid> CurrentUserSid() override {
    if (!::ImpersonateSelf(SecurityImpersonation)) return std::nullopt;
    HANDLE opened = nullptr;
    const BOOL haveToken = ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &opened);
    ::RevertToSelf();
    if (!haveToken) return std::nullopt;
    const UniqueHandle token(opened);

    DWORD size = 0;
    if (::GetTokenInformation(opened, TokenUser, nullptr, 0, &size) ||
        ::GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
      return std::nullopt;
    }
    std::vector<std::uint8_t> buffer(size);
    if (!::GetTokenInformation(opened, TokenUser, buffer.data(), size, &size)) {
      return std::nullopt;
    }
    const auto* user = reinterpret_cast<const TOKEN_USER*>(buffer.data());
    if (!::IsValidSid(user->User.Sid)) return std::nullopt;
    const DWORD length = ::GetLengthSid(user->User.Sid);
    security::Sid sid;
    const std::span<const std::uint8_t> bytes(static_cast<const std::uint8_t*>(user->User.Sid),
                                              length);
    if (security::Sid::Parse(bytes, &sid) != err::kSuccess) return std::nullopt;
    return sid;
  }

  [[nodiscard]] err::Win32Error ReadNamedSecurity(std::wstring_view path,
                                                  security::SecurityDescriptor& sd) override {
    const std::wstring text(path);
    PSID owner = nullptr;
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD result = ::GetNamedSecurityInfoW(
        text.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
        &owner, nullptr, &dacl, nullptr, &descriptor);
    if (result != ERROR_SUCCESS) return static_cast<err::Win32Error>(result);
    return TakeSystemDescriptor(descriptor, sd);
  }

  [[nodiscard]] err::Win32Error ReadOpenedObjectSecurity(
      FileHandle handle, std::wstring_view /*path*/, security::SecurityDescriptor& sd) override {
    PSID owner = nullptr;
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD result = ::GetSecurityInfo(reinterpret_cast<HANDLE>(handle), SE_FILE_OBJECT,
                                           OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                                           &owner, nullptr, &dacl, nullptr, &descriptor);
    if (result != ERROR_SUCCESS) return static_cast<err::Win32Error>(result);
    return TakeSystemDescriptor(descriptor, sd);
  }

  [[nodiscard]] err::Win32Error WriteNamedSecurity(std::wstring_view path,
                                                   const SecurityWrite& write) override {
    if (write.RequestsNothing()) return err::kSuccess;
    SystemSecurityWrite request(write);
    std::wstring text(path);
    return static_cast<err::Win32Error>(::SetNamedSecurityInfoW(text.data(), SE_FILE_OBJECT,
                                                                request.information, request.owner,
                                                                nullptr, request.dacl, nullptr));
  }

  [[nodiscard]] err::Win32Error WriteOpenedObjectSecurity(FileHandle handle,
                                                          std::wstring_view /*path*/,
                                                          const SecurityWrite& write) override {
    if (write.RequestsNothing()) return err::kSuccess;
    SystemSecurityWrite request(write);
    return static_cast<err::Win32Error>(
        ::SetSecurityInfo(reinterpret_cast<HANDLE>(handle), SE_FILE_OBJECT, request.information,
                          request.owner, nullptr, request.dacl, nullptr));
  }

  [[nodiscard]] err::Win32Error CreateFolderWithSecurity(
      std::wstring_view path, const security::SecurityDescriptor* sd) override {
    const std::wstring text(path);
    std::vector<std::uint8_t> block;
    SECURITY_ATTRIBUTES attributes = MakeAttributes(sd, block);
    if (!::CreateDirectoryW(text.c_str(), &attributes)) return LastError();
    return err::kSuccess;
  }

  [[nodiscard]] err::Win32Error CreateFolderPathWithSecurity(
      std::wstring_view path, const security::SecurityDescriptor* sd) override {
    const std::wstring text(path);
    std::vector<std::uint8_t> block;
    const SECURITY_ATTRIBUTES attributes = MakeAttributes(sd, block);
    return static_cast<err::Win32Error>(::SHCreateDirectoryExW(nullptr, text.c_str(), &attributes));
  }

  [[nodiscard]] err::Win32Error CreateFileWithSecurity(
      std::wstring_view path, bool failIfExists, const security::SecurityDescriptor* sd) override {
    const std::wstring text(path);
    std::vector<std::uint8_t> block;
    SECURITY_ATTRIBUTES attributes = MakeAttributes(sd, block);
    const HANDLE created =
        ::CreateFileW(text.c_str(), GENERIC_WRITE, 0, &attributes,
                      failIfExists ? CREATE_NEW : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (created == INVALID_HANDLE_VALUE) return LastError();
    ::CloseHandle(created);
    return err::kSuccess;
  }
};

}  // namespace

SecurityPort& NativeSecurityPort() {
  static Win32SecurityPort port;
  return port;
}

}  // namespace tw
