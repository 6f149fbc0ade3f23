// The calling thread's last-error value: GetLastError and SetLastError (ports/last_error.h).
#include "os/native_ports.h"
#include "os/win32/windows_headers.h"

namespace tw {

[[nodiscard]] err::Win32Error NativeThreadLastError() { return err::Win32Error{::GetLastError()}; }

void SetNativeThreadLastError(err::Win32Error error) { ::SetLastError(error.Code()); }

}  // namespace tw
