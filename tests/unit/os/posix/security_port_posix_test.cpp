// The POSIX security port on real files in a temporary folder: descriptors kept in the file
// server's "security.NTACL" attribute (root only: these tests skip without root), derived from
// owner, group and mode as the server derives them when none is kept, never through a link.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "base/text_encoding.h"
#include "descriptor/inheritance.h"
#include "descriptor/well_known_sids.h"
#include "fakes/log_capture.h"
#include "fakes/temp_folder.h"
#include "fakes/unix_sids_account_map.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/samba/account_map.h"
#include "os/posix/security/descriptor_store.h"
#include "ports/file_system.h"
#include "ports/security_port.h"

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

class PosixSecurityPortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "skipped: security.NTACL needs root";
  }

  std::wstring Win(const std::string& name) const {
    return posix::ToWindowsPath(folder.Child(name));
  }
  std::string Native(const std::string& name) const { return folder.Child(name); }
  struct stat Stat(const std::string& name) const {
    struct stat info {};
    EXPECT_EQ(::lstat(Native(name).c_str(), &info), 0);
    return info;
  }
  SecurityDescriptor Read(const std::string& name) {
    SecurityDescriptor sd;
    EXPECT_EQ(port.ReadNamedSecurity(Win(name), sd), err::kSuccess);
    return sd;
  }
  bool HasStoredDescriptor(const std::string& name) const {
    return ::lgetxattr(Native(name).c_str(), posix::kDescriptorAttribute, nullptr, 0) >= 0;
  }
  static SecurityWrite OwnerAndDacl(const Sid& owner, const Acl& dacl, DaclProtection protection) {
    SecurityWrite write;
    write.writeOwner = true;
    write.owner = owner;
    write.writeDacl = true;
    write.dacl = dacl;
    write.protection = protection;
    return write;
  }

  testing::UnixSidsOnly accounts;
  posix::samba::ScopedAccountMap installed{accounts};
  testing::TempFolder folder;
  SecurityPort& port = ProcessSecurityPort();
};

TEST_F(PosixSecurityPortTest, PrivilegesAlwaysEnableAndTheUserIsTheEffectiveUid) {
  TokenHandle token = kInvalidTokenHandle;
  const BoolCallResult opened = port.OpenPrivilegeToken(token);
  EXPECT_TRUE(opened.succeeded);
  EXPECT_NE(token, kInvalidTokenHandle);
  const BoolCallResult enabled = port.EnablePrivilege(token, L"SeTakeOwnershipPrivilege");
  EXPECT_TRUE(enabled.succeeded);
  EXPECT_EQ(enabled.lastError, err::kSuccess);
  port.CloseToken(token);
  EXPECT_EQ(port.CurrentUserSid(), security::UnixUserSid(::geteuid()));
}

TEST_F(PosixSecurityPortTest, FileWithoutStoredDescriptorReadsAsSynthesised) {
  folder.WriteFile("plain.txt", "x");
  ASSERT_EQ(::chmod(Native("plain.txt").c_str(), 0640), 0);
  const struct stat info = Stat("plain.txt");
  const SecurityDescriptor sd = Read("plain.txt");
  EXPECT_EQ(sd.owner, security::UnixUserSid(info.st_uid));
  EXPECT_FALSE(sd.group.has_value());  // only owner and DACL are read
  EXPECT_EQ(sd.control, security::kSeDaclPresent);
  EXPECT_EQ(sd.dacl, MakeAcl({Ace::Allowed(0x001F019F, security::UnixUserSid(info.st_uid)),
                              Ace::Allowed(0x00120089, security::UnixGroupSid(info.st_gid)),
                              Ace::Allowed(0, security::EveryoneSid())}));
  EXPECT_FALSE(HasStoredDescriptor("plain.txt"));  // reading stores nothing
}

