#include "profile/profile_migration.h"

#include <array>
#include <optional>

#include "base/result_conversions.h"
#include "base/scope_guard.h"
#include "base/win32_error.h"
#include "descriptor/sid.h"
#include "log/log.h"
#include "ports/file_system.h"
#include "ports/last_error.h"
#include "profile/folder_migrator.h"
#include "profile/network_reachability.h"
#include "profile/profile_copy.h"
#include "profile/target_profile.h"
#include "profile/user_profile_migration.h"
#include "registry/offreg_wrapper.h"
#include "security/file_security.h"
#include "security/read_taking_ownership.h"
#include "security/self_relative_descriptor.h"

namespace tw {
namespace {

// The code of a failed DeleteProfileW: the thread's last error, E_FAIL when none is set.
[[nodiscard]] HResult DeleteProfileFailure() {
  const HResult code = HResultFromWin32(ThreadLastError());
  return code == hr::kOk ? hr::kFail : code;
}

// 3. The source must be a UNC path whose attributes can be read, or whose read is denied.
[[nodiscard]] HResult CheckSourcePath(MigrationContext& context, const std::wstring& sourcePath) {
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
  return hr::kOk;
}

// 4. The target must be a UNC path on a reachable share.
[[nodiscard]] HResult CheckTargetPath(MigrationContext& context, const std::wstring& targetPath) {
  if (!IsUncPath(targetPath)) {
    Log(L"Target path not valid: %s", targetPath);
    return hr::kTargetProfileInvalid;
  }
  if (!IsNetworkPathReachable(NetworkOf(context), kInvalidTokenHandle, targetPath)) {
    Log(L"Target path not reachable: %s", targetPath);
    return hr::kTargetProfileInvalid;
  }
  return hr::kOk;
}

// What the steps from 5 on share: the paths, the source's security and the temporary profile.
struct ProfileBuild {
  ProfileBuild(MigrationContext& migration, const std::wstring& source,
               std::uint32_t sourceProfileVersion, const std::wstring& target,
               std::uint32_t targetProfileVersion,
               std::array<wchar_t, kTemporaryProfileBuffer>& temporary)
      : context(migration),
        sourcePath(source),
        sourceVersion(sourceProfileVersion),
        targetPath(target),
        targetVersion(targetProfileVersion),
        fileSecurity(migration.files, migration.security),
        temporaryBuffer(temporary) {}

