// The shell-folder fix-up: where each special folder of a profile lives, read from the profile's
// offline ntuser.dat ("User Shell Folders"), and folders that the source redirects to a network
// share carried into the target's "User Shell Folders" instead of being copied.
//
// A row's "profile path" here is its target location: write mode records the target's own
// "User Shell Folders" values there, and CompleteSpecialFolderPaths fills the rows left empty
// from the target's "Shell Folders" values.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "base/hresult.h"
#include "migration/folder_mapping.h"
#include "migration/migration_context.h"
#include "migration/special_folder_table.h"
#include "registry/offreg_wrapper.h"

namespace tw {

inline constexpr wchar_t kUserShellFoldersKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";
inline constexpr wchar_t kShellFoldersKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";

// The format of a failed take-over of the hive file: "0x%08" without a conversion letter,
// deliberately (the formatter prints the code as "%08X" would, so only the literal itself shows
// the difference).
inline constexpr wchar_t kHiveOwnershipFailedFormat[] =
    L"Failed getting ownership of hive (0x%08): %s";

// ORGetValue of one string value of the open `key` (a "Shell Folders" or "User Shell Folders"
// key) into the fixed 520-byte buffer, as text up to its first zero; false when it cannot be read.
bool ReadShellFolder(const COffregWrapper& offreg, OrKey key, const std::wstring& name,
                     std::wstring& value);

// Reads (writeMode false: the source profile) or fixes up (writeMode true: the target profile)
// the "User Shell Folders" values of profilePath\ntuser.dat against `mapping`:
// - read mode: each string value whose name is in the mapping becomes that row's source
//   location;
// - write mode: a row whose source location is a UNC path has it written into the target's value
//   (with the type found in the target, its size without the terminating zero; deliberate) and
//   is removed from the mapping; the other rows (and a row whose write failed) get the target's
//   own value as target location. A changed hive is saved (SaveTargetHive with profileVersion),
//   then CompleteSpecialFolderPaths runs over the mapping's table.
// The hive file is opened with the ownership retry of the hive migration. Every enumeration that
// runs to its end logs "No more value of %s %d". Returns S_OK when the enumeration ended
// normally, else the failure (an open, the enumeration, the save, or the completion).
//
// An empty profilePath falls back on g_profilePath (the "/p:" option): that is the one place the
// option is used.
[[nodiscard]] HResult SyncUserShellFolders(MigrationContext& context, FolderMapping& mapping,
                                           const std::wstring& profilePath,
                                           std::int32_t profileVersion, bool writeMode);

// Completes the rows of `table` whose profile path (target location) is empty from the
// "Shell Folders" values of the open `hive`: the profile folder is found from the first row
// whose profile path begins with "%USERPROFILE%" and whose value holds the rest of that path at
// a position above 0; a row whose value begins with the profile folder gets that value with
// every occurrence of the folder replaced by "%USERPROFILE%". Returns E_FAIL (and logs "Profile
// path is empty") when no profile folder is found.
[[nodiscard]] HResult CompleteSpecialFolderPaths(
    MigrationContext& context, OrKey hive, std::span<SpecialFolderRow> table = SpecialFolders());

}  // namespace tw
