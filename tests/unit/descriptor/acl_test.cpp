#include "descriptor/acl.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/well_known_sids.h"

namespace tw::security {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Revision 2, AclSize 0x24 (8 + 20 + 8 bytes of free space), one entry:
// ACCESS_ALLOWED, no flags, mask 0x00020019, S-1-1-0.
const Bytes kOneEntryWithSlack = {0x02, 0x00, 0x24, 0x00, 0x01, 0x00, 0x00, 0x00,  // header
                                  0x00, 0x00, 0x14, 0x00, 0x19, 0x00, 0x02, 0x00,  // entry
                                  0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00,
                                  0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};  // free

TEST(AclParse, ReadsHeaderAndEntries) {
  Acl acl;
  ASSERT_EQ(Acl::Parse(kOneEntryWithSlack, &acl), err::kSuccess);
  EXPECT_EQ(acl.revision(), 2);
  EXPECT_EQ(acl.size(), 0x24);
  ASSERT_EQ(acl.aces().size(), 1u);
  EXPECT_EQ(acl.aces()[0], Ace::Allowed(0x00020019, EveryoneSid()));
  EXPECT_EQ(acl.UsedBytes(), 28u);
  EXPECT_EQ(acl.FreeBytes(), 8u);
  EXPECT_EQ(acl.ToBytes(), kOneEntryWithSlack);
}

TEST(AclParse, AcceptsRevisionFour) {
  Bytes bytes = kOneEntryWithSlack;
  bytes[0] = 4;
  Acl acl;
  ASSERT_EQ(Acl::Parse(bytes, &acl), err::kSuccess);
  EXPECT_EQ(acl.revision(), 4);
  EXPECT_EQ(acl.ToBytes(), bytes);
}

TEST(AclParse, RejectsBrokenLists) {
  Acl acl;
  auto with = [](std::size_t at, std::uint8_t value) {
    Bytes bytes = kOneEntryWithSlack;
    bytes[at] = value;
    return bytes;
  };
  EXPECT_EQ(Acl::Parse(Bytes(kOneEntryWithSlack.begin(), kOneEntryWithSlack.begin() + 7), &acl),
            err::kInvalidAcl);                                   // header cut short
  EXPECT_EQ(Acl::Parse(with(0, 1), &acl), err::kInvalidAcl);     // revision 1
  EXPECT_EQ(Acl::Parse(with(0, 5), &acl), err::kInvalidAcl);     // revision 5
  EXPECT_EQ(Acl::Parse(with(2, 0x04), &acl), err::kInvalidAcl);  // AclSize below the header
  EXPECT_EQ(Acl::Parse(with(2, 0x22), &acl), err::kInvalidAcl);  // AclSize not aligned
  EXPECT_EQ(Acl::Parse(with(2, 0x28), &acl), err::kInvalidAcl);  // AclSize past the bytes
  EXPECT_EQ(Acl::Parse(with(4, 0x02), &acl), err::kInvalidAcl);  // second entry is all zero
  EXPECT_EQ(Acl::Parse(with(4, 0x08), &acl), err::kInvalidAcl);  // more entries than room
  EXPECT_EQ(Acl::Parse(with(2, 0x18), &acl), err::kInvalidAcl);  // entry overruns AclSize
}

TEST(AclParse, NeverReadsPastAclSize) {
  // The entry claims 20 bytes but AclSize is 16: the bytes after the list must not be used.
  Bytes bytes = kOneEntryWithSlack;
  bytes[2] = 0x10;
  Acl acl;
  EXPECT_EQ(Acl::Parse(bytes, &acl), err::kInvalidAcl);
}

TEST(AclInitialize, FollowsInitializeAclRules) {
  Acl acl;
  EXPECT_EQ(acl.Initialize(7, kAclRevision), err::kInsufficientBuffer);
  EXPECT_EQ(acl.Initialize(8, 1), err::kInvalidParameter);
  EXPECT_EQ(acl.Initialize(8, 5), err::kInvalidParameter);
  EXPECT_EQ(acl.Initialize(0x10000, kAclRevision), err::kInvalidParameter);
  ASSERT_EQ(acl.Initialize(8, kAclRevision), err::kSuccess);
  EXPECT_EQ(acl.ToBytes(), (Bytes{0x02, 0, 0x08, 0, 0, 0, 0, 0}));
  ASSERT_EQ(acl.Initialize(0x23, kAclRevisionDs), err::kSuccess);
  EXPECT_EQ(acl.size(), 0x20);  // rounded down to a multiple of 4
  EXPECT_EQ(acl.revision(), 4);
}

TEST(AclAddAce, AppendsWhileEntriesFit) {
  Acl acl;
  ASSERT_EQ(acl.Initialize(8 + 20 + 24, kAclRevision), err::kSuccess);
  const Ace system = Ace::Allowed(0x001F01FF, LocalSystemSid(), 3);
  const Ace admins = Ace::Denied(0x00010000, BuiltinAdministratorsSid());
  ASSERT_EQ(acl.AddAce(kAclRevision, kAppendAce, std::span<const Ace>(&system, 1)), err::kSuccess);
  ASSERT_EQ(acl.AddAce(kAclRevision, kAppendAce, std::span<const Ace>(&admins, 1)), err::kSuccess);
  EXPECT_EQ(acl.FreeBytes(), 0u);
  EXPECT_EQ(acl.ToBytes(),
            (Bytes{0x02, 0x00, 0x34, 0x00, 0x02, 0x00, 0x00, 0x00,  // header, AceCount 2
                   0x00, 0x03, 0x14, 0x00, 0xFF, 0x01, 0x1F, 0x00, 0x01, 0x01, 0x00, 0x00,
                   0x00, 0x00, 0x00, 0x05, 0x12, 0x00, 0x00, 0x00,  // allowed SYSTEM
                   0x01, 0x00, 0x18, 0x00, 0x00, 0x00, 0x01, 0x00, 0x01, 0x02, 0x00, 0x00,
                   0x00, 0x00, 0x00, 0x05, 0x20, 0x00, 0x00, 0x00, 0x20, 0x02, 0x00, 0x00}));
}

TEST(AclAddAce, RefusesAnEntryThatDoesNotFit) {
  Acl acl;
  ASSERT_EQ(acl.Initialize(8 + 20 + 20, kAclRevision), err::kSuccess);
  const Ace system = Ace::Allowed(0x001F01FF, LocalSystemSid());
  const Ace admins = Ace::Allowed(0x001F01FF, BuiltinAdministratorsSid());
  ASSERT_EQ(acl.AddAce(kAclRevision, kAppendAce, std::span<const Ace>(&system, 1)), err::kSuccess);
  EXPECT_EQ(acl.AddAce(kAclRevision, kAppendAce, std::span<const Ace>(&admins, 1)),
            err::kInsufficientBuffer);
  EXPECT_EQ(acl.aces().size(), 1u);
  const std::vector<Ace> both = {system, system};
  EXPECT_EQ(acl.AddAce(kAclRevision, kAppendAce, both), err::kInsufficientBuffer);
  EXPECT_EQ(acl.aces().size(), 1u);  // a list that does not fit adds nothing
}

TEST(AclAddAce, InsertsAtTheStartingIndex) {
  Acl acl;
  ASSERT_EQ(acl.Initialize(200, kAclRevision), err::kSuccess);
  const std::vector<Ace> first = {Ace::Allowed(1, EveryoneSid()), Ace::Allowed(2, EveryoneSid())};
  ASSERT_EQ(acl.AddAce(kAclRevision, kAppendAce, first), err::kSuccess);
  const Ace middle = Ace::Allowed(3, EveryoneSid());
  ASSERT_EQ(acl.AddAce(kAclRevision, 1, std::span<const Ace>(&middle, 1)), err::kSuccess);
  const Ace last = Ace::Allowed(4, EveryoneSid());
  ASSERT_EQ(acl.AddAce(kAclRevision, 99, std::span<const Ace>(&last, 1)), err::kSuccess);
  ASSERT_EQ(acl.aces().size(), 4u);
  EXPECT_EQ(acl.aces()[0].mask, 1u);
  EXPECT_EQ(acl.aces()[1].mask, 3u);
  EXPECT_EQ(acl.aces()[2].mask, 2u);
  EXPECT_EQ(acl.aces()[3].mask, 4u);
}

TEST(AclAddAce, RaisesTheRevisionAndRefusesBadArguments) {
  Acl acl;
  ASSERT_EQ(acl.Initialize(100, kAclRevision), err::kSuccess);
  const Ace ace = Ace::Allowed(1, EveryoneSid());
  EXPECT_EQ(acl.AddAce(1, kAppendAce, std::span<const Ace>(&ace, 1)), err::kInvalidParameter);
  const Ace odd = Ace::Opaque(9, 0, Bytes(3, 0));
  EXPECT_EQ(acl.AddAce(kAclRevision, kAppendAce, std::span<const Ace>(&odd, 1)),
            err::kInvalidParameter);
  ASSERT_EQ(acl.AddAce(kAclRevisionDs, kAppendAce, std::span<const Ace>(&ace, 1)), err::kSuccess);
  EXPECT_EQ(acl.revision(), kAclRevisionDs);
}

TEST(AclFromAces, SizesTheListExactly) {
  Acl acl;
  ASSERT_EQ(Acl::FromAces(kAclRevision, {Ace::Allowed(0x00020019, EveryoneSid())}, &acl),
            err::kSuccess);
  EXPECT_EQ(acl.size(), 28);
  EXPECT_EQ(acl.ToBytes(), (Bytes{0x02, 0x00, 0x1C, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00,
                                  0x14, 0x00, 0x19, 0x00, 0x02, 0x00, 0x01, 0x01, 0x00, 0x00,
                                  0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00}));
  EXPECT_EQ(Acl::FromAces(3, {}, &acl), err::kSuccess);
  EXPECT_EQ(Acl::FromAces(1, {}, &acl), err::kInvalidParameter);
  EXPECT_EQ(Acl::FromAces(kAclRevision, {Ace::Opaque(9, 0, Bytes(5, 0))}, &acl), err::kInvalidAcl);
  EXPECT_EQ(
      Acl::FromAces(kAclRevision, std::vector<Ace>(3300, Ace::Allowed(1, EveryoneSid())), &acl),
      err::kInvalidAcl);  // 8 + 3300 * 20 bytes exceed 0xFFFF
}

TEST(AclDefault, IsAnEmptyRevisionTwoList) {
  EXPECT_EQ(Acl().ToBytes(), (Bytes{0x02, 0, 0x08, 0, 0, 0, 0, 0}));
}

}  // namespace
}  // namespace tw::security
