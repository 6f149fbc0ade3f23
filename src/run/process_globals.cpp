// The process-wide objects. They live in this one translation unit so that static initialisation
// builds them in the order of definition, which is the order the tool relies on:
//   1. g_log         the process log (every later object may log from its constructor);
//   2. g_profilePath the profile path string (empty until the command line sets it);
//   3. g_offreg      the offline-registry binding, whose constructor already logs.
// Destruction runs in the reverse order, so the log outlives every object that writes to it.
// Add the later objects below g_log, in that order.
#include <string>

#include "log/debug_log.h"
#include "registry/offreg_wrapper.h"
#include "run/command_line.h"

namespace tw {

CDebugLog g_log;
std::wstring g_profilePath;
COffregWrapper g_offreg;

}  // namespace tw
