#include "migration/folder_mapping.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

TEST(FolderMapping, HoldsEveryRowOfTheTableInOrderWithReferencesToTheRows) {
  FolderMapping mapping;
  ASSERT_EQ(mapping.count(), 19u);
  EXPECT_EQ(mapping.NameAt(0), L"AppData");
  EXPECT_EQ(mapping.NameAt(18), L"Templates");
  EXPECT_EQ(&mapping.RowAt(6), &SpecialFolders()[6]);
  EXPECT_EQ(mapping.table().size(), 19u);
}

TEST(FolderMapping, FindsExactNamesAndRemovalClosesTheGap) {
  SpecialFolderRow table[] = {{0x1, L"AppData", L"", L""},
                              {0x8, L"Desktop", L"", L""},
                              {0x10, L"Favorites", L"", L""},
                              {0, L"", L"", L""}};
  FolderMapping mapping(table);
  ASSERT_EQ(mapping.count(), 3u);
  EXPECT_EQ(mapping.Find(L"Desktop"), 1u);
  EXPECT_EQ(mapping.Find(L"desktop"), FolderMapping::kNotFound);
  mapping.RemoveAt(1);
  ASSERT_EQ(mapping.count(), 2u);
  EXPECT_EQ(mapping.NameAt(1), L"Favorites");
  EXPECT_EQ(&mapping.RowAt(1), &table[2]);
  EXPECT_EQ(mapping.Find(L"Desktop"), FolderMapping::kNotFound);
  // The table itself keeps the row.
  EXPECT_EQ(mapping.table().size(), 3u);
}

}  // namespace
}  // namespace tw
