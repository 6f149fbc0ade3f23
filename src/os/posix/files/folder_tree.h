// Creating and deleting files and folders on Linux paths with the results of the Windows calls.
#pragma once

#include <string>
#include <string_view>

#include "base/win32_error.h"

namespace tw::posix {

// CreateDirectoryW(path, NULL): kAlreadyExists when anything of that name exists, kPathNotFound
// when a folder on the way is missing or is a file.
[[nodiscard]] err::Win32Error MakeNativeFolder(const std::string& native);

// SHCreateDirectoryExW(NULL, path, NULL) on the Windows-form path (see FileSystem).
[[nodiscard]] err::Win32Error MakeFolderPathFromWindows(std::wstring_view path);

// DeleteFileW: a folder, or a file whose stored attributes hold READONLY, gives kAccessDenied;
// a link or special file is removed itself.
[[nodiscard]] err::Win32Error DeleteNativeFile(const std::string& native);

// SHFileOperationW FO_DELETE: removes native with everything below it. Nothing is followed:
// links are removed as entries, folders are opened with O_NOFOLLOW and emptied through their
// descriptors. Stored READONLY attributes do not protect anything, and a folder without write
// permission for its owner is given it so that it can be emptied. A failing item does not stop
// the rest; the first failure's Win32 error is returned (kFileNotFound / kPathNotFound when
// native does not exist).
[[nodiscard]] err::Win32Error DeleteNativeTree(const std::string& native);

}  // namespace tw::posix
