// The process-wide state of a run that the migration reads: the run mode and the profile path of
// the "/p:" option. Both are set only while the command line is read and read afterwards.
//
// Every process-wide object of the tool, and where it is declared:
//   g_log                the process log (log/debug_log.h: beneath the model, it writes for all);
//   g_profilePath        here;
//   g_offreg             the offline-registry and user-profile binding (its own header);
//   g_runMode            here, with g_sourceVersion and g_targetVersion naming its two halves;
//   currentUserSid       the SID of the user who runs the tool (security/current_user_sid.h);
//   g_specialFolderTable the special folder table (migration/special_folder_table.h).
// g_log, g_profilePath and g_offreg are defined together in run/process_globals.cpp, in that
// order, which is the order static initialisation builds them in.
#pragma once

#include <cstdint>
#include <string>

#include "migration/run_mode.h"

namespace tw {

// The profile path of the undocumented "/p:" option (lower case), empty unless given. The
// shell-folder fix-up falls back on it when a profile's own path is empty.
extern std::wstring g_profilePath;

// The run mode, (0, 0) at start: set by the mode options and by the configuration file while the
// command line is read; read by the run flow. Held once, here.
extern RunMode g_runMode;

// The run mode's two halves by their own names: the same storage as g_runMode's fields.
extern std::int32_t& g_sourceVersion;
extern std::int32_t& g_targetVersion;

}  // namespace tw
