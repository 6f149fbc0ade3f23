// The calling thread's last-error value on Linux: a thread-local value that the built-in
// stand-ins of the bound functions set (ports/last_error.h).
#include "os/native_ports.h"

namespace tw {
namespace {

thread_local err::Win32Error lastError = err::kSuccess;

}  // namespace

[[nodiscard]] err::Win32Error NativeThreadLastError() { return lastError; }

void SetNativeThreadLastError(err::Win32Error error) { lastError = error; }

}  // namespace tw
