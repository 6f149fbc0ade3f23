// SaveTargetHive: writes an open offline hive back over its file through the temporary file
// "~mighive.dat" in the same folder, keeping the file's attributes, owner and DACL, and hands the
// caller a handle to the re-opened saved hive.
#pragma once

#include <cstdint>
#include <string>

#include "base/win32_error.h"
#include "migration/migration_context.h"
#include "registry/offreg_wrapper.h"

namespace tw {

// The temporary hive file's name.
inline constexpr wchar_t kTemporaryHiveName[] = L"~mighive.dat";

// The OS version ORSaveHive is given for a profile version, which picks the hive format.
struct HiveFormatVersion {
  OrDword major = 0;
  OrDword minor = 0;
};

// 2 -> 6.1, 3 -> 6.2, 4 -> 6.3, 5 and 6 -> 10.0. Any other version has no format: false.
bool HiveFormatForVersion(std::int32_t targetVersion, HiveFormatVersion& format);

// Saves `hive` over the file `hiveFilePath`:
//  1. the format version from targetVersion; a version without one (outside 2 to 6) is an
//     error: ERROR_INVALID_PARAMETER (87) is returned at once and nothing is touched (the
//     handle stays open for the caller to close);
//  2. temporary path: the hive file's folder, a backslash, "~mighive.dat";
//  3. ORSaveHive into it unless the handle is -1; a failure is logged and the steps go on (the
//     copy below then fails and is logged; intended);
//  4. ORCloseHive, and the caller's handle becomes -1;
//  5. the hive file's owner and DACL are read (a failure with an error ends the save, deleting
//     the temporary file);
//  6. its attributes are read, and written back without READONLY and HIDDEN;
//  7. the temporary file is copied over the hive file;
//  8. the temporary file is deleted and the saved attributes are put back;
//  9. the hive file is opened for writing (GENERIC_WRITE | WRITE_DAC | WRITE_OWNER, backup
//     semantics);
// 10. the saved owner is set on that handle (SetSecurityInfo) when the saved descriptor has
//     one; a failure is logged and the DACL still follows;
// 11. the saved DACL is set on the same handle (a present but null DACL, or none at all, as the
//     NULL DACL);
// 12. the file is closed and, when no error is pending, the saved file is re-opened into `hive`.
// Returns a Win32 error code (0 on success), not an HRESULT: the error that ended the save, or
// the last one of steps 10 to 12 (an owner or DACL that could not be written, a failed
// re-open).
[[nodiscard]] err::Win32Error SaveTargetHive(MigrationContext& context, OrKey& hive,
                                             std::int32_t targetVersion,
                                             const std::wstring& hiveFilePath);

}  // namespace tw
