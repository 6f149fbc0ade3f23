// The security port's fake keeps the port's contract, so the core's tests of the privilege and
// ownership steps can rely on it.
#include "fakes/fake_security_port.h"

#include <gtest/gtest.h>

#include "security/codec/well_known_sids.h"

namespace tw::testing {
namespace {

using security::Ace;
using security::Acl;
using security::SecurityDescriptor;

SecurityDescriptor OwnedBySystem() {
  SecurityDescriptor sd;
  sd.owner = security::LocalSystemSid();
  Acl dacl;
  EXPECT_EQ(Acl::FromAces(security::kAclRevision, {Ace::Allowed(0x1F01FF, security::EveryoneSid())},
                          &dacl),
            err::kSuccess);
  sd.SetDacl(dacl);
  return sd;
}

TEST(FakeSecurityPort, PrivilegeNotHeldSucceedsWithNotAllAssigned) {
  FakeSecurityPort port;
  port.notHeld.insert(L"SeBackupPrivilege");
  port.enableErrors[L"SeRestorePrivilege"] = err::kNoSuchPrivilege;
  TokenHandle token = kInvalidTokenHandle;
  ASSERT_TRUE(port.OpenPrivilegeToken(token).succeeded);
  const BoolCallResult backup = port.EnablePrivilege(token, L"SeBackupPrivilege");
  EXPECT_TRUE(backup.succeeded);
  EXPECT_EQ(backup.lastError, err::kNotAllAssigned);
  const BoolCallResult restore = port.EnablePrivilege(token, L"SeRestorePrivilege");
  EXPECT_FALSE(restore.succeeded);
  EXPECT_EQ(restore.lastError, err::kNoSuchPrivilege);
  EXPECT_EQ(port.privilegeCalls(),
            (std::vector<std::wstring>{L"SeBackupPrivilege", L"SeRestorePrivilege"}));
}

TEST(FakeSecurityPort, OpenTokenCanFail) {
  FakeSecurityPort port;
  port.openTokenError = err::kAccessDenied;
  TokenHandle token = FakeSecurityPort::kToken;
  const BoolCallResult result = port.OpenPrivilegeToken(token);
  EXPECT_FALSE(result.succeeded);
  EXPECT_EQ(result.lastError, err::kAccessDenied);
  EXPECT_EQ(token, kInvalidTokenHandle);
}

TEST(FakeSecurityPort, ReadsAndWritesOwnerAndDacl) {
  FakeSecurityPort port;
  port.SetObject(L"\\\\srv\\share\\user", OwnedBySystem());
  SecurityDescriptor read;
  ASSERT_EQ(port.ReadNamedSecurity(L"\\\\srv\\share\\user", read), err::kSuccess);
  EXPECT_EQ(read, OwnedBySystem());
  EXPECT_EQ(port.ReadNamedSecurity(L"\\\\srv\\share\\missing", read), err::kFileNotFound);

  SecurityWrite write;
  write.owner = security::BuiltinAdministratorsSid();
  write.writeDacl = true;  // no list: the NULL DACL
  write.protection = DaclProtection::kProtected;
  ASSERT_EQ(port.WriteNamedSecurity(L"\\\\srv\\share\\user", write), err::kSuccess);
  const SecurityDescriptor* now = port.Object(L"\\\\srv\\share\\user");
  ASSERT_NE(now, nullptr);
  EXPECT_EQ(now->owner, security::BuiltinAdministratorsSid());
  EXPECT_TRUE(now->IsNullDacl());
  EXPECT_NE(now->control & security::kSeDaclProtected, 0);
  ASSERT_EQ(port.writes().size(), 1u);
  EXPECT_EQ(port.WriteNamedSecurity(L"\\\\srv\\share\\missing", SecurityWrite{}), err::kSuccess);
  EXPECT_EQ(port.WriteNamedSecurity(L"\\\\srv\\share\\missing", write), err::kFileNotFound);
}

TEST(FakeSecurityPort, SwitchesFailReadsWritesAndHandles) {
  FakeSecurityPort port;
  port.SetObject(L"a", OwnedBySystem());
  port.SetHandlePath(5, L"a");
  SecurityDescriptor read;
  EXPECT_EQ(port.ReadHandleSecurity(5, read), err::kSuccess);
  EXPECT_EQ(port.ReadHandleSecurity(6, read), err::kInvalidHandle);
  port.readErrors[L"a"] = err::kAccessDenied;
  EXPECT_EQ(port.ReadHandleSecurity(5, read), err::kAccessDenied);
  port.writeErrors[L"a"] = err::kPrivilegeNotHeld;
  EXPECT_EQ(port.WriteNamedSecurity(L"a", SecurityWrite{}), err::kPrivilegeNotHeld);
  EXPECT_FALSE(port.CurrentUserSid().has_value());
  port.userSid = security::UnixUserSid(1000);
  EXPECT_EQ(port.CurrentUserSid(), security::UnixUserSid(1000));
  EXPECT_EQ(port.userSidCalls(), 2);
}

}  // namespace
}  // namespace tw::testing
