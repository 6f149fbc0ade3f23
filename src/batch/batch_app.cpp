#include "batch/batch_app.h"

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <optional>
#include <thread>

#include "base/text_encoding.h"
#include "batch/batch_report.h"
#include "batch/batch_runner.h"
#include "batch/progress_display.h"
#include "batch/share_plan.h"
#include "ports/child_process.h"
#include "ports/console.h"
#include "ports/file_system.h"
#include "ports/security_port.h"
#include "ports/survey_port.h"

namespace tw::batch {
namespace {

struct BatchOptions {
  unsigned jobs = 0;
  std::string mode = "v1tov2";
  std::string targetRoot;
  std::string report;
  bool dryRun = false;
  std::string share;
  std::string tarnwick;
  std::vector<std::string> profiles;
};

std::filesystem::path PathFromUtf8(const std::string& text) {
#ifdef _WIN32
  return std::filesystem::path(Utf8ToWide(text));
#else
  return std::filesystem::path(text);
#endif
}

void Print(std::string_view text) { ProcessConsole().Write(Utf8ToWide(text)); }
void PrintError(const std::string& text) {
  std::fputs(("tarnwick-batch: " + text + "\n").c_str(), stderr);
}

// Parses the command line into `options`; returns -1 to go on, else the exit value.
int ParseOptions(const std::vector<std::string>& arguments, BatchOptions& options) {
  CLI::App app(
      "Migrates many profiles: one tarnwick run per profile, at most N at a time, with progress "
      "and a report.",
      "tarnwick-batch");
  app.add_option("--jobs,-j", options.jobs, "runs at once (default: the number of cores)")
      ->check(CLI::Range(1u, 1024u));
  app.add_option("--mode", options.mode, "v1tov2 (default), v2tov5, v2tov6 or v5tov6")
      ->check(CLI::IsMember({"v1tov2", "v2tov5", "v2tov6", "v5tov6"}, CLI::ignore_case));
  app.add_option("--target", options.targetRoot, "folder (UNC) for the targets (tarnwick's /t:)");
  app.add_option("--report", options.report, "write a JSON report to this file");
  app.add_flag("--dry-run", options.dryRun, "print the commands, run nothing");
  app.add_option("--tarnwick", options.tarnwick,
                 "the tarnwick to run (default: the one beside this program)");
  CLI::Option* share =
      app.add_option("--share", options.share, "every profile of the mode's kind on this share");
  CLI::Option* profiles = app.add_option("profiles", options.profiles, "profile folders (UNC)");
  share->excludes(profiles);
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    return code == 0 ? kExitAllDone : kExitBadUsage;
  }
  if (options.share.empty() && options.profiles.empty()) {
    PrintError("name profile folders or --share (see --help)");
    return kExitBadUsage;
  }
  return -1;
}

std::filesystem::path TarnwickProgram(const BatchOptions& options, const BatchSystem& system) {
  if (!options.tarnwick.empty()) return PathFromUtf8(options.tarnwick);
  std::filesystem::path own = system.ownProgramFile();
  const std::filesystem::path extension = own.extension();
  return own.replace_filename("tarnwick").replace_extension(extension);
}

survey::SurveyServices SurveyServicesFor(const BatchOptions& options, SurveyPort& surveyPort) {
  // Sizes, owners and target states only: the hives' redirected folders, account names and
  // leftover temporary profiles do not matter to a run.
  static PlanningSurveyPort port(surveyPort);
  return survey::SurveyServices{ProcessFileSystem(), ProcessSecurityPort(), port,
                                Utf8ToWide(options.targetRoot), false};
}

// The plan, or an exit value when there is none.
int MakePlan(const BatchOptions& options, BatchMode mode, SurveyPort& surveyPort,
             std::vector<PlannedProfile>& plan) {
  const survey::SurveyServices services = SurveyServicesFor(options, surveyPort);
  if (!options.share.empty()) {
    const err::Win32Error error = PlanShare(services, options.share, mode, plan);
    if (error != err::kSuccess) {
      PrintError("cannot list " + options.share + " (error " + std::to_string(error) + ")");
      return kExitBadUsage;
    }
    return -1;
  }
  FileSystem& files = ProcessFileSystem();
  plan = PlanProfiles(
      options.profiles, mode, options.targetRoot,
      [&files](const std::string& path) { return files.PathExists(Utf8ToWide(path)); });
  AddSourceFacts(services, plan);
  return -1;
}

bool WriteReport(const std::string& file, const std::string& json) {
  std::ofstream out(PathFromUtf8(file), std::ios::binary | std::ios::trunc);
  out << json;
  out.close();
  if (out) return true;
  PrintError("cannot write the report " + file);
  return false;
}

int DryRun(const std::vector<PlannedProfile>& plan, const RunSettings& settings,
           const BatchOptions& options) {
  std::vector<ProfileRun> runs;
  for (const PlannedProfile& profile : plan) {
    ProfileRun run = UnrunProfile(profile, false);
    if (IsRunnable(profile)) {
      Print(CommandText(settings.tarnwick.string(),
                        TarnwickArguments(profile.source, settings.mode, settings.targetRoot)) +
            "\n");
    } else {
      Print("# " + OutcomeName(run.outcome) + " " + profile.source + ": " + run.cause + "\n");
    }
    runs.push_back(std::move(run));
  }
  if (!options.report.empty()) {
    const ReportContext context{settings, 0, false, true};
    if (!WriteReport(options.report, ReportJson(plan, runs, CountTotals(plan, runs), context))) {
      return kExitSomeFailed;
    }
  }
  return kExitAllDone;
}

}  // namespace

