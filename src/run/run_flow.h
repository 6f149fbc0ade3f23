// The run of the program: banner, command line, mode and binding checks, and (as they are built)
// privileges, the loop over the source profiles, the summary and the exit value.
#pragma once

#include <span>
#include <string>

#include "platform/com_runtime.h"
#include "platform/console.h"
#include "platform/file_system.h"
#include "platform/xml_document.h"

namespace tw {

struct RunServices {
  Console& console;
  ComRuntime& com;
  FileSystem& files;
  XmlDocument& configDocument;  // a new document for the configuration file
  bool userenvBound = false;    // CreateProfile and DeleteProfileW are both bound
  bool offregComplete = false;  // the offline-registry table is complete
};

// args are the process arguments, args[0] the program. Returns the exit value, 0 or -1.
int RunTarnwick(std::span<const std::wstring> args, RunServices& services);

}  // namespace tw
