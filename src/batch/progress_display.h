// Progress of a batch: a line per finished profile, and on a terminal one live line below them
// (profiles done of all, failed, bytes copied, rate, time left) rewritten in place.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "batch/batch_plan.h"
#include "batch/batch_runner.h"

namespace tw::batch {

struct ProgressCounts {
  std::size_t total = 0;
  std::size_t done = 0;
  std::size_t failed = 0;
  std::size_t skipped = 0;
  std::uint64_t bytesCopied = 0;  // sources of migrated profiles
  std::uint64_t bytesToCopy = 0;  // sources of every profile that gets a run
  std::size_t runsDone = 0;       // profiles that got a run and ended
  std::size_t runsToDo = 0;       // profiles that get a run
};

// "1.5 GB", "300 KB", "12 bytes" (decimal units).
std::string ByteText(std::uint64_t bytes);
// "0:42", "1:02:03".
std::string DurationText(double seconds);

// The live line: "12/20 done, 1 failed, 3 skipped, 1.2 GB copied, 35.0 MB/s, 0:42 left".
std::string LiveLine(const ProgressCounts& counts, double elapsedSeconds);

// The line of one finished profile: "[12/20] migrated <source> -> <target>" with "(3 items not
// copied)" when so, "[13/20] failed <source>: <cause>", "[14/20] skipped <source>: <cause>".
std::string FinishedLine(const ProgressCounts& counts, const PlannedProfile& profile,
                         const ProfileRun& run);

class ProgressDisplay : public RunObserver {
 public:
  using Writer = std::function<void(std::string_view)>;
  ProgressDisplay(const std::vector<PlannedProfile>& plan, bool live, Writer write);

  void Started(std::size_t index) override;
  void Finished(std::size_t index, const ProfileRun& run) override;
  void Tick() override;

  // Tells once per new Ctrl-C what happens now (no new runs; the running ones finish).
  void NoteInterrupts(int count);
  // Clears the live line before the summary.
  void Close();

  const ProgressCounts& counts() const { return counts_; }
  double Elapsed() const;

 private:
  void ClearLive();
  void DrawLive();

  const std::vector<PlannedProfile>& plan_;
  bool live_;
  Writer write_;
  ProgressCounts counts_;
  std::size_t running_ = 0;
  int interruptsNoted_ = 0;
  std::size_t liveWidth_ = 0;
  std::chrono::steady_clock::time_point begin_;
};

}  // namespace tw::batch
