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
#include "ports/com_runtime.h"
#include "ports/console.h"
#include "ports/file_system.h"
#include "ports/network_port.h"
#include "ports/security_port.h"
#include "ports/xml_document.h"
#include "registry/offreg_wrapper.h"

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
