// The end of a batch: the summary table on the console, the JSON report, and the exit value.
#pragma once

#include <string>
#include <vector>

#include "batch/batch_plan.h"
#include "batch/batch_runner.h"
#include "batch/profile_run.h"

namespace tw::batch {

struct BatchTotals {
  std::size_t profiles = 0;
  std::size_t migrated = 0;
  std::size_t migratedWithItemFailures = 0;
  std::size_t skipped = 0;
  std::size_t failed = 0;  // failed runs and duplicate targets
  std::size_t notStarted = 0;
  int itemsNotCopied = 0;
  std::uint64_t bytesCopied = 0;
};

BatchTotals CountTotals(const std::vector<PlannedProfile>& plan,
                        const std::vector<ProfileRun>& runs);

// 0 when every profile was migrated or skipped as finished, else 1.
int BatchExitValue(const BatchTotals& totals);

// The table: one row per profile (result, exit value, items not copied, seconds, profile, cause)
// and the totals line.
std::string SummaryTable(const std::vector<PlannedProfile>& plan,
                         const std::vector<ProfileRun>& runs, const BatchTotals& totals,
                         double seconds, bool interrupted);

struct ReportContext {
  RunSettings settings;
  double seconds = 0;
  bool interrupted = false;
  bool dryRun = false;
};

// The JSON report (UTF-8 text, pretty-printed).
std::string ReportJson(const std::vector<PlannedProfile>& plan, const std::vector<ProfileRun>& runs,
                       const BatchTotals& totals, const ReportContext& context);

}  // namespace tw::batch
