// The calling thread's last-error value on Linux: a thread-local value that the built-in
// stand-ins of the bound functions set (ports/last_error.h).
#include "os/native_ports.h"

namespace tw {
namespace {

thread_local std::uint32_t lastError = 0;

}  // namespace

std::uint32_t NativeThreadLastError() { return lastError; }

void SetNativeThreadLastError(std::uint32_t error) { lastError = error; }

}  // namespace tw
