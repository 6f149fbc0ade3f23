#include "registry/shell_folders.h"

#include <span>
#include <string_view>

#include "base/shell_path.h"
#include "base/text_encoding.h"
#include "base/win32_error.h"
#include "log/log.h"
#include "migration/process_state.h"
#include "registry/hive_migration.h"
#include "registry/hive_save.h"
#include "registry/offreg_calls.h"
#include "registry/offreg_handles.h"
#include "registry/unrecovered_hive.h"
#include "security/file_security.h"
#include "security/read_taking_ownership.h"

namespace tw {

using registry::kNoOrKey;

namespace {

// The fixed buffers: value names up to 256 characters, value data up to 520 bytes.
constexpr OrDword kNameLength = 256;
constexpr OrDword kDataLength = 520;

constexpr std::wstring_view kUserProfileVariable = L"%USERPROFILE%";
// The placeholder's length, used as such when it is cut off a path.
constexpr std::size_t kUserProfileVariableLength = 13;

// String value data (UTF-16LE bytes) as text, up to its first zero character.
std::wstring StringFromData(const std::uint8_t* data, OrDword size) {
  std::wstring text = Utf16LeToWide(std::span<const std::uint8_t>(data, size & ~OrDword{1}));
  const std::size_t zero = text.find(L'\0');
  if (zero != std::wstring::npos) text.resize(zero);
  return text;
}

void ReplaceAll(std::wstring& text, std::wstring_view from, std::wstring_view to) {
  if (from.empty()) return;
  for (std::size_t at = text.find(from); at != std::wstring::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

// The user hive of SyncUserShellFolders: its path, its handle, and the file's prior security
// when ownership was taken to open it.
struct ShellFolderHive {
  std::wstring path;
  OrKey handle = kNoOrKey;
  SelfRelativeDescriptor savedSecurity;
  bool ownershipTaken = false;
};

// Step 1 of SyncUserShellFolders: OROpenHive, with one ownership retry when access is denied and
// the take-ownership setting is on. Returns the failure (logged) of the take-over or the open.
[[nodiscard]] HResult OpenShellFolderHive(MigrationContext& context, FileSecurity& fileSecurity,
                                          ShellFolderHive& hive) {
  const OwnershipRetry open =
      RetryTakingOwnership(fileSecurity, hive.path, context.settings->takeOwnership,
                           hive.savedSecurity, AfterOwnershipTaken::kTryAgain, [&] {
                             return HResultFromWin32(registry::CallOpenHive(
                                 context.offreg, hive.path.c_str(), &hive.handle));
                           });
  if (!open.tookOver) {
    if (Failed(open.first)) Log(L"Failed opening registry (0x%08X): %s", open.first, hive.path);
    return open.first;
  }
  if (!open.OwnershipTaken()) {
    Log(kHiveOwnershipFailedFormat, open.taken, hive.path);
    return open.taken;
  }
  hive.ownershipTaken = true;
  if (Failed(open.again)) Log(L"Failed opening hive file (0x%08X): %s", open.again, hive.path);
  return open.again;
}

// One string value of "User Shell Folders" in step 3 of SyncUserShellFolders, whose name is
// row `entry` of the mapping. Read mode takes it as the row's source location. Write mode puts a
// UNC source location into the value instead (its size without the terminating zero;
// deliberate), removing the row and setting `changed`; any other row, and one whose write failed,
// gets the value as its target location.
void SyncShellFolderRow(const COffregWrapper& offreg, OrKey key, FolderMapping& mapping,
                        std::size_t entry, const wchar_t* name, OrDword type,
                        const std::uint8_t* data, OrDword dataLength, bool writeMode,
                        bool& changed) {
  SpecialFolderRow& row = mapping.RowAt(entry);
  if (!writeMode) {
    row.sourceLocation = StringFromData(data, dataLength);
    return;
  }
  if (PathIsUNCW(row.sourceLocation)) {
    const std::vector<std::uint8_t> bytes = WideToUtf16Le(row.sourceLocation);
    const err::Win32Error written =
        registry::CallSetValue(offreg, key, name, type, bytes.data(),
                               static_cast<OrDword>(Utf16Length(row.sourceLocation) * 2));
    if (written == err::kSuccess) {
      changed = true;
      mapping.RemoveAt(entry);
      return;
    }
    Log(L"Failed to set target registry value (0x%08X): %s = %s", HResultFromWin32(written), name,
        row.sourceLocation);
  }
  row.targetLocation = StringFromData(data, dataLength);
}

// Step 3 of SyncUserShellFolders: the values of the open "User Shell Folders" key. The name
// buffer keeps the last name read: the end of the enumeration is logged with it. Returns S_OK
// when the enumeration ended normally, else its failure (logged).
[[nodiscard]] HResult SyncShellFolderValues(const COffregWrapper& offreg, OrKey key,
                                            FolderMapping& mapping, bool writeMode, bool& changed) {
  wchar_t name[kNameLength] = {};
  std::uint8_t data[kDataLength] = {};
  for (OrDword index = 0;; ++index) {
    OrDword nameLength = kNameLength;
    OrDword dataLength = kDataLength;
    OrDword type = 0;
    const err::Win32Error enumerated =
        registry::CallEnumValue(offreg, key, index, name, &nameLength, &type, data, &dataLength);
    if (enumerated == err::kNoMoreItems) {
      Log(L"No more value of %s %d", static_cast<const wchar_t*>(name), enumerated);
      return hr::kOk;
    }
    if (enumerated != err::kSuccess) {
      const HResult result = HResultFromWin32(enumerated);
      Log(L"Failed enumerating registry key (0x%08X): %s", result,
          static_cast<const wchar_t*>(name));
      return result;
    }
    if (type != registry::kRegSz && type != registry::kRegExpandSz) {
      Log(L"The value of %s is not a string", static_cast<const wchar_t*>(name));
      continue;
    }
    const std::size_t entry = mapping.Find(name);
    if (entry == FolderMapping::kNotFound) {
      Log(L"Unable to find %s in folder mapping", static_cast<const wchar_t*>(name));
      continue;
    }
    SyncShellFolderRow(offreg, key, mapping, entry, name, type, data, dataLength, writeMode,
                       changed);
  }
}

// Steps 2-4 of SyncUserShellFolders: the "User Shell Folders" key is opened, its values are
// walked, and it is closed. Returns S_OK, or the failure (logged) of the open or the walk.
[[nodiscard]] HResult SyncUserShellFoldersKey(const COffregWrapper& offreg, OrKey hive,
                                              FolderMapping& mapping, bool writeMode,
                                              bool& changed) {
  OrKey key = kNoOrKey;
  registry::KeyCloser closeKey(offreg, key);
  const err::Win32Error keyOpened = registry::CallOpenKey(offreg, hive, kUserShellFoldersKey, &key);
  if (keyOpened != err::kSuccess) {
    // 2. The word "source" stands in both modes, as it is.
    const HResult result = HResultFromWin32(keyOpened);
    Log(L"Failed to open source 'User Shell Folders' registry key (0x%08X)", result);
    return result;
  }

  // 3. The values.
  const HResult result = SyncShellFolderValues(offreg, key, mapping, writeMode, changed);

  // 4. Close the key.
  const err::Win32Error closed = closeKey.Close();
  if (closed != err::kSuccess) {
    Log(L"Failed closing registry key (0x%08X)", HResultFromWin32(closed));
  }
  return result;
}

}  // namespace

// ORGetValue of one "Shell Folders" value into the 520-byte buffer; false when it cannot be
// read.
bool ReadShellFolder(const COffregWrapper& offreg, OrKey key, const std::wstring& name,
                     std::wstring& value) {
  std::uint8_t data[kDataLength] = {};
  OrDword size = kDataLength;
  if (registry::CallGetValue(offreg, key, name.c_str(), nullptr, data, &size) != err::kSuccess) {
    return false;
  }
  value = StringFromData(data, size);
  return true;
}

[[nodiscard]] HResult SyncUserShellFolders(MigrationContext& context, FolderMapping& mapping,
                                           const std::wstring& profilePath,
                                           std::int32_t profileVersion, bool writeMode) {
  FileSecurity fileSecurity(context.files, context.security);

  // 1. The hive, with one ownership retry. The "/p:" path stands in for an empty profile path.
  ShellFolderHive hive;
  PathCombineW(hive.path, profilePath.empty() ? g_profilePath : profilePath, kUserHiveName);
  registry::HiveCloser closeHive(context.offreg, hive.handle);
  const HResult opened = OpenShellFolderHive(context, fileSecurity, hive);
  if (Failed(opened)) return opened;
  ReportUnrecoveredHive(context, hive.handle, hive.path);

  // 2-4. The "User Shell Folders" values, read or fixed up.
  bool changed = false;
  HResult result =
      SyncUserShellFoldersKey(context.offreg, hive.handle, mapping, writeMode, changed);

  // 5. Save a changed hive; SaveTargetHive re-opens it into the handle.
  if (changed) {
    const err::Win32Error saved = SaveTargetHive(context, hive.handle, profileVersion, hive.path);
    if (saved != err::kSuccess) {
      const HResult hr = HResultFromWin32(saved);
      Log(L"Failed to save target registry hive (0x%08X)", hr);
      static_cast<void>(closeHive.Close());                                          // not checked
      static_cast<void>(fileSecurity.ApplySecurity(hive.path, hive.savedSecurity));  // not checked
      return hr;
    }
  }

  // 6. Write mode completes the special folder table from "Shell Folders".
  if (writeMode) {
    const HResult completed = CompleteSpecialFolderPaths(context, hive.handle, mapping.table());
    if (Failed(completed)) {
      Log(L"Failed handling special folder (0x%08X)", completed);
      result = completed;
    }
  }

  // 7. Restore the file's security if ownership was taken, and close the hive.
  if (hive.ownershipTaken) {
    static_cast<void>(fileSecurity.ApplySecurity(hive.path, hive.savedSecurity));  // not checked
  }
  const err::Win32Error closed = closeHive.Close();
  if (closed != err::kSuccess) Log(L"Failed closing hive file (0x%08X)", HResultFromWin32(closed));
  return result;
}

[[nodiscard]] HResult CompleteSpecialFolderPaths(MigrationContext& context, OrKey hive,
                                                 std::span<SpecialFolderRow> table) {
  const COffregWrapper& offreg = context.offreg;
  const std::span<SpecialFolderRow> rows = RowsBeforeTerminator(table);

  // 1. The "Shell Folders" key.
  OrKey key = kNoOrKey;
  registry::KeyCloser closeKey(offreg, key);
  const err::Win32Error opened = registry::CallOpenKey(offreg, hive, kShellFoldersKey, &key);
  if (opened != err::kSuccess) {
    const HResult hr = HResultFromWin32(opened);
    Log(L"Failed to open source 'Shell Folders' registry key (0x%08X)", hr);
    return hr;
  }

  // 2. The profile folder: the part of a value in front of its row's path below %USERPROFILE%.
  std::wstring profileFolder;
  for (const SpecialFolderRow& row : rows) {
    if (row.targetLocation.find(kUserProfileVariable) != 0) continue;
    std::wstring value;
    if (!ReadShellFolder(offreg, key, row.name, value)) continue;
    const std::wstring tail = row.targetLocation.substr(kUserProfileVariableLength);
    const std::size_t at = value.find(tail);
    if (at != std::wstring::npos && at > 0) {
      profileFolder = value.substr(0, at);
      break;
    }
  }

  // 3. Without one, nothing can be completed.
  if (profileFolder.empty()) {
    static_cast<void>(closeKey.Close());  // not checked
    Log(L"Profile path is empty");
    return hr::kFail;
  }
  Log(L"Profile path is: %s", profileFolder);

  // 4. Rows without a profile path get their value with the folder put back as %USERPROFILE%.
  for (SpecialFolderRow& row : rows) {
    if (!row.targetLocation.empty()) continue;
    std::wstring value;
    if (!ReadShellFolder(offreg, key, row.name, value)) continue;
    if (value.find(profileFolder) != 0) continue;
    ReplaceAll(value, profileFolder, kUserProfileVariable);
    row.targetLocation = value;
  }

  // 5. Done: the key is closed on the way out.
  return hr::kOk;
}

}  // namespace tw
