#include "hive/security_parts.h"

#include <gtest/gtest.h>

#include <set>
#include <span>

#include "base/win32_error.h"
#include "descriptor/ace.h"
#include "descriptor/acl.h"
#include "descriptor/inheritance.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/well_known_sids.h"
#include "hive/hive_reader.h"
#include "hive/hive_writer.h"
#include "hive/offreg_api.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

using security::Ace;
using security::Acl;
using security::SecurityDescriptor;
using security::Sid;

constexpr std::uint32_t kKeyRead = 0x00020019;
constexpr std::uint32_t kKeyAllAccess = 0x000F003F;
constexpr std::uint32_t kAllParts = kOwnerSecurityInformation | kGroupSecurityInformation |
                                    kDaclSecurityInformation | kSaclSecurityInformation;

const Sid kAlice(5, {21, 1, 2, 3, 1001});
const Sid kStaff(5, {21, 1, 2, 3, 513});
const Sid kBob(5, {21, 1, 2, 3, 1002});

std::vector<std::uint8_t> Descriptor(std::vector<Ace> aces, std::uint16_t extraControl = 0) {
  SecurityDescriptor sd;
  sd.owner = kAlice;
  sd.group = kStaff;
  Acl dacl;
  EXPECT_EQ(Acl::FromAces(security::kAclRevision, std::move(aces), &dacl), err::kSuccess);
  sd.SetDacl(std::move(dacl));
  sd.control |= extraControl;
  return security::MakeSelfRelative(sd);
}

SecurityDescriptor SecurityOf(ORHKEY key) {
  DWORD size = 0;
  EXPECT_EQ(tw_ORGetKeySecurity(key, kAllParts, nullptr, &size), err::kInsufficientBuffer);
  std::vector<std::uint8_t> bytes(size);
  EXPECT_EQ(tw_ORGetKeySecurity(key, kAllParts, bytes.data(), &size), err::kSuccess);
  SecurityDescriptor sd;
  EXPECT_EQ(security::ParseSelfRelative(bytes, &sd), err::kSuccess);
  return sd;
}

// A new hive whose root has `rootDescriptor`, and a handle to a new key below it created
// without a descriptor.
class NewKeySecurity : public ::testing::Test {
 protected:
  void TearDown() override {
    if (hive_ != nullptr) tw_ORCloseHive(hive_);
  }
  ORHKEY CreateUnder(const std::vector<std::uint8_t>& rootDescriptor, const wchar_t* path) {
    EXPECT_EQ(tw_ORCreateHive(&hive_), err::kSuccess);
    std::vector<std::uint8_t> copy = rootDescriptor;
    EXPECT_EQ(
        tw_ORSetKeySecurity(
            hive_, kOwnerSecurityInformation | kGroupSecurityInformation | kDaclSecurityInformation,
            copy.data()),
        err::kSuccess);
    ORHKEY key = nullptr;
    EXPECT_EQ(tw_ORCreateKey(hive_, path, nullptr, 0, nullptr, &key, nullptr), err::kSuccess);
    return key;
  }
  ORHKEY hive_ = nullptr;
};

TEST_F(NewKeySecurity, ChildGetsTheInheritableEntriesAndTheParentsOwnerAndGroup) {
  const ORHKEY key = CreateUnder(Descriptor({Ace::Allowed(kKeyRead, security::BuiltinUsersSid(),
                                                          security::kContainerInheritAce),
                                             Ace::Allowed(kKeyAllAccess, kBob)}),
                                 L"Child");
  const SecurityDescriptor sd = SecurityOf(key);
  EXPECT_EQ(sd.owner, kAlice);
  EXPECT_EQ(sd.group, kStaff);
  ASSERT_TRUE(sd.HasDacl());
  ASSERT_TRUE(sd.dacl.has_value());
  ASSERT_EQ(sd.dacl->aces().size(), 1u);  // Bob's entry is not inheritable
  const Ace& ace = sd.dacl->aces()[0];
  EXPECT_EQ(ace.sid, security::BuiltinUsersSid());
  EXPECT_EQ(ace.mask, kKeyRead);
  EXPECT_EQ(ace.flags, security::kContainerInheritAce | security::kInheritedAce);
  EXPECT_FALSE(sd.HasSacl());
}

TEST_F(NewKeySecurity, GrandchildrenOfANewPathInheritAlongTheChain) {
  const ORHKEY key = CreateUnder(
      Descriptor({Ace::Allowed(kKeyRead, kBob,
                               security::kContainerInheritAce | security::kNoPropagateInheritAce),
                  Ace::Allowed(kKeyAllAccess, kAlice, security::kContainerInheritAce)}),
      L"A\\B");
  // "A" got Bob's entry (without propagation); "B", below "A", no longer does.
  const SecurityDescriptor sd = SecurityOf(key);
  ASSERT_TRUE(sd.dacl.has_value());
  ASSERT_EQ(sd.dacl->aces().size(), 1u);
  EXPECT_EQ(sd.dacl->aces()[0].sid, kAlice);
  ORHKEY a = nullptr;
  ASSERT_EQ(tw_OROpenKey(hive_, L"A", &a), err::kSuccess);
  const SecurityDescriptor sa = SecurityOf(a);
  ASSERT_TRUE(sa.dacl.has_value());
  ASSERT_EQ(sa.dacl->aces().size(), 2u);
  EXPECT_EQ(sa.dacl->aces()[0].sid, kBob);
  EXPECT_EQ(sa.dacl->aces()[0].flags, security::kInheritedAce);
}

