// The lint tells faults (what can make a reader fail or lose data) from the harmless habits
// Windows leaves in its own hives (notes), and saved hives carry neither.
#include "hive/hive_lint.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "base/win32_error.h"
#include "hive/hive_reader.h"
#include "hive/hive_writer.h"
#include "hive/regf_layout.h"
#include "hive/security_parts.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

using regf::Get16;
using regf::Get32;
using regf::Put32;

std::string Lines(const std::vector<std::wstring>& lines) {
  std::string out;
  for (const auto& line : lines) out += std::string(line.begin(), line.end()) + "\n";
  return out;
}

// A root key with one REG_BINARY value "v" of `size` bytes, saved.
std::vector<std::uint8_t> HiveWithValue(std::size_t size) {
  Key root;
  root.name = L"R";
  Value value;
  value.name = ValueName(L"v");
  value.type = 3;
  value.data.resize(size);
  for (std::size_t i = 0; i < size; ++i) value.data[i] = static_cast<std::uint8_t>(i % 251 + 1);
  root.values.push_back(std::move(value));
  return SerializeHive(root, 5, L"x", 1);
}

std::string CellText(std::uint32_t offset) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", offset);
  return text;
}

// File offset of the data of the cell at hive bins offset `offset`.
std::size_t At(std::uint32_t offset) { return regf::kBaseBlockSize + offset + 4; }

// The hive bins offsets of the segments of the root's first value (stored as big data).
std::vector<std::uint32_t> Segments(const std::vector<std::uint8_t>& file) {
  const std::uint8_t* base = file.data();
  const std::size_t nk = At(Get32(base + regf::kBaseRootCell));
  const std::size_t vk = At(Get32(base + At(Get32(base + nk + regf::kNkValueList))));
  const std::size_t db = At(Get32(base + vk + regf::kVkDataOffset));
  EXPECT_EQ(
      std::string(file.begin() + static_cast<long>(db), file.begin() + static_cast<long>(db) + 2),
      "db");
  const std::size_t list = At(Get32(base + db + regf::kDbSegmentList));
  std::vector<std::uint32_t> segments(Get16(base + db + regf::kDbSegmentCount));
  for (std::size_t i = 0; i < segments.size(); ++i) segments[i] = Get32(base + list + 4 * i);
  return segments;
}

// A root "R" with sub keys of `names`, each with its own descriptor when `ownDescriptors`.
std::vector<std::uint8_t> HiveWithKeys(const std::vector<std::wstring>& names,
                                       bool ownDescriptors) {
  Key root;
  root.name = L"R";
  root.security = std::make_shared<const SecurityBytes>(DefaultSecurityDescriptor());
  for (std::size_t i = 0; i < names.size(); ++i) {
    auto child = std::make_unique<Key>();
    child->name = names[i];
    if (ownDescriptors) {
      SecurityBytes other = *root.security;
      other[2] = static_cast<std::uint8_t>(other[2] ^ (0x10 << i));  // another control bit
      child->security = std::make_shared<const SecurityBytes>(other);
    }
    InsertChild(root, std::move(child));
  }
  return SerializeHive(root, 5, L"x", 1);
}

TEST(HiveLint, LfHintsAreCheckedForAsciiNamesOnly) {
  // Windows writes its own hints for names beyond ASCII ("\u00c9t\u00e9" is stored compressed).
  for (const auto& [name, fault] :
       std::vector<std::pair<std::wstring, bool>>{{L"Plain", true}, {L"\u00c9t\u00e9", false}}) {
    auto bytes = HiveWithKeys({name}, false);
    const std::size_t nk = At(Get32(bytes.data() + regf::kBaseRootCell));
    const std::size_t list = At(Get32(bytes.data() + nk + regf::kNkSubKeyList));
    bytes[list + 1] = 'f';  // lh -> lf, the hint wrong for any name
    Put32(bytes.data() + list + 8, 0x01020304);
    const LintReport lint = LintHive(bytes);
    EXPECT_EQ(Lines(lint.problems),
              fault ? "wrong lf hint (cell " +
                          CellText(Get32(bytes.data() + nk + regf::kNkSubKeyList)) + ")\n"
                    : "");
    EXPECT_EQ(
        Lines(lint.notes).find("lf hint differs for a name beyond ASCII") != std::string::npos,
        !fault);
  }
}

TEST(HiveLint, ASecurityCellNoKeyUsesMayStayOnTheList) {
  auto bytes = HiveWithKeys({L"a", L"b"}, true);
  ASSERT_TRUE(LintHive(bytes).problems.empty());
  const std::size_t nk = At(Get32(bytes.data() + regf::kBaseRootCell));
  const std::size_t list = At(Get32(bytes.data() + nk + regf::kNkSubKeyList));
  const std::size_t a = At(Get32(bytes.data() + list + 4));
  const std::size_t b = At(Get32(bytes.data() + list + 12));
  // "b" takes the descriptor of "a": b's old cell stays on the list with no key using it.
  const std::uint32_t unused = Get32(bytes.data() + b + regf::kNkSecurity);
  Put32(bytes.data() + b + regf::kNkSecurity, Get32(bytes.data() + a + regf::kNkSecurity));
  Put32(bytes.data() + At(Get32(bytes.data() + a + regf::kNkSecurity)) + regf::kSkReferenceCount,
        2);
  const LintReport lint = LintHive(bytes);
  EXPECT_EQ(Lines(lint.problems), "");
  EXPECT_EQ(Lines(lint.notes),
            "security cell no key uses on the list: 1 cells, the first " + CellText(unused) + "\n");

  // A list that leads out of the security cells is a fault.
  Put32(bytes.data() + At(unused) + regf::kSkFlink, Get32(bytes.data() + regf::kBaseRootCell));
  EXPECT_NE(Lines(LintHive(bytes).problems).find("security list leaves the security cells"),
            std::string::npos);
}

