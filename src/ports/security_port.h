// Security port: the token and object-security calls of the privilege and ownership steps, with
// Windows error codes on every platform. Descriptors travel in the codec's absolute form
// (descriptor/security_descriptor.h); the core makes self-relative copies where it keeps
// them. Paths are Windows-form, as for the file-system port; every object is a file or folder
// (SE_FILE_OBJECT). Implementations are called from the main thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/win32_error.h"
#include "descriptor/acl.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"
#include "ports/file_system.h"

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

// How a written DACL treats inheritance from the parent:
// - kKeep: neither flag; the object keeps the protection it has (SetNamedSecurityInfoW with
//   DACL_SECURITY_INFORMATION alone);
// - kProtected: PROTECTED_DACL_SECURITY_INFORMATION (0x80000000): the DACL is exactly the list
//   given and the parent's inheritable entries no longer reach the object;
// - kUnprotected: UNPROTECTED_DACL_SECURITY_INFORMATION (0x20000000): the explicit entries of
//   the list given, followed by the entries the object inherits from its parent (entries of the
//   list marked INHERITED_ACE are replaced by those).
enum class DaclProtection : std::uint8_t { kKeep, kProtected, kUnprotected };

// What SetNamedSecurityInfoW is asked to write: OWNER_SECURITY_INFORMATION when `writeOwner` is
// set (with a null owner pointer when `owner` is empty, which fails with
// ERROR_INVALID_OWNER), DACL_SECURITY_INFORMATION plus the protection flag when `writeDacl` is
// set. A written DACL without a list is the NULL DACL.
struct SecurityWrite {
  bool writeOwner = false;
  std::optional<security::Sid> owner;
  bool writeDacl = false;
  std::optional<security::Acl> dacl;
  DaclProtection protection = DaclProtection::kKeep;

  bool RequestsNothing() const { return !writeOwner && !writeDacl; }
};

// The owner and DACL part of `sd`, as a read asking for OWNER_SECURITY_INFORMATION |
// DACL_SECURITY_INFORMATION returns it: no group or SACL, and of the control word only the bits
// that describe owner and DACL (SE_OWNER_DEFAULTED, SE_DACL_PRESENT, SE_DACL_DEFAULTED,
// SE_DACL_AUTO_INHERIT_REQ, SE_DACL_AUTO_INHERITED, SE_DACL_PROTECTED).
inline constexpr std::uint16_t kOwnerAndDaclControlBits =
    security::kSeOwnerDefaulted | security::kSeDaclPresent | security::kSeDaclDefaulted | 0x0100 |
    security::kSeDaclAutoInherited | security::kSeDaclProtected;

inline security::SecurityDescriptor OwnerAndDaclOf(const security::SecurityDescriptor& sd) {
  security::SecurityDescriptor part;
  part.control = static_cast<std::uint16_t>(sd.control & kOwnerAndDaclControlBits);
  part.owner = sd.owner;
  part.dacl = sd.dacl;
  return part;
}

// The same from a descriptor that is not needed afterwards: its owner and DACL are moved.
inline security::SecurityDescriptor OwnerAndDaclOf(security::SecurityDescriptor&& sd) {
  security::SecurityDescriptor part;
  part.control = static_cast<std::uint16_t>(sd.control & kOwnerAndDaclControlBits);
  part.owner = std::move(sd.owner);
  part.dacl = std::move(sd.dacl);
  return part;
}

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
  // DACL_SECURITY_INFORMATION): `sd` receives owner, DACL and the control bits that belong to
  // them (no group or SACL). Returns the call's result (kSuccess, or the Win32 error such as
  // kFileNotFound, kPathNotFound or kAccessDenied).
  [[nodiscard]] virtual err::Win32Error ReadNamedSecurity(std::wstring_view path,
                                                          security::SecurityDescriptor& sd) = 0;
  // GetSecurityInfo(handle, SE_FILE_OBJECT, OWNER | DACL) on a handle of the file-system port
  // (opened with backup semantics), with the same result rules. `path` is the name the handle
  // was opened with: the POSIX adapter reads the object by that name, because the file-system
  // port's handles are private ids of its own adapter (the core opens, reads and closes in one
  // step on one thread, so the name still names the opened object); the Win32 adapter reads
  // through the handle and ignores the name.
  [[nodiscard]] virtual err::Win32Error ReadOpenedObjectSecurity(
      FileHandle handle, std::wstring_view path, security::SecurityDescriptor& sd) = 0;
  // SetNamedSecurityInfoW(path, SE_FILE_OBJECT, what `write` asks for, owner, NULL, dacl, NULL).
  // Asking for nothing succeeds without touching the object.
  [[nodiscard]] virtual err::Win32Error WriteNamedSecurity(std::wstring_view path,
                                                           const SecurityWrite& write) = 0;
  // SetSecurityInfo(handle, SE_FILE_OBJECT, what `write` asks for, owner, NULL, dacl, NULL) on a
  // handle of the file-system port opened with WRITE_OWNER and WRITE_DAC as the write needs them
  // (and backup semantics), with the same request and result rules as WriteNamedSecurity: the
  // security lands on the object the handle holds open, whatever its name names by now. `path`
  // is the name the handle was opened with: the Win32 adapter ignores it; the POSIX adapter
  // writes through the name only while it still names the object the handle holds (same device
  // and inode), and fails with kInvalidHandle for a handle that is not open and with
  // kAccessDenied when the name has come to stand for another object.
  [[nodiscard]] virtual err::Win32Error WriteOpenedObjectSecurity(FileHandle handle,
                                                                  std::wstring_view path,
                                                                  const SecurityWrite& write) = 0;

  // CreateDirectoryW(path, &attributes) with SECURITY_ATTRIBUTES {24, a self-relative copy of
  // `sd` (none when null), FALSE}. The new folder gets the descriptor's owner and DACL; without
  // a descriptor it gets what the system gives a new folder. An existing file or folder gives
  // kAlreadyExists, a missing folder on the way kPathNotFound.
  [[nodiscard]] virtual err::Win32Error CreateFolderWithSecurity(
      std::wstring_view path, const security::SecurityDescriptor* sd) = 0;
  // SHCreateDirectoryExW(NULL, path, &attributes): creates every missing folder of the
  // fully qualified `path`, each with `sd` as CreateFolderWithSecurity does. Returns kSuccess,
  // kAlreadyExists when the folder exists, kFileExists when a file has its name, kBadPathname
  // for a relative path, kFilenameExcedRange for a path of 248 characters or more,
  // kPathNotFound when a file stands on the way or the root does not exist, or the failing
  // creation's error.
  [[nodiscard]] virtual err::Win32Error CreateFolderPathWithSecurity(
      std::wstring_view path, const security::SecurityDescriptor* sd) = 0;
  // CreateFileW(path, GENERIC_WRITE, 0, &attributes, CREATE_NEW or CREATE_ALWAYS,
  // FILE_ATTRIBUTE_NORMAL, NULL) and CloseHandle: an empty file with `sd`'s owner and DACL (a
  // file that CREATE_ALWAYS empties keeps its own security, as on Windows). An existing file
  // with `failIfExists` gives kFileExists.
  [[nodiscard]] virtual err::Win32Error CreateFileWithSecurity(
      std::wstring_view path, bool failIfExists, const security::SecurityDescriptor* sd) = 0;
};

// The process's real security port (the Win32 calls, or the POSIX adapter). It lives until the
// process exits.
SecurityPort& ProcessSecurityPort();

}  // namespace tw
