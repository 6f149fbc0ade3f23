#include "profile/target_profile.h"

#include <string_view>

#include "base/format.h"
#include "base/shell_path.h"
#include "base/win32_error.h"
#include "log/log.h"

namespace tw {
namespace {

// True when `name` ends in ".V2", ".V5" or ".V6", compared case-insensitively.
bool HasVersionSuffix(std::wstring_view name) {
  if (name.size() < 3) return false;
  const std::wstring_view tail = name.substr(name.size() - 3);
  if (tail[0] != L'.' || (tail[1] != L'V' && tail[1] != L'v')) return false;
  return tail[2] == L'2' || tail[2] == L'5' || tail[2] == L'6';
}

}  // namespace

std::wstring MarkerPathOf(const std::wstring& targetPath) {
  return Format(L"%s\\%s", targetPath, kMarkerFileName);
}

HResult GetTargetPath(MigrationContext& context, const std::wstring& sourcePath,
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

HResult CreateTargetProfileFolder(MigrationContext& context, const std::wstring& targetPath,
                                  const SelfRelativeDescriptor& sourceSecurity) {
  if (context.files.PathExists(targetPath)) {
    if (context.files.PathExists(MarkerPathOf(targetPath))) {
      Log(L"The target profile contains an interrupted migration, rebuilding profile: %s",
          targetPath);
      DeleteFolderTree(context, targetPath);
    } else {
      Log(L"The target profile path already exists: %s", targetPath);
      return hr::kAlreadyExists;
    }
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

HResult DeleteFolderTree(MigrationContext& context, const std::wstring& path) {
  // The double-zero list holds at most kDeleteBufferChars - 1 characters of the path; a NUL
  // inside the path ends the list there, as it would in the buffer.
  std::wstring_view listed(path);
  listed = listed.substr(0, listed.find(L'\0'));
  listed = listed.substr(0, kDeleteBufferChars - 1);
  const err::Win32Error result = context.files.DeleteTree(listed);
  return result == err::kSuccess ? hr::kOk : hr::kFail;
}

}  // namespace tw
