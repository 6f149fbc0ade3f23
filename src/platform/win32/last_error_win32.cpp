#include "platform/last_error.h"
#include "platform/win32/windows_headers.h"

namespace tw {

err::Win32Error ThreadLastError() { return err::Win32Error{::GetLastError()}; }

void SetThreadLastError(err::Win32Error error) { ::SetLastError(error.Code()); }

}  // namespace tw
