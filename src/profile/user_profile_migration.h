// The user-profile migration: once the target holds a copy of the default profile, the registry
// hive is migrated first, then the folders in two passes. The first pass copies each special
// shell folder from the location the source profile's registry gives it to the location the
// target profile's registry gives it, taking ownership and restoring security around each; the
// second copies every other top-level folder of the source to the same name in the target.
#pragma once

#include <cstdint>
#include <string>

#include "base/hresult.h"
#include "profile/folder_migrator.h"

namespace tw {

// The hive migration (MigrateRegistryHive) with the same arguments; its code when non-zero,
// else the result of MigrateProfileFolders.
[[nodiscard]] HResult MigrateUserProfile(FolderMigrator& migrator, const std::wstring& sourcePath,
                                         std::int32_t sourceVersion, const std::wstring& targetPath,
                                         std::int32_t targetVersion);

// The folder migration of one profile:
// 1. a folder mask with its top bit set ("/f-") returns 0 at once;
// 2. every folder record's source and target location is emptied, then filled from the source
//    hive (SyncUserShellFolders read mode; "Failed to read source profile folders from hive
//    (0x%08X)") and the target hive (write mode; "Failed to read target profile folders from hive
//    (0x%08X)"); either failure is the result;
// 3. "%USERPROFILE%" (exact case) is replaced by the source path in source locations and by the
//    target path in target locations;
// 4. for each record of the mapping, in order: "Processing folder %s" (name); a row whose bit is
//    not in the mask logs "Skipped processing folder %s" with its source location (deliberately
//    not its name); a location holding a "%" logs "Cannot migrate profile folders containing
//    environment variables: %s", always with the source location; a location that is not a UNC
//    path in the hive and does not lie inside its own profile once its "." and ".." names are
//    resolved by text logs "Folder location outside the profile, not migrated: %s: %s" (name,
//    value as the hive gives it) and skips the row (deliberate deviation, for safety; see
//    folder_location.h); from here on the resolved paths are used; a missing source location
//    is passed over silently; source and (when it exists) target location are read, with one
//    take-over each on access denied under the take-ownership setting ("Failed to take
//    ownership (0x%08X): %s" skips the row); the source location is copied into the target
//    location; both get their kept security back ("Failed to restore security (0x%08X): %s").
//    Decision: a row skipped after a take-over (the target's read or take-over failing, or a
//    take-over that failed after changing the owner) gets the kept security put back as well,
//    so that no object is left owned by the running user;
// 5. MigrateRemainingFolders, whose result is not looked at. Returns 0.
[[nodiscard]] HResult MigrateProfileFolders(FolderMigrator& migrator,
                                            const std::wstring& sourcePath,
                                            std::int32_t sourceVersion,
                                            const std::wstring& targetPath,
                                            std::int32_t targetVersion);

// The second pass: every top-level folder of sourcePath that is neither a reparse point nor named
// exactly (case-sensitively) as a row of the special folder table is copied (CopyFolder) to the
// same name under targetPath, and given the source entry's attributes ("Failed setting target
// file object attributes (0x%08X): %s"), times ("Failed to open the target file object (0x%08X):
// %s", "Failed setting target file object times (0x%08X): %s") and security. Files at the top of
// the profile are not copied here. A folder whose name equals an earlier one's ignoring case is
// not copied onto the first one's target and is logged (case_twins.h). A folder whose source or
// target path does not fit MAX_PATH is not copied and logs "Path too long, the folder is not
// migrated (0x800700CE): %s: %s" (source path, name); the loop goes on (deliberate deviation).
// Decision: the security applied is the source folder's owner and DACL, read just before (a
// folder whose security cannot be read gets none written). "Failed to set security on object
// (0x%08X): %s" shows the last error, deliberately not the operation's result: the error of the
// latest failed call made for that folder, 0 when none failed.
// A failed search logs "Failed searching \"%s\": 0x%08" (pattern, then code; the format ends
// without a conversion letter, deliberately) and returns its code; otherwise the code of the last
// failure, 0 when none.
[[nodiscard]] HResult MigrateRemainingFolders(FolderMigrator& migrator,
                                              const std::wstring& sourcePath,
                                              const std::wstring& targetPath);

// The format of a failed search of the profile root: it ends in "0x%08" without a conversion
// letter and takes the path before the code, deliberately (the formatter prints the code as
// "%08X" would, so only the literal itself shows the difference).
inline constexpr wchar_t kFailedSearchingFormat[] = L"Failed searching \"%s\": 0x%08";

}  // namespace tw
