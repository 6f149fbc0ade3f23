// Runs the tool once per runnable profile of a plan, at most `jobs` runs at a time, each in its
// own process group; reads each run's console output and, from the shared log, the entries its
// thread id marks. Stops starting runs once `stopRequested` says so and lets running ones finish.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "batch/batch_mode.h"
#include "batch/batch_plan.h"
#include "batch/log_entries.h"
#include "batch/profile_run.h"
#include "ports/child_process.h"
#include "ports/read_ahead.h"

namespace tw::batch {

// What the runner tells while it works. Calls are serialised (never two at once).
class RunObserver {
 public:
  RunObserver() = default;
  RunObserver(const RunObserver&) = delete;
  RunObserver& operator=(const RunObserver&) = delete;
  virtual ~RunObserver() = default;
  virtual void Started(std::size_t index) = 0;
  virtual void Finished(std::size_t index, const ProfileRun& run) = 0;
  // Called about five times a second while runs are going (live progress).
  virtual void Tick() = 0;
};

struct RunSettings {
  std::filesystem::path tarnwick;
  BatchMode mode = BatchMode::kV1ToV2;
  std::string targetRoot;
  unsigned jobs = 1;
};

class BatchRunner {
 public:
  // With a read-ahead port, the sources of the next runs in line are read ahead of them
  // (read_ahead_queue.h).
  BatchRunner(ChildProcessLauncher& launcher, LogFollower& log, RunSettings settings,
              ReadAheadPort* readAhead = nullptr);

  // One ProfileRun per entry of `plan`, in its order. Entries that are not runnable, and those
  // not started because of a stop, get UnrunProfile's outcome.
  std::vector<ProfileRun> Run(const std::vector<PlannedProfile>& plan, RunObserver& observer,
                              const std::function<bool()>& stopRequested);

 private:
  ChildProcessLauncher& launcher_;
  LogFollower& log_;
  ReadAheadPort* readAhead_;
  RunSettings settings_;
};

}  // namespace tw::batch
