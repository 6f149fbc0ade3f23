// What an open handle of the POSIX file-system port holds: the object itself, looked at through
// its descriptor, so that another adapter can tell whether a name still names that object.
#pragma once

#include <sys/stat.h>

#include "ports/file_system.h"

namespace tw::posix {

// fstat of the descriptor behind `handle`, a handle of the process's file-system port
// (ProcessFileSystem). False when the handle is not open there.
bool StatOpenFile(FileHandle handle, struct stat& info);

}  // namespace tw::posix
