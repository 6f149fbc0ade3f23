// The calling thread's last-error value (GetLastError / SetLastError). The core reads it where a
// bound function reports its failure only there (DeleteProfileW returns a bare BOOL). On Linux
// it is a thread-local value that the built-in stand-ins of the bound functions set.
#pragma once

#include <cstdint>

namespace tw {

// GetLastError().
std::uint32_t ThreadLastError();
// SetLastError(error).
void SetThreadLastError(std::uint32_t error);

}  // namespace tw
