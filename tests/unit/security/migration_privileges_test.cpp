// Enabling the migration's privileges on the process token, and loading the running user's SID.
#include "security/migration_privileges.h"

#include <gtest/gtest.h>

#include "descriptor/well_known_sids.h"
#include "fakes/fake_security_port.h"
#include "fakes/log_capture.h"
#include "security/current_user_sid.h"

namespace tw {
namespace {

using testing::FakeSecurityPort;
using testing::LogCapture;

const std::vector<std::wstring> kBackupAndRestore = {L"SeBackupPrivilege", L"SeRestorePrivilege"};

TEST(EnableMigrationPrivileges, WithoutTakeOwnershipRequestsOnlyBackupAndRestore) {
  FakeSecurityPort port;
  PrivilegeToken token;
  const PrivilegeResult result = EnableMigrationPrivileges(port, false, token);
  EXPECT_EQ(result.code, hr::kOk);
  EXPECT_TRUE(result.message.empty());
  EXPECT_EQ(port.privilegeCalls(), kBackupAndRestore);
  EXPECT_EQ(port.openTokenCalls(), 1);
  EXPECT_TRUE(token.IsOpen());
  EXPECT_EQ(token.handle(), FakeSecurityPort::kToken);
}

TEST(EnableMigrationPrivileges, WithTakeOwnershipRequestsItLast) {
  FakeSecurityPort port;
  PrivilegeToken token;
  EXPECT_EQ(EnableMigrationPrivileges(port, true, token).code, hr::kOk);
  EXPECT_EQ(port.privilegeCalls(),
            (std::vector<std::wstring>{L"SeBackupPrivilege", L"SeRestorePrivilege",
                                       L"SeTakeOwnershipPrivilege"}));
}

TEST(EnableMigrationPrivileges, StandardUserPassesWithoutMessage) {
  FakeSecurityPort port;
  port.notHeld = {L"SeBackupPrivilege", L"SeRestorePrivilege", L"SeTakeOwnershipPrivilege"};
  LogCapture log;
  PrivilegeToken token;
  const PrivilegeResult result = EnableMigrationPrivileges(port, true, token);
  EXPECT_EQ(result.code, hr::kOk);
  EXPECT_TRUE(result.message.empty());
  EXPECT_TRUE(log.messages().empty());
  EXPECT_EQ(port.privilegeCalls().size(), 3u);
}

TEST(EnableMigrationPrivileges, TokenThatCannotBeOpened) {
  FakeSecurityPort port;
  port.openTokenError = err::kAccessDenied;
  LogCapture log;
  PrivilegeToken token;
  const PrivilegeResult result = EnableMigrationPrivileges(port, true, token);
  EXPECT_EQ(result.code, hr::kAccessDenied);
  EXPECT_EQ(result.message,
            L"Failed to open the process token to set necessary privileges (0x80070005)");
  EXPECT_TRUE(port.privilegeCalls().empty());
  EXPECT_FALSE(token.IsOpen());
  EXPECT_TRUE(log.messages().empty());  // the caller reports it
}

TEST(EnableMigrationPrivileges, FailingPrivilegeStopsTheSequenceAndKeepsTheToken) {
  FakeSecurityPort port;
  port.enableErrors[L"SeRestorePrivilege"] = err::kNoSuchPrivilege;
  PrivilegeToken token;
  const PrivilegeResult result = EnableMigrationPrivileges(port, true, token);
  EXPECT_EQ(result.code, HResultFromWin32(err::kNoSuchPrivilege));
  EXPECT_EQ(result.message, L"Failed to set necessary token privileges (0x80070521)");
  EXPECT_EQ(port.privilegeCalls(), kBackupAndRestore);  // take-ownership not tried
  EXPECT_TRUE(token.IsOpen());
  EXPECT_EQ(port.closeTokenCalls(), 0);
}

TEST(EnableMigrationPrivileges, FirstPrivilegeFailing) {
  FakeSecurityPort port;
  port.enableErrors[L"SeBackupPrivilege"] = err::kPrivilegeNotHeld;
  PrivilegeToken token;
  const PrivilegeResult result = EnableMigrationPrivileges(port, false, token);
  EXPECT_EQ(result.message, L"Failed to set necessary token privileges (0x80070522)");
  EXPECT_EQ(port.privilegeCalls(), (std::vector<std::wstring>{L"SeBackupPrivilege"}));
}

TEST(EnableMigrationPrivileges, AFalseResultWithLastErrorZeroStillFails) {
  // The message shows the last error as it is; the code is E_FAIL, so the run ends with -1.
  FakeSecurityPort port;
  port.enableErrors[L"SeRestorePrivilege"] = err::kSuccess;
  PrivilegeToken token;
  const PrivilegeResult result = EnableMigrationPrivileges(port, true, token);
  EXPECT_EQ(result.code, hr::kFail);
  EXPECT_EQ(result.message, L"Failed to set necessary token privileges (0x00000000)");
  EXPECT_EQ(port.privilegeCalls(), kBackupAndRestore);

  FakeSecurityPort unopened;
  unopened.openTokenError = err::kSuccess;
  PrivilegeToken none;
  const PrivilegeResult notOpened = EnableMigrationPrivileges(unopened, false, none);
  EXPECT_EQ(notOpened.code, hr::kFail);
  EXPECT_EQ(notOpened.message,
            L"Failed to open the process token to set necessary privileges (0x00000000)");
  EXPECT_TRUE(unopened.privilegeCalls().empty());
}

TEST(PrivilegeToken, ClosesOnceAtTheEndOfTheRun) {
  FakeSecurityPort port;
  PrivilegeToken token;
  ASSERT_EQ(EnableMigrationPrivileges(port, false, token).code, hr::kOk);
  token.Close();
  token.Close();
  EXPECT_EQ(port.closeTokenCalls(), 1);
  EXPECT_EQ(port.closedToken(), FakeSecurityPort::kToken);
  EXPECT_FALSE(token.IsOpen());
}

TEST(PrivilegeToken, NothingToCloseWhenNeverOpened) {
  FakeSecurityPort port;
  port.openTokenError = err::kAccessDenied;
  PrivilegeToken token;
  EnableMigrationPrivileges(port, false, token);
  token.Close();
  EXPECT_EQ(port.closeTokenCalls(), 0);
}

class LoadCurrentUserSidTest : public ::testing::Test {
 protected:
  void SetUp() override { currentUserSid.Clear(); }
  void TearDown() override { currentUserSid.Clear(); }
};

TEST_F(LoadCurrentUserSidTest, ReadsTheTokenOnlyOnce) {
  FakeSecurityPort port;
  port.userSid = security::UnixUserSid(1000);
  LoadCurrentUserSid(port);
  port.userSid = security::UnixUserSid(2000);
  LoadCurrentUserSid(port);
  EXPECT_EQ(port.userSidCalls(), 1);
  ASSERT_TRUE(currentUserSid.IsValid());
  EXPECT_EQ(currentUserSid.sid(), security::UnixUserSid(1000));
}

TEST_F(LoadCurrentUserSidTest, FailureLeavesItEmptyAndLogsNothing) {
  FakeSecurityPort port;
  LogCapture log;
  LoadCurrentUserSid(port);
  EXPECT_FALSE(currentUserSid.IsValid());
  EXPECT_TRUE(log.messages().empty());
  // Not valid yet, so a later call reads the token again.
  port.userSid = security::LocalSystemSid();
  LoadCurrentUserSid(port);
  EXPECT_EQ(port.userSidCalls(), 2);
  EXPECT_EQ(currentUserSid.sid(), security::LocalSystemSid());
}

}  // namespace
}  // namespace tw
