#include "base/hresult_error.h"

namespace tw {

const char* HResultError::what() const noexcept { return "tarnwick: failure result"; }

void ThrowHResult(HResult code) { throw HResultError(code); }

}  // namespace tw
