// The registry key table: the top-level keys of a user hive (ntuser.dat) that the registry
// migration may copy, in the order they are copied, each with one bit of the registry-key mask.
// The table is process-wide, constant-initialised (so it exists before the entry point runs) and
// never changes. It ends at the first row whose flag is 0 (name "").
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace tw {

struct RegistryKeyRow {
  std::uint32_t flag;      // a single bit, unique in the table; 0 ends the table
  std::wstring_view name;  // the key directly below the hive root
};

inline constexpr std::size_t kRegistryKeyCount = 11;

inline constexpr RegistryKeyRow RegistryKeyTable[kRegistryKeyCount + 1] = {
    {0x1u, L"Console"},         {0x2u, L"Control Panel"}, {0x4u, L"Identities"},
    {0x8u, L"Keyboard Layout"}, {0x10u, L"Printers"},     {0x20u, L"Software"},
    {0x40u, L"System"},         {0x80u, L"AppEvents"},    {0x100u, L"Environment"},
    {0x200u, L"EUDC"},          {0x400u, L"Network"},     {0u, L""},
};

// The flag of the "Software" row: the one key copied even when registry migration is off.
inline constexpr std::uint32_t kSoftwareKeyFlag = 0x20u;

// The rows of `table` in order, up to (not including) the first row whose flag is 0, or all of
// them when there is no such row.
std::span<const RegistryKeyRow> RowsBeforeTerminator(std::span<const RegistryKeyRow> table);

// The 11 key rows of RegistryKeyTable, in table order.
std::span<const RegistryKeyRow> RegistryKeys();

// Whether the row with flag `flag` is copied under the registry-key mask `mask`. The mask is read
// as a signed 32-bit value: when negative (registry migration off, 0x80000000), only the
// "Software" row (flag exactly 0x20) is selected, whatever else the mask holds; otherwise a row is
// selected when (flag AND mask) is not zero, so a mask of 0 selects nothing. Both are intended.
bool IsRegistryKeySelected(std::uint32_t flag, std::uint32_t mask);

// The rows of RegistryKeyTable that `mask` selects, in table order (the order of copying).
std::vector<RegistryKeyRow> SelectedRegistryKeys(std::uint32_t mask);

}  // namespace tw