TEST(HiveLint, StaleUpperBoundsAndCountsAreNotesNotFaults) {
  auto bytes = HiveWithValue(100);
  ASSERT_TRUE(LintHive(bytes).notes.empty()) << Lines(LintHive(bytes).notes);
  const std::size_t nk = At(Get32(bytes.data() + regf::kBaseRootCell));
  // Windows keeps the largest lengths when a value or sub key goes, and counts a descriptor
  // once more than its users after some repairs.
  Put32(bytes.data() + nk + regf::kNkMaxValueName, 40);
  Put32(bytes.data() + nk + regf::kNkMaxValueData, 4000);
  Put32(bytes.data() + nk + regf::kNkMaxSubKeyName, 12);
  Put32(bytes.data() + nk + regf::kNkMaxSubKeyClass, 6);
  const std::size_t sk = At(Get32(bytes.data() + nk + regf::kNkSecurity));
  Put32(bytes.data() + sk + regf::kSkReferenceCount, 5);
  Put32(bytes.data() + regf::kBaseChecksum, regf::BaseBlockChecksum(bytes.data()));

  const LintReport lint = LintHive(bytes);
  EXPECT_TRUE(lint.problems.empty()) << Lines(lint.problems);
  const std::string r = CellText(Get32(bytes.data() + regf::kBaseRootCell));
  EXPECT_EQ(Lines(lint.notes),
            "largest sub key name length larger than needed: 1 cells, the first " + r + "\n" +
                "largest sub key class length larger than needed: 1 cells, the first " + r + "\n" +
                "largest value name length larger than needed: 1 cells, the first " + r + "\n" +
                "largest value data size larger than needed: 1 cells, the first " + r + "\n" +
                "security cell counted more times than keys use it: 1 cells, the first " +
                CellText(Get32(bytes.data() + nk + regf::kNkSecurity)) + "\n");
}

TEST(HiveLint, BoundsTooSmallAreFaults) {
  auto bytes = HiveWithValue(100);
  const std::size_t nk = At(Get32(bytes.data() + regf::kBaseRootCell));
  Put32(bytes.data() + nk + regf::kNkMaxValueData, 99);
  Put32(bytes.data() + nk + regf::kNkMaxValueName, 0);
  const LintReport lint = LintHive(bytes);
  const std::string problems = Lines(lint.problems);
  EXPECT_NE(problems.find("largest value data size too small"), std::string::npos) << problems;
  EXPECT_NE(problems.find("largest value name length too small"), std::string::npos) << problems;
}

TEST(HiveLint, EveryBigDataSegmentIsSavedInAWholeSegmentCell) {
  for (const std::size_t size : {std::size_t{16345}, std::size_t{16350}, std::size_t{16352},
                                 std::size_t{32689}, std::size_t{32696}, std::size_t{73315}}) {
    const auto bytes = HiveWithValue(size);
    const LintReport lint = LintHive(bytes);
    EXPECT_TRUE(lint.problems.empty()) << size << "\n" << Lines(lint.problems);
    const auto segments = Segments(bytes);
    ASSERT_EQ(segments.size(), (size + regf::kBigDataSegment - 1) / regf::kBigDataSegment);
    for (const std::uint32_t segment : segments) {
      // -16352: the 16,344 bytes of a segment with the cell's size field, 8-byte aligned.
      EXPECT_EQ(static_cast<std::int32_t>(Get32(bytes.data() + At(segment) - 4)), -16352) << size;
    }
    // The tail of the last segment is zero, as Windows leaves it.
    const std::size_t last = At(segments.back());
    const std::size_t used = size - (segments.size() - 1) * regf::kBigDataSegment;
    for (std::size_t i = used; i < 16348; ++i) ASSERT_EQ(bytes[last + i], 0) << size << " " << i;
  }
}

TEST(HiveLint, ABigDataSegmentInACellTooSmallForReadersIsAFault) {
  // The last segment of a 16,345-byte value holds 1 byte. Put it in an 8-byte cell (as a writer
  // that sizes the last cell to its bytes does) with the rest of the old cell free: our reader
  // still reads the byte, but readers that take the cell size less 8 read none.
  auto bytes = HiveWithValue(16345);
  const std::uint32_t last = Segments(bytes).back();
  const std::size_t cell = At(last) - 4;
  Put32(bytes.data() + cell, static_cast<std::uint32_t>(-8));
  Put32(bytes.data() + cell + 8, 16352 - 8);
  ASSERT_EQ(ParseHive(bytes).error, err::kSuccess);
  const std::string problems = Lines(LintHive(bytes).problems);
  EXPECT_EQ(problems,
            "big data segment cell too small for readers (cell " + CellText(last) + ")\n");
}

TEST(HiveLint, KeyFlagBitsTheFormatDoesNotDefineAreNotSaved) {
  Key root;
  root.name = L"R";
  auto child = std::make_unique<Key>();
  child->name = L"Junk";
  child->parent = &root;
  child->flags = 0xFC10;  // symbolic link, and six bits the format does not define
  root.children.push_back(std::move(child));
  const auto bytes = SerializeHive(root, 5, L"x", 1);
  const std::size_t nk = At(Get32(bytes.data() + regf::kBaseRootCell));
  const std::size_t list = At(Get32(bytes.data() + nk + regf::kNkSubKeyList));
  const std::size_t junk = At(Get32(bytes.data() + list + 4));
  EXPECT_EQ(Get16(bytes.data() + junk + regf::kNkFlags), 0x0030);  // link, compressed name
}

}  // namespace
}  // namespace tw::hive
