// The target profile folder: its path derived from the source folder's name and the target
// version, the creation of the target root with the source's security (an earlier, interrupted
// migration is recognised by its marker file and rebuilt), and the deletion of a folder tree,
// used for every rollback and for the temporary profile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/hresult.h"
#include "base/win32_error.h"
#include "migration/migration_context.h"
#include "ports/file_system.h"
#include "security/self_relative_descriptor.h"

namespace tw {

// The file that marks a target profile as under construction; joined to the target path with
// "%s\\%s".
inline constexpr wchar_t kMarkerFileName[] = L"_qzk_mig_marker_";

// Characters of DeleteFolderTree's double-zero buffer (1040 bytes): a path is cut to 519.
inline constexpr std::size_t kDeleteBufferChars = 520;

// True when `name` ends in ".V2", ".V5" or ".V6", compared case-insensitively: the suffix that
// the target naming removes from a source folder's name.
bool HasVersionSuffix(std::wstring_view name);

// Tries the lock of a target's marker as a run does before it rebuilds the target: the marker
// opened through FileSystem::OpenLocked (read access, backup semantics). kSuccess with `lock`
// holding it: no live run has the target (the caller lets go of it by resetting `lock`);
// kSharingViolation: a live run holds the target; kFileNotFound / kPathNotFound: no marker;
// another error: the lock cannot be tried.
[[nodiscard]] err::Win32Error TryTargetLock(FileSystem& files, const std::wstring& markerPath,
                                            UniqueFileHandle& lock);

// target\_qzk_mig_marker_.
std::wstring MarkerPathOf(const std::wstring& targetPath);

// The target profile folder of sourcePath for targetVersion:
// 1. the folder name is what follows the last backslash of sourcePath; no backslash, or only
//    one at the first character, gives E_FAIL (0x80004005);
// 2. a ".V2", ".V5" or ".V6" ending (any case) is removed;
// 3. target version 2, 5 or 6 appends ".V2", ".V5" or ".V6"; any other version leaves the name
//    without a suffix;
// 4. the name is joined (PathCombineW) to the settings' target root folder, or, when that is
//    empty, to the source path's parent: the target then lies beside the source.
// Returns 0 with targetPath set. A join that does not fit MAX_PATH leaves targetPath empty (as
// the emptied buffer of the Windows call would) and still returns 0: the later UNC test of the
// per-profile migration refuses the empty path.
[[nodiscard]] HResult GetTargetPath(MigrationContext& context, const std::wstring& sourcePath,
                                    std::wstring& targetPath, std::uint32_t targetVersion);

// One run per target: a run holds a lock on each target while it builds it, from before its
// marker exists until the marker is removed again (or the target deleted). The lock is the
// marker opened through FileSystem::OpenLocked, so the system lets go of it when the run ends in
// any way; a marker whose lock is free is therefore the mark of a run that has ended.
//
// Makes the marker file in targetPath as the per-profile migration makes it (CreateFileW(marker,
// GENERIC_ALL, ..., CREATE_ALWAYS, FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN)), under this
// run's lock, which `lock` then holds. Another run that looks at the fresh folder holds its lock
// for a moment; that is waited for briefly. Returns the Win32 error of the creation.
[[nodiscard]] err::Win32Error CreateLockedMarker(MigrationContext& context,
                                                 const std::wstring& targetPath,
                                                 UniqueFileHandle& lock);

// Deletes the tree of a target whose lock `lock` holds (DeleteFolderTree, under the lock, so that
// no other run starts on the target meanwhile), then lets go of the lock. Where an open file is
// removed only when its last handle closes (older Windows), the marker, and so the folder, can
// only go after that: a target still there without its marker is deleted once more (no other run
// touches a target without a marker). Returns the last deletion's result. With an empty `lock`
// this is DeleteFolderTree.
[[nodiscard]] HResult DeleteLockedTarget(MigrationContext& context, const std::wstring& targetPath,
                                         UniqueFileHandle& lock);

// Creates the target root folder with the owner and DACL of sourceSecurity (none when it is
// empty):
// - an existing target holding the marker file whose lock is free is an interrupted migration:
//   "The target profile contains an interrupted migration, rebuilding profile: %s" is logged and
//   its tree deleted with DeleteLockedTarget (the deletion's result is not looked at) before the
//   folder is created anew;
// - an existing target whose marker another run holds locked is neither rebuilt nor deleted:
//   "The target profile is being migrated by another run: %s" is logged and the HRESULT of
//   ERROR_SHARING_VIOLATION (0x80070020) returned; a lock that cannot be tried for another
//   reason logs "Failed to lock the target profile (0x%08X): %s" and returns that error's
//   HRESULT, nothing deleted either;
// - an existing target without the marker is a finished profile: "The target profile path
//   already exists: %s" is logged and 0x800700B7 returned; nothing is changed;
// - a failed creation logs "Failed creating folder (0x%08X): %s already exists" (183),
//   "... %s not found" (3) or "... %s" (any other error) and returns the error's HRESULT.
[[nodiscard]] HResult CreateTargetProfileFolder(MigrationContext& context,
                                                const std::wstring& targetPath,
                                                const SelfRelativeDescriptor& sourceSecurity);

// Deletes path with everything in it for good (SHFileOperationW FO_DELETE, no undo); a path
// longer than 519 characters is cut at 519. Returns 0, or 0x80004005 for any failure. Logs
// nothing.
[[nodiscard]] HResult DeleteFolderTree(MigrationContext& context, const std::wstring& path);

}  // namespace tw
