// The command line: turns the process arguments into the settings record and the run mode,
// loading the configuration file when one is named.
#pragma once

#include <span>
#include <string>

#include "migration/migration_settings.h"
#include "ports/console.h"
#include "ports/file_system.h"
#include "ports/xml_document.h"

namespace tw {

// What the parser reaches outside itself.
struct CommandLineServices {
  Console& console;             // "Unknown command line arg: %s\r\n"
  FileSystem& files;            // PathFileExistsW for a configuration file argument
  XmlDocument& configDocument;  // a new document for loading the configuration file
};

// args are the process arguments from argv[1] on. Fills `settings` (which holds its defaults)
// and the process-wide run mode and profile path (migration/process_state.h). Returns true to go
// on: the source path is not empty, or help was asked for. See command_line.cpp for the rules.
bool ParseCommandLine(std::span<const std::wstring> args, MigrationSettings& settings,
                      CommandLineServices& services);

}  // namespace tw