TEST_F(PosixSecurityPortTest, FolderModeBitsMapToFolderRights) {
  ASSERT_EQ(::mkdir(Native("dir").c_str(), 0755), 0);
  ASSERT_EQ(::chmod(Native("dir").c_str(), 0753), 0);
  const struct stat info = Stat("dir");
  const SecurityDescriptor sd = Read("dir");
  Sid creatorOwner;
  Sid creatorGroup;
  ASSERT_EQ(Sid::FromString(L"S-1-3-0", &creatorOwner), err::kSuccess);
  ASSERT_EQ(Sid::FromString(L"S-1-3-1", &creatorGroup), err::kSuccess);
  EXPECT_EQ(sd.dacl, MakeAcl({Ace::Allowed(0x001F01FF, security::UnixUserSid(info.st_uid)),
                              Ace::Allowed(0x001200A9, security::UnixGroupSid(info.st_gid)),
                              Ace::Allowed(0x001F01F6, security::EveryoneSid()),
                              Ace::Allowed(0x001F01FF, creatorOwner, 0x0B),
                              Ace::Allowed(0x001200A9, creatorGroup, 0x0B),
                              Ace::Allowed(0x001200A9, security::EveryoneSid(), 0x0B)}));
  EXPECT_EQ(posix::AccessMaskFromModeBits(0, true), 0u);
  EXPECT_EQ(posix::AccessMaskFromModeBits(2, false), 0x001F0116u);
  EXPECT_EQ(posix::AccessMaskFromModeBits(6, false), 0x001F019Fu);
  EXPECT_EQ(posix::AccessMaskFromModeBits(5, true), 0x001200A9u);
}

TEST_F(PosixSecurityPortTest, WrittenDescriptorReadsBackAndSurvivesACopy) {
  folder.WriteFile("a.txt", "a");
  folder.WriteFile("b.txt", "b");
  const Acl dacl =
      MakeAcl({Ace::Denied(0x10000, security::EveryoneSid()), Ace::Allowed(0x1F01FF, Anna(), 3)});
  ASSERT_EQ(
      port.WriteNamedSecurity(Win("a.txt"), OwnerAndDacl(Anna(), dacl, DaclProtection::kProtected)),
      err::kSuccess);
  const SecurityDescriptor a = Read("a.txt");
  EXPECT_EQ(a.owner, Anna());
  EXPECT_EQ(a.dacl, dacl);
  // A DACL written by name is auto-inherited, protected or not ("D:PAI" as Windows leaves it).
  EXPECT_EQ(a.control,
            security::kSeDaclPresent | security::kSeDaclAutoInherited | security::kSeDaclProtected);

  ASSERT_EQ(port.WriteNamedSecurity(Win("b.txt"),
                                    OwnerAndDacl(*a.owner, *a.dacl, DaclProtection::kProtected)),
            err::kSuccess);
  EXPECT_EQ(Read("b.txt"), a);
}

TEST_F(PosixSecurityPortTest, DescriptorLargerThanTheFirstReadBufferReadsBackWhole) {
  folder.WriteFile("many.txt", "m");
  std::vector<Ace> aces;
  for (std::uint32_t i = 0; i < 80; ++i) {
    aces.push_back(Ace::Allowed(0x120089, Sid(5, {21, 7, 8, 9, 2000 + i})));
  }
  const Acl dacl = MakeAcl(std::move(aces));
  ASSERT_EQ(port.WriteNamedSecurity(Win("many.txt"),
                                    OwnerAndDacl(Anna(), dacl, DaclProtection::kProtected)),
            err::kSuccess);
  ASSERT_GT(::lgetxattr(Native("many.txt").c_str(), posix::kDescriptorAttribute, nullptr, 0), 1024);
  const SecurityDescriptor sd = Read("many.txt");
  EXPECT_EQ(sd.owner, Anna());
  EXPECT_EQ(sd.dacl, dacl);
}

TEST_F(PosixSecurityPortTest, HandleReadIsTheObjectsDescriptor) {
  folder.WriteFile("h.txt", "h");
  SecurityDescriptor byHandle;
  ASSERT_EQ(port.ReadOpenedObjectSecurity(0x104, Win("h.txt"), byHandle), err::kSuccess);
  EXPECT_EQ(byHandle, Read("h.txt"));
  EXPECT_EQ(port.ReadOpenedObjectSecurity(kInvalidFileHandle, Win("h.txt"), byHandle),
            err::kInvalidHandle);
}

