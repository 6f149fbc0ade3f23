// The special folder table: the user shell folders the folder migration knows by their registry
// value names, one mask bit each. The table is process-wide and built before the entry point
// runs; its bits and names never change. Each row also carries the folder's location in the
// source and in the target profile: both are empty in the table, the folder migration clears them
// for every profile and the shell-folder fix-up fills them from the hives.
//
// The folder filters of the configuration file compare with a row's source location, not with its
// name. Because the locations are still empty while the configuration file is read, a folder
// filter never matches a named folder; that is the required behaviour.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace tw {

struct SpecialFolderRow {
  // A single bit, distinct per row; 0 marks the terminating row.
  const std::uint32_t bit;
  // The shell-folder value name under "User Shell Folders" and "Shell Folders", as it stands
  // (names such as "Local AppData" contain blanks).
  const std::wstring name;
  // The folder's path in the source profile and in the target profile.
  std::wstring sourceLocation;
  std::wstring targetLocation;
};

// Rows before the terminating row.
inline constexpr std::size_t kSpecialFolderCount = 19;

// The process-wide table: 19 rows ("AppData" 0x1 ... "Templates" 0x40000, bits 1 << 0 to
// 1 << 18 in table order) and the terminating row {0, ""}.
extern SpecialFolderRow g_specialFolderTable[kSpecialFolderCount + 1];

// The rows of `table` in order, up to (not including) the first row whose bit is 0, or all of
// them when there is no such row.
std::span<SpecialFolderRow> RowsBeforeTerminator(std::span<SpecialFolderRow> table);
std::span<const SpecialFolderRow> RowsBeforeTerminator(std::span<const SpecialFolderRow> table);

// The 19 folder rows of the process-wide table, in table order.
std::span<SpecialFolderRow> SpecialFolders();

}  // namespace tw
