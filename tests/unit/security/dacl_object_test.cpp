// The DACL object: how a kept DACL is read and turned into the list handed to the system.
#include "security/dacl_object.h"

#include <gtest/gtest.h>

#include "base/hresult_error.h"
#include "descriptor/well_known_sids.h"
#include "security/self_relative_descriptor.h"

namespace tw {
namespace {

using security::Ace;
using security::Acl;
using security::SecurityDescriptor;

TEST(DaclObject, ReadsListNullAndAbsentDacls) {
  SecurityDescriptor sd;
  EXPECT_FALSE(DaclObject::FromDescriptor(sd).IsNull());  // absent: empty
  EXPECT_TRUE(DaclObject::FromDescriptor(sd).entries().empty());
  EXPECT_EQ(DaclObject::FromDescriptor(sd).ToAcl(), Acl());
  sd.SetNullDacl();
  EXPECT_TRUE(DaclObject::FromDescriptor(sd).IsNull());
  EXPECT_FALSE(DaclObject::FromDescriptor(sd).ToAcl().has_value());
  Acl list;
  ASSERT_EQ(Acl::FromAces(2, {Ace::Allowed(1, security::EveryoneSid())}, &list), err::kSuccess);
  sd.SetDacl(list);
  EXPECT_EQ(DaclObject::FromDescriptor(sd).entries(), list.aces());
}

TEST(DaclObject, AddingToANullDaclLeavesOnlyTheNewEntry) {
  SecurityDescriptor sd;
  sd.SetNullDacl();
  DaclObject dacl = DaclObject::FromDescriptor(sd);
  dacl.AddAllowed(security::BuiltinAdministratorsSid(), 0x1F01FF, 3);
  const std::optional<Acl> acl = dacl.ToAcl();
  ASSERT_TRUE(acl.has_value());
  ASSERT_EQ(acl->aces().size(), 1u);
  EXPECT_EQ(acl->aces()[0], Ace::Allowed(0x1F01FF, security::BuiltinAdministratorsSid(), 3));
}

TEST(DaclObject, ListIsSizedExactlyAndCanonical) {
  Acl loose;
  ASSERT_EQ(loose.Initialize(200, 2), err::kSuccess);  // free space that must not survive
  const Ace inheritedDeny = Ace::Denied(1, security::EveryoneSid(), 0x10);
  const Ace allowed = Ace::Allowed(2, security::BuiltinUsersSid());
  const Ace denied = Ace::Denied(4, security::LocalSystemSid());
  const Ace list[] = {inheritedDeny, allowed, denied};
  ASSERT_EQ(loose.AddAce(2, security::kAppendAce, list), err::kSuccess);
  SecurityDescriptor sd;
  sd.SetDacl(loose);
  const std::optional<Acl> acl = DaclObject::FromDescriptor(sd).ToAcl();
  ASSERT_TRUE(acl.has_value());
  EXPECT_EQ(acl->aces(), (std::vector<Ace>{denied, allowed, inheritedDeny}));
  EXPECT_EQ(acl->size(), 8 + inheritedDeny.Size() + allowed.Size() + denied.Size());
  EXPECT_EQ(acl->revision(), security::kAclRevision);
}

TEST(DaclObject, ListTooLargeForAnAclThrows) {
  DaclObject dacl;
  for (int i = 0; i < 3000; ++i) {
    dacl.AddAllowed(security::Sid(5, {21, 1, 2, 3, static_cast<std::uint32_t>(i)}), 1, 0);
  }
  try {
    dacl.ToAcl();
    FAIL() << "expected an exception";
  } catch (const HResultError& error) {
    EXPECT_EQ(error.code(), hr::kInvalidArg);  // InitializeAcl refuses more than 0xFFFF bytes
  }
}

TEST(DaclObject, TakesTheSameEntriesFromADescriptorGivenAway) {
  Acl list;
  ASSERT_EQ(Acl::FromAces(2,
                          {Ace::Allowed(1, security::EveryoneSid()),
                           Ace::Denied(2, security::LocalSystemSid(), security::kInheritedAce)},
                          &list),
            err::kSuccess);
  SecurityDescriptor sd;
  sd.SetDacl(list);
  const DaclObject copied = DaclObject::FromDescriptor(sd);
  const DaclObject taken = DaclObject::FromDescriptor(SecurityDescriptor(sd));
  EXPECT_EQ(taken.entries(), copied.entries());
  EXPECT_EQ(taken.entries(), list.aces());
  EXPECT_EQ(taken.ToAcl(), copied.ToAcl());
}

TEST(SelfRelativeDescriptor, KeepsOnlyOwnerAndDacl) {
  SecurityDescriptor sd;
  sd.owner = security::BuiltinAdministratorsSid();
  sd.group = security::BuiltinUsersSid();
  sd.SetNullSacl();
  sd.SetNullDacl();
  sd.control |= security::kSeDaclProtected | security::kSeGroupDefaulted;
  const SelfRelativeDescriptor kept = SelfRelativeDescriptor::FromAbsolute(sd);
  EXPECT_FALSE(kept.empty());
  EXPECT_EQ(kept.Control(),
            security::kSeSelfRelative | security::kSeDaclPresent | security::kSeDaclProtected);
  const SecurityDescriptor back = kept.ToAbsolute();
  EXPECT_EQ(back.owner, sd.owner);
  EXPECT_FALSE(back.group.has_value());
  EXPECT_FALSE(back.HasSacl());
  EXPECT_TRUE(back.IsNullDacl());
}

TEST(SelfRelativeDescriptor, SetOwnerReplacesTheOwner) {
  SecurityDescriptor sd;
  sd.owner = security::LocalSystemSid();
  sd.control |= security::kSeOwnerDefaulted;
  SelfRelativeDescriptor kept = SelfRelativeDescriptor::FromAbsolute(sd);
  kept.SetOwner(security::BuiltinAdministratorsSid());
  EXPECT_EQ(kept.Owner(), security::BuiltinAdministratorsSid());
  EXPECT_EQ(kept.Control() & security::kSeOwnerDefaulted, 0);
  EXPECT_FALSE(SelfRelativeDescriptor().Owner().has_value());
  EXPECT_EQ(SelfRelativeDescriptor().Control(), 0);
}

}  // namespace
}  // namespace tw
