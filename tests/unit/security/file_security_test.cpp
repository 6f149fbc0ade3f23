// Reading, taking ownership of and restoring a file object's owner and DACL, over the fakes.
#include "security/file_security.h"

#include <gtest/gtest.h>

#include "descriptor/well_known_sids.h"
#include "fakes/fake_file_system.h"
#include "fakes/fake_security_port.h"
#include "fakes/log_capture.h"
#include "security/current_user_sid.h"

namespace tw {
namespace {

using security::Ace;
using security::Acl;
using security::SecurityDescriptor;
using security::Sid;
using testing::FakeFileSystem;
using testing::FakeSecurityPort;
using testing::SecurityOp;

const wchar_t kFile[] = L"\\\\srv\\profiles\\anna\\ntuser.dat";
const wchar_t kFolder[] = L"\\\\srv\\profiles\\anna";

Sid Anna() { return Sid(5, {21, 1, 2, 3, 1001}); }
Sid Admin() { return Sid(5, {21, 1, 2, 3, 500}); }

Acl MakeAcl(std::vector<Ace> aces) {
  Acl acl;
  EXPECT_EQ(Acl::FromAces(security::kAclRevision, std::move(aces), &acl), err::kSuccess);
  return acl;
}

SecurityDescriptor AnnasDescriptor(std::uint16_t extraControl = 0) {
  SecurityDescriptor sd;
  sd.owner = Anna();
  sd.group = security::BuiltinUsersSid();  // never kept
  sd.SetDacl(MakeAcl(
      {Ace::Allowed(0x1F01FF, Anna(), 3), Ace::Allowed(0x1F01FF, security::LocalSystemSid(), 3)}));
  sd.control |= extraControl;
  return sd;
}

Ace FullControlForAdmin() { return Ace::Allowed(0x001F01FF, Admin(), 3); }

class FileSecurityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    currentUserSid.Clear();
    currentUserSid.Set(Admin());
    files.AddFolder(kFolder);
    files.SetFile(kFile, "hive");
    port.SetObject(kFile, AnnasDescriptor());
  }
  void TearDown() override { currentUserSid.Clear(); }

  FakeFileSystem files;
  FakeSecurityPort port;
  FileSecurity security{files, port};
  testing::LogCapture log;
};

TEST_F(FileSecurityTest, ReadKeepsOwnerAndDaclSelfRelative) {
  SelfRelativeDescriptor sd;
  err::Win32Error lastError{99};
  ASSERT_TRUE(security.ReadFileSecurity(kFile, sd, lastError));
  EXPECT_EQ(lastError, err::kSuccess);
  EXPECT_NE(sd.Control() & security::kSeSelfRelative, 0);
  const SecurityDescriptor read = sd.ToAbsolute();
  EXPECT_EQ(read.owner, Anna());
  EXPECT_FALSE(read.group.has_value());
  EXPECT_EQ(read.dacl, AnnasDescriptor().dacl);
  EXPECT_EQ(port.Calls(SecurityOp::kReadNamed), 1);
}

TEST_F(FileSecurityTest, ReadFailureReportsTheErrorAndKeepsTheDescriptor) {
  SelfRelativeDescriptor sd = SelfRelativeDescriptor::FromAbsolute(AnnasDescriptor());
  const SelfRelativeDescriptor before = sd;
  port.FailOn(SecurityOp::kReadNamed, kFile, err::kAccessDenied);
  err::Win32Error lastError = err::kSuccess;
  EXPECT_FALSE(security.ReadFileSecurity(kFile, sd, lastError));
  EXPECT_EQ(lastError, err::kAccessDenied);
  EXPECT_EQ(sd, before);
  EXPECT_FALSE(security.ReadFileSecurity(L"\\\\srv\\profiles\\none", sd, lastError));
  EXPECT_EQ(lastError, err::kFileNotFound);
}

