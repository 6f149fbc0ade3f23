// tarnwick-batch: runs tarnwick once per profile, several at a time (batch/batch_app.h).
#include <string>
#include <vector>

#include "base/text_encoding.h"
#include "batch/batch_app.h"
#include "log/log_diagnostics.h"
#include "os/native_ports.h"
#include "ports/process_ports.h"

// The batch runs with the system's adapters; what they cannot return in a result goes to the log.
const tw::ProcessPorts& tw::InstalledProcessPorts() {
  static const ProcessPorts ports = NativeProcessPorts(LogDiagnosticSink());
  return ports;
}

namespace {

// The system's own services, for the batch's library.
tw::batch::BatchSystem NativeBatchSystem() {
  return tw::batch::BatchSystem{tw::NativeChildLauncher(), tw::NativeSurveyPort(),
                                tw::NativeReadAheadPort(), tw::OwnProgramFile,
                                tw::ProgramLogFile,        tw::StandardOutputIsTerminal,
                                tw::WatchInterrupts,       tw::InterruptCount};
}

}  // namespace

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(tw::WideToUtf8(argv[i]));
  return tw::batch::BatchMain(arguments, NativeBatchSystem());
}
#else
int main(int argc, char** argv) {
  return tw::batch::BatchMain(std::vector<std::string>(argv + 1, argv + argc), NativeBatchSystem());
}
#endif
