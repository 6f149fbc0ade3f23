// The test suites that reach the system (core, end-to-end, the Samba helpers) run with the
// system's own adapters as the process ports, as the program does (src/main.cpp); a test that
// wants a fake hands it to the code under test.
#include "log/log_diagnostics.h"
#include "os/native_ports.h"
#include "ports/process_ports.h"

const tw::ProcessPorts& tw::InstalledProcessPorts() {
  static const ProcessPorts ports = NativeProcessPorts(LogDiagnosticSink());
  return ports;
}