TEST_F(FileSecurityTest, TakeOwnershipKeepsOldSecurityAndGrantsFullControl) {
  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(kFile, saved, true), hr::kOk);
  EXPECT_EQ(saved, SelfRelativeDescriptor::FromAbsolute(AnnasDescriptor()));

  const SecurityDescriptor* now = port.Object(kFile);
  ASSERT_NE(now, nullptr);
  EXPECT_EQ(now->owner, Admin());
  EXPECT_EQ(now->dacl, MakeAcl({Ace::Allowed(0x1F01FF, Anna(), 3),
                                Ace::Allowed(0x1F01FF, security::LocalSystemSid(), 3),
                                FullControlForAdmin()}));
  // The owner first, alone; then the DACL alone, without a protection flag.
  ASSERT_EQ(port.writes().size(), 2u);
  EXPECT_TRUE(port.writes()[0].second.writeOwner);
  EXPECT_FALSE(port.writes()[0].second.writeDacl);
  EXPECT_FALSE(port.writes()[1].second.writeOwner);
  EXPECT_TRUE(port.writes()[1].second.writeDacl);
  EXPECT_EQ(port.writes()[1].second.protection, DaclProtection::kKeep);
  // Opened with backup semantics through the file system, read through the handle, closed.
  EXPECT_EQ(files.Calls(testing::FileOp::kOpen), 1);
  EXPECT_EQ(port.Calls(SecurityOp::kReadOpened), 1);
  EXPECT_EQ(port.Calls(SecurityOp::kReadNamed), 0);
  EXPECT_EQ(files.OpenHandles(), 0);
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(FileSecurityTest, TakeOwnershipOpensAFolderWithBackupSemantics) {
  port.SetObject(kFolder, AnnasDescriptor());
  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(kFolder, saved, true), hr::kOk);
  EXPECT_EQ(port.Object(kFolder)->owner, Admin());
  EXPECT_EQ(saved, SelfRelativeDescriptor::FromAbsolute(AnnasDescriptor()));
  EXPECT_EQ(files.OpenHandles(), 0);
}

TEST_F(FileSecurityTest, TakeOwnershipWithoutFullControlWritesOnlyTheOwner) {
  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(kFile, saved, false), hr::kOk);
  ASSERT_EQ(port.writes().size(), 1u);
  EXPECT_EQ(port.Object(kFile)->owner, Admin());
  EXPECT_EQ(port.Object(kFile)->dacl, AnnasDescriptor().dacl);
}

TEST_F(FileSecurityTest, TakeOwnershipOfMissingPaths) {
  SelfRelativeDescriptor saved;
  EXPECT_EQ(security.TakeOwnership(L"\\\\srv\\profiles\\anna\\none.dat", saved, true),
            HResultFromWin32(err::kFileNotFound));
  EXPECT_EQ(security.TakeOwnership(L"\\\\srv\\profiles\\gone\\none.dat", saved, true),
            HResultFromWin32(err::kPathNotFound));
  EXPECT_TRUE(saved.empty());
  EXPECT_TRUE(port.writes().empty());
}

TEST_F(FileSecurityTest, TakeOwnershipOfAnObjectThatCannotBeOpened) {
  files.FailOperation(testing::FileOp::kOpen, err::kAccessDenied);
  SelfRelativeDescriptor saved;
  EXPECT_EQ(security.TakeOwnership(kFile, saved, true), hr::kAccessDenied);
  EXPECT_TRUE(saved.empty());
  EXPECT_TRUE(port.writes().empty());
  EXPECT_EQ(port.Object(kFile)->owner, Anna());
}

TEST_F(FileSecurityTest, TakeOwnershipWhoseHandleReadFails) {
  port.FailOn(SecurityOp::kReadOpened, kFile, err::kAccessDenied);
  SelfRelativeDescriptor saved;
  EXPECT_EQ(security.TakeOwnership(kFile, saved, true), hr::kAccessDenied);
  EXPECT_EQ(files.OpenHandles(), 0);
  EXPECT_TRUE(port.writes().empty());
}

