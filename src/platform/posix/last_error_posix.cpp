#include "platform/last_error.h"

namespace tw {
namespace {

thread_local std::uint32_t lastError = 0;

}  // namespace

std::uint32_t ThreadLastError() { return lastError; }

void SetThreadLastError(std::uint32_t error) { lastError = error; }

}  // namespace tw
