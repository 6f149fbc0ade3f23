// Reading an object's security, taking ownership of it where the read is refused, over the
// fakes.
#include "security/read_taking_ownership.h"

#include <gtest/gtest.h>

#include <vector>

#include "fakes/fake_file_system.h"
#include "fakes/fake_security_port.h"
#include "security/current_user_sid.h"

namespace tw {
namespace {

using security::Ace;
using security::Acl;
using security::SecurityDescriptor;
using security::Sid;
using testing::FakeFileSystem;
using testing::FakeSecurityPort;
using testing::FileOp;
using testing::SecurityOp;

const wchar_t kFolder[] = L"\\\\srv\\profiles\\anna";

Sid Anna() { return Sid(5, {21, 1, 2, 3, 1001}); }
Sid Admin() { return Sid(5, {21, 1, 2, 3, 500}); }

SecurityDescriptor OwnedByAnna() {
  SecurityDescriptor sd;
  sd.owner = Anna();
  Acl acl;
  EXPECT_EQ(Acl::FromAces(security::kAclRevision, {Ace::Allowed(0x1F01FF, Anna(), 3)}, &acl),
            err::kSuccess);
  sd.SetDacl(acl);
  return sd;
}

// A read by name is refused (access denied) while the running user does not own the object.
class OwnerOnlyPort : public FakeSecurityPort {
 public:
  err::Win32Error ReadNamedSecurity(std::wstring_view path, SecurityDescriptor& sd) override {
    ++reads;
    if (denyOthers && Object(path) != nullptr && Object(path)->owner != Admin()) {
      return err::kAccessDenied;
    }
    return FakeSecurityPort::ReadNamedSecurity(path, sd);
  }
  bool denyOthers = true;
  int reads = 0;
};

class ReadTakingOwnershipTest : public ::testing::Test {
 protected:
  void SetUp() override {
    currentUserSid.Clear();
    currentUserSid.Set(Admin());
    files.AddFolder(kFolder);
    port.SetObject(kFolder, OwnedByAnna());
  }
  void TearDown() override { currentUserSid.Clear(); }

  SecurityRead Read(bool takeOwnership, AfterOwnershipTaken after) {
    return ReadSecurityTakingOwnership(fileSecurity, kFolder, takeOwnership, security, saved,
                                       after);
  }

  FakeFileSystem files;
  OwnerOnlyPort port;
  FileSecurity fileSecurity{files, port};
  SelfRelativeDescriptor security;
  SelfRelativeDescriptor saved;
};

TEST_F(ReadTakingOwnershipTest, AReadableObjectIsReadOnceAndNotTakenOver) {
  port.denyOthers = false;
  const SecurityRead read = Read(true, AfterOwnershipTaken::kTryAgain);
  EXPECT_EQ(read.code, hr::kOk);
  EXPECT_FALSE(read.ownershipTaken);
  EXPECT_EQ(security, SelfRelativeDescriptor::FromAbsolute(OwnedByAnna()));
  EXPECT_TRUE(saved.empty());
  EXPECT_EQ(port.reads, 1);
  EXPECT_TRUE(port.writes().empty());
}

TEST_F(ReadTakingOwnershipTest, ARefusedReadWithoutTheSettingIsItsCode) {
  const SecurityRead read = Read(false, AfterOwnershipTaken::kTryAgain);
  EXPECT_EQ(read.code, hr::kAccessDenied);
  EXPECT_FALSE(read.ownershipTaken);
  EXPECT_TRUE(security.empty());
  EXPECT_TRUE(port.writes().empty());
}

TEST_F(ReadTakingOwnershipTest, AnotherReadFailureIsNeverTakenOver) {
  port.denyOthers = false;
  port.FailOn(SecurityOp::kReadNamed, kFolder, err::kSharingViolation);
  const SecurityRead read = Read(true, AfterOwnershipTaken::kTryAgain);
  EXPECT_EQ(read.code, static_cast<HResult>(0x80070020u));
  EXPECT_FALSE(read.ownershipTaken);
  EXPECT_EQ(files.Calls(FileOp::kOpen), 0);
  EXPECT_TRUE(port.writes().empty());
}

TEST_F(ReadTakingOwnershipTest, ATakeOverThenReadsAgainAsTheOwner) {
  const SecurityRead read = Read(true, AfterOwnershipTaken::kTryAgain);
  EXPECT_EQ(read.code, hr::kOk);
  EXPECT_TRUE(read.ownershipTaken);
  EXPECT_EQ(saved, SelfRelativeDescriptor::FromAbsolute(OwnedByAnna()));
  EXPECT_EQ(security.ToAbsolute().owner, Admin());
  EXPECT_EQ(port.reads, 2);
  EXPECT_EQ(port.writes().size(), 2u);  // the owner, then the DACL with full control
}

TEST_F(ReadTakingOwnershipTest, ASecondReadThatFailsIsTheCodeAndTheTakeOverStands) {
  port.denyOthers = false;
  port.FailOn(SecurityOp::kReadNamed, kFolder, err::kAccessDenied);
  const SecurityRead read = Read(true, AfterOwnershipTaken::kTryAgain);
  EXPECT_EQ(read.code, hr::kAccessDenied);
  EXPECT_TRUE(read.ownershipTaken);
  EXPECT_EQ(saved, SelfRelativeDescriptor::FromAbsolute(OwnedByAnna()));
  EXPECT_EQ(port.Object(kFolder)->owner, Admin());
  EXPECT_EQ(port.reads, 2);
}

TEST_F(ReadTakingOwnershipTest, WithUseSavedTheKeptSecurityIsTheOneToUse) {
  const SecurityRead read = ReadSecurityTakingOwnership(fileSecurity, kFolder, true, security,
                                                        security, AfterOwnershipTaken::kUseSaved);
  EXPECT_EQ(read.code, hr::kOk);
  EXPECT_TRUE(read.ownershipTaken);
  EXPECT_EQ(security, SelfRelativeDescriptor::FromAbsolute(OwnedByAnna()));
  EXPECT_EQ(port.reads, 1);
}

TEST_F(ReadTakingOwnershipTest, AFailedTakeOverIsItsCode) {
  files.FailOperation(FileOp::kOpen, err::kSharingViolation);
  const SecurityRead read = Read(true, AfterOwnershipTaken::kTryAgain);
  EXPECT_EQ(read.code, static_cast<HResult>(0x80070020u));
  EXPECT_FALSE(read.ownershipTaken);
  EXPECT_TRUE(saved.empty());
  EXPECT_EQ(port.reads, 1);
  EXPECT_EQ(port.Object(kFolder)->owner, Anna());
}

}  // namespace
}  // namespace tw