  MigrationContext& context;
  const std::wstring& sourcePath;
  std::uint32_t sourceVersion;
  const std::wstring& targetPath;
  std::uint32_t targetVersion;
  FileSecurity fileSecurity;
  SelfRelativeDescriptor sourceSecurity;  // what the target is built with
  SelfRelativeDescriptor savedSecurity;   // the source's own, kept by a take-over
  bool ownershipTaken = false;
  std::array<wchar_t, kTemporaryProfileBuffer>& temporaryBuffer;
  std::wstring ownerText;  // the owner's SID as text, from step 8 on
};

// 5. The source folder's owner and DACL; access denied under the take-ownership setting takes
// ownership once and reads again.
[[nodiscard]] HResult ReadSourceSecurity(ProfileBuild& build) {
  const SecurityRead read = ReadSecurityTakingOwnership(
      build.fileSecurity, build.sourcePath, build.context.settings->takeOwnership,
      build.sourceSecurity, build.savedSecurity, AfterOwnershipTaken::kTryAgain);
  build.ownershipTaken = read.ownershipTaken;
  if (read.code != hr::kOk) {
    Log(L"Failed to get security descriptor for profile (0x%08X): %s", read.code, build.sourcePath);
  }
  return read.code;
}

// 8. The owner: after a take-over the source's former owner (also written into the descriptor
// the target is built with), else the read descriptor's. False (logged) when there is none.
bool FindOwner(ProfileBuild& build) {
  std::optional<security::Sid> owner;
  if (build.ownershipTaken) {
    owner = build.savedSecurity.Owner();
    if (owner) build.sourceSecurity.SetOwner(*owner);
  } else {
    owner = build.sourceSecurity.Owner();
  }
  if (!owner) {
    Log(L"Failed to get owner sid of source profile folder (0x%08X): %s",
        HResultFromWin32(ThreadLastError()), build.sourcePath);
    return false;
  }
  build.ownerText = owner->ToString();
  return true;
}

// 9. The temporary profile that supplies the default profile. False (logged) on failure, with
// `result` the call's code, or 1 when CreateProfile is not bound.
bool CreateTemporaryProfile(ProfileBuild& build, HResult& result) {
  const COffregWrapper& offreg = build.context.offreg;
  if (offreg.CreateProfile == nullptr) {
    result = RawWin32CodeAsResult(err::kInvalidFunction);  // the bare 1, as documented
  } else {
    result = HResult{offreg.CreateProfile(build.ownerText.c_str(), kTemporaryProfileUser,
                                          build.temporaryBuffer.data(),
                                          static_cast<OrDword>(build.temporaryBuffer.size()))};
    build.temporaryBuffer.back() = L'\0';
  }
  if (offreg.CreateProfile == nullptr || Failed(result)) {
    Log(L"Failed creating profile (0x%08X)", result);
    return false;
  }
  return true;
}

// 10. The default profile copied into the target with the owner (empty paths: code 3).
[[nodiscard]] HResult CopyDefaultProfileIntoTarget(ProfileBuild& build) {
  const std::wstring temporaryPath(build.temporaryBuffer.data());
  HResult result = hr::kOk;
  if (build.targetPath.empty() || temporaryPath.empty()) {
    result = RawWin32CodeAsResult(err::kPathNotFound);  // the bare 3, as documented
  } else {
    result =
        CopyDefaultProfile(build.context, temporaryPath, build.targetPath, build.sourceSecurity);
  }
  if (result != hr::kOk) {
    Log(L"Failed to copy the default profile (0x%08X - %s): %s", result, temporaryPath,
        build.targetPath);
  }
  return result;
}

// 11. The user profile (hive and folders) over a folder migrator built for this call.
[[nodiscard]] HResult MigrateUserProfileInto(ProfileBuild& build) {
  HResult result = hr::kOk;
  {
    FolderMigrator migrator(build.context);
    result = MigrateUserProfile(migrator, build.sourcePath,
                                static_cast<std::int32_t>(build.sourceVersion), build.targetPath,
                                static_cast<std::int32_t>(build.targetVersion));
  }
  if (result != hr::kOk) {
    Log(L"Failed to migrate the user profile (0x%08X): %s", result, build.sourcePath);
  }
  return result;
}

// Where MigrateProfile goes on once the source has its security back.
enum class NextStep {
  kReturn,           // return the result at once
  kDeleteTemporary,  // step 13
  kRestoreTarget,    // the rest of step 12, then step 13
};

struct SourceStepsOutcome {
  HResult result;
  NextStep next;
};

// A failed step 8 to 11: the target is deleted again under its lock.
SourceStepsOutcome DeleteTargetAgain(ProfileBuild& build, UniqueFileHandle& targetLock,
                                     SourceStepsOutcome outcome) {
  static_cast<void>(DeleteLockedTarget(build.context, build.targetPath, targetLock));
  return outcome;
}

// Steps 5 to 12 up to the source's restore. On every way out the source gets back the security
// it had before a take-over: on a failure after the target was deleted again, on success after
// the marker is removed and the target's lock let go.
SourceStepsOutcome RunSourceSteps(ProfileBuild& build) {
  MigrationContext& context = build.context;
  bool migrated = false;
  const ScopeGuard restoreSource([&] {
    const HResult restored =
        build.fileSecurity.ApplySecurity(build.sourcePath, build.savedSecurity);
    // Only a migrated profile logs this: a failed one has logged its own failure.
    if (migrated && restored != hr::kOk) {
      Log(L"Failed to restore security on user profile (0x%08X): %s", restored, build.sourcePath);
    }
  });

  // 5.
  HResult result = ReadSourceSecurity(build);
  if (result != hr::kOk) return {result, NextStep::kReturn};

  // 6.
  result = CreateTargetProfileFolder(context, build.targetPath, build.sourceSecurity);
  if (result != hr::kOk) {
    Log(L"Failed to create the root profile folder (0x%08X): %s", result, build.targetPath);
    return {result, NextStep::kReturn};
  }

  // 7. The marker is made under this run's lock on the target, which is held until the marker
  // is removed or the target deleted again (deliberate deviation: the handle stays open).
  const std::wstring markerPath = MarkerPathOf(build.targetPath);
  UniqueFileHandle targetLock;
  if (const err::Win32Error created = CreateLockedMarker(context, build.targetPath, targetLock);
      created != err::kSuccess) {
    Log(L"Failed to create marker file (0x%08X)", HResultFromWin32(created));
  }

  // 8. No owner: the target is deleted and the result stays 0, deliberately.
  if (!FindOwner(build)) return DeleteTargetAgain(build, targetLock, {result, NextStep::kReturn});

  // 9.
  if (!CreateTemporaryProfile(build, result)) {
    return DeleteTargetAgain(build, targetLock, {result, NextStep::kDeleteTemporary});
  }

  // 10.
  result = CopyDefaultProfileIntoTarget(build);
  if (result != hr::kOk) {
    return DeleteTargetAgain(build, targetLock, {result, NextStep::kDeleteTemporary});
  }

  // 11. A failure returns at once: the temporary profile is left for inspection.
  result = MigrateUserProfileInto(build);
  if (result != hr::kOk) return DeleteTargetAgain(build, targetLock, {result, NextStep::kReturn});

  // 12.
  migrated = true;
  context.files.SetAttributes(markerPath, file_attr::kNormal);
  context.files.DeleteFileAt(markerPath);
  targetLock.reset();
  return {result, NextStep::kRestoreTarget};
}

// 13. A temporary profile (non-empty path) is deleted: its tree, then DeleteProfileW. A failure's
// code replaces `result`.
[[nodiscard]] HResult DeleteTemporaryProfile(MigrationContext& context,
                                             const std::wstring& temporaryPath,
                                             const std::wstring& ownerText, HResult result) {
  if (temporaryPath.empty()) return result;
  static_cast<void>(DeleteFolderTree(context, temporaryPath));
  bool deleted = false;
  HResult deleteCode = HResultFromWin32(err::kProcNotFound);
  if (context.offreg.DeleteProfileW != nullptr) {
    SetThreadLastError(err::kSuccess);
    deleted = context.offreg.DeleteProfileW(ownerText.c_str(), temporaryPath.c_str(), nullptr) != 0;
    if (!deleted) deleteCode = DeleteProfileFailure();
  }
  if (deleted) {
    Log(L"Deleted temporary profile: %s", temporaryPath);
    return result;
  }
  Log(L"Failed deleting (0x%08X): %s", deleteCode, temporaryPath);
  return deleteCode;
}

}  // namespace

[[nodiscard]] HResult MigrateProfile(MigrationContext& context, const std::wstring& sourcePath,
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
  result = CheckSourcePath(context, sourcePath);
  if (result != hr::kOk) return result;

  // 4.
  result = CheckTargetPath(context, targetPath);
  if (result != hr::kOk) return result;

  // 5. to 12. (up to the source's restore)
  ProfileBuild build(context, sourcePath, sourceVersion, targetPath, targetVersion,
                     temporaryBuffer);
  const SourceStepsOutcome outcome = RunSourceSteps(build);
  result = outcome.result;
  if (outcome.next == NextStep::kReturn) return result;

  // 12. (the target)
  if (outcome.next == NextStep::kRestoreTarget) {
    result = build.fileSecurity.ApplySecurity(targetPath, build.savedSecurity);
    if (result != hr::kOk) {
      Log(L"Failed to restore security on user profile (0x%08X): %s", result, targetPath);
    }
  }

  // 13.
  result = DeleteTemporaryProfile(context, std::wstring(temporaryBuffer.data()), build.ownerText,
                                  result);

  // 14.
  return result;
}

}  // namespace tw
