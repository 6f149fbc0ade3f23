#include "batch/batch_runner.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "base/text_encoding.h"
#include "batch/read_ahead_queue.h"

namespace tw::batch {
namespace {

// How far the sources are read ahead of the runs: this many profiles per run at once (and two
// more), and no more than 1 GiB of them (by the survey's sizes) beyond the very next one, by two
// walks at once. Enough for the disk to keep busy while runs work on the cache; little enough
// that what is read ahead is still cached when its run comes.
constexpr std::size_t kReadAheadPerJob = 2;
constexpr std::uint64_t kReadAheadBytes = std::uint64_t{1} << 30;
constexpr unsigned kReadAheadWalks = 2;

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

// One call of BatchRunner::Run: the scheduling thread starts runs, one worker thread per run
// reads its child's output and collects its log entries.
class BatchRun {
 public:
  BatchRun(ChildProcessLauncher& launcher, LogFollower& log, ReadAheadPort* readAhead,
           const RunSettings& settings, const std::vector<PlannedProfile>& plan,
           RunObserver& observer)
      : launcher_(launcher),
        log_(log),
        readAhead_(readAhead),
        settings_(settings),
        plan_(plan),
        observer_(observer),
        runs_(plan.size()) {}

  std::vector<ProfileRun> Run(const std::function<bool()>& stopRequested) {
    std::vector<std::size_t> pending = TellUnrunnable();
    StartReadingAhead(pending);
    std::unique_lock<std::mutex> hold(shared_.lock);
    bool stopped = false;
    while (!pending.empty() && !(stopped = stopRequested())) StartNext(pending, hold);
    hold.unlock();
    queue_.reset();  // every run started, or none will be: nothing more to read ahead
    hold.lock();
    while (shared_.active > 0) {
      shared_.changed.wait_for(hold, std::chrono::milliseconds(200));
      stopped = stopRequested() || stopped;  // asked again only to let it tell about interrupts
      observer_.Tick();
    }
    for (const std::size_t index : pending) {
      runs_[index] = UnrunProfile(plan_[index], stopped);
      observer_.Finished(index, runs_[index]);
    }
    hold.unlock();
    for (std::thread& worker : workers_) worker.join();
    return std::move(runs_);
  }

 private:
  // Runnable entries, in plan order; the others are told at once.
  std::vector<std::size_t> TellUnrunnable() {
    std::vector<std::size_t> pending;
    for (std::size_t index = 0; index < plan_.size(); ++index) {
      if (IsRunnable(plan_[index])) {
        pending.push_back(index);
        continue;
      }
      runs_[index] = UnrunProfile(plan_[index], false);
      std::lock_guard<std::mutex> hold(shared_.lock);
      observer_.Finished(index, runs_[index]);
    }
    return pending;
  }

  // Reads the sources of the pending entries ahead of their runs, the next few in line at a time.
  void StartReadingAhead(const std::vector<std::size_t>& pending) {
    if (readAhead_ == nullptr || pending.empty()) return;
    std::vector<ReadAheadSource> sources;
    sources.reserve(pending.size());
    for (const std::size_t index : pending)
      sources.push_back(ReadAheadSource{Utf8ToWide(plan_[index].source), plan_[index].bytes});
    queue_ = std::make_unique<ReadAheadQueue>(*readAhead_, std::move(sources),
                                              kReadAheadPerJob * settings_.jobs + 2,
                                              kReadAheadBytes, kReadAheadWalks);
  }

  // Starts the first pending entry whose owner has no run going, or waits a while when none
  // may start (lock held).
  void StartNext(std::vector<std::size_t>& pending, std::unique_lock<std::mutex>& hold) {
    const auto next = std::find_if(pending.begin(), pending.end(), [&](std::size_t index) {
      return shared_.busyOwners.count(plan_[index].owner) == 0;
    });
    if (shared_.active >= settings_.jobs || next == pending.end()) {
      shared_.changed.wait_for(hold, std::chrono::milliseconds(200));
      observer_.Tick();
      return;
    }
    const std::size_t index = *next;
    pending.erase(next);
    ProfileRun& run = runs_[index];
    run.command = TarnwickArguments(plan_[index].source, settings_.mode, settings_.targetRoot);
    const auto begin = std::chrono::steady_clock::now();
    // Started under the lock and its thread id claimed at once, so that no log read in between
    // drops the new run's first entries.
    std::unique_ptr<ChildProcess> child =
        launcher_.Start(settings_.tarnwick, run.command, run.startError);
    observer_.Started(index);
    if (queue_ != nullptr) queue_->RunStarted();
    if (child == nullptr) {
      Judge(run);
      observer_.Finished(index, run);
      return;
    }
    shared_.logByThread[child->LogThreadId()];
    shared_.busyOwners.insert(plan_[index].owner);
    ++shared_.active;
    workers_.emplace_back(&BatchRun::Work, this, index, std::move(child), begin);
  }

  // A worker: the child's output until it exits, then its log entries and the verdict.
  void Work(std::size_t index, std::unique_ptr<ChildProcess> child,
            std::chrono::steady_clock::time_point begin) {
    ProfileRun& run = runs_[index];
    while (child->ReadOutput(run.console)) {
    }
    run.exitValue = child->WaitForExit();
    {
      // The child has exited but its ids are still reserved: every entry it wrote is in the log,
      // and no other run can carry its thread id yet.
      std::lock_guard<std::mutex> hold(shared_.lock);
      CollectLog();
      const auto at = shared_.logByThread.find(child->LogThreadId());
      run.log = std::move(at->second);
      shared_.logByThread.erase(at);
    }
    child.reset();
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    Judge(run);
    std::lock_guard<std::mutex> hold(shared_.lock);
    observer_.Finished(index, run);
    shared_.busyOwners.erase(plan_[index].owner);
    --shared_.active;
    shared_.changed.notify_all();
  }

  // Takes the log's new entries into the lists of the runs they belong to (lock held).
  void CollectLog() {
    for (LogEntry& entry : log_.Read()) {
      const auto at = shared_.logByThread.find(entry.threadId);
      if (at != shared_.logByThread.end()) at->second.push_back(std::move(entry.message));
    }
  }

  ChildProcessLauncher& launcher_;
  LogFollower& log_;
  ReadAheadPort* readAhead_;
  const RunSettings& settings_;
  const std::vector<PlannedProfile>& plan_;
  RunObserver& observer_;
  std::vector<ProfileRun> runs_;
  Shared shared_;
  std::vector<std::thread> workers_;
  std::unique_ptr<ReadAheadQueue> queue_;
};

}  // namespace

BatchRunner::BatchRunner(ChildProcessLauncher& launcher, LogFollower& log, RunSettings settings,
                         ReadAheadPort* readAhead)
    : launcher_(launcher), log_(log), readAhead_(readAhead), settings_(std::move(settings)) {
  if (settings_.jobs == 0) settings_.jobs = 1;
}

std::vector<ProfileRun> BatchRunner::Run(const std::vector<PlannedProfile>& plan,
                                         RunObserver& observer,
                                         const std::function<bool()>& stopRequested) {
  return BatchRun(launcher_, log_, readAhead_, settings_, plan, observer).Run(stopRequested);
}

}  // namespace tw::batch
