#include "batch/progress_display.h"

#include <cstdio>

namespace tw::batch {

std::string ByteText(std::uint64_t bytes) {
  static constexpr const char* kUnits[] = {"KB", "MB", "GB", "TB"};
  if (bytes < 1000) return std::to_string(bytes) + " bytes";
  double value = static_cast<double>(bytes) / 1000.0;
  std::size_t unit = 0;
  while (value >= 1000.0 && unit + 1 < std::size(kUnits)) {
    value /= 1000.0;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
  return text;
}

std::string DurationText(double seconds) {
  const long long total = seconds < 0 ? 0 : static_cast<long long>(seconds + 0.5);
  char text[32];
  if (total >= 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", total / 3600, total / 60 % 60,
                  total % 60);
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", total / 60, total % 60);
  }
  return text;
}

std::string LiveLine(const ProgressCounts& counts, double elapsedSeconds) {
  std::string line = std::to_string(counts.done) + "/" + std::to_string(counts.total) + " done, " +
                     std::to_string(counts.failed) + " failed";
  if (counts.skipped > 0) line += ", " + std::to_string(counts.skipped) + " skipped";
  line += ", " + ByteText(counts.bytesCopied) + " copied";
  if (elapsedSeconds > 0 && counts.bytesCopied > 0) {
    line += ", " +
            ByteText(static_cast<std::uint64_t>(static_cast<double>(counts.bytesCopied) /
                                                elapsedSeconds)) +
            "/s";
  }
  double left = -1;
  if (counts.bytesCopied > 0 && counts.bytesToCopy >= counts.bytesCopied) {
    left = elapsedSeconds * static_cast<double>(counts.bytesToCopy - counts.bytesCopied) /
           static_cast<double>(counts.bytesCopied);
  } else if (counts.runsDone > 0) {
    left = elapsedSeconds * static_cast<double>(counts.runsToDo - counts.runsDone) /
           static_cast<double>(counts.runsDone);
  }
  if (left >= 0) line += ", " + DurationText(left) + " left";
  return line;
}

std::string FinishedLine(const ProgressCounts& counts, const PlannedProfile& profile,
                         const ProfileRun& run) {
  std::string line = "[" + std::to_string(counts.done) + "/" + std::to_string(counts.total) + "] " +
                     OutcomeName(run.outcome) + " " + profile.source;
  if (run.outcome == Outcome::kMigrated) {
    line += " -> " + profile.target;
    const int items = run.items.Total();
    if (items > 0) {
      line += " (" + std::to_string(items) + (items == 1 ? " item" : " items") + " not copied)";
    }
  } else if (!run.cause.empty()) {
    line += ": " + run.cause;
  }
  return line;
}

ProgressDisplay::ProgressDisplay(const std::vector<PlannedProfile>& plan, bool live, Writer write)
    : plan_(plan), live_(live), write_(std::move(write)), begin_(std::chrono::steady_clock::now()) {
  counts_.total = plan.size();
  for (const PlannedProfile& profile : plan) {
    if (!IsRunnable(profile)) continue;
    ++counts_.runsToDo;
    counts_.bytesToCopy += profile.bytes;
  }
}

double ProgressDisplay::Elapsed() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
}

void ProgressDisplay::Started(std::size_t) {
  ++running_;
  DrawLive();
}

void ProgressDisplay::Finished(std::size_t index, const ProfileRun& run) {
  ++counts_.done;
  switch (run.outcome) {
    case Outcome::kMigrated:
      counts_.bytesCopied += plan_[index].bytes;
      break;
    case Outcome::kSkippedFinished:
      ++counts_.skipped;
      break;
    default:
      ++counts_.failed;
      break;
  }
  if (IsRunnable(plan_[index]) && run.outcome != Outcome::kNotStarted) {
    ++counts_.runsDone;
    if (running_ > 0) --running_;
  }
  ClearLive();
  write_(FinishedLine(counts_, plan_[index], run) + "\n");
  DrawLive();
}

void ProgressDisplay::Tick() { DrawLive(); }

void ProgressDisplay::NoteInterrupts(int count) {
  if (count <= interruptsNoted_) return;
  ClearLive();
  if (interruptsNoted_ == 0) {
    write_("Interrupted: no new runs are started; waiting for " + std::to_string(running_) +
           " running to finish.\n");
  } else {
    // The runs are never cut short: a run stopped in the middle leaves a target to rebuild.
    write_("Still waiting for " + std::to_string(running_) +
           " running to finish; they are not interrupted (end them yourself if you must: an "
           "interrupted target keeps its marker and is rebuilt by the next run).\n");
  }
  interruptsNoted_ = count;
  DrawLive();
}

void ProgressDisplay::Close() { ClearLive(); }

void ProgressDisplay::ClearLive() {
  if (!live_ || liveWidth_ == 0) return;
  write_("\r" + std::string(liveWidth_, ' ') + "\r");
  liveWidth_ = 0;
}

void ProgressDisplay::DrawLive() {
  if (!live_) return;
  const std::string line = LiveLine(counts_, Elapsed());
  std::string text = "\r" + line;
  if (line.size() < liveWidth_) text += std::string(liveWidth_ - line.size(), ' ');
  write_(text);
  liveWidth_ = line.size();
}

}  // namespace tw::batch
