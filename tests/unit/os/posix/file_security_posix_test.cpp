// Taking ownership and restoring security on real files through the POSIX adapters: the
// object's owner and DACL, as read back, end exactly as they were.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>

#include "descriptor/well_known_sids.h"
#include "fakes/temp_folder.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"
#include "ports/security_port.h"
#include "security/current_user_sid.h"
#include "security/file_security.h"

namespace tw {
namespace {

using security::Ace;
using security::Acl;
using security::SecurityDescriptor;
using security::Sid;

Sid Anna() { return Sid(5, {21, 7, 8, 9, 1001}); }

Acl MakeAcl(std::vector<Ace> aces) {
  Acl acl;
  EXPECT_EQ(Acl::FromAces(security::kAclRevision, std::move(aces), &acl), err::kSuccess);
  return acl;
}

class PosixFileSecurityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "skipped: security.NTACL needs root";
    currentUserSid.Clear();
    LoadCurrentUserSid(port);
    ASSERT_TRUE(currentUserSid.IsValid());
  }
  void TearDown() override { currentUserSid.Clear(); }

  std::wstring Win(const std::string& name) const {
    return posix::ToWindowsPath(folder.Child(name));
  }
  SecurityDescriptor Read(const std::string& name) {
    SecurityDescriptor sd;
    EXPECT_EQ(port.ReadNamedSecurity(Win(name), sd), err::kSuccess);
    return sd;
  }
  void Write(const std::string& name, const Sid& owner, std::optional<Acl> dacl,
             DaclProtection protection) {
    SecurityWrite write;
    write.writeOwner = true;
    write.owner = owner;
    write.writeDacl = true;
    write.dacl = std::move(dacl);
    write.protection = protection;
    ASSERT_EQ(port.WriteNamedSecurity(Win(name), write), err::kSuccess);
  }
  uid_t Uid(const std::string& name) const {
    struct stat info {};
    EXPECT_EQ(::lstat(folder.Child(name).c_str(), &info), 0);
    return info.st_uid;
  }

  testing::TempFolder folder;
  SecurityPort& port = ProcessSecurityPort();
  FileSecurity security{ProcessFileSystem(), port};
};

TEST_F(PosixFileSecurityTest, TakeOwnershipThenApplySecurityRestoresExactly) {
  ASSERT_EQ(::mkdir(folder.Child("profile").c_str(), 0755), 0);
  Write("profile", Anna(), MakeAcl({Ace::Allowed(0x1200A9, security::BuiltinUsersSid(), 3)}),
        DaclProtection::kProtected);
  folder.WriteFile("profile/ntuser.dat", "hive");
  Write("profile/ntuser.dat", Anna(),
        MakeAcl({Ace::Denied(0x10000, security::EveryoneSid()), Ace::Allowed(0x1F01FF, Anna())}),
        DaclProtection::kUnprotected);
  const SecurityDescriptor before = Read("profile/ntuser.dat");
  ASSERT_EQ(before.dacl->aces().size(), 3u);  // two explicit, one inherited

  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(Win("profile/ntuser.dat"), saved, true), hr::kOk);
  const SecurityDescriptor owned = Read("profile/ntuser.dat");
  EXPECT_EQ(owned.owner, currentUserSid.sid());
  const Ace fullControl = Ace::Allowed(kFileAllAccess, currentUserSid.sid(), 3);
  EXPECT_NE(std::find(owned.dacl->aces().begin(), owned.dacl->aces().end(), fullControl),
            owned.dacl->aces().end());

  ASSERT_EQ(security.ApplySecurity(Win("profile/ntuser.dat"), saved), hr::kOk);
  EXPECT_EQ(Read("profile/ntuser.dat"), before);
}

TEST_F(PosixFileSecurityTest, FolderOwnershipIsTakenAndRestored) {
  ASSERT_EQ(::mkdir(folder.Child("anna").c_str(), 0750), 0);
  Write("anna", Anna(), MakeAcl({Ace::Allowed(0x1F01FF, Anna(), 3)}), DaclProtection::kProtected);
  const SecurityDescriptor before = Read("anna");
  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(Win("anna"), saved, true), hr::kOk);
  EXPECT_EQ(Read("anna").owner, currentUserSid.sid());
  ASSERT_EQ(security.ApplySecurity(Win("anna"), saved), hr::kOk);
  EXPECT_EQ(Read("anna"), before);
}

