// Which log messages count as items a run could not migrate.
#include "batch/item_failures.h"

#include <gtest/gtest.h>

namespace tw::batch {
namespace {

TEST(ItemFailuresTest, CountsFilesFoldersAndRegistryItemsAndNothingElse) {
  const std::vector<LogEntry> entries = {
      {1, "Failed migrating file (0x80070005): \\\\fs\\p\\a\\secret.txt"},
      {1, "Failed copying file (0x80070002): \\\\fs\\p\\a.V2\\x"},
      {1, "Failed migrating folder (0x80070005): \\\\fs\\p\\a\\Locked"},
      {1, "Failed getting security descriptor (0x80070005): \\\\fs\\p\\a\\y"},
      {1, "Failed getting security descriptor (0x80070005)"},
      {1, "Failed to copy registry value to target hive (0x80070057): Name"},
      {1, "Failed to open source registry key (0x80070005), skipping this key: Software\\X"},
      {1, "Failed to open source registry key (0x80070002), skipping this key: Printers"},
      {1, "Failed migrating profile (0x800700B7): \\\\fs\\p\\a"},
      {1, "Migrating profile: \\\\fs\\p\\a"},
  };
  const ItemFailures failures = CountItemFailures(entries);
  EXPECT_EQ(failures.files, 3);
  EXPECT_EQ(failures.folders, 1);
  EXPECT_EQ(failures.registry, 2);
  EXPECT_EQ(failures.Total(), 6);
  ASSERT_EQ(failures.messages.size(), 6u);
  EXPECT_EQ(failures.messages[0], entries[0].message);
}

}  // namespace
}  // namespace tw::batch
