// The run of the program: banner, command line, mode and binding checks, privileges, the loop
// over the source profiles with its per-profile reports, the exit banner, the summary and the
// exit value.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "base/hresult.h"
#include "migration/migration_context.h"
#include "platform/com_runtime.h"
#include "platform/console.h"
#include "platform/file_system.h"
#include "platform/network_port.h"
#include "platform/offreg_wrapper.h"
#include "platform/security_port.h"
#include "platform/xml_document.h"

namespace tw {

// The per-profile migration as the loop calls it: (context, source path, source version,
// target path out, target version) -> result code.
using MigrateProfileFunction = std::function<HResult(MigrationContext&, const std::wstring&,
                                                     std::uint32_t, std::wstring&, std::uint32_t)>;

struct RunServices {
  Console& console;
  ComRuntime& com;
  FileSystem& files;
  XmlDocument& configDocument;  // a new document for the configuration file
  SecurityPort& security;
  COffregWrapper& offreg;  // the bound offline-registry and user-profile functions
  // The reachability port handed to the migration context; null: the process's.
  NetworkPort* network = nullptr;
  // The per-profile migration; MigrateProfile unless a test replaces it.
  MigrateProfileFunction migrateProfile;
};

// args are the process arguments, args[0] the program. Returns the exit value, 0 or -1.
int RunTarnwick(std::span<const std::wstring> args, RunServices& services);

}  // namespace tw
