// The migration context: the object that every operation of the profile and registry migrations
// receives first. Its first field points to the run's settings record; the rest are the ports
// those operations reach the system through (the process's real ones in the program, fakes in
// tests). It is built once per run, over the settings, and lives as long as the profile loop.
#pragma once

#include <set>
#include <string>

#include "base/wide_string.h"
#include "migration/migration_settings.h"
#include "ports/file_system.h"
#include "ports/network_port.h"
#include "ports/security_port.h"

namespace tw {

// The bound offline-registry and user-profile functions; the registry and profile migrations that
// call them include its header, the model only holds a reference.
class COffregWrapper;

// Orders paths without regard to case (the Windows rule).
struct PathLessNoCase {
  bool operator()(const std::wstring& a, const std::wstring& b) const {
    return CompareNoCase(a, b) < 0;
  }
};

struct MigrationContext {
  const MigrationSettings* settings;  // first field, as every operation expects
  FileSystem& files;
  SecurityPort& security;
  COffregWrapper& offreg;  // the bound offline-registry and user-profile functions
  // The reachability test's port for the target share; null: the process's network port.
  NetworkPort* network = nullptr;
  // Hive files already reported as not cleanly closed and read stale (registry/
  // unrecovered_hive.h), compared without regard to case: each is reported once.
  std::set<std::wstring, PathLessNoCase> unrecoveredHives{};
};

// The network port a context reaches the reachability test through.
inline NetworkPort& NetworkOf(const MigrationContext& context) {
  return context.network != nullptr ? *context.network : ProcessNetworkPort();
}

}  // namespace tw
