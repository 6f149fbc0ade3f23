// The whole of tarnwick-batch behind its entry point: command line, plan, runs, summary, report.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "ports/child_process.h"
#include "ports/read_ahead.h"
#include "ports/survey_port.h"

namespace tw::batch {

// The exit values of the program.
inline constexpr int kExitAllDone = 0;     // every profile migrated or skipped as finished
inline constexpr int kExitSomeFailed = 1;  // a profile failed, or was not started
inline constexpr int kExitBadUsage = 2;    // bad command line, no tool to run, unreadable share

// What the batch needs of the system, handed over by the program's wiring (the system's
// adapters there; fakes in tests).
struct BatchSystem {
  ChildProcessLauncher& launcher;
  SurveyPort& survey;
  // Reads the next profiles in line ahead of their runs.
  ReadAheadPort& readAhead;
  // The running program's own file (its folder holds the programs the build made beside it).
  std::filesystem::path (*ownProgramFile)();
  // The log file the tool at `program` writes; `previous` names the rotated log instead.
  std::filesystem::path (*programLogFile)(const std::filesystem::path& program, bool previous);
  // Whether standard output is a terminal (a console on Windows).
  bool (*standardOutputIsTerminal)();
  // Ctrl-C: after watchInterrupts, each interrupt only increments interruptCount.
  void (*watchInterrupts)();
  int (*interruptCount)();
};

// Runs the program with its arguments (UTF-8, without the program name).
int BatchMain(const std::vector<std::string>& arguments, const BatchSystem& system);

}  // namespace tw::batch
