// The loop over the source profiles: each one is handed to the per-profile migration, and its
// result decides the line that is reported and whether the exit value becomes -1.
#pragma once

#include "ports/console.h"
#include "run/run_flow.h"
#include "run/source_profile_enum.h"

namespace tw {

struct ProfileLoopOutcome {
  int returnValue = 0;  // 0, or -1 when a profile failed with anything but the bare 183
  int migrated = 0;     // profiles whose migration returned 0
};

// Walks `profiles` for the run mode (g_runMode): with the suffix
// "V2" or "V5" in the V2/V5 modes, announcing each profile; with no suffix otherwise, migrating
// each as V1 to V2 (the 6/6 selection too, deliberately).
ProfileLoopOutcome RunProfileLoop(CSourceProfileEnum& profiles, MigrationContext& context,
                                  const MigrateProfileFunction& migrateProfile, Console& console);

// True when the mode walks the profiles with a version suffix (source version 2 or 5).
bool IsSuffixLoop();

}  // namespace tw
