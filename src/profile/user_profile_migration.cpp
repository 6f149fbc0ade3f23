#include "profile/user_profile_migration.h"

#include <optional>
#include <string>
#include <vector>

#include "base/shell_path.h"
#include "base/win32_error.h"
#include "log/log.h"
#include "ports/file_system.h"
#include "profile/case_twins.h"
#include "profile/folder_location.h"
#include "profile/for_each_entry.h"
#include "profile/profile_copy.h"
#include "registry/hive_migration.h"
#include "registry/shell_folders.h"
#include "security/file_security.h"
#include "security/read_taking_ownership.h"
#include "security/self_relative_descriptor.h"

namespace tw {
namespace {

// A rooted path: "X:\..." or a UNC path "\\server\share...".
bool IsFullPath(const std::wstring& path) {
  if (path.size() >= 3 && path[1] == L':' && path[2] == L'\\') return true;
  return path.size() >= 2 && path[0] == L'\\' && path[1] == L'\\';
}

constexpr wchar_t kUserProfileVariable[] = L"%USERPROFILE%";

// Replaces every occurrence of `variable` (exact case) in text by `value`.
void ReplaceAll(std::wstring& text, std::wstring_view variable, std::wstring_view value) {
  std::size_t at = text.find(variable);
  while (at != std::wstring::npos) {
    text.replace(at, variable.size(), value);
    at = text.find(variable, at + value.size());
  }
}

// The path the folder pass uses for a location: `expanded` is the location after the
// "%USERPROFILE%" expansion, `value` the same as the hive gives it. Returns false for a location
// that must not be used.
// Deliberate deviation, for safety: the hive belongs to the profile's owner, and the tool copies
// with backup and restore rights, writing attributes and security onto both ends. So a location
// that is not a UNC path is used only when, its "." and ".." names resolved by its text, it lies
// inside its own profile; another server folder, a drive path (such as the Z: view of a Linux
// server's root), a relative path or a ".." that leaves the profile is refused. A UNC location
// keeps the documented treatment, its dots resolved by text as the copy resolves them. Either
// way the existence test, the security steps and the copy all get the same resolved path.
bool ResolveLocation(const std::wstring& expanded, const std::wstring& value,
                     const std::wstring& profile, std::wstring& path) {
  if (expanded.empty()) {
    path.clear();  // no location: passed over as a missing one
    return true;
  }
  if (PathIsUNCW(value)) {
    if (!PathCombineW(path, expanded, L"")) path = expanded;
    return true;
  }
  std::optional<std::wstring> inside = ResolveInsideProfile(expanded, profile);
  if (!inside) return false;
  path = std::move(*inside);
  return true;
}

bool HoldsVariable(const std::wstring& location) {
  return !location.empty() && location.find(L'%') != std::wstring::npos;
}

// Reads the owner and DACL of `location`; on access denied under the take-ownership setting,
// takes ownership of it into `saved`. Returns 0 when the location may be copied, else the code
// of the failing read or take-over.
[[nodiscard]] HResult SecureLocation(FolderMigrator& migrator, FileSecurity& fileSecurity,
                                     const std::wstring& location, SelfRelativeDescriptor& saved) {
  SelfRelativeDescriptor read;
  return ReadSecurityTakingOwnership(fileSecurity, location, migrator.settings().takeOwnership,
                                     read, saved, AfterOwnershipTaken::kUseSaved)
      .code;
}

void RestoreLocation(FileSecurity& fileSecurity, const std::wstring& location,
                     const SelfRelativeDescriptor& saved) {
  const HResult restored = fileSecurity.ApplySecurity(location, saved);
  if (Failed(restored)) Log(L"Failed to restore security (0x%08X): %s", restored, location);
}

// Clears every row's locations and reads them from the source hive, then from the target hive.
[[nodiscard]] HResult ReadFolderLocations(FolderMigrator& migrator, const std::wstring& sourcePath,
                                          std::int32_t sourceVersion,
                                          const std::wstring& targetPath,
                                          std::int32_t targetVersion) {
  MigrationContext& context = migrator.context();
  FolderMapping& mapping = migrator.mapping();
  for (std::size_t i = 0; i < mapping.count(); ++i) {
    mapping.RowAt(i).sourceLocation.clear();
    mapping.RowAt(i).targetLocation.clear();
  }
  const HResult source = SyncUserShellFolders(context, mapping, sourcePath, sourceVersion, false);
  if (Failed(source)) {
    Log(L"Failed to read source profile folders from hive (0x%08X)", source);
    return source;
  }
  const HResult target = SyncUserShellFolders(context, mapping, targetPath, targetVersion, true);
  if (Failed(target)) {
    Log(L"Failed to read target profile folders from hive (0x%08X)", target);
    return target;
  }
  return hr::kOk;
}

// The locations as the hives gave them, and each row's locations with "%USERPROFILE%" expanded
// to its profile path.
struct HiveValues {
  std::vector<std::wstring> source;
  std::vector<std::wstring> target;
};

HiveValues ExpandUserProfile(FolderMapping& mapping, const std::wstring& sourcePath,
                             const std::wstring& targetPath) {
  HiveValues values;
  for (std::size_t i = 0; i < mapping.count(); ++i) {
    values.source.push_back(mapping.RowAt(i).sourceLocation);
    values.target.push_back(mapping.RowAt(i).targetLocation);
    ReplaceAll(mapping.RowAt(i).sourceLocation, kUserProfileVariable, sourcePath);
    ReplaceAll(mapping.RowAt(i).targetLocation, kUserProfileVariable, targetPath);
  }
  return values;
}

// The resolved locations of row i, or false when the row is passed over (logged, but for a
// source location that does not exist).
bool ResolveRowLocations(FolderMigrator& migrator, std::size_t i, const HiveValues& values,
                         const std::wstring& sourcePath, const std::wstring& targetPath,
                         std::wstring& sourceLocation, std::wstring& targetLocation) {
  const FolderMapping& mapping = migrator.mapping();
  const SpecialFolderRow& row = mapping.RowAt(i);
  Log(L"Processing folder %s", mapping.NameAt(i));
  if ((migrator.settings().folderMask & row.bit) == 0) {
    Log(L"Skipped processing folder %s", row.sourceLocation);
    return false;
  }
  if (HoldsVariable(row.sourceLocation) || HoldsVariable(row.targetLocation)) {
    Log(L"Cannot migrate profile folders containing environment variables: %s", row.sourceLocation);
    return false;
  }
  // From here on only the resolved paths are used (deliberate deviation, see ResolveLocation).
  if (!ResolveLocation(row.sourceLocation, values.source[i], sourcePath, sourceLocation)) {
    Log(L"Folder location outside the profile, not migrated: %s: %s", mapping.NameAt(i),
        values.source[i]);
    return false;
  }
  if (!ResolveLocation(row.targetLocation, values.target[i], targetPath, targetLocation)) {
    Log(L"Folder location outside the profile, not migrated: %s: %s", mapping.NameAt(i),
        values.target[i]);
    return false;
  }
  if (!migrator.context().files.PathExists(sourceLocation)) return false;
  // Our decision: a target hive that gives no full location for this folder (none at all; a
  // relative one was refused above) would make the copy land in the process's current folder. The
  // row is not copied and the log says so; the source stays as it is.
  if (!IsFullPath(targetLocation)) {
    Log(L"No target location for folder %s, not migrated: %s", mapping.NameAt(i), sourceLocation);
    return false;
  }
  return true;
}

// Copies one folder location into the other, both ends taken over where their security cannot
// be read and the setting allows it, and gives both their security back.
void CopyLocation(FolderMigrator& migrator, FileSecurity& fileSecurity,
                  const std::wstring& sourceLocation, const std::wstring& targetLocation) {
  SelfRelativeDescriptor sourceSaved;
  SelfRelativeDescriptor targetSaved;
  const HResult sourceSecured = SecureLocation(migrator, fileSecurity, sourceLocation, sourceSaved);
  if (Failed(sourceSecured)) {
    Log(L"Failed to take ownership (0x%08X): %s", sourceSecured, sourceLocation);
    RestoreLocation(fileSecurity, sourceLocation, sourceSaved);
    return;
  }
  if (migrator.context().files.PathExists(targetLocation)) {
    const HResult targetSecured =
        SecureLocation(migrator, fileSecurity, targetLocation, targetSaved);
    if (Failed(targetSecured)) {
      Log(L"Failed to take ownership (0x%08X): %s", targetSecured, targetLocation);
      RestoreLocation(fileSecurity, sourceLocation, sourceSaved);
      RestoreLocation(fileSecurity, targetLocation, targetSaved);
      return;
    }
  }

  // Logged inside; the next folder follows.
  static_cast<void>(CopyFolder(migrator, sourceLocation, targetLocation));

  RestoreLocation(fileSecurity, sourceLocation, sourceSaved);
  RestoreLocation(fileSecurity, targetLocation, targetSaved);
}

bool IsRowName(FolderMigrator& migrator, const std::wstring& name) {
  bool isRowName = false;
  for (const SpecialFolderRow& row : migrator.mapping().table()) {
    if (row.name == name) isRowName = true;
  }
  return isRowName;
}

// Gives a copied remaining folder the entry's attributes and times and the source folder's
// security. Each failure is logged and becomes `lastFailure`; a failed security write is
// reported with the last error of the steps before it.
void FinishRemainingFolder(FileSystem& files, FileSecurity& fileSecurity, const FindEntry& entry,
                           const std::wstring& sourceItem, const std::wstring& targetItem,
                           HResult& lastFailure) {
  err::Win32Error lastError = err::kSuccess;
  const err::Win32Error attributed = files.SetAttributes(targetItem, entry.attributes);
  if (attributed != err::kSuccess) {
    lastError = attributed;
    lastFailure = HResultFromWin32(attributed);
    Log(L"Failed setting target file object attributes (0x%08X): %s", lastFailure, targetItem);
  }

  FileHandle handle = kInvalidFileHandle;
  const err::Win32Error opened = files.Open(targetItem, TargetObjectRequest(), handle);
  if (opened != err::kSuccess) {
    lastFailure = HResultFromWin32(opened);
    Log(L"Failed to open the target file object (0x%08X): %s", lastFailure, targetItem);
    return;
  }
  {
    const UniqueFileHandle target(files, handle);
    const err::Win32Error timed = files.SetTimes(handle, entry.times);
    if (timed != err::kSuccess) {
      lastError = timed;
      lastFailure = HResultFromWin32(timed);
      Log(L"Failed setting target file object times (0x%08X): %s", lastFailure, targetItem);
    }
  }

  SelfRelativeDescriptor folderSecurity;
  err::Win32Error readError = err::kSuccess;
  if (!fileSecurity.ReadFileSecurity(sourceItem, folderSecurity, readError)) {
    lastError = readError;
  }
  if (Failed(fileSecurity.ApplySecurity(targetItem, folderSecurity))) {
    lastFailure = HResultFromWin32(lastError);
    Log(L"Failed to set security on object (0x%08X): %s", lastFailure, targetItem);
  }
}

}  // namespace

[[nodiscard]] HResult MigrateUserProfile(FolderMigrator& migrator, const std::wstring& sourcePath,
                                         std::int32_t sourceVersion, const std::wstring& targetPath,
                                         std::int32_t targetVersion) {
  const HResult hive =
      MigrateRegistryHive(migrator.context(), sourcePath, sourceVersion, targetPath, targetVersion);
  if (hive != hr::kOk) return hive;
  return MigrateProfileFolders(migrator, sourcePath, sourceVersion, targetPath, targetVersion);
}

[[nodiscard]] HResult MigrateProfileFolders(FolderMigrator& migrator,
                                            const std::wstring& sourcePath,
                                            std::int32_t sourceVersion,
                                            const std::wstring& targetPath,
                                            std::int32_t targetVersion) {
  if ((migrator.settings().folderMask & 0x80000000u) != 0) return hr::kOk;

  const HResult read =
      ReadFolderLocations(migrator, sourcePath, sourceVersion, targetPath, targetVersion);
  if (read != hr::kOk) return read;

  // The values as the hives gave them, for the refusal message.
  const HiveValues values = ExpandUserProfile(migrator.mapping(), sourcePath, targetPath);

  MigrationContext& context = migrator.context();
  FileSecurity fileSecurity(context.files, context.security);
  for (std::size_t i = 0; i < migrator.mapping().count(); ++i) {
    std::wstring sourceLocation;
    std::wstring targetLocation;
    if (!ResolveRowLocations(migrator, i, values, sourcePath, targetPath, sourceLocation,
                             targetLocation)) {
      continue;
    }
    CopyLocation(migrator, fileSecurity, sourceLocation, targetLocation);
  }

  // Logged inside; not the profile's result.
  static_cast<void>(MigrateRemainingFolders(migrator, sourcePath, targetPath));
  return hr::kOk;
}

[[nodiscard]] HResult MigrateRemainingFolders(FolderMigrator& migrator,
                                              const std::wstring& sourcePath,
                                              const std::wstring& targetPath) {
  MigrationContext& context = migrator.context();
  FileSystem& files = context.files;
  FileSecurity fileSecurity(files, context.security);

  std::wstring pattern;
  PathCombineW(pattern, sourcePath, L"*");
  HResult lastFailure = hr::kOk;
  CaseTwins topFolders;
  const err::Win32Error searchError = ForEachEntry(files, pattern, [&](const FindEntry& entry) {
    if (!IsFolder(entry) || IsRowName(migrator, entry.name)) return WalkStep::kNext;
    if (!topFolders.Add(entry.name)) {
      LogCaseTwin(sourcePath, entry.name);
      return WalkStep::kNext;
    }
    std::wstring sourceItem;
    std::wstring targetItem;
    if (!PathCombineW(sourceItem, sourcePath, entry.name) ||
        !PathCombineW(targetItem, targetPath, entry.name)) {
      // Deliberate deviation: a folder whose path does not fit MAX_PATH is left out with a log
      // line. Going on with the empty paths PathCombineW leaves would search the process's
      // current folder ("*") instead and work on what it holds.
      Log(L"Path too long, the folder is not migrated (0x%08X): %s: %s",
          HResultFromWin32(err::kFilenameExcedRange), sourcePath, entry.name);
      return WalkStep::kNext;
    }
    // Logged inside; the next folder follows.
    static_cast<void>(CopyFolder(migrator, sourceItem, targetItem));
    FinishRemainingFolder(files, fileSecurity, entry, sourceItem, targetItem, lastFailure);
    return WalkStep::kNext;
  });
  if (searchError != err::kSuccess) {
    const HResult code = HResultFromWin32(searchError);
    Log(kFailedSearchingFormat, pattern, code);
    return code;
  }
  return lastFailure;
}

}  // namespace tw