// The handle form writes what the name form writes, onto the object the handle holds open.
TEST_F(PosixSecurityPortTest, HandleWriteSetsOwnerAndDaclOfTheOpenedObject) {
  folder.WriteFile("hive.dat", "regf");
  FileSystem& files = ProcessFileSystem();
  FileOpenRequest request;
  request.read = false;
  request.write = true;
  request.otherAccess = file_access::kWriteDac | file_access::kWriteOwner;
  request.backupSemantics = true;
  FileHandle handle = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("hive.dat"), request, handle), err::kSuccess);
  const UniqueFileHandle open(files, handle);
  const Acl dacl = MakeAcl({Ace::Allowed(0x1F01FF, Anna())});
  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = Anna();
  ASSERT_EQ(port.WriteOpenedObjectSecurity(handle, Win("hive.dat"), owner), err::kSuccess);
  SecurityWrite daclOnly;
  daclOnly.writeDacl = true;
  daclOnly.dacl = dacl;
  ASSERT_EQ(port.WriteOpenedObjectSecurity(handle, Win("hive.dat"), daclOnly), err::kSuccess);
  const SecurityDescriptor sd = Read("hive.dat");
  EXPECT_EQ(sd.owner, Anna());
  ASSERT_TRUE(sd.dacl.has_value());
  EXPECT_EQ(sd.dacl->aces().front(), dacl.aces().front());
  EXPECT_TRUE(HasStoredDescriptor("hive.dat"));
  // The same as the same writes by name give (the DACL kept unprotected, with what it inherits).
  folder.WriteFile("twin.dat", "regf");
  ASSERT_EQ(port.WriteNamedSecurity(Win("twin.dat"), owner), err::kSuccess);
  ASSERT_EQ(port.WriteNamedSecurity(Win("twin.dat"), daclOnly), err::kSuccess);
  const SecurityDescriptor twin = Read("twin.dat");
  EXPECT_EQ(sd.control, twin.control);
  EXPECT_EQ(sd.dacl, twin.dacl);
  // Asking for nothing succeeds on an open handle and touches nothing.
  EXPECT_EQ(port.WriteOpenedObjectSecurity(handle, Win("hive.dat"), SecurityWrite{}),
            err::kSuccess);
  EXPECT_EQ(Read("hive.dat"), sd);
}

TEST_F(PosixSecurityPortTest, HandleWriteNeedsAnOpenHandle) {
  folder.WriteFile("c.txt", "c");
  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = Anna();
  EXPECT_EQ(port.WriteOpenedObjectSecurity(kInvalidFileHandle, Win("c.txt"), owner),
            err::kInvalidHandle);
  FileSystem& files = ProcessFileSystem();
  FileHandle handle = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("c.txt"), FileOpenRequest{}, handle), err::kSuccess);
  ASSERT_EQ(files.Close(handle), err::kSuccess);
  EXPECT_EQ(port.WriteOpenedObjectSecurity(handle, Win("c.txt"), owner), err::kInvalidHandle);
  EXPECT_EQ(port.WriteOpenedObjectSecurity(kClosedFileHandle, Win("c.txt"), owner),
            err::kInvalidHandle);
  EXPECT_FALSE(HasStoredDescriptor("c.txt"));
}

// A file put in place of the opened one (renamed over it, or a link) is never written: the name
// no longer names the object the handle holds.
TEST_F(PosixSecurityPortTest, HandleWriteRefusesAnObjectPutInPlaceOfTheOpenedOne) {
  folder.WriteFile("hive.dat", "regf");
  folder.WriteFile("other.dat", "other");
  FileSystem& files = ProcessFileSystem();
  FileOpenRequest request;
  request.write = true;
  FileHandle handle = kInvalidFileHandle;
  ASSERT_EQ(files.Open(Win("hive.dat"), request, handle), err::kSuccess);
  const UniqueFileHandle open(files, handle);
  std::filesystem::rename(Native("other.dat"), Native("hive.dat"));
  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = Anna();
  EXPECT_EQ(port.WriteOpenedObjectSecurity(handle, Win("hive.dat"), owner), err::kAccessDenied);
  EXPECT_FALSE(HasStoredDescriptor("hive.dat"));
  std::filesystem::remove(Native("hive.dat"));
  std::filesystem::create_symlink(Native("elsewhere.dat"), Native("hive.dat"));
  folder.WriteFile("elsewhere.dat", "e");
  EXPECT_EQ(port.WriteOpenedObjectSecurity(handle, Win("hive.dat"), owner), err::kAccessDenied);
  EXPECT_FALSE(HasStoredDescriptor("elsewhere.dat"));
}

