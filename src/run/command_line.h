// The command line: turns the process arguments into the settings record and the run mode,
// loading the configuration file when one is named.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "config/migration_settings.h"
#include "ports/console.h"
#include "ports/file_system.h"
#include "ports/xml_document.h"

namespace tw {

// The run mode: (0, 0) V1 to V2 (default), (2, 5), (2, 6), (5, 6), or (6, 6), which runs as V1 to
// V2. Set by the mode options and by the configuration file; read by the run flow.
extern std::int32_t g_sourceVersion;
extern std::int32_t g_targetVersion;

// The profile path of the undocumented "/p:" option (lower case), empty unless given. The
// shell-folder fix-up falls back on it when a profile's own path is empty. Defined with the
// other process-wide objects.
extern std::wstring g_profilePath;

// What the parser reaches outside itself.
struct CommandLineServices {
  Console& console;             // "Unknown command line arg: %s\r\n"
  FileSystem& files;            // PathFileExistsW for a configuration file argument
  XmlDocument& configDocument;  // a new document for loading the configuration file
};

// args are the process arguments from argv[1] on. Fills `settings` (which holds its defaults)
// and the mode globals. Returns true to go on: the source path is not empty, or help was asked
// for. See command_line.cpp for the rules.
bool ParseCommandLine(std::span<const std::wstring> args, MigrationSettings& settings,
                      CommandLineServices& services);

}  // namespace tw
