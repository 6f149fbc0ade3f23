#include "profile/profile_migration.h"

#include <array>
#include <optional>

#include "base/result_conversions.h"
#include "base/win32_error.h"
#include "log/log.h"
#include "platform/file_system.h"
#include "platform/last_error.h"
#include "platform/network_reachability.h"
#include "profile/folder_migrator.h"
#include "profile/profile_copy.h"
#include "profile/target_profile.h"
#include "profile/user_profile_migration.h"
#include "security/codec/sid.h"
#include "security/file_security.h"
#include "security/self_relative_descriptor.h"

namespace tw {
namespace {

// The code of a failed DeleteProfileW: the thread's last error, E_FAIL when none is set.
HResult DeleteProfileFailure() {
  const HResult code = HResultFromWin32(ThreadLastError());
  return code == hr::kOk ? hr::kFail : code;
}

}  // namespace

HResult MigrateProfile(MigrationContext& context, const std::wstring& sourcePath,
                       std::uint32_t sourceVersion, std::wstring& targetPath,
                       std::uint32_t targetVersion) {
  // 1.
  std::array<wchar_t, kTemporaryProfileBuffer> temporaryBuffer{};

  // 2.
  HResult result = GetTargetPath(context, sourcePath, targetPath, targetVersion);
  if (result != hr::kOk) {
    Log(L"Failed to get target path (0x%08X)", result);
    return result;
  }

  // 3.
  if (!IsUncPath(sourcePath)) {
    Log(L"Source path not valid: %s", sourcePath);
    return hr::kSourceProfileInvalid;
  }
  std::uint32_t attributes = file_attr::kInvalid;
  const err::Win32Error attributeError = context.files.GetAttributes(sourcePath, attributes);
  if (attributeError != err::kSuccess && attributeError != err::kAccessDenied) {
    Log(L"Source path not reachable: %s", sourcePath);
    return hr::kSourceProfileInvalid;
  }

  // 4.
  if (!IsUncPath(targetPath)) {
    Log(L"Target path not valid: %s", targetPath);
    return hr::kTargetProfileInvalid;
  }
  if (!IsNetworkPathReachable(NetworkOf(context), kInvalidTokenHandle, targetPath)) {
    Log(L"Target path not reachable: %s", targetPath);
    return hr::kTargetProfileInvalid;
  }

  // 5.
  FileSecurity fileSecurity(context.files, context.security);
  SelfRelativeDescriptor sourceSecurity;
  SelfRelativeDescriptor savedSecurity;
  bool ownershipTaken = false;
  const auto restoreSource = [&] { return fileSecurity.ApplySecurity(sourcePath, savedSecurity); };
  err::Win32Error readError = err::kSuccess;
  if (!fileSecurity.ReadFileSecurity(sourcePath, sourceSecurity, readError)) {
    HResult code = HResultFromWin32(readError);
    if (code == hr::kAccessDenied && context.settings->takeOwnership) {
      code = fileSecurity.TakeOwnership(sourcePath, savedSecurity, true);
      if (Succeeded(code)) {
        ownershipTaken = true;
        if (fileSecurity.ReadFileSecurity(sourcePath, sourceSecurity, readError)) {
          code = hr::kOk;
        } else {
          code = HResultFromWin32(readError);
        }
      }
    }
    if (code != hr::kOk) {
      Log(L"Failed to get security descriptor for profile (0x%08X): %s", code, sourcePath);
      restoreSource();
      return code;
    }
  }

  // 6.
  result = CreateTargetProfileFolder(context, targetPath, sourceSecurity);
  if (result != hr::kOk) {
    Log(L"Failed to create the root profile folder (0x%08X): %s", result, targetPath);
    restoreSource();
    return result;
  }

  // 7. The marker is made under this run's lock on the target, which is held until the marker
  // is removed or the target deleted again (deliberate deviation: the handle stays open).
  const std::wstring markerPath = MarkerPathOf(targetPath);
  UniqueFileHandle targetLock;
  if (const err::Win32Error created = CreateLockedMarker(context, targetPath, targetLock);
      created != err::kSuccess) {
    Log(L"Failed to create marker file (0x%08X)", HResultFromWin32(created));
  }

  // 8.
  std::optional<security::Sid> owner;
  if (ownershipTaken) {
    owner = savedSecurity.Owner();
    if (owner) sourceSecurity.SetOwner(*owner);
  } else {
    owner = sourceSecurity.Owner();
  }
  if (!owner) {
    Log(L"Failed to get owner sid of source profile folder (0x%08X): %s",
        HResultFromWin32(ThreadLastError()), sourcePath);
    // Cleanup on a failure path: not checked.
    static_cast<void>(DeleteLockedTarget(context, targetPath, targetLock));
    restoreSource();
    return result;
  }
  const std::wstring ownerText = owner->ToString();

  bool migrated = false;
  do {
    // 9.
    if (context.offreg.CreateProfile == nullptr) {
      result = RawWin32CodeAsResult(err::kInvalidFunction);  // the bare 1, as documented
    } else {
      result = HResult{context.offreg.CreateProfile(ownerText.c_str(), kTemporaryProfileUser,
                                                    temporaryBuffer.data(),
                                                    static_cast<OrDword>(temporaryBuffer.size()))};
      temporaryBuffer.back() = L'\0';
    }
    if (context.offreg.CreateProfile == nullptr || Failed(result)) {
      Log(L"Failed creating profile (0x%08X)", result);
      // Cleanup on a failure path: not checked.
      static_cast<void>(DeleteLockedTarget(context, targetPath, targetLock));
      restoreSource();
      break;
    }

    // 10.
    const std::wstring temporaryPath(temporaryBuffer.data());
    if (targetPath.empty() || temporaryPath.empty()) {
      result = RawWin32CodeAsResult(err::kPathNotFound);  // the bare 3, as documented
    } else {
      result = CopyDefaultProfile(context, temporaryPath, targetPath, sourceSecurity);
    }
    if (result != hr::kOk) {
      Log(L"Failed to copy the default profile (0x%08X - %s): %s", result, temporaryPath,
          targetPath);
      // Cleanup on a failure path: not checked.
      static_cast<void>(DeleteLockedTarget(context, targetPath, targetLock));
      restoreSource();
      break;
    }

    // 11.
    {
      FolderMigrator migrator(context);
      result = MigrateUserProfile(migrator, sourcePath, static_cast<std::int32_t>(sourceVersion),
                                  targetPath, static_cast<std::int32_t>(targetVersion));
    }
    if (result != hr::kOk) {
      Log(L"Failed to migrate the user profile (0x%08X): %s", result, sourcePath);
      // Cleanup on a failure path: not checked.
      static_cast<void>(DeleteLockedTarget(context, targetPath, targetLock));
      restoreSource();
      return result;
    }
    migrated = true;
  } while (false);

  // 12.
  if (migrated) {
    context.files.SetAttributes(markerPath, file_attr::kNormal);
    context.files.DeleteFileAt(markerPath);
    targetLock.reset();
    const HResult sourceRestored = restoreSource();
    if (sourceRestored != hr::kOk) {
      Log(L"Failed to restore security on user profile (0x%08X): %s", sourceRestored, sourcePath);
    }
    result = fileSecurity.ApplySecurity(targetPath, savedSecurity);
    if (result != hr::kOk) {
      Log(L"Failed to restore security on user profile (0x%08X): %s", result, targetPath);
    }
  }

  // 13.
  const std::wstring temporaryPath(temporaryBuffer.data());
  if (!temporaryPath.empty()) {
    // DeleteProfileW decides the result.
    static_cast<void>(DeleteFolderTree(context, temporaryPath));
    bool deleted = false;
    HResult deleteCode = HResultFromWin32(err::kProcNotFound);
    if (context.offreg.DeleteProfileW != nullptr) {
      SetThreadLastError(err::kSuccess);
      deleted =
          context.offreg.DeleteProfileW(ownerText.c_str(), temporaryPath.c_str(), nullptr) != 0;
      if (!deleted) deleteCode = DeleteProfileFailure();
    }
    if (deleted) {
      Log(L"Deleted temporary profile: %s", temporaryPath);
    } else {
      Log(L"Failed deleting (0x%08X): %s", deleteCode, temporaryPath);
      result = deleteCode;
    }
  }

  // 14.
  return result;
}

}  // namespace tw
