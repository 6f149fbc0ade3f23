// Tells the administrator about a hive file that Windows did not close cleanly and whose
// transaction logs could not be applied: the offline registry opened it as it stands, so the
// migration works on stale data. Our hive engine says so through its TwQueryHiveRecovery; a
// library without that function (the platform's own offreg.dll) cannot, and nothing is logged.
#pragma once

#include <string>

#include "migration/migration_context.h"
#include "registry/offreg_wrapper.h"

namespace tw {

// After a successful open of `path` into `hive`: when the hive is reported dirty and not
// recovered, logs "Hive was not cleanly closed, its logs could not be applied: %s" with the path,
// once per hive file in the run (the context remembers the paths, compared without regard to
// case). Profiles have paths of their own, so this is once per hive file per profile although
// the shell-folder step opens the source hive a second time.
void ReportUnrecoveredHive(MigrationContext& context, OrKey hive, const std::wstring& path);

}  // namespace tw
