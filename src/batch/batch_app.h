// The whole of tarnwick-batch behind its entry point: command line, plan, runs, summary, report.
#pragma once

#include <string>
#include <vector>

namespace tw::batch {

// The exit values of the program.
inline constexpr int kExitAllDone = 0;     // every profile migrated or skipped as finished
inline constexpr int kExitSomeFailed = 1;  // a profile failed, or was not started
inline constexpr int kExitBadUsage = 2;    // bad command line, no tool to run, unreadable share

// Runs the program with its arguments (UTF-8, without the program name).
int BatchMain(const std::vector<std::string>& arguments);

}  // namespace tw::batch
