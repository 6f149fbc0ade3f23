// CopyFileW on Linux paths.
#pragma once

#include <string>

#include "base/win32_error.h"
#include "os/posix/paths/native_path.h"

namespace tw::posix {

// Copies the file source to target as CopyFileW does: the bytes exactly (through the kernel's
// copy offload, copy_file_range, where the file systems allow it, else by reading and writing),
// the stored attributes (a source without stored attributes leaves none on the target), the
// last-access and last-write times, and for a new file the permission bits. An existing target
// is replaced unless failIfExists (kFileExists). Refused with kAccessDenied: a folder as source
// or target, a read-only target. Symbolic links are never followed: a link as source or target
// fails with kCantResolveFilename (ELOOP). A failed copy removes the target it created.
// targetStatus: what the path mapping learnt about target, if anything (native_path.h).
[[nodiscard]] err::Win32Error CopyNativeFile(const std::string& source, const std::string& target,
                                             bool failIfExists,
                                             const NativeStatus& targetStatus = NativeStatus{});

}  // namespace tw::posix
