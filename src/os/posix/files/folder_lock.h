// A lock on a Linux folder that lasts as long as the process holds it: an exclusive flock on the
// folder, opened without following a link. The system lets go of it when the descriptor is
// closed or the process ends in any way (a kill included), so a lock is never left behind.
#pragma once

#include <string>

#include "base/win32_error.h"

namespace tw::posix {

// Opens the folder `native` and takes its exclusive lock without waiting; fd is then the open
// folder, which holds the lock until it is closed (-1 on failure). A lock another descriptor
// holds, in this process or another, gives kSharingViolation; so does a folder that was removed,
// or replaced by another of the same name, while the lock was taken. A missing folder gives
// kFileNotFound or kPathNotFound, a link kCantResolveFilename, a file kDirectory.
[[nodiscard]] err::Win32Error LockNativeFolder(const std::string& native, int& fd);

// The folder that holds native ("/a/b" for "/a/b/c", "/" for "/c", "." for "c").
std::string NativeParentFolder(const std::string& native);

}  // namespace tw::posix
