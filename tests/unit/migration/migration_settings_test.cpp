#include "migration/migration_settings.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

namespace tw {
namespace {

void ExpectDefaults(const MigrationSettings& settings) {
  EXPECT_EQ(settings.sourcePath, L"");
  EXPECT_EQ(settings.targetPath, L"");
  EXPECT_EQ(settings.sourceVersion, 0);
  EXPECT_EQ(settings.targetVersion, 0);
  EXPECT_EQ(settings.folderMask, 0x7FFFFFFFu);
  EXPECT_EQ(settings.registryMask, 0x7FFFFFFFu);
  EXPECT_EQ(settings.conflictPolicy, 8);
  EXPECT_FALSE(settings.takeOwnership);
  EXPECT_FALSE(settings.showHelp);
}

TEST(InitSettings, ResetsEveryFieldToItsDefault) {
  MigrationSettings settings{L"\\\\s\\p\\*", L"\\\\s\\t", 2, 6, 0x80000000u, 5u, 1, true, true};
  InitSettings(settings);
  ExpectDefaults(settings);
}

TEST(MigrationSettings, ValueInitialisedRecordHoldsTheDefaults) {
  const MigrationSettings settings;
  ExpectDefaults(settings);
}

TEST(MigrationSettings, FieldsInTheirOrderAndTypes) {
  // Aggregate initialisation in declaration order fixes the order of the fields.
  const MigrationSettings settings{L"a", L"b", 5, 6, 1u, 2u, 4, true, false};
  EXPECT_EQ(settings.sourcePath, L"a");
  EXPECT_EQ(settings.targetPath, L"b");
  EXPECT_EQ(settings.sourceVersion, 5);
  EXPECT_EQ(settings.targetVersion, 6);
  EXPECT_EQ(settings.folderMask, 1u);
  EXPECT_EQ(settings.registryMask, 2u);
  EXPECT_EQ(settings.conflictPolicy, 4);
  EXPECT_TRUE(settings.takeOwnership);
  static_assert(std::is_same_v<decltype(MigrationSettings::sourceVersion), std::int32_t>);
  static_assert(std::is_same_v<decltype(MigrationSettings::folderMask), std::uint32_t>);
  static_assert(std::is_same_v<decltype(MigrationSettings::conflictPolicy), std::int32_t>);
  static_assert(std::is_same_v<decltype(MigrationSettings::showHelp), bool>);
}

}  // namespace
}  // namespace tw
