#include "registry/shell_folders.h"

#include <span>
#include <string_view>

#include "base/shell_path.h"
#include "base/text_encoding.h"
#include "base/win32_error.h"
#include "log/log.h"
#include "registry/hive_migration.h"
#include "registry/hive_save.h"
#include "registry/offreg_calls.h"
#include "registry/unrecovered_hive.h"
#include "run/command_line.h"
#include "security/file_security.h"

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

void ReplaceAll(std::wstring& text, std::wstring_view from, std::wstring_view to) {
  if (from.empty()) return;
  for (std::size_t at = text.find(from); at != std::wstring::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

}  // namespace

HResult SyncUserShellFolders(MigrationContext& context, FolderMapping& mapping,
                             const std::wstring& profilePath, std::int32_t profileVersion,
                             bool writeMode) {
  const COffregWrapper& offreg = context.offreg;
  FileSecurity fileSecurity(context.files, context.security);

  // 1. The hive, with one ownership retry. The "/p:" path stands in for an empty profile path.
  const std::wstring& profile = profilePath.empty() ? g_profilePath : profilePath;
  std::wstring hivePath;
  PathCombineW(hivePath, profile, kUserHiveName);
  SelfRelativeDescriptor savedSecurity;
  bool ownershipTaken = false;
  OrKey hive = kNoOrKey;
  HResult opened = HResultFromWin32(registry::CallOpenHive(offreg, hivePath.c_str(), &hive));
  if (opened == hr::kAccessDenied && context.settings->takeOwnership) {
    const HResult taken = fileSecurity.TakeOwnership(hivePath, savedSecurity, true);
    if (Failed(taken)) {
      Log(kHiveOwnershipFailedFormat, taken, hivePath);
      return taken;
    }
    ownershipTaken = true;
    opened = HResultFromWin32(registry::CallOpenHive(offreg, hivePath.c_str(), &hive));
    if (Failed(opened)) {
      Log(L"Failed opening hive file (0x%08X): %s", opened, hivePath);
      return opened;
    }
  } else if (Failed(opened)) {
    Log(L"Failed opening registry (0x%08X): %s", opened, hivePath);
    return opened;
  }
  ReportUnrecoveredHive(context, hive, hivePath);

  HResult result = hr::kOk;
  OrKey key = kNoOrKey;
  const err::Win32Error keyOpened = registry::CallOpenKey(offreg, hive, kUserShellFoldersKey, &key);
  if (keyOpened != err::kSuccess) {
    // 2. The word "source" stands in both modes, as it is.
    result = HResultFromWin32(keyOpened);
    Log(L"Failed to open source 'User Shell Folders' registry key (0x%08X)", result);
  } else {
    // 3. The values. The name buffer keeps the last name read: the end of the enumeration is
    // logged with it.
    bool changed = false;
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
        break;
      }
      if (enumerated != err::kSuccess) {
        result = HResultFromWin32(enumerated);
        Log(L"Failed enumerating registry key (0x%08X): %s", result,
            static_cast<const wchar_t*>(name));
        break;
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
      SpecialFolderRow& row = mapping.RowAt(entry);
      if (!writeMode) {
        row.sourceLocation = StringFromData(data, dataLength);
        continue;
      }
      if (PathIsUNCW(row.sourceLocation)) {
        // The size counts the characters without the terminating zero (deliberate).
        const std::vector<std::uint8_t> bytes = WideToUtf16Le(row.sourceLocation);
        const err::Win32Error written =
            registry::CallSetValue(offreg, key, name, type, bytes.data(),
                                   static_cast<OrDword>(Utf16Length(row.sourceLocation) * 2));
        if (written == err::kSuccess) {
          changed = true;
          mapping.RemoveAt(entry);
          continue;
        }
        Log(L"Failed to set target registry value (0x%08X): %s = %s", HResultFromWin32(written),
            static_cast<const wchar_t*>(name), row.sourceLocation);
      }
      row.targetLocation = StringFromData(data, dataLength);
    }

    // 4. Close the key.
    const err::Win32Error closed = registry::CallCloseKey(offreg, key);
    if (closed != err::kSuccess) {
      Log(L"Failed closing registry key (0x%08X)", HResultFromWin32(closed));
    }

    // 5. Save a changed hive; SaveTargetHive re-opens it into `hive`.
    if (changed) {
      const err::Win32Error saved = SaveTargetHive(context, hive, profileVersion, hivePath);
      if (saved != err::kSuccess) {
        const HResult hr = HResultFromWin32(saved);
        Log(L"Failed to save target registry hive (0x%08X)", hr);
        if (hive != kNoOrKey) static_cast<void>(registry::CallCloseHive(offreg, hive));
        // Not checked on this failure path.
        static_cast<void>(fileSecurity.ApplySecurity(hivePath, savedSecurity));
        return hr;
      }
    }
  }

  // 6. Write mode completes the special folder table from "Shell Folders".
  if (writeMode) {
    const HResult completed = CompleteSpecialFolderPaths(context, hive, mapping.table());
    if (Failed(completed)) {
      Log(L"Failed handling special folder (0x%08X)", completed);
      result = completed;
    }
  }

  // 7. Restore the file's security if ownership was taken, and close the hive.
  if (ownershipTaken)
    static_cast<void>(fileSecurity.ApplySecurity(hivePath, savedSecurity));  // not checked
  const err::Win32Error closed = registry::CallCloseHive(offreg, hive);
  if (closed != err::kSuccess) Log(L"Failed closing hive file (0x%08X)", HResultFromWin32(closed));
  return result;
}

HResult CompleteSpecialFolderPaths(MigrationContext& context, OrKey hive,
                                   std::span<SpecialFolderRow> table) {
  const COffregWrapper& offreg = context.offreg;
  const std::span<SpecialFolderRow> rows = RowsBeforeTerminator(table);

  // 1. The "Shell Folders" key.
  OrKey key = kNoOrKey;
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
    static_cast<void>(registry::CallCloseKey(offreg, key));  // the close is not checked
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

  // 5. Done.
  static_cast<void>(registry::CallCloseKey(offreg, key));  // the close is not checked
  return hr::kOk;
}

}  // namespace tw
