// tarnwick-default-profile: builds the default profile template from its text description with
// the hive engine.
//
//   tarnwick-default-profile DESCRIPTION OUTPUT
//
// The template is built in "OUTPUT.new" and then put in place of OUTPUT, so an interrupted
// build never leaves half a template under the real name. Folders and hives are made in the
// order the description lists them; the attributes are stored last (in the user.DOSATTRIB
// extended attribute, through the file-system port). Hives are saved in the format of Windows
// 10 (ORSaveHive version 10.0). Exit values: 0 success, 1 failure (the reason on standard error),
// 2 a usage error.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "log/log_diagnostics.h"
#include "os/native_ports.h"
#include "ports/process_ports.h"
#include "profile_builder.h"
#include "profile_description.h"

// The tool runs with the system's adapters, as tarnwick does; what they cannot return in a result
// goes to the log.
const tw::ProcessPorts& tw::InstalledProcessPorts() {
  static const ProcessPorts ports = NativeProcessPorts(LogDiagnosticSink());
  return ports;
}

namespace tw::tools {
namespace {

namespace fs = std::filesystem;

int Fail(const std::string& message) {
  std::fprintf(stderr, "tarnwick-default-profile: %s\n", message.c_str());
  return 1;
}

int Run(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: tarnwick-default-profile DESCRIPTION OUTPUT\n");
    return 2;
  }
  std::ifstream input(argv[1], std::ios::binary);
  if (!input) return Fail(std::string("cannot read ") + argv[1]);
  const std::string text((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
  ProfileDescription description;
  std::string error;
  if (!ParseProfileDescription(text, description, error)) return Fail(argv[1] + (": " + error));

  const fs::path output = fs::absolute(argv[2]);
  fs::path building = output;
  building += ".new";
  std::error_code failure;
  fs::remove_all(building, failure);
  fs::create_directories(building, failure);
  if (failure) return Fail("cannot create " + building.string());
  if (const std::string problem = BuildProfile(description, building); !problem.empty()) {
    fs::remove_all(building, failure);
    return Fail(problem);
  }
  fs::remove_all(output, failure);
  fs::rename(building, output, failure);
  if (failure) return Fail("cannot put the template in place at " + output.string());
  return 0;
}

}  // namespace
}  // namespace tw::tools

int main(int argc, char** argv) { return tw::tools::Run(argc, argv); }
