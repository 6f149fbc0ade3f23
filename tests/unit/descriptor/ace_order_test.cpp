#include "descriptor/ace_order.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/well_known_sids.h"

namespace tw::security {
namespace {

// Each entry's mask is its position in the input, so the output order can be read off.
std::vector<std::uint32_t> Masks(const std::vector<Ace>& aces) {
  std::vector<std::uint32_t> masks;
  for (const Ace& ace : aces) masks.push_back(ace.mask);
  return masks;
}

TEST(CanonicalOrder, ExplicitBeforeInheritedDeniedBeforeAllowedStableOtherwise) {
  const std::vector<Ace> aces = {
      Ace::Allowed(0, EveryoneSid(), kInheritedAce),
      Ace::Allowed(1, EveryoneSid()),
      Ace::Denied(2, EveryoneSid(), kInheritedAce),
      Ace::Denied(3, EveryoneSid()),
      Ace::Allowed(4, LocalSystemSid()),
      Ace::Denied(5, LocalSystemSid(), kInheritedAce | kContainerInheritAce),
      Ace::Denied(6, LocalSystemSid(), kObjectInheritAce),
      Ace::Allowed(7, LocalSystemSid(), kInheritedAce),
  };
  EXPECT_FALSE(IsCanonical(aces));
  const std::vector<Ace> sorted = CanonicalOrder(aces);
  EXPECT_EQ(Masks(sorted), (std::vector<std::uint32_t>{3, 6, 1, 4, 2, 5, 0, 7}));
  EXPECT_TRUE(IsCanonical(sorted));
}

TEST(CanonicalOrder, DeniedFamilyIncludesObjectAndCallbackTypes) {
  Ace objectDenied = Ace::Opaque(kAccessDeniedObjectAceType, 0, std::vector<std::uint8_t>(4, 0));
  objectDenied.mask = 1;  // not written for opaque types; used here to tell entries apart
  const std::vector<Ace> aces = {Ace::Allowed(0, EveryoneSid()), objectDenied};
  EXPECT_EQ(Masks(CanonicalOrder(aces)), (std::vector<std::uint32_t>{1, 0}));
}

TEST(IsCanonical, AcceptsOrderedListsAndTheEmptyList) {
  EXPECT_TRUE(IsCanonical(Acl()));
  Acl acl;
  ASSERT_EQ(Acl::FromAces(kAclRevision,
                          {Ace::Denied(1, EveryoneSid()), Ace::Allowed(1, EveryoneSid()),
                           Ace::Denied(1, EveryoneSid(), kInheritedAce),
                           Ace::Allowed(1, EveryoneSid(), kInheritedAce)},
                          &acl),
            err::kSuccess);
  EXPECT_TRUE(IsCanonical(acl));
}

TEST(IsCanonical, RejectsAllowedBeforeDeniedAndInheritedBeforeExplicit) {
  EXPECT_FALSE(
      IsCanonical(std::vector<Ace>{Ace::Allowed(1, EveryoneSid()), Ace::Denied(1, EveryoneSid())}));
  EXPECT_FALSE(IsCanonical(std::vector<Ace>{Ace::Denied(1, EveryoneSid(), kInheritedAce),
                                            Ace::Allowed(1, EveryoneSid())}));
}

}  // namespace
}  // namespace tw::security
