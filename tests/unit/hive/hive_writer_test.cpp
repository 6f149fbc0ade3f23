#include "hive/hive_writer.h"

#include <gtest/gtest.h>

#include "base/win32_error.h"
#include "hive/hive_lint.h"
#include "hive/hive_reader.h"
#include "hive/offreg_api.h"
#include "hive/regf_layout.h"
#include "hive/security_parts.h"
#include "hive_dump.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

using testing::ReadBytes;
using testing::TestHive;

std::string Problems(const LintReport& report) {
  std::string out;
  for (const auto& p : report.problems) out += std::string(p.begin(), p.end()) + "\n";
  return out;
}

std::unique_ptr<Hive> Parse(const std::vector<std::uint8_t>& bytes) {
  ReadResult result = ParseHive(bytes);
  EXPECT_EQ(result.error, err::kSuccess) << std::string(result.reason.begin(), result.reason.end());
  return std::move(result.hive);
}

TEST(SerializeHive, RoundTripKeepsEverythingAndPassesTheLint) {
  auto original = Parse(ReadBytes(TestHive("windows-xp-special.hiv")));
  ASSERT_TRUE(original);
  const auto bytes = SerializeHive(*original->root, 5, L"ntuser.dat", 133000000000000000ull);
  const LintReport lint = LintHive(bytes);
  EXPECT_TRUE(lint.problems.empty()) << Problems(lint);
  EXPECT_TRUE(lint.notes.empty());  // exact upper bounds and counts, no stale fields
  auto copy = Parse(bytes);
  ASSERT_TRUE(copy);
  EXPECT_EQ(testing::Dump(*copy->root), testing::Dump(*original->root));
  EXPECT_EQ(copy->root->lastWriteTime, original->root->lastWriteTime);
  EXPECT_EQ(*copy->root->security, *original->root->security);
  const Key* weird = FindChild(*copy->root, L"weird\u2122");
  ASSERT_NE(weird, nullptr);
  EXPECT_EQ(weird->lastWriteTime, FindChild(*original->root, L"weird\u2122")->lastWriteTime);
  // The three sub keys still share one descriptor object.
  EXPECT_EQ(weird->security, copy->root->children[0]->security);
  // Base block: version 1.5, the offline marker, the file name, sequence numbers 1 and 1.
  EXPECT_EQ(regf::Get32(bytes.data() + regf::kBaseMinor), 5u);
  EXPECT_EQ(std::string(bytes.begin() + 176, bytes.begin() + 180), "OfRg");
  EXPECT_EQ(regf::Get16(bytes.data() + regf::kBaseFileName), L'n');
  EXPECT_EQ(regf::Get32(bytes.data() + 4), regf::Get32(bytes.data() + 8));
  // Compact: only bin tails are free.
  EXPECT_LE(lint.freeCells, (bytes.size() - regf::kBaseBlockSize) / regf::kBinAlignment);
}

TEST(SerializeHive, ManySubKeysGoThroughAnIndexRoot) {
  Key root;
  root.name = L"R";
  for (int i = 0; i < 2500; ++i) {
    auto child = std::make_unique<Key>();
    child->name = L"k" + std::to_wstring(i);
    InsertChild(root, std::move(child));
  }
  const auto bytes = SerializeHive(root, 5, L"x", 1);
  const LintReport lint = LintHive(bytes);
  EXPECT_TRUE(lint.problems.empty()) << Problems(lint);
  const std::size_t nk = regf::kBaseBlockSize + regf::Get32(bytes.data() + regf::kBaseRootCell) + 4;
  const std::size_t list =
      regf::kBaseBlockSize + regf::Get32(bytes.data() + nk + regf::kNkSubKeyList) + 4;
  EXPECT_EQ(bytes[list], 'r');
  EXPECT_EQ(bytes[list + 1], 'i');
  EXPECT_EQ(regf::Get16(bytes.data() + list + 2), 3u);  // 1012 + 1012 + 476
  auto copy = Parse(bytes);
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->root->children.size(), 2500u);
}

TEST(SerializeHive, DistinctDescriptorsGetTheirOwnCellsWithCounts) {
  Key root;
  root.name = L"R";
  root.security = std::make_shared<const SecurityBytes>(DefaultSecurityDescriptor());
  SecurityBytes other = *root.security;
  other[2] |= 0x10;  // another control bit: another descriptor
  auto shared = std::make_shared<const SecurityBytes>(other);
  for (int i = 0; i < 3; ++i) {
    auto child = std::make_unique<Key>();
    child->name = L"c" + std::to_wstring(i);
    child->security = i == 0 ? root.security : shared;
    InsertChild(root, std::move(child));
  }
  const auto bytes = SerializeHive(root, 5, L"x", 1);
  const LintReport lint = LintHive(bytes);
  EXPECT_TRUE(lint.problems.empty()) << Problems(lint);
  auto copy = Parse(bytes);
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->root->children[0]->security, copy->root->security);
  EXPECT_EQ(copy->root->children[1]->security, copy->root->children[2]->security);
  EXPECT_NE(copy->root->children[1]->security, copy->root->security);
  EXPECT_EQ(*copy->root->children[1]->security, other);
}