TEST_F(PosixSecurityPortTest, UnixOwnerAlsoChangesThePosixOwnerOtherOwnersDoNot) {
  folder.WriteFile("o.txt", "o");
  const uid_t before = Stat("o.txt").st_uid;
  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = Anna();
  ASSERT_EQ(port.WriteNamedSecurity(Win("o.txt"), owner), err::kSuccess);
  EXPECT_EQ(Stat("o.txt").st_uid, before);
  EXPECT_EQ(Read("o.txt").owner, Anna());

  owner.owner = security::UnixUserSid(4242);
  ASSERT_EQ(port.WriteNamedSecurity(Win("o.txt"), owner), err::kSuccess);
  EXPECT_EQ(Read("o.txt").owner, security::UnixUserSid(4242));
  if (::geteuid() == 0) {
    EXPECT_EQ(Stat("o.txt").st_uid, 4242u);
  } else {
    EXPECT_EQ(Stat("o.txt").st_uid, before);  // may not chown: only the stored owner changes
  }
}

TEST_F(PosixSecurityPortTest, OwnerWriteKeepsTheDaclAndNullOwnerIsRefused) {
  folder.WriteFile("k.txt", "k");
  const SecurityDescriptor before = Read("k.txt");
  SecurityWrite nullOwner;
  nullOwner.writeOwner = true;
  EXPECT_EQ(port.WriteNamedSecurity(Win("k.txt"), nullOwner), err::kInvalidOwner);
  EXPECT_FALSE(HasStoredDescriptor("k.txt"));
  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = Anna();
  ASSERT_EQ(port.WriteNamedSecurity(Win("k.txt"), owner), err::kSuccess);
  EXPECT_EQ(Read("k.txt").dacl, before.dacl);
  EXPECT_EQ(Read("k.txt").control, before.control);
  EXPECT_EQ(port.WriteNamedSecurity(Win("k.txt"), SecurityWrite{}), err::kSuccess);
}

TEST_F(PosixSecurityPortTest, UnprotectedDaclInheritsFromTheParentProtectedDoesNot) {
  ASSERT_EQ(::mkdir(Native("parent").c_str(), 0755), 0);
  folder.WriteFile("parent/child.txt", "c");
  const Ace inheritable = Ace::Allowed(0x1200A9, security::BuiltinUsersSid(), 3);
  ASSERT_EQ(port.WriteNamedSecurity(Win("parent"), OwnerAndDacl(Anna(), MakeAcl({inheritable}),
                                                                DaclProtection::kProtected)),
            err::kSuccess);
  const Ace own = Ace::Allowed(0x1F01FF, Anna());
  const Ace staleInherited = Ace::Allowed(0x1, security::EveryoneSid(), 0x10);
  const Acl given = MakeAcl({own, staleInherited});

  ASSERT_EQ(port.WriteNamedSecurity(Win("parent/child.txt"),
                                    OwnerAndDacl(Anna(), given, DaclProtection::kUnprotected)),
            err::kSuccess);
  SecurityDescriptor child = Read("parent/child.txt");
  EXPECT_EQ(
      child.dacl,
      MakeAcl({own, Ace::Allowed(0x1200A9, security::BuiltinUsersSid(), security::kInheritedAce)}));
  EXPECT_EQ(child.control, security::kSeDaclPresent | security::kSeDaclAutoInherited);

  // kKeep follows the object's protection: still unprotected, so inheritance is recomputed.
  SecurityWrite keep;
  keep.writeDacl = true;
  keep.dacl = MakeAcl({own});
  ASSERT_EQ(port.WriteNamedSecurity(Win("parent/child.txt"), keep), err::kSuccess);
  EXPECT_EQ(Read("parent/child.txt"), child);

  ASSERT_EQ(port.WriteNamedSecurity(Win("parent/child.txt"),
                                    OwnerAndDacl(Anna(), given, DaclProtection::kProtected)),
            err::kSuccess);
  child = Read("parent/child.txt");
  EXPECT_EQ(child.dacl, given);
  EXPECT_NE(child.control & security::kSeDaclProtected, 0);
}

