// A structural check of a regf file for what readers do not check: the base block checksum and
// sequence numbers, sub key lists sorted by upper-cased name with correct lh hashes, parent links,
// security cells in one circular list with reference counts that match their users, the
// maximum-length fields of every key node (exactly the values of its sub keys and values), and
// free-cell accounting. The file must first be readable (ParseHive); its problems are reported
// as the reader's reason.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tw::hive {

struct LintReport {
  std::vector<std::wstring> problems;  // empty: the hive is sound
  std::size_t freeCells = 0;           // free cells, and their bytes
  std::size_t freeBytes = 0;
};

LintReport LintHive(std::span<const std::uint8_t> file);

}  // namespace tw::hive
