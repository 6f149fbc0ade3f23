// The folder and registry filters of the configuration file: a comma-separated list of names
// (for example "Console, Software") turned into a 32-bit bit set over a fixed table.
//
// Both filters use one algorithm:
// 1. the text is split at "," as a string tokenizer does: runs of commas are skipped, so empty
//    items between commas produce nothing;
// 2. each item is trimmed of white space (as iswspace tells) at its end, then at its start;
// 3. the table is walked from its first row to its terminating row and the item is compared
//    without regard to case (as _wcsicmp does: only A-Z and a-z fold) with the row's compared
//    string; the first equal row's bit is OR-ed into the result;
// 4. an item that matches no row is written to the log with its own message and skipped.
// The result is 0 when no item is recognised (an empty text gives 0).
//
// The registry filter compares with the key row's name. The folder filter compares with the
// special folder row's source location, not its name: the locations are empty while the
// configuration file is read, so every named item is reported invalid (the required behaviour).
// A consequence kept as it stands: an item of white space only trims to "", which equals the
// empty source location of the first row ("AppData") and so gives that row's bit.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "migration/migration_settings.h"
#include "migration/registry_key_table.h"
#include "migration/special_folder_table.h"

namespace tw {

// Folder filter over the process-wide special folder table. Unknown items are logged as
// "Invalid folder filter found in the configuration file: %s". The settings record is the one
// the list is read for; the lookup needs nothing from it.
std::uint32_t ParseFolderFilter(const MigrationSettings& settings, std::wstring_view text);

// Registry filter over RegistryKeyTable. Unknown items are logged as
// "Invalid registry filter found in the configuration file: %s".
std::uint32_t ParseRegistryFilter(const MigrationSettings& settings, std::wstring_view text);

// The same filters over a given table (walked up to its first row whose bit is 0). A folder row
// without a name before the terminating row is not a valid row: the walk raises E_FAIL
// (HResultError), which nothing catches.
std::uint32_t ParseFolderFilterOver(std::span<const SpecialFolderRow> table,
                                    std::wstring_view text);
std::uint32_t ParseRegistryFilterOver(std::span<const RegistryKeyRow> table,
                                      std::wstring_view text);

}  // namespace tw
