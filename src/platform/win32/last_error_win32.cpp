#include "platform/last_error.h"
#include "platform/win32/windows_headers.h"

namespace tw {

std::uint32_t ThreadLastError() { return ::GetLastError(); }

void SetThreadLastError(std::uint32_t error) { ::SetLastError(error); }

}  // namespace tw
