// An in-memory security port: privileges that can be missing or fail, a settable current user,
// and owner/DACL descriptors per path, with switches that make any call on any path fail with a
// chosen Win32 error. Every call is counted and every write recorded, so that tests can check
// what the core asked for. Paths are compared exactly (the core hands the same string to every
// call for one object). The fake knows no parents: a write that asks for an unprotected DACL
// clears SE_DACL_PROTECTED and keeps the list as given.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ports/security_port.h"

namespace tw::testing {

// The operations a failure switch can hit.
enum class SecurityOp {
  kReadNamed,   // ReadNamedSecurity
  kReadOpened,  // ReadOpenedObjectSecurity
  kWriteOwner,  // WriteNamedSecurity or WriteOpenedObjectSecurity asking for the owner
  kWriteDacl,   // WriteNamedSecurity or WriteOpenedObjectSecurity asking for the DACL
  kCreate,      // CreateFolderWithSecurity, CreateFolderPathWithSecurity, CreateFileWithSecurity
};

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
  // Makes `op` on `path` fail with `error` (a write asking for owner and DACL fails when either
  // switch is set; the owner's is checked first). For every operation, use FailOnAll.
  void FailOn(SecurityOp op, std::wstring path, err::Win32Error error) {
    failures_[{op, std::move(path)}] = error;
  }
  void FailOnAll(const std::wstring& path, err::Win32Error error);
  void ClearFailures() { failures_.clear(); }

  // --- objects ---
  // Gives `path` an owner and DACL; a path without one does not exist (kFileNotFound).
  void SetObject(std::wstring path, security::SecurityDescriptor sd) {
    objects_[std::move(path)] = std::move(sd);
  }
  const security::SecurityDescriptor* Object(std::wstring_view path) const;
  // What a new object created without a descriptor receives (default: the current user as
  // owner and an empty DACL).
  security::SecurityDescriptor DefaultNewObject() const;

  // --- records ---
  const std::vector<std::wstring>& privilegeCalls() const { return privilegeCalls_; }
  int openTokenCalls() const { return openTokenCalls_; }
  int closeTokenCalls() const { return closeTokenCalls_; }
  TokenHandle closedToken() const { return closedToken_; }
  int userSidCalls() const { return userSidCalls_; }
  int Calls(SecurityOp op) const;
  // WriteNamedSecurity calls in order, failed ones included.
  const std::vector<std::pair<std::wstring, SecurityWrite>>& writes() const { return writes_; }
  // WriteOpenedObjectSecurity calls in order, failed ones included. A write through a handle
  // acts on the object of `path` as a write by name does (kInvalidHandle for no handle).
  struct OpenedWrite {
    FileHandle handle = kInvalidFileHandle;
    std::wstring path;
    SecurityWrite write;
  };
  const std::vector<OpenedWrite>& openedWrites() const { return openedWrites_; }
  // Objects created, in order.
  const std::vector<std::wstring>& created() const { return created_; }

  // --- the port ---
  BoolCallResult OpenPrivilegeToken(TokenHandle& token) override;
  BoolCallResult EnablePrivilege(TokenHandle token, std::wstring_view name) override;
  void CloseToken(TokenHandle token) override;
  std::optional<security::Sid> CurrentUserSid() override;
  err::Win32Error ReadNamedSecurity(std::wstring_view path,
                                    security::SecurityDescriptor& sd) override;
  err::Win32Error ReadOpenedObjectSecurity(FileHandle handle, std::wstring_view path,
                                           security::SecurityDescriptor& sd) override;
  err::Win32Error WriteNamedSecurity(std::wstring_view path, const SecurityWrite& write) override;
  err::Win32Error WriteOpenedObjectSecurity(FileHandle handle, std::wstring_view path,
                                            const SecurityWrite& write) override;
  err::Win32Error CreateFolderWithSecurity(std::wstring_view path,
                                           const security::SecurityDescriptor* sd) override;
  err::Win32Error CreateFolderPathWithSecurity(std::wstring_view path,
                                               const security::SecurityDescriptor* sd) override;
  err::Win32Error CreateFileWithSecurity(std::wstring_view path, bool failIfExists,
                                         const security::SecurityDescriptor* sd) override;

 private:
  // Counts the call and returns the error a switch sets for it, or kSuccess.
  err::Win32Error Enter(SecurityOp op, std::wstring_view path);
  err::Win32Error Failure(SecurityOp op, std::wstring_view path) const;
  security::SecurityDescriptor NewObject(const security::SecurityDescriptor* sd) const;
  err::Win32Error Read(std::wstring_view path, security::SecurityDescriptor& sd) const;
  // A write of either form, after it was recorded.
  err::Win32Error Write(std::wstring_view path, const SecurityWrite& write);

  std::map<std::wstring, security::SecurityDescriptor, std::less<>> objects_;
  std::map<std::pair<SecurityOp, std::wstring>, err::Win32Error> failures_;
  std::mutex callsMutex_;
  std::map<SecurityOp, int> calls_;
  std::vector<std::wstring> privilegeCalls_;
  std::vector<std::pair<std::wstring, SecurityWrite>> writes_;
  std::vector<OpenedWrite> openedWrites_;
  std::vector<std::wstring> created_;
  int openTokenCalls_ = 0;
  int closeTokenCalls_ = 0;
  TokenHandle closedToken_ = kInvalidTokenHandle;
  int userSidCalls_ = 0;
};

}  // namespace tw::testing