TEST_F(PosixSecurityPortTest, NullDaclIsKept) {
  folder.WriteFile("n.txt", "n");
  SecurityWrite write;
  write.writeDacl = true;
  write.protection = DaclProtection::kUnprotected;
  ASSERT_EQ(port.WriteNamedSecurity(Win("n.txt"), write), err::kSuccess);
  EXPECT_TRUE(Read("n.txt").IsNullDacl());
}

TEST_F(PosixSecurityPortTest, SymbolicLinkIsNeverFollowed) {
  folder.WriteFile("target.txt", "t");
  const Acl dacl = MakeAcl({Ace::Allowed(0x1F01FF, Anna())});
  ASSERT_EQ(port.WriteNamedSecurity(Win("target.txt"),
                                    OwnerAndDacl(Anna(), dacl, DaclProtection::kProtected)),
            err::kSuccess);
  const SecurityDescriptor target = Read("target.txt");
  ASSERT_EQ(::symlink(Native("target.txt").c_str(), Native("link").c_str()), 0);

  const SecurityDescriptor link = Read("link");  // the link's own, from lstat
  EXPECT_EQ(link.owner, security::UnixUserSid(Stat("link").st_uid));
  EXPECT_NE(link.dacl, dacl);

  EXPECT_EQ(port.WriteNamedSecurity(Win("link"), OwnerAndDacl(security::LocalSystemSid(), Acl(),
                                                              DaclProtection::kProtected)),
            err::kAccessDenied);
  EXPECT_EQ(port.CreateFileWithSecurity(Win("link"), false, nullptr), err::kAccessDenied);
  EXPECT_EQ(Read("target.txt"), target);
  EXPECT_EQ(testing::ReadWholeFile(Native("target.txt")), "t");
}

TEST_F(PosixSecurityPortTest, DescriptorsAreReadThroughNamesInAnyCase) {
  folder.WriteFile("Docs/Letter.txt", "x");
  const SecurityDescriptor synthesised = Read("Docs/Letter.txt");
  EXPECT_EQ(Read("DOCS/LETTER.TXT"), synthesised);
  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = Anna();
  ASSERT_EQ(port.WriteNamedSecurity(Win("docs/letter.TXT"), owner), err::kSuccess);
  ASSERT_TRUE(HasStoredDescriptor("Docs/Letter.txt"));
  EXPECT_EQ(Read("DOCS/letter.txt").owner, Anna());
}

TEST_F(PosixSecurityPortTest, MissingObjectsGiveFileOrPathNotFound) {
  SecurityDescriptor sd;
  EXPECT_EQ(port.ReadNamedSecurity(Win("none.txt"), sd), err::kFileNotFound);
  EXPECT_EQ(port.ReadNamedSecurity(Win("gone/none.txt"), sd), err::kPathNotFound);
  SecurityWrite write;
  write.writeDacl = true;
  EXPECT_EQ(port.WriteNamedSecurity(Win("none.txt"), write), err::kFileNotFound);
  EXPECT_EQ(port.WriteNamedSecurity(Win("gone/none.txt"), write), err::kPathNotFound);
  EXPECT_EQ(port.ReadNamedSecurity(L"Q:\\nothing", sd), err::kPathNotFound);
}