namespace tw {
namespace {

// The attempt a caller hands RetryTakingOwnership: counts its runs and gives the next result.
struct CountedAttempt {
  std::vector<HResult> results;
  int runs = 0;
  HResult operator()() { return results[static_cast<std::size_t>(runs++)]; }
};

TEST_F(ReadTakingOwnershipTest, RetryRunsTheAttemptAgainOnlyAfterASuccessfulTakeOver) {
  CountedAttempt attempt{{hr::kAccessDenied, hr::kOk}};
  const OwnershipRetry retry = RetryTakingOwnership(fileSecurity, kFolder, true, saved,
                                                    AfterOwnershipTaken::kTryAgain, attempt);
  EXPECT_EQ(attempt.runs, 2);
  EXPECT_EQ(retry.first, hr::kAccessDenied);
  EXPECT_TRUE(retry.tookOver);
  EXPECT_EQ(retry.taken, hr::kOk);
  EXPECT_EQ(retry.again, hr::kOk);
  EXPECT_TRUE(retry.OwnershipTaken());
  EXPECT_EQ(saved, SelfRelativeDescriptor::FromAbsolute(OwnedByAnna()));
}

TEST_F(ReadTakingOwnershipTest, RetryWithUseSavedRunsTheAttemptOnce) {
  CountedAttempt attempt{{hr::kAccessDenied}};
  const OwnershipRetry retry = RetryTakingOwnership(fileSecurity, kFolder, true, saved,
                                                    AfterOwnershipTaken::kUseSaved, attempt);
  EXPECT_EQ(attempt.runs, 1);
  EXPECT_TRUE(retry.OwnershipTaken());
}

TEST_F(ReadTakingOwnershipTest, RetryTakesNothingOverForOtherResultsOrWithoutTheSetting) {
  CountedAttempt failing{{static_cast<HResult>(0x80070002u)}};
  OwnershipRetry retry = RetryTakingOwnership(fileSecurity, kFolder, true, saved,
                                              AfterOwnershipTaken::kTryAgain, failing);
  EXPECT_EQ(failing.runs, 1);
  EXPECT_FALSE(retry.tookOver);
  EXPECT_EQ(retry.first, static_cast<HResult>(0x80070002u));
  CountedAttempt denied{{hr::kAccessDenied}};
  retry = RetryTakingOwnership(fileSecurity, kFolder, false, saved, AfterOwnershipTaken::kTryAgain,
                               denied);
  EXPECT_EQ(denied.runs, 1);
  EXPECT_FALSE(retry.tookOver);
  EXPECT_EQ(files.Calls(FileOp::kOpen), 0);
  EXPECT_TRUE(port.writes().empty());
}

TEST_F(ReadTakingOwnershipTest, RetryAfterAFailedTakeOverRunsNothingMore) {
  files.FailOperation(FileOp::kOpen, err::kSharingViolation);
  CountedAttempt attempt{{hr::kAccessDenied}};
  const OwnershipRetry retry = RetryTakingOwnership(fileSecurity, kFolder, true, saved,
                                                    AfterOwnershipTaken::kTryAgain, attempt);
  EXPECT_EQ(attempt.runs, 1);
  EXPECT_TRUE(retry.tookOver);
  EXPECT_EQ(retry.taken, static_cast<HResult>(0x80070020u));
  EXPECT_FALSE(retry.OwnershipTaken());
}

}  // namespace
}  // namespace tw
