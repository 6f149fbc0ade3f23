#include "registry/unrecovered_hive.h"

#include "base/win32_error.h"
#include "log/log.h"
#include "registry/offreg_calls.h"

namespace tw {

namespace {

// TwQueryHiveRecovery's state of a hive read stale.
constexpr OrDword kNotRecovered = 2;

}  // namespace

void ReportUnrecoveredHive(MigrationContext& context, OrKey hive, const std::wstring& path) {
  OrDword state = 0;
  if (registry::CallQueryHiveRecovery(context.offreg, hive, &state) != err::kSuccess ||
      state != kNotRecovered) {
    return;
  }
  if (!context.unrecoveredHives.insert(path).second) return;
  Log(L"Hive was not cleanly closed, its logs could not be applied: %s", path);
}

}  // namespace tw
