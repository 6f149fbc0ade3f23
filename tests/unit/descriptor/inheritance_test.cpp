#include "descriptor/inheritance.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/well_known_sids.h"

namespace tw::security {
namespace {

const Sid kOwner(5, {21, 1, 2, 3, 1001});
const Sid kGroup(5, {21, 1, 2, 3, 513});

Acl ListOf(std::vector<Ace> aces) {
  Acl acl;
  EXPECT_EQ(Acl::FromAces(kAclRevision, std::move(aces), &acl), err::kSuccess);
  return acl;
}

std::vector<Ace> ForContainer(std::vector<Ace> parent) {
  return InheritedAcl(ListOf(std::move(parent)), true, kOwner, kGroup, kRegistryKeyMapping).aces();
}

std::vector<Ace> ForObject(std::vector<Ace> parent) {
  return InheritedAcl(ListOf(std::move(parent)), false, kOwner, kGroup, kFileMapping).aces();
}

TEST(MapGenericMask, ReplacesGenericRightsOnly) {
  EXPECT_EQ(MapGenericMask(kGenericAll, kRegistryKeyMapping), 0x000F003Fu);
  EXPECT_EQ(MapGenericMask(kGenericRead | 0x00010000u, kRegistryKeyMapping), 0x00030019u);
  EXPECT_EQ(MapGenericMask(kGenericWrite | kGenericExecute, kRegistryKeyMapping), 0x0002001Fu);
  EXPECT_EQ(MapGenericMask(kGenericAll, kFileMapping), 0x001F01FFu);
  EXPECT_EQ(MapGenericMask(0x00020019u, kRegistryKeyMapping), 0x00020019u);
}

TEST(InheritedAcl, ExplicitOnlyEntriesAreNotInherited) {
  EXPECT_TRUE(ForContainer({Ace::Allowed(0x00020019, EveryoneSid())}).empty());
  EXPECT_TRUE(ForObject({Ace::Allowed(0x00020019, EveryoneSid(), kContainerInheritAce)}).empty());
}

TEST(InheritedAcl, ContainerInheritPlainEntryBecomesOneEffectiveAndInheritableEntry) {
  const auto aces = ForContainer(
      {Ace::Allowed(0x00020019, EveryoneSid(), kContainerInheritAce | kInheritOnlyAce)});
  ASSERT_EQ(aces.size(), 1u);
  EXPECT_EQ(aces[0], Ace::Allowed(0x00020019, EveryoneSid(), kContainerInheritAce | kInheritedAce));
}

TEST(InheritedAcl, GenericMaskIsSplitIntoEffectiveAndInheritOnlyEntries) {
  const auto aces = ForContainer({Ace::Denied(kGenericRead, EveryoneSid(), kContainerInheritAce)});
  ASSERT_EQ(aces.size(), 2u);
  EXPECT_EQ(aces[0], Ace::Denied(0x00020019, EveryoneSid(), kInheritedAce));
  EXPECT_EQ(aces[1], Ace::Denied(kGenericRead, EveryoneSid(),
                                 kContainerInheritAce | kInheritOnlyAce | kInheritedAce));
}

TEST(InheritedAcl, CreatorOwnerAndGroupAreReplacedInTheEffectiveEntry) {
  const auto aces =
      ForContainer({Ace::Allowed(0x00020019, CreatorOwnerSid(), kContainerInheritAce),
                    Ace::Allowed(0x00000001, CreatorGroupSid(), kContainerInheritAce)});
  ASSERT_EQ(aces.size(), 4u);
  EXPECT_EQ(aces[0], Ace::Allowed(0x00020019, kOwner, kInheritedAce));
  EXPECT_EQ(aces[1], Ace::Allowed(0x00020019, CreatorOwnerSid(),
                                  kContainerInheritAce | kInheritOnlyAce | kInheritedAce));
  EXPECT_EQ(aces[2], Ace::Allowed(0x00000001, kGroup, kInheritedAce));
  EXPECT_EQ(aces[3].sid, CreatorGroupSid());
}

TEST(InheritedAcl, NoPropagateGivesOnlyTheEffectiveEntry) {
  const auto aces = ForContainer(
      {Ace::Allowed(
           kGenericAll, CreatorOwnerSid(),
           kContainerInheritAce | kObjectInheritAce | kNoPropagateInheritAce | kInheritOnlyAce),
       Ace::Allowed(0x00020019, EveryoneSid(), kObjectInheritAce | kNoPropagateInheritAce)});
  ASSERT_EQ(aces.size(), 1u);
  EXPECT_EQ(aces[0], Ace::Allowed(0x000F003F, kOwner, kInheritedAce));
}

TEST(InheritedAcl, ObjectInheritOnlyEntryPassesThroughAContainerAsInheritOnly) {
  const auto aces = ForContainer({Ace::Allowed(kGenericRead, EveryoneSid(), kObjectInheritAce)});
  ASSERT_EQ(aces.size(), 1u);
  EXPECT_EQ(aces[0], Ace::Allowed(kGenericRead, EveryoneSid(),
                                  kObjectInheritAce | kInheritOnlyAce | kInheritedAce));
}

TEST(InheritedAcl, ObjectChildGetsEffectiveEntriesOnly) {
  const auto aces = ForObject(
      {Ace::Allowed(kGenericAll, CreatorOwnerSid(),
                    kObjectInheritAce | kContainerInheritAce | kInheritOnlyAce),
       Ace::Denied(0x00010000, EveryoneSid(), kObjectInheritAce | kNoPropagateInheritAce)});
  ASSERT_EQ(aces.size(), 2u);
  EXPECT_EQ(aces[0], Ace::Allowed(0x001F01FF, kOwner, kInheritedAce));
  EXPECT_EQ(aces[1], Ace::Denied(0x00010000, EveryoneSid(), kInheritedAce));
}

TEST(InheritedAcl, OpaqueEntriesKeepTheirBody) {
  const std::vector<std::uint8_t> body = {1, 2, 3, 4};
  const auto aces = ForContainer({Ace::Opaque(0x11, kContainerInheritAce | 0x40, body)});
  ASSERT_EQ(aces.size(), 1u);
  EXPECT_EQ(aces[0], Ace::Opaque(0x11, kContainerInheritAce | kInheritedAce | 0x40, body));
}

TEST(InheritFromParent, SetsOwnerGroupAndControl) {
  SecurityDescriptor parent;
  parent.control = kSeDaclProtected | kSeDaclAutoInherited;
  parent.SetDacl(ListOf({Ace::Allowed(0x00020019, EveryoneSid(), kContainerInheritAce)}));
  const SecurityDescriptor child =
      InheritFromParent(parent, true, kOwner, kGroup, kRegistryKeyMapping);
  EXPECT_EQ(child.control, kSeDaclPresent | kSeDaclAutoInherited);
  EXPECT_EQ(child.owner, kOwner);
  EXPECT_EQ(child.group, kGroup);
  ASSERT_TRUE(child.dacl.has_value());
  EXPECT_EQ(child.dacl->aces().size(), 1u);
  EXPECT_FALSE(child.HasSacl());

  parent.control = kSeDaclPresent;
  EXPECT_EQ(InheritFromParent(parent, true, kOwner, kGroup, kRegistryKeyMapping).control,
            kSeDaclPresent);
}

TEST(InheritFromParent, NullOrMissingParentDaclGivesAnEmptyDacl) {
  SecurityDescriptor parent;
  parent.SetNullDacl();
  SecurityDescriptor child = InheritFromParent(parent, true, kOwner, kGroup, kRegistryKeyMapping);
  ASSERT_TRUE(child.dacl.has_value());
  EXPECT_TRUE(child.dacl->aces().empty());
  parent.RemoveDacl();
  child = InheritFromParent(parent, true, kOwner, kGroup, kRegistryKeyMapping);
  ASSERT_TRUE(child.dacl.has_value());
  EXPECT_TRUE(child.dacl->aces().empty());
}

TEST(InheritedAcl, KeepsAHigherParentRevision) {
  Acl parent;
  ASSERT_EQ(Acl::FromAces(kAclRevisionDs, {Ace::Allowed(1, EveryoneSid(), kContainerInheritAce)},
                          &parent),
            err::kSuccess);
  EXPECT_EQ(InheritedAcl(parent, true, kOwner, kGroup, kRegistryKeyMapping).revision(),
            kAclRevisionDs);
}

// One parent entry of each inheritance kind, with file rights, for a folder child and a file
// child: (flags of the parent entry) -> the child's entries.
TEST(InheritedAcl, FileRightsForEveryInheritanceKind) {
  struct Case {
    std::uint8_t flags;
    std::vector<Ace> folder;
    std::vector<Ace> file;
  };
  const Sid anna(5, {21, 7, 8, 9, 1001});
  constexpr std::uint32_t kModify = 0x001301BF;
  constexpr std::uint8_t kOi = kObjectInheritAce;
  constexpr std::uint8_t kCi = kContainerInheritAce;
  constexpr std::uint8_t kNp = kNoPropagateInheritAce;
  constexpr std::uint8_t kIo = kInheritOnlyAce;
  constexpr std::uint8_t kId = kInheritedAce;
  const std::vector<Case> cases = {
      {0, {}, {}},
      {kOi, {Ace::Allowed(kModify, anna, kOi | kIo | kId)}, {Ace::Allowed(kModify, anna, kId)}},
      {kCi, {Ace::Allowed(kModify, anna, kCi | kId)}, {}},
      {kOi | kCi,
       {Ace::Allowed(kModify, anna, kOi | kCi | kId)},
       {Ace::Allowed(kModify, anna, kId)}},
      {kOi | kCi | kIo,
       {Ace::Allowed(kModify, anna, kOi | kCi | kId)},
       {Ace::Allowed(kModify, anna, kId)}},
      {kOi | kNp, {}, {Ace::Allowed(kModify, anna, kId)}},
      {kCi | kNp, {Ace::Allowed(kModify, anna, kId)}, {}},
      {kOi | kCi | kNp, {Ace::Allowed(kModify, anna, kId)}, {Ace::Allowed(kModify, anna, kId)}},
      {kOi | kCi | kNp | kIo,
       {Ace::Allowed(kModify, anna, kId)},
       {Ace::Allowed(kModify, anna, kId)}},
  };
  for (const Case& c : cases) {
    const Acl parent = ListOf({Ace::Allowed(kModify, anna, c.flags)});
    EXPECT_EQ(InheritedAcl(parent, true, kOwner, kGroup, kFileMapping).aces(), c.folder)
        << static_cast<int>(c.flags);
    EXPECT_EQ(InheritedAcl(parent, false, kOwner, kGroup, kFileMapping).aces(), c.file)
        << static_cast<int>(c.flags);
  }
}

TEST(InheritedAcl, GenericRightsAreMappedForFilesAndKeptForGrandchildren) {
  const Acl parent = ListOf({Ace::Allowed(kGenericRead | kGenericExecute, EveryoneSid(),
                                          kObjectInheritAce | kContainerInheritAce)});
  EXPECT_EQ(InheritedAcl(parent, false, kOwner, kGroup, kFileMapping).aces(),
            std::vector<Ace>{Ace::Allowed(0x001200A9, EveryoneSid(), kInheritedAce)});
  EXPECT_EQ(InheritedAcl(parent, true, kOwner, kGroup, kFileMapping).aces(),
            (std::vector<Ace>{Ace::Allowed(0x001200A9, EveryoneSid(), kInheritedAce),
                              Ace::Allowed(kGenericRead | kGenericExecute, EveryoneSid(),
                                           kObjectInheritAce | kContainerInheritAce |
                                               kInheritOnlyAce | kInheritedAce)}));
}

TEST(ReinheritedAcl, KeepsExplicitEntriesAndReplacesInheritedOnes) {
  const Acl own = ListOf({Ace::Denied(0x00010000, EveryoneSid()),
                          Ace::Allowed(0x001F01FF, kOwner, kInheritedAce),
                          Ace::Allowed(0x00120089, kGroup, kObjectInheritAce)});
  const Acl parent =
      ListOf({Ace::Allowed(kGenericAll, CreatorOwnerSid(), kObjectInheritAce | kInheritOnlyAce),
              Ace::Allowed(0x00120089, LocalSystemSid())});
  Acl result;
  ASSERT_EQ(ReinheritedAcl(own, &parent, false, kOwner, kGroup, kFileMapping, &result),
            err::kSuccess);
  EXPECT_EQ(result.aces(), (std::vector<Ace>{Ace::Denied(0x00010000, EveryoneSid()),
                                             Ace::Allowed(0x00120089, kGroup, kObjectInheritAce),
                                             Ace::Allowed(0x001F01FF, kOwner, kInheritedAce)}));

  ASSERT_EQ(ReinheritedAcl(own, nullptr, false, kOwner, kGroup, kFileMapping, &result),
            err::kSuccess);
  EXPECT_EQ(result.aces(), (std::vector<Ace>{Ace::Denied(0x00010000, EveryoneSid()),
                                             Ace::Allowed(0x00120089, kGroup, kObjectInheritAce)}));
}

TEST(HasInheritableEntries, LooksForObjectOrContainerInherit) {
  SecurityDescriptor sd;
  EXPECT_FALSE(HasInheritableEntries(sd));
  sd.SetNullDacl();
  EXPECT_FALSE(HasInheritableEntries(sd));
  sd.SetDacl(ListOf({Ace::Allowed(1, EveryoneSid(), kNoPropagateInheritAce | kInheritOnlyAce)}));
  EXPECT_FALSE(HasInheritableEntries(sd));
  sd.SetDacl(ListOf({Ace::Allowed(1, EveryoneSid()), Ace::Allowed(1, kOwner, kObjectInheritAce)}));
  EXPECT_TRUE(HasInheritableEntries(sd));
  sd.SetDacl(ListOf({Ace::Allowed(1, EveryoneSid(), kContainerInheritAce)}));
  EXPECT_TRUE(HasInheritableEntries(sd));
}

Acl DefaultDacl() {
  return ListOf({Ace::Allowed(kGenericAll, kOwner), Ace::Allowed(kGenericAll, LocalSystemSid())});
}

TEST(CreateChildDescriptor, InheritsWhenTheParentHasInheritableEntries) {
  SecurityDescriptor parent;
  parent.SetDacl(ListOf({Ace::Allowed(0x001200A9, EveryoneSid(), kObjectInheritAce)}));
  parent.control |= kSeDaclAutoInherited | kSeDaclProtected;
  const SecurityDescriptor file =
      CreateChildDescriptor(&parent, false, kOwner, kGroup, DefaultDacl(), kFileMapping);
  EXPECT_EQ(file.owner, kOwner);
  EXPECT_EQ(file.group, kGroup);
  EXPECT_EQ(file.control, kSeDaclPresent | kSeDaclAutoInherited);
  EXPECT_EQ(file.dacl->aces(),
            std::vector<Ace>{Ace::Allowed(0x001200A9, EveryoneSid(), kInheritedAce)});

  // A folder gets only the inherit-only copy, and no default entries: the parent had
  // something inheritable, so its (inherited) DACL is the child's.
  parent.control = kSeDaclPresent;
  const SecurityDescriptor folder =
      CreateChildDescriptor(&parent, true, kOwner, kGroup, DefaultDacl(), kFileMapping);
  EXPECT_EQ(folder.control, kSeDaclPresent);
  EXPECT_EQ(folder.dacl->aces(),
            std::vector<Ace>{Ace::Allowed(0x001200A9, EveryoneSid(),
                                          kObjectInheritAce | kInheritOnlyAce | kInheritedAce)});
}

TEST(CreateChildDescriptor, EntriesThatMissThisKindOfChildGiveAnEmptyDacl) {
  SecurityDescriptor parent;
  parent.SetDacl(ListOf({Ace::Allowed(0x001F01FF, EveryoneSid(), kContainerInheritAce)}));
  const SecurityDescriptor file =
      CreateChildDescriptor(&parent, false, kOwner, kGroup, DefaultDacl(), kFileMapping);
  EXPECT_EQ(file.control, kSeDaclPresent);
  ASSERT_TRUE(file.dacl.has_value());
  EXPECT_TRUE(file.dacl->aces().empty());
}

TEST(CreateChildDescriptor, NothingInheritableGivesTheDefaultDaclMapped) {
  const std::vector<Ace> mapped = {Ace::Allowed(0x001F01FF, kOwner),
                                   Ace::Allowed(0x001F01FF, LocalSystemSid())};
  SecurityDescriptor parent;
  parent.SetDacl(ListOf({Ace::Allowed(0x001F01FF, EveryoneSid())}));
  parent.control |= kSeDaclAutoInherited;
  std::vector<const SecurityDescriptor*> parents = {&parent, nullptr};
  SecurityDescriptor nullDacl;
  nullDacl.SetNullDacl();
  parents.push_back(&nullDacl);
  SecurityDescriptor noDacl;
  parents.push_back(&noDacl);
  for (const SecurityDescriptor* p : parents) {
    for (const bool container : {false, true}) {
      const SecurityDescriptor child =
          CreateChildDescriptor(p, container, kOwner, kGroup, DefaultDacl(), kFileMapping);
      EXPECT_EQ(child.control, kSeDaclPresent);
      ASSERT_TRUE(child.dacl.has_value());
      EXPECT_EQ(child.dacl->aces(), mapped);
      EXPECT_EQ(child.owner, kOwner);
      EXPECT_EQ(child.group, kGroup);
    }
  }
}

}  // namespace
}  // namespace tw::security
