#include "profile/user_profile_migration.h"

#include <optional>
#include <string>
#include <vector>

#include "base/shell_path.h"
#include "base/win32_error.h"
#include "log/log.h"
#include "platform/file_system.h"
#include "profile/case_twins.h"
#include "profile/folder_location.h"
#include "profile/profile_copy.h"
#include "registry/hive_migration.h"
#include "registry/shell_folders.h"
#include "security/file_security.h"
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
HResult SecureLocation(FolderMigrator& migrator, FileSecurity& fileSecurity,
                       const std::wstring& location, SelfRelativeDescriptor& saved) {
  SelfRelativeDescriptor read;
  err::Win32Error readError = err::kSuccess;
  if (fileSecurity.ReadFileSecurity(location, read, readError)) return hr::kOk;
  const HResult code = HResultFromWin32(readError);
  if (code != hr::kAccessDenied || !migrator.settings().takeOwnership) return code;
  return fileSecurity.TakeOwnership(location, saved, true);
}

void RestoreLocation(FileSecurity& fileSecurity, const std::wstring& location,
                     const SelfRelativeDescriptor& saved) {
  const HResult restored = fileSecurity.ApplySecurity(location, saved);
  if (Failed(restored)) Log(L"Failed to restore security (0x%08X): %s", restored, location);
}

}  // namespace

HResult MigrateUserProfile(FolderMigrator& migrator, const std::wstring& sourcePath,
                           std::int32_t sourceVersion, const std::wstring& targetPath,
                           std::int32_t targetVersion) {
  const HResult hive =
      MigrateRegistryHive(migrator.context(), sourcePath, sourceVersion, targetPath, targetVersion);
  if (hive != hr::kOk) return hive;
  return MigrateProfileFolders(migrator, sourcePath, sourceVersion, targetPath, targetVersion);
}

HResult MigrateProfileFolders(FolderMigrator& migrator, const std::wstring& sourcePath,
                              std::int32_t sourceVersion, const std::wstring& targetPath,
                              std::int32_t targetVersion) {
  const std::uint32_t folderMask = migrator.settings().folderMask;
  if ((folderMask & 0x80000000u) != 0) return hr::kOk;

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

  // The values as the hives gave them, for the refusal message below.
  std::vector<std::wstring> sourceValues;
  std::vector<std::wstring> targetValues;
  for (std::size_t i = 0; i < mapping.count(); ++i) {
    sourceValues.push_back(mapping.RowAt(i).sourceLocation);
    targetValues.push_back(mapping.RowAt(i).targetLocation);
    ReplaceAll(mapping.RowAt(i).sourceLocation, kUserProfileVariable, sourcePath);
    ReplaceAll(mapping.RowAt(i).targetLocation, kUserProfileVariable, targetPath);
  }

  FileSecurity fileSecurity(context.files, context.security);
  for (std::size_t i = 0; i < mapping.count(); ++i) {
    const SpecialFolderRow& row = mapping.RowAt(i);
    Log(L"Processing folder %s", mapping.NameAt(i));
    if ((folderMask & row.bit) == 0) {
      Log(L"Skipped processing folder %s", row.sourceLocation);
      continue;
    }
    if (HoldsVariable(row.sourceLocation) || HoldsVariable(row.targetLocation)) {
      Log(L"Cannot migrate profile folders containing environment variables: %s",
          row.sourceLocation);
      continue;
    }
    // From here on only the resolved paths are used (deliberate deviation, see ResolveLocation).
    std::wstring sourceLocation;
    std::wstring targetLocation;
    if (!ResolveLocation(row.sourceLocation, sourceValues[i], sourcePath, sourceLocation)) {
      Log(L"Folder location outside the profile, not migrated: %s: %s", mapping.NameAt(i),
          sourceValues[i]);
      continue;
    }
    if (!ResolveLocation(row.targetLocation, targetValues[i], targetPath, targetLocation)) {
      Log(L"Folder location outside the profile, not migrated: %s: %s", mapping.NameAt(i),
          targetValues[i]);
      continue;
    }
    if (!context.files.PathExists(sourceLocation)) continue;
    // Our decision: a target hive that gives no full location for this folder (none at all; a
    // relative one was refused above) would make the copy land in the process's current folder. The
    // row is not copied and the log says so; the source stays as it is.
    if (!IsFullPath(targetLocation)) {
      Log(L"No target location for folder %s, not migrated: %s", mapping.NameAt(i), sourceLocation);
      continue;
    }

    SelfRelativeDescriptor sourceSaved;
    SelfRelativeDescriptor targetSaved;
    const HResult sourceSecured =
        SecureLocation(migrator, fileSecurity, sourceLocation, sourceSaved);
    if (Failed(sourceSecured)) {
      Log(L"Failed to take ownership (0x%08X): %s", sourceSecured, sourceLocation);
      RestoreLocation(fileSecurity, sourceLocation, sourceSaved);
      continue;
    }
    if (context.files.PathExists(targetLocation)) {
      const HResult targetSecured =
          SecureLocation(migrator, fileSecurity, targetLocation, targetSaved);
      if (Failed(targetSecured)) {
        Log(L"Failed to take ownership (0x%08X): %s", targetSecured, targetLocation);
        RestoreLocation(fileSecurity, sourceLocation, sourceSaved);
        RestoreLocation(fileSecurity, targetLocation, targetSaved);
        continue;
      }
    }

    // Logged inside; the next folder follows.
    static_cast<void>(CopyFolder(migrator, sourceLocation, targetLocation));

    RestoreLocation(fileSecurity, sourceLocation, sourceSaved);
    RestoreLocation(fileSecurity, targetLocation, targetSaved);
  }

  // Logged inside; not the profile's result.
  static_cast<void>(MigrateRemainingFolders(migrator, sourcePath, targetPath));
  return hr::kOk;
}

