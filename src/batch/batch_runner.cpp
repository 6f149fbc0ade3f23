#include "batch/batch_runner.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace tw::batch {
namespace {

// The state the workers share with the scheduling thread.
struct Shared {
  std::mutex lock;
  std::condition_variable changed;
  unsigned active = 0;
  // Log entries of the runs going on, by the thread id their lines carry.
  std::map<std::uint32_t, std::vector<std::string>> logByThread;
  // Owners of the source profiles of the runs going on.
  std::set<std::string> busyOwners;
};

}  // namespace

BatchRunner::BatchRunner(ChildProcessLauncher& launcher, LogFollower& log, RunSettings settings)
    : launcher_(launcher), log_(log), settings_(std::move(settings)) {
  if (settings_.jobs == 0) settings_.jobs = 1;
}

std::vector<ProfileRun> BatchRunner::Run(const std::vector<PlannedProfile>& plan,
                                         RunObserver& observer,
                                         const std::function<bool()>& stopRequested) {
  std::vector<ProfileRun> runs(plan.size());
  Shared shared;
  std::vector<std::thread> workers;

  // Takes the log's new entries into the lists of the runs they belong to (lock held).
  auto collectLog = [&] {
    for (LogEntry& entry : log_.Read()) {
      const auto at = shared.logByThread.find(entry.threadId);
      if (at != shared.logByThread.end()) at->second.push_back(std::move(entry.message));
    }
  };

  auto work = [&](std::size_t index, std::unique_ptr<ChildProcess> child,
                  std::chrono::steady_clock::time_point begin) {
    ProfileRun& run = runs[index];
    while (child->ReadOutput(run.console)) {
    }
    run.exitValue = child->WaitForExit();
    {
      // The child has exited but its ids are still reserved: every entry it wrote is in the log,
      // and no other run can carry its thread id yet.
      std::lock_guard<std::mutex> hold(shared.lock);
      collectLog();
      const auto at = shared.logByThread.find(child->LogThreadId());
      run.log = std::move(at->second);
      shared.logByThread.erase(at);
    }
    child.reset();
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    Judge(run);
    std::lock_guard<std::mutex> hold(shared.lock);
    observer.Finished(index, run);
    shared.busyOwners.erase(plan[index].owner);
    --shared.active;
    shared.changed.notify_all();
  };

  // Runnable entries not started yet, in plan order; the others are told at once.
  std::vector<std::size_t> pending;
  for (std::size_t index = 0; index < plan.size(); ++index) {
    if (IsRunnable(plan[index])) {
      pending.push_back(index);
      continue;
    }
    runs[index] = UnrunProfile(plan[index], false);
    std::lock_guard<std::mutex> hold(shared.lock);
    observer.Finished(index, runs[index]);
  }

  bool stopped = false;
  std::unique_lock<std::mutex> hold(shared.lock);
  while (!pending.empty() && !(stopped = stopRequested())) {
    // The first entry in order whose owner has no run going.
    const auto next = std::find_if(pending.begin(), pending.end(), [&](std::size_t index) {
      return shared.busyOwners.count(plan[index].owner) == 0;
    });
    if (shared.active >= settings_.jobs || next == pending.end()) {
      shared.changed.wait_for(hold, std::chrono::milliseconds(200));
      observer.Tick();
      continue;
    }
    const std::size_t index = *next;
    pending.erase(next);
    ProfileRun& run = runs[index];
    run.command = TarnwickArguments(plan[index].source, settings_.mode, settings_.targetRoot);
    const auto begin = std::chrono::steady_clock::now();
    // Started under the lock and its thread id claimed at once, so that no log read in between
    // drops the new run's first entries.
    std::unique_ptr<ChildProcess> child =
        launcher_.Start(settings_.tarnwick, run.command, run.startError);
    observer.Started(index);
    if (child == nullptr) {
      Judge(run);
      observer.Finished(index, run);
      continue;
    }
    shared.logByThread[child->LogThreadId()];
    shared.busyOwners.insert(plan[index].owner);
    ++shared.active;
    workers.emplace_back(work, index, std::move(child), begin);
  }
  while (shared.active > 0) {
    shared.changed.wait_for(hold, std::chrono::milliseconds(200));
    stopped = stopRequested() || stopped;  // asked again only to let it tell about interrupts
    observer.Tick();
  }
  for (const std::size_t index : pending) {
    runs[index] = UnrunProfile(plan[index], stopped);
    observer.Finished(index, runs[index]);
  }
  hold.unlock();
  for (std::thread& worker : workers) worker.join();
  return runs;
}

}  // namespace tw::batch
