#include "batch/profile_run.h"

#include <algorithm>
#include <string_view>

namespace tw::batch {
namespace {

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

// Console lines that every run prints, failed or not.
bool IsRoutineLine(std::string_view line) {
  return StartsWith(line, "---------- ") || StartsWith(line, "Migrating profile: ") ||
         line.find(" profiles were migrated from ") != std::string_view::npos;
}

}  // namespace

std::string OutcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::kMigrated:
      return "migrated";
    case Outcome::kFailed:
      return "failed";
    case Outcome::kSkippedFinished:
      return "skipped";
    case Outcome::kDuplicate:
      return "duplicate";
    case Outcome::kNotStarted:
      break;
  }
  return "not started";
}

std::vector<std::string> ConsoleLines(const std::string& console) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  while (at < console.size()) {
    std::size_t end = console.find('\n', at);
    if (end == std::string::npos) end = console.size();
    std::string line = console.substr(at, end - at);
    while (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) lines.push_back(std::move(line));
    at = end + 1;
  }
  return lines;
}

void Judge(ProfileRun& run) {
  std::vector<LogEntry> entries;
  for (const std::string& message : run.log) entries.push_back(LogEntry{0, message});
  run.items = CountItemFailures(entries);
  run.cause.clear();
  run.detail.clear();
  // A run that found no profile at its path returns 0 all the same; for the batch that profile
  // was not migrated.
  const std::vector<std::string> lines = ConsoleLines(run.console);
  const auto nothing = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
    return StartsWith(line, "The source does not contain any profiles to migrate: ");
  });
  const bool succeeded = run.startError.empty() && run.exitValue == 0;
  run.outcome = succeeded && nothing == lines.end() ? Outcome::kMigrated : Outcome::kFailed;
  if (run.outcome == Outcome::kMigrated) return;
  if (succeeded) {
    run.cause = *nothing;
    return;
  }
  if (!run.startError.empty()) {
    run.cause = run.startError;
    return;
  }
  // The profile's own failure line comes last among the lines that are not routine.
  for (const std::string& line : lines) {
    if (!IsRoutineLine(line)) run.cause = line;
  }
  if (run.cause.empty()) run.cause = "exit value " + std::to_string(run.exitValue);
  for (const std::string& message : run.log) {
    if (StartsWith(message, "Failed") && ItemFailureKind(message) == ItemKind::kNone &&
        message != run.cause) {
      run.detail = message;
      break;
    }
  }
}

ProfileRun UnrunProfile(const PlannedProfile& profile, bool interrupted) {
  ProfileRun run;
  switch (profile.targetState) {
    case TargetState::kFinished:
      run.outcome = Outcome::kSkippedFinished;
      run.cause = "target is finished: " + profile.target;
      break;
    case TargetState::kLocked:
      run.outcome = Outcome::kFailed;
      run.cause = "target is locked by a live run: " + profile.target;
      break;
    case TargetState::kDuplicate:
      run.outcome = Outcome::kDuplicate;
      run.cause = "same target as " + profile.duplicateOf + ": " + profile.target;
      break;
    default:
      run.outcome = Outcome::kNotStarted;
      run.cause = interrupted ? "interrupted before its run started" : "";
      break;
  }
  return run;
}

}  // namespace tw::batch
