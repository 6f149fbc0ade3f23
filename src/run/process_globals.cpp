// The process-wide objects. They live in this one translation unit so that static initialisation
// builds them in the order of definition, which is the order the tool relies on:
//   1. g_log         the process log (every later object may log from its constructor);
//   2. g_profilePath the profile path string (empty until the command line sets it);
//   3. g_offreg      the offline-registry binding, whose constructor already logs.
// Destruction runs in the reverse order, so the log outlives every object that writes to it.
// Add the later objects below g_log, in that order. The run mode is constant-initialised, so it
// exists before all of them. migration/process_state.h declares what the migration reads.
#include <cstdint>
#include <string>

#include "log/debug_log.h"
#include "migration/process_state.h"
#include "migration/run_mode.h"
#include "registry/offreg_wrapper.h"

namespace tw {

CDebugLog g_log;
std::wstring g_profilePath;
COffregWrapper g_offreg;

constinit RunMode g_runMode{};
std::int32_t& g_sourceVersion = g_runMode.sourceVersion;
std::int32_t& g_targetVersion = g_runMode.targetVersion;

}  // namespace tw