int BatchMain(const std::vector<std::string>& arguments, const BatchSystem& system) {
  BatchOptions options;
  if (const int exitValue = ParseOptions(arguments, options); exitValue >= 0) return exitValue;
  RunSettings settings;
  std::string modeWord = options.mode;
  for (char& c : modeWord) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const std::optional<BatchMode> mode = survey::ModeFromName(Utf8ToWide(modeWord));
  if (!mode) {
    PrintError("unknown mode " + options.mode + " (see --help)");
    return kExitBadUsage;
  }
  settings.mode = *mode;
  settings.targetRoot = options.targetRoot;
  settings.jobs =
      options.jobs != 0 ? options.jobs : std::max(1u, std::thread::hardware_concurrency());
  settings.tarnwick = TarnwickProgram(options, system);
  std::error_code missing;
  if (!std::filesystem::is_regular_file(settings.tarnwick, missing)) {
    PrintError("no tarnwick to run at " + settings.tarnwick.string() + " (see --tarnwick)");
    return kExitBadUsage;
  }
  std::vector<PlannedProfile> plan;
  if (const int exitValue = MakePlan(options, settings.mode, system.survey, plan); exitValue >= 0) {
    return exitValue;
  }
  if (options.dryRun) return DryRun(plan, settings, options);

  system.watchInterrupts();
  LogFollower log(system.programLogFile(settings.tarnwick, false),
                  system.programLogFile(settings.tarnwick, true));
  ProgressDisplay display(plan, system.standardOutputIsTerminal(), Print);
  BatchRunner runner(system.launcher, log, settings, &system.readAhead);
  const std::vector<ProfileRun> runs = runner.Run(plan, display, [&display, &system] {
    const int interrupts = system.interruptCount();
    display.NoteInterrupts(interrupts);
    return interrupts > 0;
  });
  display.Close();
  const double seconds = display.Elapsed();
  const bool interrupted = system.interruptCount() > 0;
  const BatchTotals totals = CountTotals(plan, runs);
  Print(SummaryTable(plan, runs, totals, seconds, interrupted));
  int exitValue = BatchExitValue(totals);
  if (!options.report.empty()) {
    const ReportContext context{settings, seconds, interrupted, false};
    if (!WriteReport(options.report, ReportJson(plan, runs, totals, context))) {
      exitValue = kExitSomeFailed;
    }
  }
  return exitValue;
}

}  // namespace tw::batch
