#include "descriptor/ace.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/hresult_error.h"
#include "base/win32_error.h"
#include "descriptor/well_known_sids.h"

namespace tw::security {
namespace {

using Bytes = std::vector<std::uint8_t>;

// ACCESS_ALLOWED, flags OI|CI, size 0x14, mask FILE_ALL_ACCESS, SID S-1-5-18.
const Bytes kAllowedSystem = {0x00, 0x03, 0x14, 0x00, 0xFF, 0x01, 0x1F, 0x00, 0x01, 0x01,
                              0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x12, 0x00, 0x00, 0x00};
// ACCESS_DENIED, flags INHERITED, size 0x18, mask 0x00010000 (DELETE), SID S-1-5-32-544.
const Bytes kDeniedAdmins = {0x01, 0x10, 0x18, 0x00, 0x00, 0x00, 0x01, 0x00,
                             0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05,
                             0x20, 0x00, 0x00, 0x00, 0x20, 0x02, 0x00, 0x00};
// SYSTEM_AUDIT (type 2) with FAILED_ACCESS, kept as opaque bytes.
const Bytes kAudit = {0x02, 0x80, 0x14, 0x00, 0x00, 0x00, 0x00, 0x10, 0x01, 0x01,
                      0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00};

TEST(AceParse, ReadsAllowedEntry) {
  Ace ace;
  std::size_t used = 0;
  ASSERT_EQ(Ace::Parse(kAllowedSystem, &ace, &used), err::kSuccess);
  EXPECT_EQ(used, 20u);
  EXPECT_EQ(ace.type, kAccessAllowedAceType);
  EXPECT_EQ(ace.flags, kObjectInheritAce | kContainerInheritAce);
  EXPECT_EQ(ace.mask, 0x001F01FFu);
  EXPECT_EQ(ace.sid, LocalSystemSid());
  EXPECT_TRUE(ace.body.empty());
  EXPECT_EQ(ace, Ace::Allowed(0x001F01FF, LocalSystemSid(), 3));
}

TEST(AceParse, ReadsDeniedEntry) {
  Ace ace;
  ASSERT_EQ(Ace::Parse(kDeniedAdmins, &ace), err::kSuccess);
  EXPECT_EQ(ace, Ace::Denied(0x00010000, BuiltinAdministratorsSid(), kInheritedAce));
  EXPECT_TRUE(ace.IsInherited());
  EXPECT_TRUE(ace.IsDenyType());
}

TEST(AceParse, KeepsOtherTypesAsOpaqueBytes) {
  Ace ace;
  ASSERT_EQ(Ace::Parse(kAudit, &ace), err::kSuccess);
  EXPECT_EQ(ace.type, kSystemAuditAceType);
  EXPECT_EQ(ace.flags, kFailedAccessAceFlag);
  EXPECT_FALSE(ace.HasSid());
  EXPECT_EQ(ace.body, Bytes(kAudit.begin() + 4, kAudit.end()));
  Bytes out;
  ace.AppendTo(out);
  EXPECT_EQ(out, kAudit);
}

TEST(AceParse, KeepsPaddingAfterTheSid) {
  Bytes padded = kAllowedSystem;
  padded[2] = 0x18;
  padded.insert(padded.end(), {0xAA, 0xBB, 0xCC, 0xDD});
  Ace ace;
  ASSERT_EQ(Ace::Parse(padded, &ace), err::kSuccess);
  EXPECT_EQ(ace.body, (Bytes{0xAA, 0xBB, 0xCC, 0xDD}));
  Bytes out;
  ace.AppendTo(out);
  EXPECT_EQ(out, padded);
}

TEST(AceParse, StopsAtItsOwnSize) {
  Bytes two = kAllowedSystem;
  two.insert(two.end(), kDeniedAdmins.begin(), kDeniedAdmins.end());
  Ace ace;
  std::size_t used = 0;
  ASSERT_EQ(Ace::Parse(two, &ace, &used), err::kSuccess);
  EXPECT_EQ(used, 20u);
  EXPECT_EQ(ace.sid, LocalSystemSid());
}

TEST(AceWrite, ProducesHandMadeBytes) {
  Bytes out;
  Ace::Allowed(0x001F01FF, LocalSystemSid(), 3).AppendTo(out);
  EXPECT_EQ(out, kAllowedSystem);
  out.clear();
  Ace::Denied(0x00010000, BuiltinAdministratorsSid(), kInheritedAce).AppendTo(out);
  EXPECT_EQ(out, kDeniedAdmins);
}

TEST(AceFlags, HaveTheirDocumentedValues) {
  EXPECT_EQ(kObjectInheritAce, 0x1);
  EXPECT_EQ(kContainerInheritAce, 0x2);
  EXPECT_EQ(kNoPropagateInheritAce, 0x4);
  EXPECT_EQ(kInheritOnlyAce, 0x8);
  EXPECT_EQ(kInheritedAce, 0x10);
}

TEST(AceSize, IsAMultipleOfFour) {
  EXPECT_EQ(Ace::Allowed(1, LocalSystemSid()).Size(), 20u);
  EXPECT_TRUE(Ace::Opaque(9, 0, Bytes(8, 0)).IsWritable());
  const Ace odd = Ace::Opaque(9, 0, Bytes(7, 0));
  EXPECT_FALSE(odd.IsWritable());
  Bytes out;
  EXPECT_THROW(odd.AppendTo(out), HResultError);
}

TEST(AceParse, RejectsBrokenEntries) {
  Ace ace;
  // Shorter than a header.
  EXPECT_EQ(Ace::Parse(Bytes{0x00, 0x00, 0x14}, &ace), err::kInvalidAcl);
  // Size larger than the bytes that hold it (the entry overruns its list).
  EXPECT_EQ(Ace::Parse(Bytes(kAllowedSystem.begin(), kAllowedSystem.end() - 4), &ace),
            err::kInvalidAcl);
  // Size not a multiple of 4, and size below the header.
  Bytes odd = kAudit;
  odd[2] = 0x13;
  EXPECT_EQ(Ace::Parse(odd, &ace), err::kInvalidAcl);
  Bytes tiny = kAudit;
  tiny[2] = 0x00;
  EXPECT_EQ(Ace::Parse(tiny, &ace), err::kInvalidAcl);
  // An allowed entry too small for its SID.
  Bytes shortSid = kAllowedSystem;
  shortSid[2] = 0x10;
  EXPECT_EQ(Ace::Parse(shortSid, &ace), err::kInvalidAcl);
  // An allowed entry with no room for its mask.
  EXPECT_EQ(Ace::Parse(Bytes{0x00, 0x00, 0x04, 0x00}, &ace), err::kInvalidAcl);
  // An allowed entry whose SID has too many sub-authorities.
  Bytes manySubs = kAllowedSystem;
  manySubs[9] = 16;
  EXPECT_EQ(Ace::Parse(manySubs, &ace), err::kInvalidAcl);
}

TEST(AceParse, FailureLeavesTheEntryAsItWas) {
  Ace ace;
  ASSERT_EQ(Ace::Parse(kDeniedAdmins, &ace), err::kSuccess);
  const Ace before = ace;
  Bytes manySubs = kAllowedSystem;
  manySubs[9] = 16;
  EXPECT_EQ(Ace::Parse(manySubs, &ace), err::kInvalidAcl);
  EXPECT_EQ(ace, before);
}

TEST(AceParse, AnOpaqueEntryReplacesAnEntryWithASid) {
  Ace ace;
  ASSERT_EQ(Ace::Parse(kDeniedAdmins, &ace), err::kSuccess);
  ASSERT_EQ(Ace::Parse(kAudit, &ace), err::kSuccess);
  EXPECT_EQ(ace, Ace::Opaque(2, 0x80, Bytes(kAudit.begin() + 4, kAudit.end())));
}

}  // namespace
}  // namespace tw::security
