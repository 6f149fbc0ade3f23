#include "security/migration_privileges.h"

#include <string_view>

#include "base/format.h"

namespace tw {
namespace {

// The result of a call that returned FALSE: its last error as an HRESULT, and E_FAIL when that
// error is 0 (the call failed all the same).
[[nodiscard]] HResult FailureCode(HResult lastErrorCode) {
  return Failed(lastErrorCode) ? lastErrorCode : hr::kFail;
}

}  // namespace

void PrivilegeToken::Close() {
  if (port_ == nullptr || handle_ == kInvalidTokenHandle) return;
  port_->CloseToken(handle_);
  handle_ = kInvalidTokenHandle;
}

PrivilegeResult EnableMigrationPrivileges(SecurityPort& port, bool takeOwnership,
                                          PrivilegeToken& token) {
  TokenHandle handle = kInvalidTokenHandle;
  const BoolCallResult opened = port.OpenPrivilegeToken(handle);
  if (!opened.succeeded) {
    const HResult code = HResultFromWin32(opened.lastError);
    return {FailureCode(code),
            Format(L"Failed to open the process token to set necessary privileges (0x%08X)", code)};
  }
  token.port_ = &port;
  token.handle_ = handle;

  constexpr std::wstring_view kBackup = L"SeBackupPrivilege";
  constexpr std::wstring_view kRestore = L"SeRestorePrivilege";
  constexpr std::wstring_view kTakeOwnership = L"SeTakeOwnershipPrivilege";
  const std::wstring_view privileges[] = {kBackup, kRestore, kTakeOwnership};
  const std::size_t count = takeOwnership ? 3 : 2;
  for (std::size_t i = 0; i < count; ++i) {
    const BoolCallResult enabled = port.EnablePrivilege(handle, privileges[i]);
    if (!enabled.succeeded) {
      const HResult code = HResultFromWin32(enabled.lastError);
      return {FailureCode(code),
              Format(L"Failed to set necessary token privileges (0x%08X)", code)};
    }
  }
  return {};
}

}  // namespace tw
