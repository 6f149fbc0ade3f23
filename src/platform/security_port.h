// Security port: the token and object-security calls of the privilege and ownership steps, with
// Windows error codes on every platform. Descriptors travel in the codec's absolute form
// (security/codec/security_descriptor.h); the core makes self-relative copies where it keeps
// them. Paths are Windows-form, as for the file-system port; every object is a file or folder
// (SE_FILE_OBJECT). Implementations are called from the main thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/win32_error.h"
#include "platform/file_system.h"
#include "security/codec/acl.h"
#include "security/codec/security_descriptor.h"
#include "security/codec/sid.h"

namespace tw {

// An open access token; kInvalidTokenHandle is no token. On Windows it is the HANDLE itself.
using TokenHandle = std::uintptr_t;
constexpr TokenHandle kInvalidTokenHandle = 0;

// The result of a call that returns BOOL and leaves an error in GetLastError(). The two are
// reported separately because a call can succeed and still set an error: AdjustTokenPrivileges
// reports a privilege the account does not hold as TRUE with ERROR_NOT_ALL_ASSIGNED, and the
// caller judges only `succeeded`.
struct BoolCallResult {
  bool succeeded = false;
  err::Win32Error lastError = err::kSuccess;
};

// How a written DACL treats inheritance from the parent: PROTECTED_DACL_SECURITY_INFORMATION
// (0x80000000) or UNPROTECTED_DACL_SECURITY_INFORMATION (0x20000000).
enum class DaclProtection : std::uint8_t { kProtected, kUnprotected };

// What SetNamedSecurityInfoW is asked to write: OWNER_SECURITY_INFORMATION when `owner` is set,
// DACL_SECURITY_INFORMATION plus the protection flag when `writeDacl` is set. A written DACL
// without a list is the NULL DACL.
struct SecurityWrite {
  std::optional<security::Sid> owner;
  bool writeDacl = false;
  std::optional<security::Acl> dacl;
  DaclProtection protection = DaclProtection::kUnprotected;
};

class SecurityPort {
 public:
  SecurityPort() = default;
  SecurityPort(const SecurityPort&) = delete;
  SecurityPort& operator=(const SecurityPort&) = delete;
  SecurityPort(SecurityPort&&) = delete;
  SecurityPort& operator=(SecurityPort&&) = delete;
  virtual ~SecurityPort() = default;

  // OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token). On failure `token`
  // is kInvalidTokenHandle.
  virtual BoolCallResult OpenPrivilegeToken(TokenHandle& token) = 0;
  // Enables one privilege ("SeBackupPrivilege", ...) on `token` with a single-entry
  // TOKEN_PRIVILEGES record (SE_PRIVILEGE_ENABLED): LookupPrivilegeValueW(NULL, name), then
  // AdjustTokenPrivileges(token, FALSE, &record, 0, NULL, NULL). The result is that of the
  // lookup when it fails, else that of the adjustment.
  virtual BoolCallResult EnablePrivilege(TokenHandle token, std::wstring_view name) = 0;
  // CloseHandle(token).
  virtual void CloseToken(TokenHandle token) = 0;

  // The SID of the user whose token the calling thread runs with (TokenUser of the thread's own
  // token, opened with TOKEN_QUERY while impersonating itself); nothing when any step fails.
  virtual std::optional<security::Sid> CurrentUserSid() = 0;

  // GetNamedSecurityInfoW(path, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION |
  // DACL_SECURITY_INFORMATION): `sd` receives owner, DACL and control word (no group or SACL).
  // Returns the call's result (kSuccess, or the Win32 error such as kFileNotFound,
  // kPathNotFound or kAccessDenied).
  virtual err::Win32Error ReadNamedSecurity(std::wstring_view path,
                                            security::SecurityDescriptor& sd) = 0;
  // GetSecurityInfo(handle, SE_FILE_OBJECT, OWNER | DACL) on a handle of the file-system port
  // (opened with backup semantics), with the same result rules.
  virtual err::Win32Error ReadHandleSecurity(FileHandle handle,
                                             security::SecurityDescriptor& sd) = 0;
  // SetNamedSecurityInfoW(path, SE_FILE_OBJECT, what `write` asks for, owner, NULL, dacl, NULL).
  // Asking for nothing succeeds without touching the object.
  virtual err::Win32Error WriteNamedSecurity(std::wstring_view path,
                                             const SecurityWrite& write) = 0;
};

}  // namespace tw
