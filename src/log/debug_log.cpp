#include "log/debug_log.h"

namespace tw {

void CDebugLog::WriteMessage(std::wstring_view) {}

}  // namespace tw
