// The privileges the migration needs on the process token. They are enabled once, for the whole
// process, and never disabled again.
#pragma once

#include <string>

#include "base/hresult.h"
#include "ports/security_port.h"

namespace tw {

struct PrivilegeResult;
class PrivilegeToken;
PrivilegeResult EnableMigrationPrivileges(SecurityPort& port, bool takeOwnership,
                                          PrivilegeToken& token);

// The process token opened to enable the privileges. The run keeps it until its end and closes
// it then (Close); it is deliberately not closed when enabling a privilege failed, so the object
// does not close it when it goes.
class PrivilegeToken {
 public:
  PrivilegeToken() = default;
  PrivilegeToken(const PrivilegeToken&) = delete;
  PrivilegeToken& operator=(const PrivilegeToken&) = delete;

  TokenHandle handle() const { return handle_; }
  bool IsOpen() const { return handle_ != kInvalidTokenHandle; }
  // CloseHandle(token) through the port that opened it; nothing when no token is open.
  void Close();

 private:
  friend PrivilegeResult EnableMigrationPrivileges(SecurityPort& port, bool takeOwnership,
                                                   PrivilegeToken& token);
  SecurityPort* port_ = nullptr;
  TokenHandle handle_ = kInvalidTokenHandle;
};

// The outcome of EnableMigrationPrivileges: kOk with no message, or the failure's HRESULT and
// the finished message the caller reports (log and console) before it ends the run.
struct PrivilegeResult {
  HResult code = hr::kOk;
  std::wstring message;
};

// Opens the process token with TOKEN_ADJUST_PRIVILEGES into `token` and enables, in this order,
// "SeBackupPrivilege", "SeRestorePrivilege" and, only when `takeOwnership` is set,
// "SeTakeOwnershipPrivilege", each with its own lookup and adjustment. Each call is judged only
// by its BOOL result: a privilege the account does not hold (TRUE with ERROR_NOT_ALL_ASSIGNED)
// is passed over without a word. The first failing call stops the sequence:
// - the token cannot be opened: "Failed to open the process token to set necessary privileges
//   (0x%08X)";
// - a lookup or an adjustment returns FALSE: "Failed to set necessary token privileges
//   (0x%08X)";
// each with HRESULT_FROM_WIN32 of the call's last error. The result's code is that same HRESULT,
// except for a call that returned FALSE with last error 0: the message then shows 0x00000000 as
// the last error is, and the code is E_FAIL (0x80004005), so that the run still ends with -1.
PrivilegeResult EnableMigrationPrivileges(SecurityPort& port, bool takeOwnership,
                                          PrivilegeToken& token);

}  // namespace tw
