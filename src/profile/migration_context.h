// The migration context: the object that every operation of the profile and registry migrations
// receives first. Its first field points to the run's settings record; the rest are the ports
// those operations reach the system through (the process's real ones in the program, fakes in
// tests). It is built once per run, over the settings, and lives as long as the profile loop.
#pragma once

#include "config/migration_settings.h"
#include "platform/file_system.h"
#include "platform/network_port.h"
#include "platform/offreg_wrapper.h"
#include "platform/security_port.h"

namespace tw {

struct MigrationContext {
  const MigrationSettings* settings;  // first field, as every operation expects
  FileSystem& files;
  SecurityPort& security;
  COffregWrapper& offreg;  // the bound offline-registry and user-profile functions
  // The reachability test's port for the target share; null: the process's network port.
  NetworkPort* network = nullptr;
};

// The network port a context reaches the reachability test through.
inline NetworkPort& NetworkOf(const MigrationContext& context) {
  return context.network != nullptr ? *context.network : ProcessNetworkPort();
}

}  // namespace tw
