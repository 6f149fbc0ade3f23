#include "migration/special_folder_table.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tw {
namespace {

TEST(SpecialFolderTable, IterationStopsAtTerminatorWithNineteenFolders) {
  const std::span<SpecialFolderRow> rows = SpecialFolders();
  ASSERT_EQ(rows.size(), 19u);
  EXPECT_EQ(rows.front().name, L"AppData");
  EXPECT_EQ(rows.back().name, L"Templates");
  EXPECT_EQ(rows.data(), &g_specialFolderTable[0]);
  // The row after the last one yielded is the terminating row.
  EXPECT_EQ(g_specialFolderTable[19].bit, 0u);
  EXPECT_EQ(g_specialFolderTable[19].name, L"");
}

TEST(SpecialFolderTable, RowsInTableOrderWithExactNamesAndBits) {
  const std::vector<std::wstring> expected = {
      L"AppData", L"Cache",         L"Cookies",   L"Desktop",     L"Favorites",
      L"History", L"Local AppData", L"My Music",  L"My Pictures", L"My Video",
      L"NetHood", L"Personal",      L"PrintHood", L"Programs",    L"Recent",
      L"SendTo",  L"Start Menu",    L"Startup",   L"Templates"};
  const std::span<SpecialFolderRow> rows = SpecialFolders();
  ASSERT_EQ(rows.size(), expected.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].name, expected[i]) << i;
    EXPECT_EQ(rows[i].bit, 1u << i) << rows[i].name;
  }
}

TEST(SpecialFolderTable, NamesWithBlanksStandAsTheyAre) {
  const std::span<SpecialFolderRow> rows = SpecialFolders();
  EXPECT_EQ(rows[6].name, L"Local AppData");
  EXPECT_EQ(rows[6].bit, 0x40u);
  EXPECT_EQ(rows[7].name, L"My Music");
  EXPECT_EQ(rows[7].bit, 0x80u);
  EXPECT_EQ(rows[16].name, L"Start Menu");
  EXPECT_EQ(rows[16].bit, 0x10000u);
}

TEST(SpecialFolderTable, LocationsStartEmpty) {
  for (const SpecialFolderRow& row : g_specialFolderTable) {
    EXPECT_TRUE(row.sourceLocation.empty()) << row.name;
    EXPECT_TRUE(row.targetLocation.empty()) << row.name;
  }
}

TEST(SpecialFolderTable, BitsAreDistinctAndFitBelowTheOffBit) {
  std::uint32_t all = 0;
  for (const SpecialFolderRow& row : SpecialFolders()) {
    EXPECT_EQ(all & row.bit, 0u) << row.name;
    all |= row.bit;
  }
  EXPECT_EQ(all, 0x7FFFFu);
}

TEST(SpecialFolderTable, RowsBeforeTerminatorStopsAtFirstZeroBit) {
  SpecialFolderRow table[] = {{0x1u, L"A", {}, {}}, {0u, L"", {}, {}}, {0x4u, L"C", {}, {}}};
  const auto rows = RowsBeforeTerminator(std::span<SpecialFolderRow>(table));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].name, L"A");

  const SpecialFolderRow noTerminator[] = {{0x1u, L"A", {}, {}}, {0x2u, L"B", {}, {}}};
  EXPECT_EQ(RowsBeforeTerminator(std::span<const SpecialFolderRow>(noTerminator)).size(), 2u);
}

}  // namespace
}  // namespace tw