TEST_F(FileSecurityTest, TakeOwnershipWhoseOwnerWriteFails) {
  port.FailOn(SecurityOp::kWriteOwner, kFile, err::kPrivilegeNotHeld);
  SelfRelativeDescriptor saved;
  EXPECT_EQ(security.TakeOwnership(kFile, saved, true), HResultFromWin32(err::kPrivilegeNotHeld));
  EXPECT_FALSE(saved.empty());  // already kept
  EXPECT_EQ(port.writes().size(), 1u);
}

TEST_F(FileSecurityTest, TakeOwnershipWhoseDaclWriteFailsCanStillBeRestored) {
  port.FailOn(SecurityOp::kWriteDacl, kFile, err::kAccessDenied);
  SelfRelativeDescriptor saved;
  EXPECT_EQ(security.TakeOwnership(kFile, saved, true), hr::kAccessDenied);
  EXPECT_EQ(port.Object(kFile)->owner, Admin());  // not changed back here
  port.ClearFailures();
  ASSERT_EQ(security.ApplySecurity(kFile, saved), hr::kOk);
  EXPECT_EQ(port.Object(kFile)->owner, Anna());
}

TEST_F(FileSecurityTest, TakeOwnershipWithoutCurrentUserSidFails) {
  currentUserSid.Clear();
  SelfRelativeDescriptor saved;
  EXPECT_EQ(security.TakeOwnership(kFile, saved, true), HResultFromWin32(err::kInvalidOwner));
  ASSERT_EQ(port.writes().size(), 1u);
  EXPECT_TRUE(port.writes()[0].second.writeOwner);
  EXPECT_FALSE(port.writes()[0].second.owner.has_value());  // a null owner pointer
}

TEST_F(FileSecurityTest, NullDaclIsOpenToTheRunningUserAloneUntilRestored) {
  SecurityDescriptor open;
  open.owner = Anna();
  open.SetNullDacl();
  port.SetObject(kFile, open);
  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(kFile, saved, true), hr::kOk);
  EXPECT_EQ(port.Object(kFile)->dacl, MakeAcl({FullControlForAdmin()}));
  ASSERT_EQ(security.ApplySecurity(kFile, saved), hr::kOk);
  EXPECT_TRUE(port.Object(kFile)->IsNullDacl());
  EXPECT_EQ(port.Object(kFile)->owner, Anna());
}

TEST_F(FileSecurityTest, FullControlDaclIsWrittenInCanonicalOrder) {
  SecurityDescriptor sd;
  sd.owner = Anna();
  const Ace inherited = Ace::Allowed(0x1200A9, security::BuiltinUsersSid(), 0x13);
  const Ace denied = Ace::Denied(0x10000, security::EveryoneSid());
  sd.SetDacl(MakeAcl({inherited, denied}));
  port.SetObject(kFile, sd);
  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(kFile, saved, true), hr::kOk);
  EXPECT_EQ(port.Object(kFile)->dacl, MakeAcl({denied, FullControlForAdmin(), inherited}));
}

TEST_F(FileSecurityTest, ApplyOfEmptyDescriptorChangesNothing) {
  EXPECT_EQ(security.ApplySecurity(kFile, SelfRelativeDescriptor()), hr::kOk);
  EXPECT_TRUE(port.writes().empty());
}

TEST_F(FileSecurityTest, OwnerDefaultedRestoresOnlyTheDacl) {
  const SelfRelativeDescriptor kept = SelfRelativeDescriptor::FromAbsolute(
      AnnasDescriptor(security::kSeOwnerDefaulted | security::kSeDaclProtected));
  port.SetObject(kFile, SecurityDescriptor{});
  ASSERT_EQ(security.ApplySecurity(kFile, kept), hr::kOk);
  ASSERT_EQ(port.writes().size(), 1u);
  EXPECT_FALSE(port.writes()[0].second.writeOwner);
  EXPECT_TRUE(port.writes()[0].second.writeDacl);
  EXPECT_FALSE(port.Object(kFile)->owner.has_value());
  EXPECT_EQ(port.Object(kFile)->dacl, AnnasDescriptor().dacl);
}

