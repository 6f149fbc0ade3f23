#include "migration/folder_mapping.h"

namespace tw {

FolderMapping::FolderMapping(std::span<SpecialFolderRow> table)
    : table_(RowsBeforeTerminator(table)) {
  for (SpecialFolderRow& row : table_) {
    names_.push_back(row.name);
    rows_.push_back(&row);
  }
}

std::size_t FolderMapping::Find(std::wstring_view name) const {
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (names_[i] == name) return i;
  }
  return kNotFound;
}

void FolderMapping::RemoveAt(std::size_t index) {
  if (index >= names_.size()) return;
  names_.erase(names_.begin() + static_cast<std::ptrdiff_t>(index));
  rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(index));
}

}  // namespace tw
