#include "descriptor/sid.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/hresult.h"
#include "base/hresult_error.h"
#include "base/win32_error.h"
#include "descriptor/well_known_sids.h"

namespace tw::security {
namespace {

using Bytes = std::vector<std::uint8_t>;

// S-1-5-21-1-2-3 laid out by hand: revision, count, authority big-endian, sub-authorities LE.
const Bytes kDomainSidBytes = {0x01, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05,
                               0x15, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00,
                               0x02, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00};

std::vector<std::uint32_t> SubAuthorities(const Sid& sid) {
  return {sid.subAuthorities().begin(), sid.subAuthorities().end()};
}

Sid FromText(const wchar_t* text) {
  Sid sid;
  EXPECT_EQ(Sid::FromString(text, &sid), err::kSuccess) << text;
  return sid;
}

TEST(SidBinary, ParsesHandMadeBytes) {
  Sid sid;
  std::size_t used = 0;
  ASSERT_EQ(Sid::Parse(kDomainSidBytes, &sid, &used), err::kSuccess);
  EXPECT_EQ(used, 24u);
  EXPECT_EQ(sid.authority(), 5u);
  EXPECT_EQ(SubAuthorities(sid), (std::vector<std::uint32_t>{21, 1, 2, 3}));
  EXPECT_EQ(sid.BinarySize(), 24u);
}

TEST(SidBinary, WritesHandMadeBytes) {
  EXPECT_EQ(Sid(5, {21, 1, 2, 3}).ToBytes(), kDomainSidBytes);
  EXPECT_EQ(LocalSystemSid().ToBytes(), (Bytes{0x01, 0x01, 0, 0, 0, 0, 0, 0x05, 0x12, 0, 0, 0}));
}

TEST(SidBinary, AuthorityIsBigEndianAndSubAuthoritiesLittleEndian) {
  const Bytes bytes = {0x01, 0x01, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0x78, 0x56, 0x34, 0x12};
  Sid sid;
  ASSERT_EQ(Sid::Parse(bytes, &sid), err::kSuccess);
  EXPECT_EQ(sid.authority(), 0x123456789ABCull);
  EXPECT_EQ(SubAuthorities(sid), (std::vector<std::uint32_t>{0x12345678u}));
  EXPECT_EQ(sid.ToBytes(), bytes);
}

TEST(SidBinary, ParsingOverALongerSidEqualsTheSidBuiltFromItsParts) {
  Sid sid(5, {21, 10, 20, 30, 40, 50, 60});
  ASSERT_EQ(Sid::Parse(kDomainSidBytes, &sid), err::kSuccess);
  EXPECT_EQ(sid, Sid(5, {21, 1, 2, 3}));
  Bytes written(sid.BinarySize() + 2, 0xEE);
  sid.WriteTo(written);
  EXPECT_EQ(Bytes(written.begin(), written.begin() + 24), kDomainSidBytes);
  EXPECT_EQ(written[24], 0xEE);  // nothing past the SID
}

TEST(SidBinary, IgnoresBytesAfterTheSid) {
  Bytes bytes = kDomainSidBytes;
  bytes.push_back(0xEE);
  Sid sid;
  std::size_t used = 0;
  ASSERT_EQ(Sid::Parse(bytes, &sid, &used), err::kSuccess);
  EXPECT_EQ(used, 24u);
}

TEST(SidBinary, AcceptsFifteenSubAuthorities) {
  Bytes bytes = {0x01, 15, 0, 0, 0, 0, 0, 5};
  bytes.resize(8 + 4 * 15, 0x01);
  Sid sid;
  ASSERT_EQ(Sid::Parse(bytes, &sid), err::kSuccess);
  EXPECT_EQ(sid.subAuthorities().size(), 15u);
}

TEST(SidBinary, RejectsSixteenSubAuthorities) {
  Bytes bytes = {0x01, 16, 0, 0, 0, 0, 0, 5};
  bytes.resize(8 + 4 * 16, 0x01);
  Sid sid;
  EXPECT_EQ(Sid::Parse(bytes, &sid), err::kInvalidSid);
}

TEST(SidBinary, RejectsWrongRevision) {
  Bytes bytes = kDomainSidBytes;
  bytes[0] = 2;
  Sid sid;
  EXPECT_EQ(Sid::Parse(bytes, &sid), err::kInvalidSid);
}

TEST(SidBinary, RejectsTruncatedInput) {
  Sid sid;
  for (std::size_t length = 0; length < kDomainSidBytes.size(); ++length) {
    const Bytes cut(kDomainSidBytes.begin(),
                    kDomainSidBytes.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(Sid::Parse(cut, &sid), err::kInvalidSid) << length;
  }
}

TEST(SidConstruction, RefusesImpossibleSids) {
  const std::vector<std::uint32_t> sixteen(16, 1);
  try {
    Sid sid(5, sixteen);
    FAIL() << "no exception";
  } catch (const HResultError& error) {
    EXPECT_EQ(error.code(), hr::kInvalidArg);
  }
  EXPECT_THROW(Sid(0x1000000000000ull, {1}), HResultError);
}

TEST(SidText, FormatsDecimalAuthority) {
  EXPECT_EQ(Sid(5, {21, 1, 2, 3}).ToString(), L"S-1-5-21-1-2-3");
  EXPECT_EQ(Sid(5, {32, 544}).ToString(), L"S-1-5-32-544");
  EXPECT_EQ(Sid(1, {0}).ToString(), L"S-1-1-0");
  EXPECT_EQ(Sid(5, {4294967295u}).ToString(), L"S-1-5-4294967295");
  EXPECT_EQ(Sid(5, {}).ToString(), L"S-1-5");
  EXPECT_EQ(Sid().ToString(), L"S-1-0");
}

TEST(SidText, AuthorityBelowTwoToThe32IsDecimal) {
  EXPECT_EQ(Sid(0xFFFFFFFFull, {7}).ToString(), L"S-1-4294967295-7");
}

TEST(SidText, AuthorityFromTwoToThe32IsTwelveUpperCaseHexDigits) {
  EXPECT_EQ(Sid(0x100000000ull, {7}).ToString(), L"S-1-0x000100000000-7");
  EXPECT_EQ(Sid(0xABCDEF012345ull, {}).ToString(), L"S-1-0xABCDEF012345");
}

TEST(SidText, ParsesNumericForms) {
  EXPECT_EQ(FromText(L"S-1-5-21-1-2-3"), Sid(5, {21, 1, 2, 3}));
  EXPECT_EQ(FromText(L"s-1-5-18"), LocalSystemSid());
  EXPECT_EQ(FromText(L"S-1-5"), Sid(5, {}));
  EXPECT_EQ(FromText(L"S-1-5-4294967295"), Sid(5, {4294967295u}));
  EXPECT_EQ(FromText(L"S-1-005-018"), LocalSystemSid());
  EXPECT_EQ(FromText(L"S-1-4294967295-1"), Sid(0xFFFFFFFFull, {1}));
}

TEST(SidText, ParsesHexAuthorityAndSubAuthorities) {
  EXPECT_EQ(FromText(L"S-1-0x000100000000-7"), Sid(0x100000000ull, {7}));
  EXPECT_EQ(FromText(L"S-1-0xabcdef012345"), Sid(0xABCDEF012345ull, {}));
  EXPECT_EQ(FromText(L"S-1-0X5-0x12"), LocalSystemSid());
  EXPECT_EQ(FromText(L"S-1-5-0xFFFFFFFF"), Sid(5, {0xFFFFFFFFu}));
}

TEST(SidText, RoundTripsThroughText) {
  for (const Sid& sid : {Sid(5, {21, 1708537768u, 220523388u, 1801674531u, 500u}),
                         Sid(0x123456789ABCull, {1, 2}), Sid(22, {1, 0})}) {
    EXPECT_EQ(FromText(sid.ToString().c_str()), sid);
  }
}

TEST(SidText, RejectsMalformedText) {
  const wchar_t* const bad[] = {L"",
                                L"S",
                                L"S-",
                                L"S-1",
                                L"S-1-",
                                L"S-2-5-18",
                                L"S-0-5-18",
                                L"X-1-5-18",
                                L"S-1-5-",
                                L"S-1--5",
                                L"S-1-5--18",
                                L"S-1-5-18-",
                                L" S-1-5-18",
                                L"S-1-5-18 ",
                                L"S-1-+5-18",
                                L"S-1-5--1",
                                L"S-1-5-1a",
                                L"S-1-0x-1",
                                L"S-1-0x1000000000000-1",
                                L"S-1-4294967296-1",
                                L"S-1-5-4294967296",
                                L"S-1-5-0x100000000",
                                L"S-1-5-99999999999999999999999",
                                L"ba",
                                L"XX",
                                L"BAA",
                                L"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"};
  for (const wchar_t* text : bad) {
    Sid sid;
    EXPECT_EQ(Sid::FromString(text, &sid), err::kInvalidSid) << text;
  }
}

TEST(SidText, AcceptsFifteenSubAuthorities) {
  EXPECT_EQ(FromText(L"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15").subAuthorities().size(), 15u);
}

TEST(SidText, AcceptsCommonAliases) {
  EXPECT_EQ(FromText(L"BA"), BuiltinAdministratorsSid());
  EXPECT_EQ(FromText(L"SY"), LocalSystemSid());
  EXPECT_EQ(FromText(L"WD"), EveryoneSid());
  EXPECT_EQ(FromText(L"CO"), CreatorOwnerSid());
  EXPECT_EQ(FromText(L"CG"), CreatorGroupSid());
  EXPECT_EQ(FromText(L"BU"), BuiltinUsersSid());
  EXPECT_EQ(FromText(L"AU").ToString(), L"S-1-5-11");
  EXPECT_EQ(FromText(L"NS").ToString(), L"S-1-5-20");
  EXPECT_EQ(FromText(L"RD").ToString(), L"S-1-5-32-555");
  EXPECT_EQ(FromText(L"HI").ToString(), L"S-1-16-12288");
  EXPECT_EQ(FindSidAlias(L"DA"), nullptr);  // domain-relative: not accepted
}

TEST(SidEquality, ComparesAuthorityAndEverySubAuthority) {
  EXPECT_EQ(Sid(5, {32, 544}), BuiltinAdministratorsSid());
  EXPECT_NE(Sid(5, {32, 545}), BuiltinAdministratorsSid());
  EXPECT_NE(Sid(5, {32}), Sid(5, {32, 0}));
  EXPECT_NE(Sid(1, {0}), Sid(5, {0}));
}

TEST(WellKnownSids, HaveTheirDocumentedValues) {
  EXPECT_EQ(EveryoneSid().ToString(), L"S-1-1-0");
  EXPECT_EQ(LocalSystemSid().ToString(), L"S-1-5-18");
  EXPECT_EQ(BuiltinAdministratorsSid().ToString(), L"S-1-5-32-544");
  EXPECT_EQ(CreatorOwnerSid().ToString(), L"S-1-3-0");
  EXPECT_EQ(CreatorGroupSid().ToString(), L"S-1-3-1");
  EXPECT_EQ(BuiltinUsersSid().ToString(), L"S-1-5-32-545");
}

TEST(UnixSids, MakeUserAndGroupSids) {
  EXPECT_EQ(UnixUserSid(1000).ToString(), L"S-1-22-1-1000");
  EXPECT_EQ(UnixGroupSid(100).ToString(), L"S-1-22-2-100");
  EXPECT_EQ(UnixUserSid(0).ToBytes(),
            (Bytes{0x01, 0x02, 0, 0, 0, 0, 0, 22, 1, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(UnixSids, RecogniseOnlyTheirOwnKind) {
  EXPECT_EQ(UnixUidFromSid(UnixUserSid(4294967295u)), 4294967295u);
  EXPECT_EQ(UnixGidFromSid(UnixGroupSid(7)), 7u);
  EXPECT_FALSE(UnixUidFromSid(UnixGroupSid(7)).has_value());
  EXPECT_FALSE(UnixGidFromSid(UnixUserSid(7)).has_value());
  EXPECT_FALSE(UnixUidFromSid(Sid(22, {1})).has_value());
  EXPECT_FALSE(UnixUidFromSid(Sid(22, {1, 5, 6})).has_value());
  EXPECT_FALSE(UnixUidFromSid(Sid(5, {1, 1000})).has_value());
}

}  // namespace
}  // namespace tw::security
