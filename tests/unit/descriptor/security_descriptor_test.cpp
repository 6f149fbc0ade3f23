#include "descriptor/security_descriptor.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/well_known_sids.h"

namespace tw::security {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Self-relative, laid out by hand: control SE_SELF_RELATIVE | SE_DACL_PROTECTED |
// SE_DACL_PRESENT | SE_SACL_PRESENT | SE_OWNER_DEFAULTED (0x9015); SACL at 0x14 (empty list),
// DACL at 0x1C (one allowed entry for Everyone), owner S-1-5-32-544 at 0x38, group S-1-5-18
// at 0x48.
const Bytes kFull = {
    0x01, 0x00, 0x15, 0x90, 0x38, 0x00, 0x00, 0x00, 0x48, 0x00, 0x00, 0x00,  // header
    0x14, 0x00, 0x00, 0x00, 0x1C, 0x00, 0x00, 0x00,                          // SACL, DACL
    0x02, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00,                          // SACL (0x14)
    0x02, 0x00, 0x1C, 0x00, 0x01, 0x00, 0x00, 0x00,                          // DACL (0x1C)
    0x00, 0x00, 0x14, 0x00, 0xFF, 0x01, 0x1F, 0x00, 0x01, 0x01, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x02, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x05, 0x20, 0x00, 0x00, 0x00,  // owner (0x38)
    0x20, 0x02, 0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05,
    0x12, 0x00, 0x00, 0x00,  // group (0x48)
};

// Owner only, with a NULL DACL: control SE_SELF_RELATIVE | SE_DACL_PRESENT, DACL offset 0.
const Bytes kNullDacl = {0x01, 0x00, 0x04, 0x80, 0x14, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x01,
                         0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x12, 0x00, 0x00, 0x00};

SecurityDescriptor Parsed(const Bytes& bytes) {
  SecurityDescriptor sd;
  EXPECT_EQ(ParseSelfRelative(bytes, &sd), err::kSuccess);
  return sd;
}

TEST(ControlBits, HaveTheirDocumentedValues) {
  EXPECT_EQ(kSeOwnerDefaulted, 0x1);
  EXPECT_EQ(kSeGroupDefaulted, 0x2);
  EXPECT_EQ(kSeDaclPresent, 0x4);
  EXPECT_EQ(kSeDaclDefaulted, 0x8);
  EXPECT_EQ(kSeSaclPresent, 0x10);
  EXPECT_EQ(kSeDaclAutoInherited, 0x400);
  EXPECT_EQ(kSeDaclProtected, 0x1000);
  EXPECT_EQ(kSeSaclProtected, 0x2000);
  EXPECT_EQ(kSeSelfRelative, 0x8000);
}

TEST(SelfRelativeParse, ReadsEveryPart) {
  const SecurityDescriptor sd = Parsed(kFull);
  EXPECT_EQ(sd.control, kSeDaclProtected | kSeDaclPresent | kSeSaclPresent | kSeOwnerDefaulted);
  EXPECT_EQ(sd.owner, BuiltinAdministratorsSid());
  EXPECT_EQ(sd.group, LocalSystemSid());
  ASSERT_TRUE(sd.HasDacl());
  ASSERT_TRUE(sd.dacl.has_value());
  ASSERT_EQ(sd.dacl->aces().size(), 1u);
  EXPECT_EQ(sd.dacl->aces()[0], Ace::Allowed(0x001F01FF, EveryoneSid()));
  ASSERT_TRUE(sd.sacl.has_value());
  EXPECT_TRUE(sd.sacl->aces().empty());
  EXPECT_EQ(SelfRelativeControl(kFull), 0x9015);
}

TEST(SelfRelativeMake, UsesHeaderSaclDaclOwnerGroupLayout) {
  SecurityDescriptor sd;
  sd.control = kSeDaclProtected | kSeOwnerDefaulted;
  sd.owner = BuiltinAdministratorsSid();
  sd.group = LocalSystemSid();
  Acl dacl;
  ASSERT_EQ(Acl::FromAces(kAclRevision, {Ace::Allowed(0x001F01FF, EveryoneSid())}, &dacl),
            err::kSuccess);
  sd.SetDacl(dacl);
  sd.SetSacl(Acl());
  EXPECT_EQ(MakeSelfRelative(sd), kFull);
  EXPECT_EQ(MakeSelfRelative(Parsed(kFull)), kFull);
}

TEST(SelfRelativeMake, FromBorrowedPartsWritesOnlyThoseParts) {
  const SecurityDescriptor full = Parsed(kFull);
  SecurityDescriptor ownerAndDacl;
  ownerAndDacl.control = kSeDaclProtected | kSeDaclPresent;
  ownerAndDacl.owner = full.owner;
  ownerAndDacl.dacl = full.dacl;
  SelfRelativeParts parts;
  parts.control = ownerAndDacl.control;
  parts.owner = &*full.owner;
  parts.dacl = &*full.dacl;
  parts.sacl = &*full.sacl;  // SE_SACL_PRESENT is clear: not written
  EXPECT_EQ(MakeSelfRelative(parts), MakeSelfRelative(ownerAndDacl));
  EXPECT_EQ(MakeSelfRelative(SelfRelativeParts::Of(full)), kFull);
}

TEST(NullDacl, DiffersFromNoDacl) {
  const SecurityDescriptor withNull = Parsed(kNullDacl);
  EXPECT_TRUE(withNull.HasDacl());
  EXPECT_TRUE(withNull.IsNullDacl());
  EXPECT_EQ(MakeSelfRelative(withNull), kNullDacl);

  SecurityDescriptor none = withNull;
  none.RemoveDacl();
  EXPECT_FALSE(none.HasDacl());
  EXPECT_FALSE(none.IsNullDacl());
  Bytes expected = kNullDacl;
  expected[2] = 0x00;  // no SE_DACL_PRESENT
  EXPECT_EQ(MakeSelfRelative(none), expected);

  SecurityDescriptor empty = withNull;
  empty.SetDacl(Acl());
  EXPECT_FALSE(empty.IsNullDacl());
  const Bytes emptyBytes = MakeSelfRelative(empty);
  EXPECT_EQ(emptyBytes, (Bytes{0x01, 0x00, 0x04, 0x80, 0x1C, 0x00, 0x00, 0x00, 0x00, 0x00,
                               0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x14, 0x00, 0x00, 0x00,
                               0x02, 0x00, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x01,
                               0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x12, 0x00, 0x00, 0x00}));

  SecurityDescriptor backToNull = empty;
  backToNull.SetNullDacl();
  EXPECT_EQ(MakeSelfRelative(backToNull), kNullDacl);
}

TEST(NullSacl, IsPresentWithoutAList) {
  SecurityDescriptor sd;
  sd.SetNullSacl();
  EXPECT_TRUE(sd.IsNullSacl());
  const Bytes bytes = MakeSelfRelative(sd);
  EXPECT_EQ(bytes, (Bytes{0x01, 0x00, 0x10, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_TRUE(Parsed(bytes).IsNullSacl());
  sd.RemoveSacl();
  EXPECT_FALSE(sd.HasSacl());
}

TEST(SelfRelativeParse, IgnoresADaclOffsetWithoutDaclPresent) {
  Bytes bytes = kFull;
  bytes[2] = 0x11;  // SE_DACL_PRESENT cleared; the offset still points at the list
  const SecurityDescriptor sd = Parsed(bytes);
  EXPECT_FALSE(sd.HasDacl());
  EXPECT_FALSE(sd.dacl.has_value());
}

TEST(SelfRelativeParse, EmptyDescriptorHasNoParts) {
  const Bytes bytes = {0x01, 0x00, 0x00, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  const SecurityDescriptor sd = Parsed(bytes);
  EXPECT_EQ(sd, SecurityDescriptor());
  EXPECT_EQ(MakeSelfRelative(sd), bytes);
}

TEST(SelfRelativeParse, RejectsBrokenDescriptors) {
  auto with = [](std::size_t at, std::uint8_t value) {
    Bytes bytes = kFull;
    bytes[at] = value;
    return bytes;
  };
  SecurityDescriptor sd;
  // Truncated anywhere: the header, or a part that then runs past the end.
  for (std::size_t length = 0; length < kFull.size(); ++length) {
    const Bytes cut(kFull.begin(), kFull.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(ParseSelfRelative(cut, &sd), err::kInvalidSecurityDescr) << length;
  }
  EXPECT_EQ(ParseSelfRelative(with(0, 2), &sd), err::kInvalidSecurityDescr);        // revision
  EXPECT_EQ(ParseSelfRelative(with(3, 0x10), &sd), err::kInvalidSecurityDescr);     // absolute
  EXPECT_EQ(ParseSelfRelative(with(4, 0x58), &sd), err::kInvalidSecurityDescr);     // owner out
  EXPECT_EQ(ParseSelfRelative(with(7, 0x01), &sd), err::kInvalidSecurityDescr);     // owner far
  EXPECT_EQ(ParseSelfRelative(with(8, 0x54), &sd), err::kInvalidSecurityDescr);     // group cut
  EXPECT_EQ(ParseSelfRelative(with(12, 0x56), &sd), err::kInvalidSecurityDescr);    // SACL cut
  EXPECT_EQ(ParseSelfRelative(with(19, 0x80), &sd), err::kInvalidSecurityDescr);    // DACL far
  EXPECT_EQ(ParseSelfRelative(with(0x1E, 0x40), &sd), err::kInvalidSecurityDescr);  // AclSize
  // Malformed parts that lie inside the block.
  EXPECT_EQ(ParseSelfRelative(with(0x39, 16), &sd), err::kInvalidSid);    // 16 sub-authorities
  EXPECT_EQ(ParseSelfRelative(with(0x38, 2), &sd), err::kInvalidSid);     // owner revision
  EXPECT_EQ(ParseSelfRelative(with(0x48, 0), &sd), err::kInvalidSid);     // group revision
  EXPECT_EQ(ParseSelfRelative(with(0x1C, 1), &sd), err::kInvalidAcl);     // DACL revision
  EXPECT_EQ(ParseSelfRelative(with(0x26, 0x18), &sd), err::kInvalidAcl);  // entry overruns
  EXPECT_EQ(ParseSelfRelative(with(0x14, 9), &sd), err::kInvalidAcl);     // SACL revision
  EXPECT_EQ(ValidateSelfRelative(with(0x26, 0x18)), err::kInvalidAcl);
  EXPECT_EQ(ValidateSelfRelative(kFull), err::kSuccess);
  EXPECT_FALSE(SelfRelativeControl(Bytes(19, 0)).has_value());
}

TEST(SelfRelativeParse, AcceptsBytesAfterTheLastPart) {
  Bytes bytes = kFull;
  bytes.insert(bytes.end(), 12, 0xEE);
  EXPECT_EQ(MakeSelfRelative(Parsed(bytes)), kFull);
}

}  // namespace
}  // namespace tw::security