TEST_F(PosixSecurityPortTest, DamagedStoredDescriptorReadsAsNoneWithALogLineAndIsReplaced) {
  folder.WriteFile("bad.txt", "b");
  const SecurityDescriptor derived = Read("bad.txt");
  const char junk[] = "not a descriptor";
  ASSERT_EQ(
      ::lsetxattr(Native("bad.txt").c_str(), posix::kDescriptorAttribute, junk, sizeof junk, 0), 0);
  testing::LogCapture log;
  EXPECT_EQ(Read("bad.txt"), derived);
  ASSERT_EQ(log.messages().size(), 1u);
  EXPECT_NE(log.messages()[0].find(Utf8ToWide(Native("bad.txt"))), std::wstring::npos);
  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = Anna();
  ASSERT_EQ(port.WriteNamedSecurity(Win("bad.txt"), owner), err::kSuccess);
  EXPECT_EQ(Read("bad.txt").owner, Anna());
}

// As the server judges a stored descriptor: one whose hashes no longer describe the file (a
// wrong hash, or a mode changed behind its back) reads as none, with a log line naming it.
TEST_F(PosixSecurityPortTest, StoredDescriptorWithAWrongHashReadsAsNone) {
  folder.WriteFile("h.txt", "h");
  const Acl dacl = MakeAcl({Ace::Allowed(0x1F01FF, Anna())});
  ASSERT_EQ(
      port.WriteNamedSecurity(Win("h.txt"), OwnerAndDacl(Anna(), dacl, DaclProtection::kProtected)),
      err::kSuccess);
  EXPECT_EQ(Read("h.txt").dacl, dacl);
  std::vector<char> blob(4096);
  const ssize_t size =
      ::lgetxattr(Native("h.txt").c_str(), posix::kDescriptorAttribute, blob.data(), blob.size());
  ASSERT_GT(size, 160);
  std::vector<char> wrong(blob.begin(), blob.begin() + size);
  wrong[14] = static_cast<char>(wrong[14] ^ 1);  // the descriptor hash
  wrong[96] = static_cast<char>(wrong[96] ^ 1);  // the POSIX ACL hash
  ASSERT_EQ(::lsetxattr(Native("h.txt").c_str(), posix::kDescriptorAttribute, wrong.data(),
                        wrong.size(), 0),
            0);
  // What the server derives from the POSIX ACL the write set.
  struct stat info {};
  ASSERT_EQ(::lstat(Native("h.txt").c_str(), &info), 0);
  const SecurityDescriptor derived = posix::DerivedDescriptor(Native("h.txt"), info);
  testing::LogCapture log;
  const SecurityDescriptor read = Read("h.txt");
  EXPECT_EQ(read.owner, derived.owner);
  EXPECT_EQ(read.dacl, derived.dacl);
  ASSERT_EQ(log.messages().size(), 1u);
  EXPECT_NE(log.messages()[0].find(Utf8ToWide(Native("h.txt"))), std::wstring::npos);

  // Only the POSIX ACL hash wrong: the descriptor hash still describes the file.
  wrong = std::vector<char>(blob.begin(), blob.begin() + size);
  wrong[96] = static_cast<char>(wrong[96] ^ 1);
  ASSERT_EQ(::lsetxattr(Native("h.txt").c_str(), posix::kDescriptorAttribute, wrong.data(),
                        wrong.size(), 0),
            0);
  EXPECT_EQ(Read("h.txt").dacl, dacl);

  // A mode changed behind the server's back: both hashes are stale.
  ASSERT_EQ(::chmod(Native("h.txt").c_str(), 0600), 0);
  log.Clear();
  EXPECT_NE(Read("h.txt").dacl, dacl);
  EXPECT_EQ(log.messages().size(), 1u);
}