TEST_F(FileSecurityTest, DaclPresentAndDefaultedRestoresOnlyTheOwner) {
  const SelfRelativeDescriptor kept =
      SelfRelativeDescriptor::FromAbsolute(AnnasDescriptor(security::kSeDaclDefaulted));
  ASSERT_EQ(security.ApplySecurity(kFile, kept), hr::kOk);
  ASSERT_EQ(port.writes().size(), 1u);
  EXPECT_TRUE(port.writes()[0].second.writeOwner);
  EXPECT_EQ(port.writes()[0].second.owner, Anna());
  EXPECT_FALSE(port.writes()[0].second.writeDacl);
}

TEST_F(FileSecurityTest, NothingToWriteSucceedsWithoutCallingTheSystem) {
  const SelfRelativeDescriptor kept = SelfRelativeDescriptor::FromAbsolute(
      AnnasDescriptor(security::kSeOwnerDefaulted | security::kSeDaclDefaulted));
  port.FailOnAll(kFile, err::kAccessDenied);
  EXPECT_EQ(security.ApplySecurity(kFile, kept), hr::kOk);
  EXPECT_TRUE(port.writes().empty());
}

TEST_F(FileSecurityTest, ProtectedDaclStaysProtectedUnprotectedInherits) {
  ASSERT_EQ(security.ApplySecurity(kFile, SelfRelativeDescriptor::FromAbsolute(
                                              AnnasDescriptor(security::kSeDaclProtected))),
            hr::kOk);
  EXPECT_EQ(port.writes().back().second.protection, DaclProtection::kProtected);
  EXPECT_NE(port.Object(kFile)->control & security::kSeDaclProtected, 0);

  ASSERT_EQ(security.ApplySecurity(kFile, SelfRelativeDescriptor::FromAbsolute(AnnasDescriptor())),
            hr::kOk);
  EXPECT_EQ(port.writes().back().second.protection, DaclProtection::kUnprotected);
  EXPECT_EQ(port.Object(kFile)->control & security::kSeDaclProtected, 0);
}

TEST_F(FileSecurityTest, AbsentDaclIsWrittenEmpty) {
  SecurityDescriptor noDacl;
  noDacl.owner = Anna();
  ASSERT_EQ(security.ApplySecurity(kFile, SelfRelativeDescriptor::FromAbsolute(noDacl)), hr::kOk);
  ASSERT_EQ(port.writes().size(), 1u);
  EXPECT_TRUE(port.writes()[0].second.writeDacl);
  EXPECT_EQ(port.writes()[0].second.dacl, Acl());
}

TEST_F(FileSecurityTest, DescriptorWithoutOwnerWritesANullOwner) {
  SecurityDescriptor noOwner;
  noOwner.SetDacl(Acl());
  EXPECT_EQ(security.ApplySecurity(kFile, SelfRelativeDescriptor::FromAbsolute(noOwner)),
            HResultFromWin32(err::kInvalidOwner));  // ERROR_INVALID_OWNER
  ASSERT_EQ(port.writes().size(), 1u);
  EXPECT_TRUE(port.writes()[0].second.writeOwner);
  EXPECT_FALSE(port.writes()[0].second.owner.has_value());
}

TEST_F(FileSecurityTest, ApplyFailureBecomesAnHResult) {
  port.FailOn(SecurityOp::kWriteDacl, kFile, err::kAccessDenied);
  EXPECT_EQ(security.ApplySecurity(kFile, SelfRelativeDescriptor::FromAbsolute(AnnasDescriptor())),
            hr::kAccessDenied);
  EXPECT_EQ(security.ApplySecurity(L"\\\\srv\\profiles\\none",
                                   SelfRelativeDescriptor::FromAbsolute(AnnasDescriptor())),
            HResultFromWin32(err::kFileNotFound));
}

}  // namespace
}  // namespace tw
