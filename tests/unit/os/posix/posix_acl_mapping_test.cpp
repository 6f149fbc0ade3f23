// The POSIX ACLs and "user.SAMBA_PAI" the file server writes when a client sets a descriptor:
// the expected bytes are what a real smbd wrote (through smbcacls) for the same descriptors, on
// files owned by alice (uid 1001) and group 0; bob is uid 1002; SYSTEM and Administrators map to
// no account on that server.
#include "os/posix/samba/posix_acl_mapping.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "descriptor/ace.h"
#include "descriptor/acl.h"
#include "descriptor/well_known_sids.h"

namespace tw::posix::samba {
namespace {

using security::Ace;
using security::Sid;

Sid SidOf(const wchar_t* text) {
  Sid sid;
  EXPECT_EQ(Sid::FromString(text, &sid), err::kSuccess);
  return sid;
}

const Sid kAlice = SidOf(L"S-1-5-21-1-2-3-1000");
const Sid kBob = SidOf(L"S-1-5-21-1-2-3-1001");
const Sid kRootGroup = SidOf(L"S-1-22-2-0");

class FakeAccounts : public AccountMap {
 public:
  std::optional<std::uint32_t> UidOf(const Sid& sid) override {
    if (sid == kAlice) return 1001;
    if (sid == kBob) return 1002;
    return std::nullopt;
  }
  std::optional<std::uint32_t> GidOf(const Sid& sid) override {
    if (sid == kRootGroup) return 0;
    return std::nullopt;
  }
  Sid SidOfUid(std::uint32_t uid) override { return security::UnixUserSid(uid); }
  Sid SidOfGid(std::uint32_t gid) override { return security::UnixGroupSid(gid); }
};

class FakeAccountsWithUsersGroup : public FakeAccounts {
 public:
  std::optional<std::uint32_t> GidOf(const Sid& sid) override {
    if (sid == SidOf(L"S-1-22-2-100")) return 100;
    return FakeAccounts::GidOf(sid);
  }
};

constexpr std::uint32_t kFull = 0x001F01FF;
constexpr std::uint32_t kRead = 0x001200A9;
constexpr std::uint32_t kChange = 0x001301BF;

security::SecurityDescriptor Descriptor(std::vector<Ace> aces, std::uint16_t control = 0) {
  security::Acl dacl;
  EXPECT_EQ(security::Acl::FromAces(security::kAclRevision, std::move(aces), &dacl), err::kSuccess);
  security::SecurityDescriptor sd;
  sd.owner = kAlice;
  sd.group = kRootGroup;
  sd.SetDacl(std::move(dacl));
  sd.control |= control;
  return sd;
}

std::string Hex(const std::vector<std::uint8_t>& bytes) {
  static const char* digits = "0123456789abcdef";
  std::string text;
  for (std::uint8_t b : bytes) {
    text += digits[b >> 4];
    text += digits[b & 15];
  }
  return text;
}

struct Expected {
  const char* access;
  const char* defaults;  // folders only
  const char* pai;
};

void ExpectServersAcls(const security::SecurityDescriptor& sd, bool isFolder, mode_t mode,
                       const Expected& expected) {
  FakeAccounts accounts;
  const ServerPosixAcls acls = PosixAclsForDescriptor(sd, isFolder, 1001, 0, mode, accounts);
  EXPECT_EQ(Hex(EncodePosixAcl(acls.access)), expected.access);
  ASSERT_EQ(acls.defaults.has_value(), isFolder);
  if (isFolder) {
    EXPECT_EQ(Hex(EncodePosixAcl(*acls.defaults)), expected.defaults);
  }
  EXPECT_EQ(Hex(acls.pai), expected.pai);
}

// user::rwx user:1001:rwx group::--- group:0:--- mask::rwx other::---
constexpr const char* kOwnerOnly =
    "0200000001000700ffffffff02000700e903000004000000ffffffff080000000000000010000700ffffffff2000"
    "0000ffffffff";

TEST(PosixAclMappingTest, OwnerOnlyFile) {
  ExpectServersAcls(Descriptor({Ace::Allowed(kFull, kAlice)}), false, 0100744,
                    {kOwnerOnly, "",
                     "020480050000000001000000000000e90300000002ffffffff0001000000000000e9030000"});
}

TEST(PosixAclMappingTest, UserGroupAndEveryoneOnAFile) {
  // user::rwx user:1001:rwx user:1002:r-x group::r-x group:0:r-x mask::rwx other::r-x
  ExpectServersAcls(
      Descriptor({Ace::Allowed(kRead, security::EveryoneSid()), Ace::Allowed(kRead, kRootGroup),
                  Ace::Allowed(kFull, kAlice), Ace::Allowed(kRead, kBob)}),
      false, 0100744,
      {"0200000001000700ffffffff02000700e903000002000500ea03000004000500ffffffff0800050000000000"
       "10000700ffffffff20000500ffffffff",
       "",
       "020480060000000001000000000000e90300000002ffffffff0001000000000000e90300000000ea030000"});
}

TEST(PosixAclMappingTest, InheritableEntriesOnAFolderMakeItsDefaultAcl) {
  const std::uint8_t both = security::kObjectInheritAce | security::kContainerInheritAce;
  ExpectServersAcls(
      Descriptor({Ace::Allowed(kFull, kAlice, both),
                  Ace::Allowed(kFull, security::LocalSystemSid(), both),
                  Ace::Allowed(kFull, security::BuiltinAdministratorsSid(), both)}),
      true, 040755,
      {kOwnerOnly, kOwnerOnly,
       "020480050005000001000000000000e90300000002ffffffff0001000000000000e90300000001000000000002"
       "ffffffff0001000000000000e90300000300e9030000"});
}

// Nothing inheriting to both files and folders (here: to files only): no default ACL, and the
// object-only entry keeps its flags in the access list.
TEST(PosixAclMappingTest, FolderWithoutEntriesForBothKindsHasNoDefaultAcl) {
  FakeAccounts accounts;
  const ServerPosixAcls acls =
      PosixAclsForDescriptor(Descriptor({Ace::Allowed(kFull, kAlice),
                                         Ace::Allowed(kRead, kBob, security::kObjectInheritAce)}),
                             true, 1001, 0, 040755, accounts);
  ASSERT_TRUE(acls.defaults.has_value());
  EXPECT_TRUE(acls.defaults->empty());
  EXPECT_EQ(
      Hex(acls.pai),
      "020480060000000001000000000000e90300000002ffffffff0001000000000000e90300000100ea030000");
}

const Sid kUsersGroup = SidOf(L"S-1-22-2-100");
constexpr std::uint8_t kOi = security::kObjectInheritAce;
constexpr std::uint8_t kCi = security::kContainerInheritAce;
constexpr std::uint8_t kIo = security::kInheritOnlyAce;

// A user's deny takes its bits from what Everyone gives it; the denied user comes last.
TEST(PosixAclMappingTest, DenyEntryOnAFile) {
  ExpectServersAcls(
      Descriptor({Ace::Denied(0x2, kBob), Ace::Allowed(kRead, security::EveryoneSid()),
                  Ace::Allowed(kFull, kAlice)}),
      false, 0100640,
      {"0200000001000700ffffffff02000700e903000002000500ea03000004000500ffffffff0800050000000000"
       "10000700ffffffff20000500ffffffff",
       "",
       "020480060000000001000000000000e90300000001000000000002ffffffff0000e90300000000ea030000"});
}

// A deny for Everyone takes its bits from every entry and makes none of its own.
TEST(PosixAclMappingTest, EveryoneDenied) {
  ExpectServersAcls(
      Descriptor({Ace::Denied(0x2, security::EveryoneSid()), Ace::Allowed(kFull, kAlice),
                  Ace::Allowed(kChange, kBob)}),
      false, 0100640,
      {"0200000001000500ffffffff02000500e903000002000500ea03000004000000ffffffff0800000000000000"
       "10000700ffffffff20000000ffffffff",
       "",
       "020480060000000001000000000000e90300000002ffffffff0001000000000000e90300000000ea030000"});
}

// Without an entry for the owner, user:: keeps the owner's mode bits (here rw-).
TEST(PosixAclMappingTest, NoEntryForTheOwner) {
  ExpectServersAcls(
      Descriptor({Ace::Allowed(kChange, kBob)}), false, 0100640,
      {"0200000001000600ffffffff02000600e903000002000700ea03000004000000ffffffff0800000000000000"
       "10000700ffffffff20000000ffffffff",
       "",
       "020480060000000001000000000000e90300000002ffffffff0001000000000000e90300000000ea030000"});
}

// Single rights: FILE_READ_EA reads, FILE_APPEND_DATA and FILE_WRITE_EA write,
// FILE_DELETE_CHILD gives nothing; a named group other than the owning one.
TEST(PosixAclMappingTest, SingleRightsAndANamedGroup) {
  FakeAccountsWithUsersGroup accounts;
  const ServerPosixAcls acls = PosixAclsForDescriptor(
      Descriptor({Ace::Allowed(0x40, security::EveryoneSid()), Ace::Allowed(0x10, kUsersGroup),
                  Ace::Allowed(0x8, kAlice), Ace::Allowed(0x4, kBob)}),
      false, 1001, 0, 0100640, accounts);
  EXPECT_EQ(Hex(EncodePosixAcl(acls.access)),
            "0200000001000400ffffffff02000400e903000002000200ea03000004000000ffffffff080000000000"
            "0000080002006400000010000700ffffffff20000000ffffffff");
  EXPECT_EQ(Hex(acls.pai),
            "020480070000000001000000000000e90300000001000000000002ffffffff0001640000000000e90300"
            "000000ea030000");
}

TEST(PosixAclMappingTest, MixedInheritanceOnAFolder) {
  ExpectServersAcls(
      Descriptor({Ace::Allowed(kRead, security::EveryoneSid(), kCi),
                  Ace::Allowed(kFull, kAlice, kOi | kCi), Ace::Allowed(kRead, kBob, kOi | kCi)}),
      true, 040755,
      {"0200000001000700ffffffff02000700e903000002000500ea03000004000500ffffffff0800050000000000"
       "10000700ffffffff20000500ffffffff",
       "0200000001000700ffffffff02000700e903000002000500ea03000004000000ffffffff0800000000000000"
       "10000700ffffffff20000000ffffffff",
       "020480060006000001000000000000e90300000001000000000202ffffffff0000e90300000000ea03000000"
       "01000000000002ffffffff0001000000000000e90300000300e90300000300ea030000"});
}

TEST(PosixAclMappingTest, CreatorOwnerAndCreatorGroup) {
  ExpectServersAcls(
      Descriptor({Ace::Allowed(kFull, security::CreatorOwnerSid(), kOi | kCi | kIo),
                  Ace::Allowed(kFull, kAlice)}),
      true, 040755,
      {kOwnerOnly, kOwnerOnly,
       "020480050005000001000000000000e90300000002ffffffff0001000000000000e90300000001000000000000"
       "e90300000002ffffffff0001000000000b00e9030000"});
  ExpectServersAcls(
      Descriptor({Ace::Allowed(kRead, security::CreatorGroupSid(), kOi | kCi | kIo),
                  Ace::Allowed(kFull, kAlice, kOi | kCi)}),
      true, 040755,
      {kOwnerOnly,
       "0200000001000700ffffffff02000700e903000004000500ffffffff0800050000000000100007"
       "00ffffffff20000000ffffffff",
       "020480050005000001000000000000e90300000002ffffffff0001000000000000e90300000001000000000002"
       "ffffffff0000e90300000b01000000000300e9030000"});
}

// The owner always reads a file; FILE_READ_ATTRIBUTES alone gives no read.
TEST(PosixAclMappingTest, TheOwnerAlwaysReadsAFile) {
  FakeAccountsWithUsersGroup accounts;
  const ServerPosixAcls acls =
      PosixAclsForDescriptor(Descriptor({Ace::Allowed(0x80, kUsersGroup), Ace::Allowed(0x2, kAlice),
                                         Ace::Allowed(0x8, kBob)}),
                             false, 1001, 0, 0100640, accounts);
  EXPECT_EQ(Hex(EncodePosixAcl(acls.access)),
            "0200000001000600ffffffff02000600e903000002000400ea03000004000000ffffffff080000000000"
            "0000080000006400000010000700ffffffff20000000ffffffff");
}

// The owner has full control of a folder and of what it passes on, whatever its entries say.
TEST(PosixAclMappingTest, TheOwnerHasFullControlOfAFolder) {
  ExpectServersAcls(
      Descriptor({Ace::Allowed(0x2, kAlice), Ace::Allowed(0x2, kBob)}), true, 040555,
      {"0200000001000700ffffffff02000700e903000002000200ea03000004000000ffffffff0800000000000000"
       "10000700ffffffff20000000ffffffff",
       "02000000",  // no default ACL
       "020480060000000001000000000000e90300000002ffffffff0001000000000000e90300000000ea030000"});
  FakeAccounts accounts;
  const ServerPosixAcls acls = PosixAclsForDescriptor(
      Descriptor({Ace::Allowed(0x2, security::CreatorOwnerSid(), kOi | kCi | kIo),
                  Ace::Allowed(kFull, kAlice)}),
      true, 1001, 0, 040555, accounts);
  ASSERT_TRUE(acls.defaults.has_value());
  EXPECT_EQ(Hex(EncodePosixAcl(*acls.defaults)), kOwnerOnly);
}

}  // namespace
}  // namespace tw::posix::samba
