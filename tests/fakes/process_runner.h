// Runs a program with exact arguments (no shell), feeding no input, and collects its standard
// output and exit status.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace tw::testing {

struct ProcessResult {
  int exitStatus = -1;  // the exit status 0-255, or -1 when the program did not exit normally
  std::string output;   // standard output, as bytes
  std::string errors;   // standard error, as bytes
};

// extraEnvironment is added to (or replaces in) the current environment.
ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& extraEnvironment = {});

}  // namespace tw::testing
