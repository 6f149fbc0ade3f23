// Copying a profile template folder into a new profile folder on Linux.
#pragma once

#include <string>

#include "base/win32_error.h"

namespace tw::posix {

// Copies everything inside the folder source into the existing folder target: sub-folders are
// created (with the source folder's stored attributes, when it has any), files are copied with
// CopyNativeFile (content, stored attributes, times; an existing target file fails with
// kFileExists). Symbolic links and special files are skipped, never followed: a template copied
// from a Windows machine may hold junctions, which a fresh profile does not need. Stops at the
// first failure and returns its Win32 error; what was copied so far stays.
[[nodiscard]] err::Win32Error CopyTemplateTree(const std::string& source,
                                               const std::string& target);

}  // namespace tw::posix
