// Security through a whole migration on the Linux file server: a source profile whose objects
// inherit from a protected profile folder (one file with an explicit entry of its own) migrates
// to a target whose copied objects carry the source's owner, DACL and protection, and whose
// objects that no source object stands for (the default profile's, the hive's) carry what
// their folder passes on. Descriptors are read through the security adapter.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "descriptor/inheritance.h"
#include "descriptor/well_known_sids.h"
#include "fakes/e2e_share.h"
#include "os/posix/paths/native_path.h"
#include "ports/security_port.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using security::Ace;
using security::Acl;
using security::SecurityDescriptor;
using security::Sid;
using testing::E2eShare;

constexpr std::uint8_t kOiCi = security::kObjectInheritAce | security::kContainerInheritAce;

Sid Alice() { return Sid(5, {21, 11, 12, 13, 1001}); }
Sid Bert() { return Sid(5, {21, 11, 12, 13, 1002}); }

Acl MakeAcl(std::vector<Ace> aces) {
  Acl acl;
  EXPECT_EQ(Acl::FromAces(security::kAclRevision, std::move(aces), &acl), err::kSuccess);
  return acl;
}

class InheritanceE2eTest : public ::testing::Test {
 protected:
  SecurityDescriptor Read(const fs::path& object) {
    SecurityDescriptor sd;
    EXPECT_EQ(port.ReadNamedSecurity(posix::ToWindowsPath(object.string()), sd), err::kSuccess)
        << object;
    return sd;
  }
  void Write(const fs::path& object, const Acl& dacl, DaclProtection protection) {
    SecurityWrite write;
    write.writeOwner = true;
    write.owner = Alice();
    write.writeDacl = true;
    write.dacl = dacl;
    write.protection = protection;
    ASSERT_EQ(port.WriteNamedSecurity(posix::ToWindowsPath(object.string()), write), err::kSuccess)
        << object;
  }

  // A V1 profile as a Windows client leaves it: a protected profile folder owned by the user,
  // everything below owned by her and inheriting, one file with an extra explicit entry; the
  // share root gives CREATOR OWNER full control.
  fs::path AddSecuredProfile() {
    const fs::path source = share.AddV1Profile("alice");
    SecurityWrite root;
    root.writeDacl = true;
    root.dacl = MakeAcl({Ace::Allowed(security::kGenericAll, security::CreatorOwnerSid(),
                                      kOiCi | security::kInheritOnlyAce),
                         Ace::Allowed(0x001200A9, security::BuiltinUsersSid(), kOiCi)});
    root.protection = DaclProtection::kProtected;
    EXPECT_EQ(port.WriteNamedSecurity(posix::ToWindowsPath(share.share().string()), root),
              err::kSuccess);
    Write(source,
          MakeAcl({Ace::Allowed(0x001F01FF, Alice(), kOiCi),
                   Ace::Allowed(0x001F01FF, security::LocalSystemSid(), kOiCi),
                   Ace::Allowed(0x001F01FF, security::BuiltinAdministratorsSid(), kOiCi)}),
          DaclProtection::kProtected);
    for (const auto& entry : fs::recursive_directory_iterator(source)) {
      Write(entry.path(), Acl(), DaclProtection::kUnprotected);
    }
    Write(source / "Desktop" / "desk.txt", MakeAcl({Ace::Allowed(0x001200A9, Bert())}),
          DaclProtection::kUnprotected);
    return source;
  }

  E2eShare share{testing::SuiteTools()};
  SecurityPort& port = ProcessSecurityPort();
};

TEST_F(InheritanceE2eTest, CopiesCarryTheSourceSecurityAndNewObjectsInherit) {
  const fs::path source = AddSecuredProfile();
  std::vector<std::pair<fs::path, SecurityDescriptor>> before;
  for (const auto& entry : fs::recursive_directory_iterator(source)) {
    before.emplace_back(entry.path(), Read(entry.path()));
  }
  ASSERT_EQ(Read(source / "Desktop" / "desk.txt").dacl->aces().size(), 4u);

  const testing::ProcessResult result = share.Run({"/s:\\\\fs\\profiles\\alice"});
  ASSERT_EQ(result.exitStatus, 0) << result.output;
  const fs::path target = share.share() / "alice.V2";
  EXPECT_EQ(Read(target), Read(source));

  // CopyFolder writes the source's security on every entry inside a folder it copies, and the
  // hive save on ntuser.dat; the top-level folders themselves come from the default profile.
  const auto isCopy = [&source](const fs::path& object) {
    const fs::path relative = fs::relative(object, source);
    return relative == "ntuser.dat" ||
           (std::distance(relative.begin(), relative.end()) >= 2 && fs::exists(object));
  };
  int copied = 0;
  for (const auto& [object, sd] : before) {
    EXPECT_EQ(Read(object), sd) << "the source changed: " << object;
    const fs::path copy = target / fs::relative(object, source);
    if (!isCopy(object) || !fs::exists(copy)) continue;
    ++copied;
    EXPECT_EQ(Read(copy), sd) << copy;
  }
  EXPECT_GE(copied, 5);

  // Everything else holds what its folder passes on: the default profile's objects (with the
  // source's owner, which its copy sets), the folders made on the way, the hive's.
  int inherited = 0;
  for (const auto& entry : fs::recursive_directory_iterator(target)) {
    const fs::path original = source / fs::relative(entry.path(), target);
    if (isCopy(original) && fs::exists(original)) continue;
    ++inherited;
    const SecurityDescriptor parent = Read(entry.path().parent_path());
    const SecurityDescriptor sd = Read(entry.path());
    EXPECT_EQ(sd.control & ~security::kSeDaclAutoInherited, security::kSeDaclPresent)
        << entry.path();
    ASSERT_TRUE(sd.dacl && sd.owner) << entry.path();
    EXPECT_EQ(sd.owner, Alice()) << entry.path();
    EXPECT_EQ(sd.dacl->aces(), security::InheritedAcl(*parent.dacl, entry.is_directory(), *sd.owner,
                                                      Sid(), security::kFileMapping)
                                   .aces())
        << entry.path();
  }
  EXPECT_GT(inherited, 0);
}

}  // namespace
}  // namespace tw
