// The one table that turns a POSIX errno value into the Win32 error the same failure gives on
// Windows. Every part of the POSIX adapter reports its failures through it.
#pragma once

#include "base/win32_error.h"

namespace tw::posix {

// The Win32 error for errnum. ENOENT is kFileNotFound; callers that can tell a missing folder on
// the way (Windows' kPathNotFound) refine it themselves. Values without a counterpart give
// kGenFailure, as a device failure does on Windows.
[[nodiscard]] err::Win32Error Win32ErrorFromErrno(int errnum);

}  // namespace tw::posix
