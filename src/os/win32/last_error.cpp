// The calling thread's last-error value: GetLastError and SetLastError (ports/last_error.h).
#include "os/native_ports.h"
#include "os/win32/windows_headers.h"

namespace tw {

std::uint32_t NativeThreadLastError() { return ::GetLastError(); }

void SetNativeThreadLastError(std::uint32_t error) { ::SetLastError(error); }

}  // namespace tw
