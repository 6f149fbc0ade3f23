// The copy routines of the profile migration: the temporary default profile copied into the new
// target (every object given the source profile's owner), the recursive copy of a source folder
// into a target folder that carries attributes, times and security item by item, and the
// creation of a missing target folder path with the source folder's security and attributes.
//
// Every enumeration skips "." and "..", and every entry with FILE_ATTRIBUTE_REPARSE_POINT: a
// junction or link is never entered or copied. Entries are handled in search order, each failed
// item is logged with its path and the copy goes on; only a failed enumeration of the folder
// being copied becomes the result.
#pragma once

#include <string>

#include "base/hresult.h"
#include "migration/migration_context.h"
#include "ports/file_system.h"
#include "profile/folder_migrator.h"
#include "security/self_relative_descriptor.h"

namespace tw {

// CreateFileW(path, FILE_WRITE_ATTRIBUTES | WRITE_DAC | WRITE_OWNER, FILE_SHARE_READ, NULL,
// OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_ATTRIBUTE_NORMAL, NULL): the open of a target
// item for its times; folders open too.
FileOpenRequest TargetObjectRequest();

// Copies the content of defaultProfile into targetFolder, giving every copied object the owner
// of sourceSecurity:
// - the pattern is "%s*" when defaultProfile ends in a backslash, else "%s\\*"; a failed search
//   logs "Failed enumerating folder(0x%08X): %s" (code, pattern; no blank before the
//   parenthesis, deliberately) and returns the code;
// - no owner in sourceSecurity logs "Failed getting profile owner (0x%08X): %s" with
//   0x8007051B (ERROR_INVALID_OWNER) and the default profile folder, and the copy goes on
//   without an owner;
// - a folder is created (without a descriptor), given the entry's attributes and copied by
//   recursion with the same owner; a folder that cannot be created is not descended into;
// - a file that exists in the target already is kept as it is; others are copied;
// - every entry, copied or not, then gets the owner written; a failed write, or no owner,
//   logs "Failed setting object owner (0x%08X): %s" (no owner: 0x8007051B).
// Items are named "%s\\%s" (folder, entry name). Returns 0 unless the search fails.
[[nodiscard]] HResult CopyDefaultProfile(MigrationContext& context,
                                         const std::wstring& defaultProfile,
                                         const std::wstring& targetFolder,
                                         const SelfRelativeDescriptor& sourceSecurity);

// Copies sourceFolder into targetFolder recursively (the target folder path is created first
// when missing, with CreateTargetFolderPath). For each entry:
// - the source item's owner and DACL are read; access denied with the take-ownership setting
//   takes ownership of the item (its prior security kept as the descriptor to copy); any other
//   failure, or a failed take-over, logs "Failed getting security descriptor (0x%08X): %s"
//   (source item) and the item is not copied;
// - a file that exists in the target is neither overwritten nor touched; others are copied
//   ("Failed migrating file (0x%08X): %s" with the source item);
// - a folder is created when missing ("Failed creating folder (0x%08X): %s", target item) and
//   copied by recursion ("Failed migrating folder (0x%08X): %s", source item); an existing
//   target folder is still descended into;
// - then the target item gets the entry's attributes ("Failed setting V2 file object attributes
//   (0x%08X): %s"), its times through a handle opened with backup semantics ("Failed to open the
//   target file object (0x%08X): %s", "Failed setting V2 file object times (0x%08X): %s") and the
//   source's security ("Failed to set security on object (0x%08X): %s");
// - a source item taken over gets its prior security back ("Failed to set security on object
//   (0x%08X): %s" with the source item). Decision: this is done on every way out of the item
//   once ownership was taken, also where the item is skipped as an existing file or because its
//   target cannot be opened, so that no source object is left owned by the running user.
// - an entry whose name equals an earlier entry's ignoring case is not copied (its target would
//   be the first one's) and is logged (case_twins.h).
// A search that fails logs "Failed enumerating source folder (0x%08X): %s" (pattern) and returns
// the code; a combined item path that does not fit MAX_PATH ends the loop. Otherwise returns 0.
// Nothing is lost without a line in the log: a combined path that does not fit logs "Path too
// long, the rest of the folder is not migrated (0x800700CE): %s: %s" (source folder, entry name)
// before the loop ends, and a source folder too long for its search pattern logs "Path too long,
// the folder's content is not migrated (0x800700CE): %s" (source folder) before the search
// fails.
[[nodiscard]] HResult CopyFolder(FolderMigrator& migrator, const std::wstring& sourceFolder,
                                 const std::wstring& targetFolder);

// Creates every missing folder of targetFolder with the owner and DACL of sourceFolder (without
// a descriptor when that cannot be read), then gives it sourceFolder's attributes ("Failed
// getting source folder attributes (0x%08X): %s", "Failed setting target folder attributes
// (0x%08X): %s"; both only logged). An existing folder counts as created. Any other failure logs
// "Failed to create target profile path (0x%08X): %s" (target folder) and returns its HRESULT.
[[nodiscard]] HResult CreateTargetFolderPath(FolderMigrator& migrator,
                                             const std::wstring& sourceFolder,
                                             const std::wstring& targetFolder);

}  // namespace tw