HResult MigrateRemainingFolders(FolderMigrator& migrator, const std::wstring& sourcePath,
                                const std::wstring& targetPath) {
  MigrationContext& context = migrator.context();
  FileSystem& files = context.files;
  FileSecurity fileSecurity(files, context.security);

  std::wstring pattern;
  PathCombineW(pattern, sourcePath, L"*");
  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  const err::Win32Error searchError = files.FindFirstEntry(pattern, search, entry);
  if (searchError != err::kSuccess) {
    const HResult code = HResultFromWin32(searchError);
    Log(kFailedSearchingFormat, pattern, code);
    return code;
  }
  const UniqueSearchHandle searching(files, search);

  HResult lastFailure = hr::kOk;
  CaseTwins topFolders;
  do {
    if (entry.name == L"." || entry.name == L"..") continue;
    if ((entry.attributes & file_attr::kReparsePoint) != 0) continue;
    if ((entry.attributes & file_attr::kDirectory) == 0) continue;
    bool isRowName = false;
    for (const SpecialFolderRow& row : migrator.mapping().table()) {
      if (row.name == entry.name) isRowName = true;
    }
    if (isRowName) continue;
    if (!topFolders.Add(entry.name)) {
      LogCaseTwin(sourcePath, entry.name);
      continue;
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
      continue;
    }

    // Logged inside; the next folder follows.
    static_cast<void>(CopyFolder(migrator, sourceItem, targetItem));

    err::Win32Error lastError = err::kSuccess;
    const err::Win32Error attributed = files.SetAttributes(targetItem, entry.attributes);
    if (attributed != err::kSuccess) {
      lastError = attributed;
      lastFailure = HResultFromWin32(attributed);
      Log(L"Failed setting target file object attributes (0x%08X): %s", lastFailure, targetItem);
    }

    FileOpenRequest request;
    request.read = false;
    request.shareRead = true;
    request.disposition = CreationDisposition::kOpenExisting;
    request.otherAccess =
        file_access::kFileWriteAttributes | file_access::kWriteDac | file_access::kWriteOwner;
    request.attributes = file_attr::kNormal;
    request.backupSemantics = true;
    FileHandle handle = kInvalidFileHandle;
    const err::Win32Error opened = files.Open(targetItem, request, handle);
    if (opened != err::kSuccess) {
      lastFailure = HResultFromWin32(opened);
      Log(L"Failed to open the target file object (0x%08X): %s", lastFailure, targetItem);
      continue;
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
  } while (files.FindNextEntry(search, entry) == err::kSuccess);
  return lastFailure;
}

}  // namespace tw
