#include "hive/hive_reader.h"

#include <gtest/gtest.h>

#include "hive/regf_layout.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

using testing::ReadBytes;
using testing::TestHive;

std::unique_ptr<Hive> ReadTestHive(const char* name) {
  const auto bytes = ReadBytes(TestHive(name));
  ReadResult result = ParseHive(bytes);
  EXPECT_EQ(result.error, err::kSuccess) << std::string(result.reason.begin(), result.reason.end());
  return std::move(result.hive);
}

std::vector<std::uint8_t> U8(const char* text) {
  return std::vector<std::uint8_t>(text, text + std::char_traits<char>::length(text));
}

TEST(ParseHive, MinimalHiveHasRootWithSecurityOnly) {
  auto hive = ReadTestHive("windows-2003-minimal.hiv");
  ASSERT_TRUE(hive);
  const Key& root = *hive->root;
  EXPECT_EQ(root.name, L"$$$PROTO.HIV");
  EXPECT_TRUE(root.children.empty());
  EXPECT_TRUE(root.values.empty());
  EXPECT_EQ(root.lastWriteTime, 129095917646260000ull);
  ASSERT_TRUE(root.security);
  const SecurityBytes& sd = *root.security;
  ASSERT_GE(sd.size(), 20u);
  EXPECT_EQ(sd[0], 1);                                     // revision
  EXPECT_EQ(regf::Get16(sd.data() + 2) & 0x8000, 0x8000);  // self-relative
  // Owner S-1-5-32-544 (Administrators).
  const std::uint32_t owner = regf::Get32(sd.data() + 4);
  ASSERT_LT(owner + 16, sd.size());
  EXPECT_EQ(sd[owner + 1], 2);  // two sub-authorities
  EXPECT_EQ(regf::Get32(sd.data() + owner + 8), 32u);
  EXPECT_EQ(regf::Get32(sd.data() + owner + 12), 544u);
}

TEST(ParseHive, SpecialHiveKeepsLatin1UnicodeAndEmbeddedNulNames) {
  auto hive = ReadTestHive("windows-xp-special.hiv");
  ASSERT_TRUE(hive);
  const Key& root = *hive->root;
  ASSERT_EQ(root.children.size(), 3u);
  const Key* latin = FindChild(root, L"abcd_\u00e4\u00f6\u00fc\u00df");
  ASSERT_NE(latin, nullptr);
  ASSERT_EQ(latin->values.size(), 1u);
  EXPECT_EQ(latin->values[0].name, L"abcd_\u00e4\u00f6\u00fc\u00df");
  EXPECT_EQ(latin->values[0].type, 4u);
  EXPECT_EQ(latin->values[0].data.size(), 4u);
  // Upper-case lookup finds it too.
  EXPECT_EQ(FindChild(root, L"ABCD_\u00c4\u00d6\u00dc\u00df"), latin);

  const Key* weird = FindChild(root, L"weird\u2122");
  ASSERT_NE(weird, nullptr);
  ASSERT_EQ(weird->values.size(), 1u);
  EXPECT_EQ(weird->values[0].name, L"symbols $\u00a3\u20a4\u20a7\u20ac");

  const std::wstring zeroKey(L"zero\0key", 8);
  const Key* zero = FindChild(root, zeroKey);
  ASSERT_NE(zero, nullptr);
  EXPECT_EQ(zero->name.size(), 8u);
  ASSERT_EQ(zero->values.size(), 1u);
  EXPECT_EQ(zero->values[0].name, std::wstring(L"zero\0val", 8));
  // Sub keys share the security cell of their siblings, not the root's.
  EXPECT_EQ(zero->security, weird->security);
  EXPECT_NE(zero->security, root.security);
  // Children are in upper-case order.
  EXPECT_EQ(root.children[0].get(), latin);
  EXPECT_EQ(root.children[1].get(), weird);
  EXPECT_EQ(root.children[2].get(), zero);
}

TEST(ParseHive, ValuesAroundTheCellBoundaryKeepTheirBytes) {
  auto hive = ReadTestHive("rlenvalue-test.hiv");
  ASSERT_TRUE(hive);
  const Key* parent = FindChild(*hive->root, L"ModerateValueParent");
  ASSERT_NE(parent, nullptr);
  const std::string pattern = "0123456789ABCDEF0123456789ABCDEF0123456789";
  const std::pair<const wchar_t*, std::size_t> expected[] = {{L"3Bytes", 3},   {L"16Bytes", 16},
                                                             {L"30Bytes", 30}, {L"31Bytes", 31},
                                                             {L"32Bytes", 32}, {L"33Bytes", 33}};
  ASSERT_EQ(parent->values.size(), 6u);
  for (const auto& [name, size] : expected) {
    const Value* value = FindValue(*parent, name);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->type, 3u);
    EXPECT_EQ(std::string(value->data.begin(), value->data.end()), pattern.substr(0, size));
  }
}

class BadHive : public ::testing::Test {
 protected:
  void SetUp() override { bytes_ = ReadBytes(TestHive("windows-xp-special.hiv")); }

  void FixChecksum() {
    regf::Put32(bytes_.data() + regf::kBaseChecksum, regf::BaseBlockChecksum(bytes_.data()));
  }

  ReadResult Parse() { return ParseHive(bytes_); }

  std::vector<std::uint8_t> bytes_;
};

TEST_F(BadHive, EmptyFileIsBadDb) {
  const ReadResult result = ParseHive({});
  EXPECT_EQ(result.error, err::kBadDb);
  EXPECT_FALSE(result.hive);
}

