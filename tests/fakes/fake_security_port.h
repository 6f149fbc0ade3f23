// An in-memory security port: privileges that can be missing or fail, a settable current user,
// and owner/DACL descriptors per path, with switches that make any call fail with a chosen Win32
// error. Every call is recorded so that tests can check what the core asked for.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/security_port.h"

namespace tw::testing {

class FakeSecurityPort : public SecurityPort {
 public:
  static constexpr TokenHandle kToken = 0x7A;

  // --- switches ---
  // OpenPrivilegeToken fails with this error.
  std::optional<err::Win32Error> openTokenError;
  // EnablePrivilege of this name fails (FALSE) with the error.
  std::map<std::wstring, err::Win32Error, std::less<>> enableErrors;
  // Privileges the account does not hold: TRUE with ERROR_NOT_ALL_ASSIGNED.
  std::set<std::wstring, std::less<>> notHeld;
  // The SID CurrentUserSid returns (nothing: the lookup fails).
  std::optional<security::Sid> userSid;
  // ReadNamedSecurity / ReadHandleSecurity / WriteNamedSecurity of this path fail with the error.
  std::map<std::wstring, err::Win32Error, std::less<>> readErrors;
  std::map<std::wstring, err::Win32Error, std::less<>> writeErrors;

  // --- objects ---
  // Gives `path` an owner and DACL; a path without one does not exist (kFileNotFound).
  void SetObject(std::wstring path, security::SecurityDescriptor sd) {
    objects_[std::move(path)] = std::move(sd);
  }
  const security::SecurityDescriptor* Object(std::wstring_view path) const;
  // Lets ReadHandleSecurity find `path` through `handle`.
  void SetHandlePath(FileHandle handle, std::wstring path) { handles_[handle] = std::move(path); }

  // --- records ---
  const std::vector<std::wstring>& privilegeCalls() const { return privilegeCalls_; }
  int openTokenCalls() const { return openTokenCalls_; }
  int closeTokenCalls() const { return closeTokenCalls_; }
  int userSidCalls() const { return userSidCalls_; }
  const std::vector<std::pair<std::wstring, SecurityWrite>>& writes() const { return writes_; }

  // --- the port ---
  BoolCallResult OpenPrivilegeToken(TokenHandle& token) override;
  BoolCallResult EnablePrivilege(TokenHandle token, std::wstring_view name) override;
  void CloseToken(TokenHandle token) override;
  std::optional<security::Sid> CurrentUserSid() override;
  err::Win32Error ReadNamedSecurity(std::wstring_view path,
                                    security::SecurityDescriptor& sd) override;
  err::Win32Error ReadHandleSecurity(FileHandle handle, security::SecurityDescriptor& sd) override;
  err::Win32Error WriteNamedSecurity(std::wstring_view path, const SecurityWrite& write) override;

 private:
  std::map<std::wstring, security::SecurityDescriptor, std::less<>> objects_;
  std::map<FileHandle, std::wstring> handles_;
  std::vector<std::wstring> privilegeCalls_;
  std::vector<std::pair<std::wstring, SecurityWrite>> writes_;
  int openTokenCalls_ = 0;
  int closeTokenCalls_ = 0;
  int userSidCalls_ = 0;
};

}  // namespace tw::testing