TEST_F(PosixFileSecurityTest, FileWithoutStoredDescriptorRoundTrips) {
  folder.WriteFile("plain.txt", "p");
  const SecurityDescriptor before = Read("plain.txt");
  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(Win("plain.txt"), saved, true), hr::kOk);
  EXPECT_NE(Read("plain.txt").dacl, before.dacl);
  ASSERT_EQ(security.ApplySecurity(Win("plain.txt"), saved), hr::kOk);
  // The derived DACL is not protected: written back, it keeps its own entries and gains what the
  // folder passes on.
  const SecurityDescriptor after = Read("plain.txt");
  EXPECT_EQ(after.owner, before.owner);
  std::vector<Ace> own;
  for (const Ace& ace : after.dacl->aces()) {
    if (!ace.IsInherited()) own.push_back(ace);
  }
  EXPECT_EQ(own, before.dacl->aces());
}

TEST_F(PosixFileSecurityTest, NullDaclIsOwnedAloneThenNullAgain) {
  folder.WriteFile("open.txt", "o");
  Write("open.txt", Anna(), std::nullopt, DaclProtection::kUnprotected);
  const SecurityDescriptor before = Read("open.txt");
  ASSERT_TRUE(before.IsNullDacl());
  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(Win("open.txt"), saved, true), hr::kOk);
  // The owner's entry, then what the folder passes on.
  const SecurityDescriptor owned = Read("open.txt");
  ASSERT_TRUE(owned.dacl.has_value());
  ASSERT_FALSE(owned.dacl->aces().empty());
  EXPECT_EQ(owned.dacl->aces()[0], Ace::Allowed(kFileAllAccess, currentUserSid.sid(), 3));
  for (std::size_t i = 1; i < owned.dacl->aces().size(); ++i) {
    EXPECT_TRUE(owned.dacl->aces()[i].IsInherited());
  }
  ASSERT_EQ(security.ApplySecurity(Win("open.txt"), saved), hr::kOk);
  EXPECT_EQ(Read("open.txt"), before);
}

TEST_F(PosixFileSecurityTest, UnixOwnerIsChownedAwayAndBack) {
  if (::geteuid() != 0) GTEST_SKIP() << "changing a file's owner needs root";
  folder.WriteFile("u.txt", "u");
  Write("u.txt", security::UnixUserSid(4242), MakeAcl({Ace::Allowed(0x1F01FF, Anna())}),
        DaclProtection::kProtected);
  ASSERT_EQ(Uid("u.txt"), 4242u);
  SelfRelativeDescriptor saved;
  ASSERT_EQ(security.TakeOwnership(Win("u.txt"), saved, true), hr::kOk);
  EXPECT_EQ(Uid("u.txt"), 0u);
  ASSERT_EQ(security.ApplySecurity(Win("u.txt"), saved), hr::kOk);
  EXPECT_EQ(Uid("u.txt"), 4242u);
}

TEST_F(PosixFileSecurityTest, DescriptorReadFromOneFileIsWrittenOntoItsCopy) {
  folder.WriteFile("source.txt", "s");
  Write("source.txt", Anna(),
        MakeAcl({Ace::Allowed(0x1F01FF, Anna(), 3), Ace::Denied(0x40000, Anna())}),
        DaclProtection::kProtected);
  ASSERT_EQ(ProcessFileSystem().CopyFileTo(Win("source.txt"), Win("copy.txt"), true),
            err::kSuccess);
  SelfRelativeDescriptor sd;
  err::Win32Error lastError = err::kSuccess;
  ASSERT_TRUE(security.ReadFileSecurity(Win("source.txt"), sd, lastError));
  ASSERT_EQ(security.ApplySecurity(Win("copy.txt"), sd), hr::kOk);
  const SecurityDescriptor copy = Read("copy.txt");
  const SecurityDescriptor source = Read("source.txt");
  EXPECT_EQ(copy.owner, source.owner);
  // The list is written in canonical order, as the system receives it.
  EXPECT_EQ(copy.dacl, MakeAcl({Ace::Denied(0x40000, Anna()), Ace::Allowed(0x1F01FF, Anna(), 3)}));
  EXPECT_EQ(copy.control, source.control);
}

TEST_F(PosixFileSecurityTest, TakeOwnershipOfMissingObjects) {
  SelfRelativeDescriptor saved;
  EXPECT_EQ(security.TakeOwnership(Win("none.txt"), saved, true),
            HResultFromWin32(err::kFileNotFound));
  EXPECT_EQ(security.TakeOwnership(Win("gone/none.txt"), saved, true),
            HResultFromWin32(err::kPathNotFound));
}

}  // namespace
}  // namespace tw
