#include "batch/batch_report.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "batch/progress_display.h"

namespace tw::batch {
namespace {

std::string Padded(std::string text, std::size_t width) {
  if (text.size() < width) text.append(width - text.size(), ' ');
  return text;
}

std::string TargetStateName(TargetState state) {
  switch (state) {
    case TargetState::kNone:
      return "none";
    case TargetState::kInterrupted:
      return "interrupted";
    case TargetState::kFinished:
      return "finished";
    case TargetState::kLocked:
      return "locked";
    case TargetState::kDuplicate:
      break;
  }
  return "duplicate";
}

}  // namespace

BatchTotals CountTotals(const std::vector<PlannedProfile>& plan,
                        const std::vector<ProfileRun>& runs) {
  BatchTotals totals;
  totals.profiles = runs.size();
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const ProfileRun& run = runs[i];
    switch (run.outcome) {
      case Outcome::kMigrated:
        ++totals.migrated;
        if (run.items.Total() > 0) ++totals.migratedWithItemFailures;
        totals.bytesCopied += plan[i].bytes;
        break;
      case Outcome::kSkippedFinished:
        ++totals.skipped;
        break;
      case Outcome::kNotStarted:
        ++totals.notStarted;
        break;
      case Outcome::kFailed:
      case Outcome::kDuplicate:
        ++totals.failed;
        break;
    }
    totals.itemsNotCopied += run.items.Total();
  }
  return totals;
}

int BatchExitValue(const BatchTotals& totals) {
  return totals.migrated + totals.skipped == totals.profiles ? 0 : 1;
}

std::string SummaryTable(const std::vector<PlannedProfile>& plan,
                         const std::vector<ProfileRun>& runs, const BatchTotals& totals,
                         double seconds, bool interrupted) {
  std::string table = "\n" + Padded("result", 12) + Padded("exit", 6) + Padded("items", 7) +
                      Padded("seconds", 9) + "profile\n";
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const ProfileRun& run = runs[i];
    const bool ran = !run.command.empty();
    char time[32] = "-";
    if (ran) std::snprintf(time, sizeof time, "%.1f", run.seconds);
    std::string row = Padded(OutcomeName(run.outcome), 12) +
                      Padded(ran ? std::to_string(run.exitValue) : "-", 6) +
                      Padded(std::to_string(run.items.Total()), 7) + Padded(time, 9) +
                      plan[i].source;
    if (run.outcome != Outcome::kMigrated && !run.cause.empty()) row += "  (" + run.cause + ")";
    table += row + "\n";
  }
  table += "\n" + std::to_string(totals.profiles) +
           " profiles: " + std::to_string(totals.migrated) + " migrated";
  if (totals.migratedWithItemFailures > 0) {
    table += " (" + std::to_string(totals.migratedWithItemFailures) + " with " +
             std::to_string(totals.itemsNotCopied) + " items not copied)";
  }
  table += ", " + std::to_string(totals.skipped) + " skipped as finished, " +
           std::to_string(totals.failed) + " failed";
  if (totals.notStarted > 0) table += ", " + std::to_string(totals.notStarted) + " not started";
  table += "; " + ByteText(totals.bytesCopied) + " in " + DurationText(seconds);
  if (interrupted) table += " (interrupted)";
  return table + "\n";
}

std::string ReportJson(const std::vector<PlannedProfile>& plan, const std::vector<ProfileRun>& runs,
                       const BatchTotals& totals, const ReportContext& context) {
  nlohmann::json profiles = nlohmann::json::array();
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const PlannedProfile& profile = plan[i];
    const ProfileRun& run = runs[i];
    nlohmann::json console = nlohmann::json::array();
    for (const std::string& line : ConsoleLines(run.console)) console.push_back(line);
    nlohmann::json log = nlohmann::json::array();
    for (const std::string& message : run.log) log.push_back(message);
    nlohmann::json item;
    item["source"] = profile.source;
    item["target"] = profile.target;
    item["targetBefore"] = TargetStateName(profile.targetState);
    item["result"] = OutcomeName(run.outcome);
    item["arguments"] = run.command;
    item["exitValue"] = run.command.empty() ? nlohmann::json() : nlohmann::json(run.exitValue);
    item["cause"] = run.cause;
    item["detail"] = run.detail;
    item["itemsNotCopied"] = {{"files", run.items.files},
                              {"folders", run.items.folders},
                              {"registry", run.items.registry},
                              {"total", run.items.Total()},
                              {"messages", run.items.messages}};
    item["bytes"] = profile.bytes;
    item["files"] = profile.files;
    item["seconds"] = run.seconds;
    item["console"] = std::move(console);
    item["log"] = std::move(log);
    profiles.push_back(std::move(item));
  }
  nlohmann::json report;
  report["tarnwick"] = context.settings.tarnwick.string();
  report["mode"] = ModeWord(context.settings.mode);
  report["target"] = context.settings.targetRoot;
  report["jobs"] = context.settings.jobs;
  report["dryRun"] = context.dryRun;
  report["interrupted"] = context.interrupted;
  report["seconds"] = context.seconds;
  report["totals"] = {{"profiles", totals.profiles},
                      {"migrated", totals.migrated},
                      {"migratedWithItemsNotCopied", totals.migratedWithItemFailures},
                      {"skipped", totals.skipped},
                      {"failed", totals.failed},
                      {"notStarted", totals.notStarted},
                      {"itemsNotCopied", totals.itemsNotCopied},
                      {"bytesCopied", totals.bytesCopied}};
  report["exitValue"] = BatchExitValue(totals);
  report["profiles"] = std::move(profiles);
  // Text from the tool or the file system may hold bytes that are no UTF-8: they are replaced
  // rather than failing the report.
  return report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace tw::batch
