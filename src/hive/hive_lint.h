// A structural check of a regf file for what readers do not check. It tells faults (what can
// make a reader fail or lose data) from habits Windows itself leaves in its hives:
//
// Faults: the reader's reason when the file cannot be read at all (bounds, broken lists, cells
// referenced twice, ...); a wrong base block checksum; sequence numbers that differ; sub key
// lists out of order, with wrong lh hashes or wrong lf hints for ASCII names; parent links that
// do not name the parent; maximum-length fields of a key node smaller than its sub keys' or
// values' (upper bounds that do not bound); security cells off their circular list or counted
// fewer times than keys use them; big data segment cells too small for the bytes they hold
// (readers take a segment's length from its cell size less 8).
//
// Notes (harmless, left by Windows): maximum-length fields larger than needed (Windows does not
// lower them when a sub key or value goes), security reference counts above their users and
// security cells no key uses still on the list, lf hints that differ for names with characters
// beyond ASCII. Each kind is one note with its count and the first cell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tw::hive {

struct LintReport {
  std::vector<std::wstring> problems;  // the faults; empty: the hive is sound
  std::vector<std::wstring> notes;     // harmless habits, one line per kind
  std::size_t freeCells = 0;           // free cells, and their bytes
  std::size_t freeBytes = 0;
};

LintReport LintHive(std::span<const std::uint8_t> file);

}  // namespace tw::hive
