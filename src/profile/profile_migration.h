// The per-profile migration: one source profile folder becomes one finished target profile
// folder, or nothing is left behind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/hresult.h"
#include "migration/migration_context.h"

namespace tw {

// The user name of the temporary profile that supplies the default profile.
inline constexpr wchar_t kTemporaryProfileUser[] = L"_tarnwick_";
// Characters of the temporary profile path buffer handed to CreateProfile.
inline constexpr std::size_t kTemporaryProfileBuffer = 260;

// Migrates sourcePath (a profile of sourceVersion) into the target profile folder of
// targetVersion, which it computes into targetPath (the caller sees it afterwards). The steps:
//  1. the temporary profile path buffer is zeroed;
//  2. the target path (GetTargetPath); a failure logs "Failed to get target path (0x%08X)";
//  3. the source must be a UNC path ("Source path not valid: %s") whose attributes can be read,
//     or whose read is denied ("Source path not reachable: %s"): 0x80040001;
//  4. the target must be a UNC path ("Target path not valid: %s") on a reachable share, tested
//     without impersonation ("Target path not reachable: %s"): 0x80040002;
//  5. the source folder's owner and DACL are read; access denied under the take-ownership
//     setting takes ownership once and reads again; a failure logs "Failed to get security
//     descriptor for profile (0x%08X): %s" with the code of the last failing call (the read, or
//     the take-over);
//  6. the target root is created with that security (CreateTargetProfileFolder: "Failed to
//     create the root profile folder (0x%08X): %s"); 0x800700B7 for a finished target;
//  7. the marker file is created read-only and hidden; a failure only logs "Failed to create
//     marker file (0x%08X)";
//  8. the owner: after a take-over the source's former owner (also written into the descriptor
//     used below), else the read descriptor's; none logs "Failed to get owner sid of source
//     profile folder (0x%08X): %s" with the thread's last error, deletes the target tree and
//     returns 0 (deliberately not the logged code);
//  9. CreateProfile(owner SID, "_tarnwick_") (unbound: code 1); "Failed creating profile
//     (0x%08X)";
// 10. the default profile is copied into the target with the owner (empty paths: code 3);
//     "Failed to copy the default profile (0x%08X - %s): %s";
// 11. MigrateUserProfile over a folder migrator built for this call; a failure logs "Failed to
//     migrate the user profile (0x%08X): %s", deletes the target tree and returns at once: the
//     temporary profile is deliberately left for inspection;
// 12. the marker is removed (results ignored); the source and then the target get the kept
//     security back ("Failed to restore security on user profile (0x%08X): %s"); the target's
//     code is the result;
// 13. a temporary profile (non-empty buffer) is deleted: its tree, then DeleteProfileW;
//     "Deleted temporary profile: %s", or "Failed deleting (0x%08X): %s" whose code replaces
//     the result.
// Steps 8 to 11 delete the target tree on failure and restore the source's security; every path
// after step 5's read restores the source's security.
//
// Decisions: the last error of a failed DeleteProfileW is the thread's last error; when that is
// 0 (a stand-in that set none) the code is E_FAIL, so that the failure always shows in the
// result; an unbound DeleteProfileW gives 0x8007007F (ERROR_PROC_NOT_FOUND, what looking it up
// failed with).
[[nodiscard]] HResult MigrateProfile(MigrationContext& context, const std::wstring& sourcePath,
                                     std::uint32_t sourceVersion, std::wstring& targetPath,
                                     std::uint32_t targetVersion);

}  // namespace tw
