#include "registry/hive_migration.h"

#include "base/shell_path.h"
#include "base/win32_error.h"
#include "log/log.h"
#include "migration/registry_key_table.h"
#include "registry/hive_save.h"
#include "registry/offreg_calls.h"
#include "registry/offreg_handles.h"
#include "registry/registry_key_copy.h"
#include "registry/unrecovered_hive.h"
#include "registry/work_buffer.h"
#include "security/file_security.h"
#include "security/read_taking_ownership.h"

namespace tw {

using registry::HiveCloser;
using registry::kNoOrKey;

namespace {

// Puts a hive file's kept security back (nothing happens for an empty descriptor: ownership was
// not taken). The result is not looked at.
void RestoreSecurity(MigrationContext& context, const std::wstring& path,
                     const SelfRelativeDescriptor& savedSecurity) {
  // The restore's result is not checked.
  static_cast<void>(
      FileSecurity(context.files, context.security).ApplySecurity(path, savedSecurity));
}

// Step 4 of MigrateRegistryHive: the top-level keys the settings select, in table order; their
// results are not looked at.
void CopySelectedKeys(MigrationContext& context, OrKey sourceHive, OrKey targetHive) {
  for (const RegistryKeyRow& row : RegistryKeys()) {
    if (!IsRegistryKeySelected(row.flag, context.settings->registryMask)) continue;
    static_cast<void>(CopyRegistryKey(context, sourceHive, targetHive, std::wstring(row.name)));
  }
}

// Step 5 of MigrateRegistryHive: the hive DACL, then the classes hive; failures are logged.
void MigrateSecurityAndClasses(MigrationContext& context, OrKey sourceHive, OrKey targetHive,
                               const std::wstring& sourceHivePath,
                               const std::wstring& sourceProfilePath, std::int32_t sourceVersion,
                               const std::wstring& targetProfilePath, std::int32_t targetVersion) {
  const HResult security =
      MigrateHiveSecurity(context, sourceHive, sourceVersion, targetHive, targetVersion);
  if (Failed(security)) {
    Log(L"Failed to migrate hive security (0x%08X): %s", security, sourceHivePath);
  }
  const wchar_t* classesRelative = ClassesHiveRelativePath(sourceVersion);
  std::wstring sourceClassesPath;
  std::wstring targetClassesPath;
  PathCombineW(sourceClassesPath, sourceProfilePath, classesRelative);
  PathCombineW(targetClassesPath, targetProfilePath, classesRelative);
  const HResult classes = MigrateUsrClassHive(context, sourceClassesPath, sourceVersion,
                                              targetClassesPath, targetVersion);
  if (Failed(classes)) {
    Log(L"Failed to migrate UsrClass.dat security (0x%08X): %s", classes, sourceClassesPath);
  }
}

}  // namespace

const wchar_t* ClassesHiveRelativePath(std::int32_t sourceVersion) {
  return sourceVersion < 2 ? kClassesHiveV1 : kClassesHiveV2;
}

[[nodiscard]] HResult OpenHiveFile(MigrationContext& context, const std::wstring& path, OrKey& hive,
                                   SelfRelativeDescriptor& savedSecurity) {
  FileSecurity fileSecurity(context.files, context.security);
  const OwnershipRetry open = RetryTakingOwnership(
      fileSecurity, path, context.settings->takeOwnership, savedSecurity,
      AfterOwnershipTaken::kTryAgain, [&] {
        return HResultFromWin32(registry::CallOpenHive(context.offreg, path.c_str(), &hive));
      });
  // A failed take-over leaves the first attempt's access denied as the result.
  const HResult opened = open.OwnershipTaken() ? open.again : open.first;
  if (Succeeded(opened)) ReportUnrecoveredHive(context, hive, path);
  return opened;
}

[[nodiscard]] HResult MigrateRegistryHive(MigrationContext& context,
                                          const std::wstring& sourceProfilePath,
                                          std::int32_t sourceVersion,
                                          const std::wstring& targetProfilePath,
                                          std::int32_t targetVersion) {
  // 1. The two ntuser.dat paths.
  std::wstring sourceHivePath;
  std::wstring targetHivePath;
  PathCombineW(sourceHivePath, sourceProfilePath, kUserHiveName);
  PathCombineW(targetHivePath, targetProfilePath, kUserHiveName);

  // 2. The source hive; on failure nothing else happens (no security is restored).
  SelfRelativeDescriptor sourceSecurity;
  SelfRelativeDescriptor targetSecurity;
  OrKey sourceHive = kNoOrKey;
  HiveCloser closeSource(context.offreg, sourceHive);
  const HResult sourceOpened = OpenHiveFile(context, sourceHivePath, sourceHive, sourceSecurity);
  if (Failed(sourceOpened)) {
    Log(L"Failed to open registry hive (0x%08X): %s", sourceOpened, sourceHivePath);
    return sourceOpened;
  }

  // 3. The target hive; on failure the source is closed and its file's security restored.
  OrKey targetHive = kNoOrKey;
  HiveCloser closeTarget(context.offreg, targetHive);
  const HResult targetOpened = OpenHiveFile(context, targetHivePath, targetHive, targetSecurity);
  if (Failed(targetOpened)) {
    Log(L"Failed to open registry hive (0x%08X): %s", targetOpened, targetHivePath);
    static_cast<void>(closeSource.Close());  // not checked
    RestoreSecurity(context, sourceHivePath, sourceSecurity);
    return targetOpened;
  }

  // 4. The selected top-level keys, in table order; their results are not looked at.
  CopySelectedKeys(context, sourceHive, targetHive);

  // 5. Below version 5: the hive DACL and the classes hive.
  if (targetVersion < 5) {
    MigrateSecurityAndClasses(context, sourceHive, targetHive, sourceHivePath, sourceProfilePath,
                              sourceVersion, targetProfilePath, targetVersion);
  }

  // 6. Save the target hive in its version's format (it is re-opened into targetHive).
  const err::Win32Error saved = SaveTargetHive(context, targetHive, targetVersion, targetHivePath);
  if (saved != err::kSuccess) {
    Log(L"Failed to save target registry hive (0x%08X): %s", HResultFromWin32(saved),
        targetHivePath);
  }

  // 7-8. Close both hives, then restore the source's and the target's file security.
  static_cast<void>(closeSource.Close());  // not checked
  static_cast<void>(closeTarget.Close());  // not checked
  RestoreSecurity(context, sourceHivePath, sourceSecurity);
  RestoreSecurity(context, targetHivePath, targetSecurity);
  return hr::kOk;
}

[[nodiscard]] HResult MigrateHiveSecurity(MigrationContext& context, OrKey sourceHive,
                                          std::int32_t /*sourceVersion*/, OrKey targetHive,
                                          std::int32_t /*targetVersion*/) {
  // 1. No source hive.
  if (sourceHive == kNoOrKey) {
    Log(L"Failed to query for the hive DACL (0x%08X)", hr::kHandle);
    return hr::kHandle;
  }

  // 2-3. The size of the root key's DACL-only descriptor.
  OrDword size = 0;
  const err::Win32Error sized = registry::CallGetKeySecurity(
      context.offreg, sourceHive, registry::kDaclSecurityInformation, nullptr, &size);
  if (size == 0) {
    const HResult hr = HResultFromWin32(sized);
    Log(L"Failed to query for the hive DACL (0x%08X)", hr);
    return hr;
  }

  // 4. The descriptor itself.
  registry::WorkBuffer descriptor;
  descriptor.AllocateOrThrow(size);
  const err::Win32Error got = registry::CallGetKeySecurity(
      context.offreg, sourceHive, registry::kDaclSecurityInformation, descriptor.bytes(), &size);
  if (got != err::kSuccess) {
    const HResult hr = HResultFromWin32(got);
    Log(L"Failed to query for the hive DACL (0x%08X)", hr);
    return hr;
  }

  // 5. On the whole target tree.
  const HResult set = SetKeyTreeSecurity(context, targetHive, descriptor.bytes(), true);
  if (Failed(set)) Log(L"Failed to set the hive DACL (0x%08X)", set);
  return set;
}

[[nodiscard]] HResult MigrateUsrClassHive(MigrationContext& context,
                                          const std::wstring& sourceHivePath,
                                          std::int32_t sourceVersion,
                                          const std::wstring& targetHivePath,
                                          std::int32_t targetVersion) {
  // 1-2. Both classes hives, each with the ownership retry.
  SelfRelativeDescriptor sourceSecurity;
  SelfRelativeDescriptor targetSecurity;
  OrKey sourceHive = kNoOrKey;
  HiveCloser closeSource(context.offreg, sourceHive);
  const HResult sourceOpened = OpenHiveFile(context, sourceHivePath, sourceHive, sourceSecurity);
  if (Failed(sourceOpened)) {
    Log(L"Failed to open source registry hive (0x%08X): %s", sourceOpened, sourceHivePath);
    return sourceOpened;
  }
  OrKey targetHive = kNoOrKey;
  HiveCloser closeTarget(context.offreg, targetHive);
  const HResult targetOpened = OpenHiveFile(context, targetHivePath, targetHive, targetSecurity);
  if (Failed(targetOpened)) {
    Log(L"Failed to open target registry hive (0x%08X): %s", targetOpened, targetHivePath);
    static_cast<void>(closeSource.Close());  // not checked
    return targetOpened;
  }

  // 3. The DACL, and only after it a save.
  HResult result =
      MigrateHiveSecurity(context, sourceHive, sourceVersion, targetHive, targetVersion);
  if (Succeeded(result)) {
    const err::Win32Error saved =
        SaveTargetHive(context, targetHive, targetVersion, targetHivePath);
    if (saved != err::kSuccess) {
      result = HResultFromWin32(saved);
      Log(L"Failed to save target registry hive (0x%08X): %s", result, targetHivePath);
    }
  }

  // 4. Close both; restore both files' security.
  static_cast<void>(closeSource.Close());  // not checked
  static_cast<void>(closeTarget.Close());  // not checked
  RestoreSecurity(context, sourceHivePath, sourceSecurity);
  RestoreSecurity(context, targetHivePath, targetSecurity);
  return result;
}

}  // namespace tw