TEST(HiveLint, FindsWhatReadersDoNotCheck) {
  auto original = Parse(ReadBytes(TestHive("windows-xp-special.hiv")));
  ASSERT_TRUE(original);
  const auto good = SerializeHive(*original->root, 5, L"x", 1);
  const std::size_t nk = regf::kBaseBlockSize + regf::Get32(good.data() + regf::kBaseRootCell) + 4;
  const std::size_t list =
      regf::kBaseBlockSize + regf::Get32(good.data() + nk + regf::kNkSubKeyList) + 4;

  auto badHash = good;
  badHash[list + 8] ^= 1;
  EXPECT_NE(Problems(LintHive(badHash)).find("wrong lh hash"), std::string::npos);

  auto swapped = good;  // first two entries exchanged: out of order
  std::swap_ranges(swapped.begin() + static_cast<long>(list + 4),
                   swapped.begin() + static_cast<long>(list + 12),
                   swapped.begin() + static_cast<long>(list + 12));
  EXPECT_NE(Problems(LintHive(swapped)).find("sub keys out of order"), std::string::npos);

  auto smallMax = good;  // an upper bound that does not bound: a fault
  regf::Put16(smallMax.data() + nk + regf::kNkMaxSubKeyName, 2);
  EXPECT_NE(Problems(LintHive(smallMax)).find("largest sub key name length too small"),
            std::string::npos);

  auto smallCount = good;  // counted fewer times than used: Windows could free it in use
  const std::size_t sk =
      regf::kBaseBlockSize + regf::Get32(good.data() + nk + regf::kNkSecurity) + 4;
  regf::Put32(smallCount.data() + sk + regf::kSkReferenceCount,
              regf::Get32(good.data() + sk + regf::kSkReferenceCount) - 1);
  EXPECT_NE(Problems(LintHive(smallCount)).find("counted fewer times than keys use it"),
            std::string::npos);

  auto badLink = good;
  regf::Put32(badLink.data() + sk + regf::kSkFlink, 8);
  EXPECT_FALSE(LintHive(badLink).problems.empty());

  auto badChecksum = good;
  badChecksum[100] ^= 1;
  EXPECT_EQ(Problems(LintHive(badChecksum)), "the base block checksum is wrong\n");
}

TEST(HiveLint, WindowsWrittenHivePasses) {
  const LintReport lint = LintHive(ReadBytes(TestHive("windows-xp-special.hiv")));
  EXPECT_TRUE(lint.problems.empty()) << Problems(lint);
}

class SaveHive : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tw_OROpenHive(TestHive("windows-xp-special.hiv").wstring().c_str(), &hive_),
              err::kSuccess);
  }
  void TearDown() override { tw_ORCloseHive(hive_); }
  ORHKEY hive_ = nullptr;
  testing::TempFolder folder_;
};

TEST_F(SaveHive, RefusesAnExistingTargetAndLeavesItAlone) {
  const auto target = folder_ / "ntuser.dat";
  testing::WriteBytes(target, {1, 2, 3});
  EXPECT_EQ(tw_ORSaveHive(hive_, target.wstring().c_str(), 10, 0), err::kAlreadyExists);
  EXPECT_EQ(ReadBytes(target), (std::vector<std::uint8_t>{1, 2, 3}));
}

TEST_F(SaveHive, EveryCallerVersionGivesRegf15AndOthersAreRefused) {
  const std::pair<DWORD, DWORD> versions[] = {{6, 1}, {6, 2}, {6, 3}, {10, 0}};
  for (const auto& [major, minor] : versions) {
    const auto target = folder_ / ("v" + std::to_string(major) + std::to_string(minor));
    ASSERT_EQ(tw_ORSaveHive(hive_, target.wstring().c_str(), major, minor), err::kSuccess);
    const auto bytes = ReadBytes(target);
    EXPECT_EQ(regf::Get32(bytes.data() + regf::kBaseMinor), 5u);
  }
  EXPECT_EQ(tw_ORSaveHive(hive_, (folder_ / "bad").wstring().c_str(), 7, 0),
            err::kInvalidParameter);
  EXPECT_EQ(tw_ORSaveHive(hive_, (folder_ / "no" / "x").wstring().c_str(), 10, 0),
            err::kPathNotFound);
  // Nothing but the saved files is left behind (no temporary files).
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
    ++files;
  }
  EXPECT_EQ(files, 4u);
}

TEST_F(SaveHive, AnyKeyCanBeTheRootOfTheSavedHive) {
  ORHKEY key = nullptr;
  ASSERT_EQ(tw_OROpenKey(hive_, L"weird\u2122", &key), err::kSuccess);
  const auto target = folder_ / "sub.dat";
  ASSERT_EQ(tw_ORSaveHive(key, target.wstring().c_str(), 10, 0), err::kSuccess);
  tw_ORCloseKey(key);
  auto saved = Parse(ReadBytes(target));
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->root->name, L"weird\u2122");
  ASSERT_EQ(saved->root->values.size(), 1u);
  // The hive stays open and editable after a save.
  const std::uint8_t data = 1;
  EXPECT_EQ(tw_ORSetValue(hive_, L"after", 3, &data, 1), err::kSuccess);
}

}  // namespace
}  // namespace tw::hive
