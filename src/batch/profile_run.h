// The outcome of one profile of a batch, and how it is read from what its run left: exit value,
// console output and its own log entries.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "batch/batch_plan.h"
#include "batch/item_failures.h"
#include "batch/log_entries.h"

namespace tw::batch {

enum class Outcome {
  kMigrated,         // the run returned 0
  kFailed,           // the run returned another value, or could not be started
  kSkippedFinished,  // the target was finished before the batch: no run
  kDuplicate,        // another profile of the list has the same target: no run
  kNotStarted,       // the batch was interrupted before its run started
};

std::string OutcomeName(Outcome outcome);  // "migrated", "failed", "skipped", "duplicate", ...

struct ProfileRun {
  Outcome outcome = Outcome::kNotStarted;
  std::vector<std::string> command;  // the arguments the tool got
  int exitValue = 0;
  std::string startError;        // when the tool could not be started
  std::string console;           // standard output and standard error, as bytes
  std::vector<std::string> log;  // the run's own log messages, in order
  ItemFailures items;
  std::string cause;   // why it failed (a console line), or ""
  std::string detail;  // the first failure its log names beyond items, or ""
  double seconds = 0;
};

// The console's lines without their line ends (empty lines dropped).
std::vector<std::string> ConsoleLines(const std::string& console);

// Fills outcome, items, cause and detail from exitValue, startError, console and log.
void Judge(ProfileRun& run);

// The outcome of an entry that gets no run.
ProfileRun UnrunProfile(const PlannedProfile& profile, bool interrupted);

}  // namespace tw::batch
