#include "platform/last_error.h"

namespace tw {
namespace {

thread_local err::Win32Error lastError = err::kSuccess;

}  // namespace

err::Win32Error ThreadLastError() { return lastError; }

void SetThreadLastError(err::Win32Error error) { lastError = error; }

}  // namespace tw
