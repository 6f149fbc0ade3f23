// The folder mapping of one profile's folder migration: the special folders by their shell-folder
// value names, in table order, with a parallel list of references to their rows of the special
// folder table (whose source and target locations the shell-folder fix-up fills), and their
// count. Lookup is a linear search with an exact, case-sensitive comparison; removal takes out
// the name and its row reference at one index and closes the gap. The mapping owns its copies of
// the names; the rows belong to the table, which must outlive the mapping.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "migration/special_folder_table.h"

namespace tw {

class FolderMapping {
 public:
  static constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

  // For every row of `table` before its terminating row, in order: a copy of the row's name and
  // a reference to the row, appended one entry at a time. By default the process-wide table.
  explicit FolderMapping(std::span<SpecialFolderRow> table = SpecialFolders());

  std::size_t count() const { return names_.size(); }
  const std::wstring& NameAt(std::size_t index) const { return names_[index]; }
  SpecialFolderRow& RowAt(std::size_t index) const { return *rows_[index]; }

  // The index of `name` (exact, case-sensitive), or kNotFound.
  std::size_t Find(std::wstring_view name) const;
  // Removes the entry at `index`; the entries after it move up by one.
  void RemoveAt(std::size_t index);

  // The table the mapping was built over (its rows before the terminator), whole: removing an
  // entry from the mapping does not remove its row from the table.
  std::span<SpecialFolderRow> table() const { return table_; }

 private:
  std::span<SpecialFolderRow> table_;
  std::vector<std::wstring> names_;
  std::vector<SpecialFolderRow*> rows_;
};

}  // namespace tw
