// The security port's fake keeps the port's contract, so the core's tests of the privilege and
// ownership steps can rely on it.
#include "fakes/fake_security_port.h"

#include <gtest/gtest.h>

#include "descriptor/well_known_sids.h"

namespace tw::testing {
namespace {

using security::Ace;
using security::Acl;
using security::SecurityDescriptor;
using ::tw::testing::SecurityOp;

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
  write.writeOwner = true;
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

TEST(FakeSecurityPort, SwitchesFailEachOperationPerPath) {
  FakeSecurityPort port;
  port.SetObject(L"a", OwnedBySystem());
  port.SetObject(L"b", OwnedBySystem());
  SecurityDescriptor read;
  EXPECT_EQ(port.ReadOpenedObjectSecurity(5, L"a", read), err::kSuccess);
  EXPECT_EQ(port.ReadOpenedObjectSecurity(kInvalidFileHandle, L"a", read), err::kInvalidHandle);
  port.FailOn(SecurityOp::kReadOpened, L"a", err::kAccessDenied);
  EXPECT_EQ(port.ReadOpenedObjectSecurity(5, L"a", read), err::kAccessDenied);
  EXPECT_EQ(port.ReadNamedSecurity(L"a", read), err::kSuccess);
  EXPECT_EQ(port.ReadOpenedObjectSecurity(5, L"b", read), err::kSuccess);
  port.FailOn(SecurityOp::kReadNamed, L"a", err::kAccessDenied);
  EXPECT_EQ(port.ReadNamedSecurity(L"a", read), err::kAccessDenied);
  EXPECT_EQ(port.Calls(SecurityOp::kReadOpened), 4);
  EXPECT_EQ(port.Calls(SecurityOp::kReadNamed), 2);

  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = security::EveryoneSid();
  SecurityWrite dacl;
  dacl.writeDacl = true;
  port.FailOn(SecurityOp::kWriteOwner, L"a", err::kPrivilegeNotHeld);
  EXPECT_EQ(port.WriteNamedSecurity(L"a", owner), err::kPrivilegeNotHeld);
  EXPECT_EQ(port.WriteNamedSecurity(L"a", dacl), err::kSuccess);
  port.FailOn(SecurityOp::kWriteDacl, L"b", err::kAccessDenied);
  EXPECT_EQ(port.WriteNamedSecurity(L"b", dacl), err::kAccessDenied);
  EXPECT_EQ(port.WriteNamedSecurity(L"b", owner), err::kSuccess);
  EXPECT_EQ(port.writes().size(), 4u);
  // Nothing asked: nothing fails, nothing is touched.
  EXPECT_EQ(port.WriteNamedSecurity(L"a", SecurityWrite{}), err::kSuccess);
  port.FailOnAll(L"c", err::kPathNotFound);
  EXPECT_EQ(port.ReadNamedSecurity(L"c", read), err::kPathNotFound);
  EXPECT_EQ(port.CreateFolderWithSecurity(L"c", nullptr), err::kPathNotFound);
  EXPECT_FALSE(port.CurrentUserSid().has_value());
  port.userSid = security::UnixUserSid(1000);
  EXPECT_EQ(port.CurrentUserSid(), security::UnixUserSid(1000));
  EXPECT_EQ(port.userSidCalls(), 2);
}

TEST(FakeSecurityPort, KeepProtectionAndNullOwner) {
  FakeSecurityPort port;
  SecurityDescriptor sd = OwnedBySystem();
  sd.control |= security::kSeDaclProtected;
  port.SetObject(L"a", sd);
  SecurityWrite keep;
  keep.writeDacl = true;
  keep.dacl = Acl();
  ASSERT_EQ(port.WriteNamedSecurity(L"a", keep), err::kSuccess);
  EXPECT_NE(port.Object(L"a")->control & security::kSeDaclProtected, 0);
  SecurityWrite nullOwner;
  nullOwner.writeOwner = true;
  EXPECT_EQ(port.WriteNamedSecurity(L"a", nullOwner), err::kInvalidOwner);
  EXPECT_EQ(port.Object(L"a")->owner, security::LocalSystemSid());
}

TEST(FakeSecurityPort, CreatesObjectsWithTheirDescriptor) {
  FakeSecurityPort port;
  port.userSid = security::UnixUserSid(7);
  SecurityDescriptor sd = OwnedBySystem();
  sd.group = security::BuiltinUsersSid();
  ASSERT_EQ(port.CreateFolderWithSecurity(L"f", &sd), err::kSuccess);
  EXPECT_EQ(*port.Object(L"f"), OwnerAndDaclOf(sd));
  EXPECT_EQ(port.CreateFolderWithSecurity(L"f", &sd), err::kAlreadyExists);
  EXPECT_EQ(port.CreateFolderPathWithSecurity(L"f", nullptr), err::kAlreadyExists);
  ASSERT_EQ(port.CreateFileWithSecurity(L"x", true, nullptr), err::kSuccess);
  EXPECT_EQ(port.Object(L"x")->owner, security::UnixUserSid(7));
  EXPECT_EQ(port.CreateFileWithSecurity(L"x", true, nullptr), err::kFileExists);
  EXPECT_EQ(port.CreateFileWithSecurity(L"x", false, nullptr), err::kSuccess);
  EXPECT_EQ(port.created(), (std::vector<std::wstring>{L"f", L"x"}));
  EXPECT_EQ(port.Calls(SecurityOp::kCreate), 6);
}

}  // namespace
}  // namespace tw::testing
