// The run of the program: banner, command line, mode and binding checks, privileges, the loop
// over the source profiles with its per-profile reports, the exit banner, the summary and the
// exit value.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "base/hresult.h"
#include "platform/com_runtime.h"
#include "platform/console.h"
#include "platform/file_system.h"
#include "platform/network_port.h"
#include "platform/offreg_wrapper.h"
#include "platform/security_port.h"
#include "platform/xml_document.h"
#include "profile/migration_context.h"

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
// A version suffix and the mode option a refused source is advised to use.
struct VersionSuffixAdvice {
  const wchar_t* suffix;  // "V2", "V5", "V6"
  const wchar_t* advice;  // "/V2toV5 or /V2toV6", "/V5toV6", "/V6toV6"
};

// The V1 to V2 mode (and the 6/6 selection) refuses a source path whose last two characters (the
// whole path when shorter) equal "V2", "V5" or "V6" without regard to case, deliberately even when
// "/V6TOV6" was given for a V6 source: the suffix that matched, or null.
const VersionSuffixAdvice* RefusedSourceSuffixForV1Mode(std::wstring_view sourcePath);

int RunTarnwick(std::span<const std::wstring> args, RunServices& services);

}  // namespace tw
