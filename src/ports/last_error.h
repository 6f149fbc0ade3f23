// The calling thread's last-error value (GetLastError / SetLastError). The core reads it where a
// bound function reports its failure only there (DeleteProfileW returns a bare BOOL). On Linux
// it is a thread-local value that the built-in stand-ins of the bound functions set.
#pragma once

#include "base/win32_error.h"

namespace tw {

// GetLastError().
[[nodiscard]] err::Win32Error ThreadLastError();
// SetLastError(error).
void SetThreadLastError(err::Win32Error error);

}  // namespace tw
