#include "migration/registry_key_table.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tw {
namespace {

std::vector<std::wstring> NamesOf(const std::vector<RegistryKeyRow>& rows) {
  std::vector<std::wstring> names;
  for (const RegistryKeyRow& row : rows) names.emplace_back(row.name);
  return names;
}

const std::vector<std::wstring> kAllNames = {
    L"Console",     L"Control Panel", L"Identities", L"Keyboard Layout",
    L"Printers",    L"Software",      L"System",     L"AppEvents",
    L"Environment", L"EUDC",          L"Network"};

TEST(RegistryKeyTable, ElevenRowsThenTerminator) {
  ASSERT_EQ(RegistryKeys().size(), 11u);
  EXPECT_EQ(RegistryKeyTable[11].flag, 0u);
  EXPECT_EQ(RegistryKeyTable[11].name, L"");
  std::vector<std::wstring> names;
  for (const RegistryKeyRow& row : RegistryKeys()) names.emplace_back(row.name);
  EXPECT_EQ(names, kAllNames);
}

TEST(RegistryKeyTable, FlagsAreSingleBitsInTableOrder) {
  const std::uint32_t expected[] = {0x1,  0x2,  0x4,   0x8,   0x10, 0x20,
                                    0x40, 0x80, 0x100, 0x200, 0x400};
  const auto rows = RegistryKeys();
  for (std::size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(rows[i].flag, expected[i]) << i;
  EXPECT_EQ(RegistryKeyTable[5].name, L"Software");
  EXPECT_EQ(RegistryKeyTable[5].flag, kSoftwareKeyFlag);
}

TEST(RegistryKeySelection, DefaultMaskSelectsAllElevenInTableOrder) {
  EXPECT_EQ(NamesOf(SelectedRegistryKeys(0x7FFFFFFFu)), kAllNames);
}

TEST(RegistryKeySelection, NegativeMaskSelectsOnlySoftware) {
  EXPECT_EQ(NamesOf(SelectedRegistryKeys(0x80000000u)), std::vector<std::wstring>{L"Software"});
  // Whatever else the mask holds.
  EXPECT_EQ(NamesOf(SelectedRegistryKeys(0xFFFFFFFFu)), std::vector<std::wstring>{L"Software"});
  EXPECT_EQ(NamesOf(SelectedRegistryKeys(0x80000001u)), std::vector<std::wstring>{L"Software"});
  EXPECT_TRUE(IsRegistryKeySelected(0x20u, 0x80000000u));
  EXPECT_FALSE(IsRegistryKeySelected(0x1u, 0x80000001u));
}

TEST(RegistryKeySelection, ZeroMaskSelectsNothing) {
  EXPECT_TRUE(SelectedRegistryKeys(0u).empty());
  EXPECT_FALSE(IsRegistryKeySelected(0x20u, 0u));
}

TEST(RegistryKeySelection, PositiveMaskSelectsFlagsItHolds) {
  // Environment and Software, in table order whatever the order of bits given.
  EXPECT_EQ(NamesOf(SelectedRegistryKeys(0x100u | 0x20u)),
            (std::vector<std::wstring>{L"Software", L"Environment"}));
  // A positive mask without any of the table's bits selects nothing.
  EXPECT_TRUE(SelectedRegistryKeys(0x7FFFF800u).empty());
}

}  // namespace
}  // namespace tw
