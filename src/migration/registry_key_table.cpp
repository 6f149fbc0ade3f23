#include "migration/registry_key_table.h"

namespace tw {

std::span<const RegistryKeyRow> RowsBeforeTerminator(std::span<const RegistryKeyRow> table) {
  std::size_t count = 0;
  while (count < table.size() && table[count].flag != 0) ++count;
  return table.first(count);
}

std::span<const RegistryKeyRow> RegistryKeys() {
  return RowsBeforeTerminator(std::span<const RegistryKeyRow>(RegistryKeyTable));
}

bool IsRegistryKeySelected(std::uint32_t flag, std::uint32_t mask) {
  if (static_cast<std::int32_t>(mask) < 0) return flag == kSoftwareKeyFlag;
  return (flag & mask) != 0;
}

std::vector<RegistryKeyRow> SelectedRegistryKeys(std::uint32_t mask) {
  std::vector<RegistryKeyRow> selected;
  for (const RegistryKeyRow& row : RegistryKeys()) {
    if (IsRegistryKeySelected(row.flag, mask)) selected.push_back(row);
  }
  return selected;
}

}  // namespace tw
