// tarnwick-survey: what is on a share of profiles, and what a migration of it would meet. Reads the
// share through the same share map and adapters as tarnwick, changes nothing, follows no link.
// Exit value: 0 when nothing would fail, 1 when some profile would, 2 on bad usage or a share that
// cannot be read.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "base/shell_path.h"
#include "base/text_encoding.h"
#include "platform/file_system.h"
#include "platform/security_port.h"
#include "platform/survey_port.h"
#include "survey/survey_output.h"
#include "survey/survey_scan.h"

#ifndef _WIN32
#include "platform/posix/share_map.h"
#endif

namespace {

constexpr int kExitNothingFails = 0;
constexpr int kExitSomeFail = 1;
constexpr int kExitUsage = 2;

void Write(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

void Complain(const std::string& text) {
  const std::string line = "tarnwick-survey: " + text + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

// Says once why the share map cannot be used (as tarnwick does), so that an unknown share is
// understood.
void LoadShares() {
#ifndef _WIN32
  std::wstring problem;
  tw::posix::LoadProcessShareMap(problem);
  std::wstring_view lines = problem;
  while (!lines.empty()) {
    const std::size_t end = lines.find(L'\n');
    Complain(tw::WideToUtf8(lines.substr(0, end)));
    lines.remove_prefix(end == std::wstring_view::npos ? lines.size() : end + 1);
  }
#endif
}

// The command line, as given.
struct Options {
  std::string share;
  std::string mode;
  std::string targetRoot;
  bool json = false;
  bool csv = false;
  bool baseBlocksOnly = false;
};

// Parses args into options; returns an exit value when the program is to end at once (help,
// usage error), else nothing.
std::optional<int> ParseOptions(std::vector<std::string> args, Options& options) {
  CLI::App app{
      "Lists the folders of a share (or of a parent folder) of Windows user profiles: kind, "
      "owner, size, hive states, the target each migration mode would build and its state, and "
      "what a migration would lose or refuse. Changes nothing.",
      "tarnwick-survey"};
  app.add_option("share", options.share,
                 "The share or parent folder, as a UNC path (\\\\server\\share)")
      ->required();
  auto* jsonFlag = app.add_flag("--json", options.json, "Write a JSON object to standard output");
  app.add_flag("--csv", options.csv, "Write the rows as CSV to standard output")
      ->excludes(jsonFlag);
  app.add_option("--mode", options.mode, "Show only this mode's profiles and targets")
      ->check(CLI::IsMember({"v1tov2", "v2tov5", "v2tov6", "v5tov6"}));
  app.add_option("--target", options.targetRoot,
                 "The target root folder (UNC) as tarnwick's /t: gives it; default: beside "
                 "each source");
  app.add_flag("--base-blocks-only", options.baseBlocksOnly,
               "Read hives by their base blocks only (redirected folders are not looked for)");
  std::reverse(args.begin(), args.end());
  args.pop_back();  // the program's name
  try {
    app.parse(args);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    return code == 0 ? kExitNothingFails : kExitUsage;
  }
  return std::nullopt;
}

int Run(std::vector<std::string> args) {
  Options options;
  if (const std::optional<int> exit = ParseOptions(std::move(args), options)) return *exit;
  const std::wstring sharePath = tw::Utf8ToWide(options.share);
  if (!tw::PathIsUNCW(sharePath)) {
    Complain("the share must be given as a UNC path (\\\\server\\share\\folder): " + options.share);
    return kExitUsage;
  }
  std::optional<tw::survey::Mode> mode;
  if (!options.mode.empty()) mode = tw::survey::ModeFromName(tw::Utf8ToWide(options.mode));
  const std::wstring target = tw::Utf8ToWide(options.targetRoot);
  if (!target.empty() && !tw::PathIsUNCW(target)) {
    Complain("the target root must be a UNC path: " + options.targetRoot);
    return kExitUsage;
  }

  LoadShares();
  const tw::survey::SurveyServices services{tw::ProcessFileSystem(), tw::ProcessSecurityPort(),
                                            tw::ProcessSurveyPort(), target,
                                            !options.baseBlocksOnly};
  tw::survey::SurveyResult result;
  const tw::err::Win32Error error = tw::survey::SurveyShare(services, sharePath, result);
  if (error != tw::err::kSuccess) {
    Complain("cannot read " + options.share + " (error " + std::to_string(error) + ")");
    return kExitUsage;
  }
  if (options.json) {
    Write(tw::survey::SurveyJson(result, mode));
  } else if (options.csv) {
    Write(tw::survey::SurveyCsv(result, mode));
  } else {
    Write(tw::survey::SurveyText(result, mode));
  }
  return tw::survey::TotalsOf(result, mode).wouldFail == 0 ? kExitNothingFails : kExitSomeFail;
}

}  // namespace

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> args;
  for (int i = 0; i < argc; ++i) args.push_back(tw::WideToUtf8(argv[i]));
  return Run(std::move(args));
}
#else
int main(int argc, char** argv) { return Run(std::vector<std::string>(argv, argv + argc)); }
#endif
