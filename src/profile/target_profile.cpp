#include "profile/target_profile.h"

#include <chrono>
#include <string_view>
#include <thread>

#include "base/format.h"
#include "base/shell_path.h"
#include "base/win32_error.h"
#include "log/log.h"

namespace tw {
namespace {

// How often, and how far apart, the creation of a locked marker is tried while another run holds
// the fresh folder's lock for a look.
constexpr int kMarkerLockAttempts = 40;
constexpr std::chrono::milliseconds kMarkerLockPause{5};

// A marked target is looked at this many times when its marker goes away while it is looked at.
constexpr int kTargetLooks = 3;

// CreateFileW(marker, GENERIC_ALL, FILE_SHARE_READ, NULL, CREATE_ALWAYS,
// FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN, NULL).
FileOpenRequest MarkerRequest() {
  FileOpenRequest request;
  request.read = false;
  request.write = false;
  request.otherAccess = file_access::kGenericAll;
  request.shareRead = true;
  request.disposition = CreationDisposition::kCreateAlways;
  request.attributes = file_attr::kReadOnly | file_attr::kHidden;
  return request;
}

// The existing marker opened to try its lock: read access only (the marker is read-only), with
// backup semantics so that the target's DACL does not stand in the way.
FileOpenRequest MarkerLockRequest() {
  FileOpenRequest request;
  request.read = true;
  request.disposition = CreationDisposition::kOpenExisting;
  request.backupSemantics = true;
  return request;
}

}  // namespace

[[nodiscard]] err::Win32Error CreateLockedMarker(MigrationContext& context,
                                                 const std::wstring& targetPath,
                                                 UniqueFileHandle& lock) {
  lock.reset();
  const std::wstring markerPath = MarkerPathOf(targetPath);
  err::Win32Error error = err::kSuccess;
  for (int attempt = 0; attempt < kMarkerLockAttempts; ++attempt) {
    if (attempt != 0) std::this_thread::sleep_for(kMarkerLockPause);
    FileHandle handle = kInvalidFileHandle;
    error = context.files.OpenLocked(markerPath, MarkerRequest(), handle);
    if (error == err::kSuccess) {
      lock = UniqueFileHandle(context.files, handle);
      return err::kSuccess;
    }
    if (error != err::kSharingViolation) break;
  }
  return error;
}

bool HasVersionSuffix(std::wstring_view name) {
  if (name.size() < 3) return false;
  const std::wstring_view tail = name.substr(name.size() - 3);
  if (tail[0] != L'.' || (tail[1] != L'V' && tail[1] != L'v')) return false;
  return tail[2] == L'2' || tail[2] == L'5' || tail[2] == L'6';
}

[[nodiscard]] err::Win32Error TryTargetLock(FileSystem& files, const std::wstring& markerPath,
                                            UniqueFileHandle& lock) {
  lock.reset();
  FileHandle handle = kInvalidFileHandle;
  const err::Win32Error locked = files.OpenLocked(markerPath, MarkerLockRequest(), handle);
  if (locked == err::kSuccess) lock = UniqueFileHandle(files, handle);
  return locked;
}

std::wstring MarkerPathOf(const std::wstring& targetPath) {
  return Format(L"%s\\%s", targetPath, kMarkerFileName);
}

[[nodiscard]] HResult GetTargetPath(MigrationContext& context, const std::wstring& sourcePath,
                                    std::wstring& targetPath, std::uint32_t targetVersion) {
  const std::size_t lastSlash = sourcePath.rfind(L'\\');
  if (lastSlash == std::wstring::npos || lastSlash == 0) return hr::kFail;

  std::wstring name = sourcePath.substr(lastSlash + 1);
  if (HasVersionSuffix(name)) name.resize(name.size() - 3);
  switch (targetVersion) {
    case 2:
      name = Format(L"%s.V2", name);
      break;
    case 5:
      name = Format(L"%s.V5", name);
      break;
    case 6:
      name = Format(L"%s.V6", name);
      break;
    default:
      break;
  }

  const std::wstring& targetRoot = context.settings->targetPath;
  std::wstring combined;
  if (!targetRoot.empty()) {
    PathCombineW(combined, targetRoot, name);
  } else {
    PathCombineW(combined, std::wstring_view(sourcePath).substr(0, lastSlash), name);
  }
  targetPath = combined;
  return hr::kOk;
}

[[nodiscard]] HResult CreateTargetProfileFolder(MigrationContext& context,
                                                const std::wstring& targetPath,
                                                const SelfRelativeDescriptor& sourceSecurity) {
  // A marker that goes away while it is looked at (its run finished, or another run rebuilds the
  // target) sends the look back to the start.
  for (int look = 1; context.files.PathExists(targetPath); ++look) {
    const std::wstring markerPath = MarkerPathOf(targetPath);
    if (!context.files.PathExists(markerPath)) {
      Log(L"The target profile path already exists: %s", targetPath);
      return hr::kAlreadyExists;
    }
    UniqueFileHandle lock;
    const err::Win32Error locked = TryTargetLock(context.files, markerPath, lock);
    if (locked == err::kSuccess) {
      // The run that left the marker has ended.
      Log(L"The target profile contains an interrupted migration, rebuilding profile: %s",
          targetPath);
      // The rebuild goes on: not checked.
      static_cast<void>(DeleteLockedTarget(context, targetPath, lock));
      break;
    }
    if ((locked == err::kFileNotFound || locked == err::kPathNotFound) && look < kTargetLooks)
      continue;
    // Deliberate deviation: a marked target is rebuilt only when no live run holds it; the
    // target of a live run is neither rebuilt nor deleted, and this profile fails.
    if (locked == err::kSharingViolation) {
      Log(L"The target profile is being migrated by another run: %s", targetPath);
    } else {
      Log(L"Failed to lock the target profile (0x%08X): %s", HResultFromWin32(locked), targetPath);
    }
    return HResultFromWin32(locked);
  }

  err::Win32Error error = err::kSuccess;
  if (sourceSecurity.empty()) {
    error = context.security.CreateFolderWithSecurity(targetPath, nullptr);
  } else {
    const security::SecurityDescriptor descriptor = sourceSecurity.ToAbsolute();
    error = context.security.CreateFolderWithSecurity(targetPath, &descriptor);
  }
  if (error == err::kSuccess) return hr::kOk;

  const HResult code = HResultFromWin32(error);
  if (error == err::kAlreadyExists) {
    Log(L"Failed creating folder (0x%08X): %s already exists", code, targetPath);
  } else if (error == err::kPathNotFound) {
    Log(L"Failed creating folder (0x%08X): %s not found", code, targetPath);
  } else {
    Log(L"Failed creating folder (0x%08X): %s", code, targetPath);
  }
  return code;
}

[[nodiscard]] HResult DeleteLockedTarget(MigrationContext& context, const std::wstring& targetPath,
                                         UniqueFileHandle& lock) {
  HResult result = DeleteFolderTree(context, targetPath);
  if (!lock.is_valid()) return result;
  lock.reset();
  if (result != hr::kOk && context.files.PathExists(targetPath) &&
      !context.files.PathExists(MarkerPathOf(targetPath)))
    result = DeleteFolderTree(context, targetPath);
  return result;
}

[[nodiscard]] HResult DeleteFolderTree(MigrationContext& context, const std::wstring& path) {
  // The double-zero list holds at most kDeleteBufferChars - 1 characters of the path; a NUL
  // inside the path ends the list there, as it would in the buffer.
  std::wstring_view listed(path);
  listed = listed.substr(0, listed.find(L'\0'));
  listed = listed.substr(0, kDeleteBufferChars - 1);
  const err::Win32Error result = context.files.DeleteTree(listed);
  return result == err::kSuccess ? hr::kOk : hr::kFail;
}

}  // namespace tw