TEST_F(BadHive, TextFileIsNotARegistryFile) {
  const ReadResult result = ParseHive(U8("Windows Registry Editor Version 5.00\r\n"));
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_EQ(result.reason, L"the base block is truncated");
}

TEST_F(BadHive, WrongSignature) {
  bytes_[0] = 'X';
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_EQ(result.reason, L"the file does not begin with the signature \"regf\"");
}

TEST_F(BadHive, BadChecksum) {
  bytes_[regf::kBaseChecksum] ^= 0x55;
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_EQ(result.reason, L"the base block checksum is wrong");
}

TEST_F(BadHive, UnknownVersion) {
  regf::Put32(bytes_.data() + regf::kBaseMinor, 7);
  FixChecksum();
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_EQ(result.reason, L"unsupported format version 1.7");
}

TEST_F(BadHive, TruncatedFile) {
  bytes_.resize(bytes_.size() - 100);
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_NE(result.reason.find(L"truncated"), std::wstring::npos);
}

TEST_F(BadHive, RootOffsetOutsideTheData) {
  regf::Put32(bytes_.data() + regf::kBaseRootCell, 0x00100000);
  FixChecksum();
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_EQ(result.reason, L"reference to no allocated cell at offset 0x00100000");
}

TEST_F(BadHive, RootOffsetInsideACell) {
  const std::uint32_t root = regf::Get32(bytes_.data() + regf::kBaseRootCell);
  regf::Put32(bytes_.data() + regf::kBaseRootCell, root + 8);
  FixChecksum();
  EXPECT_EQ(Parse().error, err::kNotRegistryFile);
}

// The root key node's cell (file offset of its data).
std::size_t RootNk(const std::vector<std::uint8_t>& bytes) {
  return regf::kBaseBlockSize + regf::Get32(bytes.data() + regf::kBaseRootCell) + 4;
}

TEST_F(BadHive, SubKeyListPointingOutsideTheFile) {
  regf::Put32(bytes_.data() + RootNk(bytes_) + regf::kNkSubKeyList, 0x7FFFFFF8);
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_EQ(result.reason, L"reference to no allocated cell at offset 0x7FFFFFF8");
}

TEST_F(BadHive, ValueCountLargerThanItsList) {
  const std::size_t nk = RootNk(bytes_);
  const std::uint32_t list = regf::Get32(bytes_.data() + nk + regf::kNkSubKeyList);
  const std::size_t child =
      regf::kBaseBlockSize + regf::Get32(bytes_.data() + regf::kBaseBlockSize + list + 4 + 4) + 4;
  regf::Put32(bytes_.data() + child + regf::kNkValueCount, 0x10000000);
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_EQ(result.reason, L"value list shorter than its count");
}

TEST_F(BadHive, KeyNameWithABackslashIsRefused) {
  const std::size_t nk = RootNk(bytes_);
  const std::uint32_t list = regf::Get32(bytes_.data() + nk + regf::kNkSubKeyList);
  const std::size_t child =
      regf::kBaseBlockSize + regf::Get32(bytes_.data() + regf::kBaseBlockSize + list + 4 + 4) + 4;
  ASSERT_GT(regf::Get16(bytes_.data() + child + regf::kNkNameLength), 1u);
  // The second character of the name, Latin-1 or UTF-16LE.
  const bool latin1 =
      (regf::Get16(bytes_.data() + child + regf::kNkFlags) & regf::kNkCompressedName) != 0;
  bytes_[child + regf::kNkName + (latin1 ? 1 : 2)] = '\\';
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_NE(result.reason.find(L"key name holds a backslash"), std::wstring::npos);
  EXPECT_FALSE(result.hive);
}

TEST_F(BadHive, KeyListedAsItsOwnChildIsACycle) {
  const std::size_t nk = RootNk(bytes_);
  const std::uint32_t rootOffset = regf::Get32(bytes_.data() + regf::kBaseRootCell);
  const std::uint32_t list = regf::Get32(bytes_.data() + nk + regf::kNkSubKeyList);
  regf::Put32(bytes_.data() + regf::kBaseBlockSize + list + 4 + 4, rootOffset);
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_NE(result.reason.find(L"cell referenced twice"), std::wstring::npos);
}

TEST_F(BadHive, CellSizeRunningPastItsBin) {
  const std::uint32_t rootOffset = regf::Get32(bytes_.data() + regf::kBaseRootCell);
  regf::Put32(bytes_.data() + regf::kBaseBlockSize + rootOffset, 0x80000008u);
  const ReadResult result = Parse();
  EXPECT_EQ(result.error, err::kNotRegistryFile);
  EXPECT_NE(result.reason.find(L"cell with an invalid size"), std::wstring::npos);
}

TEST_F(BadHive, EveryTruncationIsRejectedWithoutCrashing) {
  for (std::size_t size = 1; size < bytes_.size(); size += 509) {
    std::vector<std::uint8_t> cut(bytes_.begin(), bytes_.begin() + static_cast<long>(size));
    EXPECT_EQ(ParseHive(cut).error, err::kNotRegistryFile) << size;
  }
}

TEST_F(BadHive, FlippedBytesNeverCrash) {
  // Every byte of the hive bins data changed in turn: the reader either reads a hive or rejects
  // the file; it never crashes (run under the sanitizers too).
  for (std::size_t i = regf::kBaseBlockSize; i < bytes_.size(); ++i) {
    std::vector<std::uint8_t> changed = bytes_;
    changed[i] ^= 0xFF;
    const ReadResult result = ParseHive(changed);
    EXPECT_TRUE(result.error == err::kSuccess || result.error == err::kNotRegistryFile);
  }
}

}  // namespace
}  // namespace tw::hive