TEST_F(NewKeySecurity, AProtectedParentStillPassesItsEntriesButNotItsProtection) {
  const ORHKEY key =
      CreateUnder(Descriptor({Ace::Allowed(kKeyRead, kBob, security::kContainerInheritAce)},
                             security::kSeDaclProtected),
                  L"Child");
  const SecurityDescriptor sd = SecurityOf(key);
  EXPECT_EQ(sd.control & security::kSeDaclProtected, 0);
  ASSERT_TRUE(sd.dacl.has_value());
  ASSERT_EQ(sd.dacl->aces().size(), 1u);
  EXPECT_EQ(sd.dacl->aces()[0].sid, kBob);
  EXPECT_TRUE(sd.dacl->aces()[0].IsInherited());
}

TEST_F(NewKeySecurity, CreatorOwnerBecomesTheParentsOwner) {
  const ORHKEY key = CreateUnder(
      Descriptor({Ace::Allowed(security::kGenericAll, security::CreatorOwnerSid(),
                               security::kContainerInheritAce | security::kInheritOnlyAce)}),
      L"Child");
  const SecurityDescriptor sd = SecurityOf(key);
  ASSERT_TRUE(sd.dacl.has_value());
  ASSERT_EQ(sd.dacl->aces().size(), 2u);
  EXPECT_EQ(sd.dacl->aces()[0].sid, kAlice);
  EXPECT_EQ(sd.dacl->aces()[0].mask, kKeyAllAccess);
  EXPECT_EQ(sd.dacl->aces()[0].flags, security::kInheritedAce);
  EXPECT_EQ(sd.dacl->aces()[1].sid, security::CreatorOwnerSid());
  EXPECT_NE(sd.dacl->aces()[1].flags & security::kInheritOnlyAce, 0);
}

TEST_F(NewKeySecurity, AGivenDescriptorIsStoredAsGiven) {
  ASSERT_EQ(tw_ORCreateHive(&hive_), err::kSuccess);
  std::vector<std::uint8_t> given = Descriptor({Ace::Allowed(kKeyRead, kBob)});
  ORHKEY key = nullptr;
  ASSERT_EQ(tw_ORCreateKey(hive_, L"Given", nullptr, 0, given.data(), &key, nullptr),
            err::kSuccess);
  const SecurityDescriptor sd = SecurityOf(key);
  SecurityDescriptor expected;
  ASSERT_EQ(security::ParseSelfRelative(given, &expected), err::kSuccess);
  EXPECT_EQ(sd, expected);
}

TEST(InheritedSecurity, ADescriptorTheCodecCannotReadFallsBackToTheDefault) {
  const SecurityBytes garbage = {1, 0, 0x04, 0x80, 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(InheritedSecurity(garbage), InheritedSecurity(DefaultSecurityDescriptor()));
  SecurityDescriptor sd;
  ASSERT_EQ(security::ParseSelfRelative(InheritedSecurity(garbage), &sd), err::kSuccess);
  EXPECT_EQ(sd.owner, security::BuiltinAdministratorsSid());
  ASSERT_TRUE(sd.dacl.has_value());
  EXPECT_EQ(sd.dacl->aces().size(), 3u);
}

TEST(SelfRelativeLength, MeasuresValidDescriptorsAndRefusesBadOnes) {
  const auto good = Descriptor({Ace::Allowed(kKeyRead, kBob)});
  EXPECT_EQ(SelfRelativeLength(good.data()), good.size());
  auto badAcl = good;
  badAcl[security::kSelfRelativeHeaderSize] = 9;  // ACL revision 9
  EXPECT_EQ(SelfRelativeLength(badAcl.data()), 0u);
  auto badSid = good;
  badSid[good.size() - 2 * 28 + 0] = 2;  // owner SID revision 2 (owner and group are 28 bytes)
  EXPECT_EQ(SelfRelativeLength(badSid.data()), 0u);
  auto absolute = good;
  absolute[3] &= 0x7F;
  EXPECT_EQ(SelfRelativeLength(absolute.data()), 0u);
}

void CollectDescriptors(const Key& key, std::set<SharedSecurity>* out) {
  if (key.security) out->insert(key.security);
  for (const auto& child : key.children) CollectDescriptors(*child, out);
}

TEST(SecurityCells, RealHivesDescriptorsReadThroughTheCodecAndSurviveASave) {
  for (const char* name :
       {"windows-2003-minimal.hiv", "windows-xp-special.hiv", "rlenvalue-test.hiv"}) {
    SCOPED_TRACE(name);
    const auto bytes = testing::ReadBytes(testing::TestHive(name));
    ReadResult read = ParseHive(bytes);
    ASSERT_EQ(read.error, err::kSuccess);
    std::set<SharedSecurity> descriptors;
    CollectDescriptors(*read.hive->root, &descriptors);
    ASSERT_FALSE(descriptors.empty());
    std::set<SecurityBytes> distinct;
    for (const SharedSecurity& sd : descriptors) {
      SecurityDescriptor parsed;
      ASSERT_EQ(security::ParseSelfRelative(*sd, &parsed), err::kSuccess);
      // Every part selected: the codec's re-encoding, which parses to the same descriptor.
      const SecurityBytes all = SelectParts(*sd, kAllParts);
      EXPECT_EQ(all, security::MakeSelfRelative(parsed));
      EXPECT_EQ(SelfRelativeLength(sd->data()), sd->size());
      distinct.insert(*sd);
    }
    // A save keeps each cell's descriptor byte for byte.
    const auto saved = SerializeHive(*read.hive->root, 5, L"x", 1);
    ReadResult again = ParseHive(saved);
    ASSERT_EQ(again.error, err::kSuccess);
    std::set<SharedSecurity> after;
    CollectDescriptors(*again.hive->root, &after);
    std::set<SecurityBytes> distinctAfter;
    for (const SharedSecurity& sd : after) distinctAfter.insert(*sd);
    EXPECT_EQ(distinctAfter, distinct);
  }
}

}  // namespace
}  // namespace tw::hive