TEST_F(PosixSecurityPortTest, CreatesAFolderWithADescriptor) {
  SecurityDescriptor sd;
  sd.owner = Anna();
  sd.SetDacl(MakeAcl({Ace::Allowed(0x1F01FF, Anna(), 3)}));
  sd.control |= security::kSeDaclProtected;
  ASSERT_EQ(port.CreateFolderWithSecurity(Win("new"), &sd), err::kSuccess);
  EXPECT_TRUE(S_ISDIR(Stat("new").st_mode));
  EXPECT_EQ(Read("new"), OwnerAndDaclOf(sd));
  EXPECT_EQ(port.CreateFolderWithSecurity(Win("new"), &sd), err::kAlreadyExists);
  EXPECT_EQ(port.CreateFolderWithSecurity(Win("gone/new"), &sd), err::kPathNotFound);
  // Without a descriptor the folder inherits; a folder that passes nothing on gives it the
  // process's default DACL.
  SecurityWrite closed;
  closed.writeDacl = true;
  closed.dacl = Acl();
  closed.protection = DaclProtection::kProtected;
  ASSERT_EQ(port.WriteNamedSecurity(posix::ToWindowsPath(folder.path().string()), closed),
            err::kSuccess);
  ASSERT_EQ(port.CreateFolderWithSecurity(Win("bare"), nullptr), err::kSuccess);
  const Sid me = security::UnixUserSid(::geteuid());
  SecurityDescriptor expected;
  expected.owner = me;
  expected.SetDacl(
      MakeAcl({Ace::Allowed(0x1F01FF, me), Ace::Allowed(0x1F01FF, security::LocalSystemSid())}));
  EXPECT_EQ(Read("bare"), expected);
}

TEST_F(PosixSecurityPortTest, CreatesAFolderPathGivingEachNewFolderTheDescriptor) {
  SecurityDescriptor sd;
  sd.owner = Anna();
  sd.SetDacl(MakeAcl({Ace::Allowed(0x1F01FF, Anna())}));
  sd.control |= security::kSeDaclProtected;
  ASSERT_EQ(::mkdir(Native("have").c_str(), 0755), 0);
  ASSERT_EQ(port.CreateFolderPathWithSecurity(Win("have/a/b"), &sd), err::kSuccess);
  EXPECT_EQ(Read("have/a"), OwnerAndDaclOf(sd));
  EXPECT_EQ(Read("have/a/b"), OwnerAndDaclOf(sd));
  EXPECT_FALSE(HasStoredDescriptor("have"));  // existing folders are left alone
  EXPECT_EQ(port.CreateFolderPathWithSecurity(Win("have/a/b"), &sd), err::kAlreadyExists);
  folder.WriteFile("file", "f");
  EXPECT_EQ(port.CreateFolderPathWithSecurity(Win("file"), &sd), err::kFileExists);
  EXPECT_EQ(port.CreateFolderPathWithSecurity(Win("file/x"), &sd), err::kPathNotFound);
  EXPECT_EQ(port.CreateFolderPathWithSecurity(L"relative\\x", &sd), err::kBadPathname);
  EXPECT_EQ(port.CreateFolderPathWithSecurity(Win(std::string(250, 'l')), &sd),
            err::kFilenameExcedRange);
}

TEST_F(PosixSecurityPortTest, CreatesAFileWithADescriptor) {
  SecurityDescriptor sd;
  sd.owner = Anna();
  sd.SetDacl(MakeAcl({Ace::Allowed(0x1F01FF, Anna())}));
  sd.control |= security::kSeDaclProtected;
  ASSERT_EQ(port.CreateFileWithSecurity(Win("f.txt"), true, &sd), err::kSuccess);
  EXPECT_TRUE(S_ISREG(Stat("f.txt").st_mode));
  EXPECT_EQ(Read("f.txt"), OwnerAndDaclOf(sd));
  EXPECT_EQ(port.CreateFileWithSecurity(Win("f.txt"), true, &sd), err::kFileExists);
  folder.WriteFile("full.txt", "content");
  ASSERT_EQ(port.CreateFileWithSecurity(Win("full.txt"), false, &sd), err::kSuccess);
  EXPECT_EQ(testing::ReadWholeFile(Native("full.txt")), "");
  EXPECT_FALSE(HasStoredDescriptor("full.txt"));  // an existing file keeps its security
  EXPECT_EQ(port.CreateFileWithSecurity(Win("gone/f.txt"), true, &sd), err::kPathNotFound);
}

}  // namespace
}  // namespace tw
