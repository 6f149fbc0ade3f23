#include "hive/security_memo.h"

#include <gtest/gtest.h>

#include "descriptor/acl.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/well_known_sids.h"
#include "hive/security_parts.h"

namespace tw::hive {
namespace {

constexpr std::uint32_t kOwnerAndDacl = kOwnerSecurityInformation | kDaclSecurityInformation;

// The default descriptor with another owner.
SecurityBytes OwnedBy(const security::Sid& owner) {
  security::SecurityDescriptor sd;
  EXPECT_EQ(security::ParseSelfRelative(DefaultSecurityDescriptor(), &sd), err::kSuccess);
  sd.owner = owner;
  return security::MakeSelfRelative(sd);
}

TEST(SecurityMemo, InheritedIsSharedWhileTheParentBytesStayTheSame) {
  SecurityMemo memo;
  const SecurityBytes parent = DefaultSecurityDescriptor();
  const SharedSecurity first = memo.Inherited(parent);
  EXPECT_EQ(*first, InheritedSecurity(parent));
  EXPECT_EQ(memo.Inherited(SecurityBytes(parent)), first);  // equal bytes elsewhere
  const SecurityBytes other = OwnedBy(security::LocalSystemSid());
  const SharedSecurity second = memo.Inherited(other);
  EXPECT_EQ(*second, InheritedSecurity(other));
  EXPECT_NE(*second, *first);
  EXPECT_EQ(*memo.Inherited(*second), InheritedSecurity(*second));  // its own result as parent
}

TEST(SecurityMemo, SelectedFollowsDescriptorAndInformation) {
  SecurityMemo memo;
  const SecurityBytes full = DefaultSecurityDescriptor();
  EXPECT_EQ(memo.Selected(full, kOwnerSecurityInformation),
            SelectParts(full, kOwnerSecurityInformation));
  EXPECT_EQ(memo.Selected(full, kOwnerAndDacl), SelectParts(full, kOwnerAndDacl));
  const SecurityBytes other = OwnedBy(security::BuiltinUsersSid());
  EXPECT_EQ(memo.Selected(other, kOwnerAndDacl), SelectParts(other, kOwnerAndDacl));
  EXPECT_EQ(memo.Selected(full, kOwnerAndDacl), SelectParts(full, kOwnerAndDacl));
}

TEST(SecurityMemo, ReplacedGivesTheChangedDescriptorOrNullForNoChange) {
  SecurityMemo memo;
  const SecurityBytes current = DefaultSecurityDescriptor();
  const SecurityBytes incoming = OwnedBy(security::BuiltinUsersSid());
  SecurityBytes expected;
  ASSERT_TRUE(ReplaceParts(current, incoming.data(), kOwnerAndDacl, &expected));
  for (int round = 0; round < 2; ++round) {
    SharedSecurity result;
    ASSERT_TRUE(memo.Replaced(current, incoming.data(), kOwnerAndDacl, &result));
    ASSERT_TRUE(result);
    EXPECT_EQ(*result, expected);
  }
  SharedSecurity same;
  ASSERT_TRUE(memo.Replaced(current, current.data(), kOwnerAndDacl, &same));
  EXPECT_FALSE(same);
}

TEST(SecurityMemo, ReplacedRefusesAnInvalidDescriptorEvenAfterAValidOne) {
  SecurityMemo memo;
  const SecurityBytes current = OwnedBy(security::LocalSystemSid());
  SecurityBytes incoming = OwnedBy(security::BuiltinUsersSid());
  SharedSecurity result;
  ASSERT_TRUE(memo.Replaced(current, incoming.data(), kOwnerAndDacl, &result));
  incoming[0] = 2;  // another revision
  EXPECT_FALSE(memo.Replaced(current, incoming.data(), kOwnerAndDacl, &result));
  // Same length, another owner: computed anew.
  const SecurityBytes admins = OwnedBy(security::BuiltinAdministratorsSid());
  ASSERT_EQ(admins.size(), incoming.size());
  ASSERT_TRUE(memo.Replaced(current, admins.data(), kOwnerAndDacl, &result));
  SecurityBytes expected;
  ASSERT_TRUE(ReplaceParts(current, admins.data(), kOwnerAndDacl, &expected));
  ASSERT_TRUE(result);
  EXPECT_EQ(*result, expected);
}

}  // namespace
}  // namespace tw::hive
