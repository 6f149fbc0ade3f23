// The system's own adapters of every port (os/posix or os/win32, whichever this build has), and
// the process ports made of them, for the executables to install (ports/process_ports.h).
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "base/win32_error.h"
#include "ports/child_process.h"
#include "ports/com_runtime.h"
#include "ports/console.h"
#include "ports/diagnostics.h"
#include "ports/file_system.h"
#include "ports/module_loader.h"
#include "ports/network_port.h"
#include "ports/process_ports.h"
#include "ports/read_ahead.h"
#include "ports/security_port.h"
#include "ports/survey_port.h"
#include "ports/system_services.h"
#include "ports/xml_document.h"

namespace tw {

Console& NativeConsole();
ComRuntime& NativeComRuntime();
FileSystem& NativeFileSystem();
SecurityPort& NativeSecurityPort();
NetworkPort& NativeNetworkPort();
ModuleLoader& NativeModuleLoader();
SystemServices& NativeSystemServices();
// The survey's read-only port (tarnwick-survey hands it to the scan; not a process-wide port).
SurveyPort& NativeSurveyPort();

// The companion programs' own system services (tarnwick-batch hands them to its library).
// The launcher of the real system.
ChildProcessLauncher& NativeChildLauncher();
// The read-ahead of the real system.
ReadAheadPort& NativeReadAheadPort();

// The running program's own file (its folder holds the programs the build made beside it).
std::filesystem::path OwnProgramFile();

// The log file the tool at `program` writes: beside the program on Windows; on Linux as the
// install layout decides (the folder TARNWICK_LOG_DIR names, /var/log/tarnwick for an installed
// program, else beside it). `previous` names the rotated log instead.
std::filesystem::path ProgramLogFile(const std::filesystem::path& program, bool previous = false);

// Whether the program's standard output is a terminal (a console on Windows).
bool StandardOutputIsTerminal();

// Ctrl-C: after WatchInterrupts, each interrupt (SIGINT; on Windows CTRL_C and CTRL_BREAK)
// only increments InterruptCount and no longer ends the process.
void WatchInterrupts();
int InterruptCount();
std::unique_ptr<XmlDocument> NewNativeXmlDocument();
[[nodiscard]] err::Win32Error NativeThreadLastError();
void SetNativeThreadLastError(err::Win32Error error);

// The system's ports, reporting the adapters' diagnostics to diagnostics.
inline ProcessPorts NativeProcessPorts(DiagnosticSink& diagnostics) {
  return ProcessPorts{NativeConsole(),          NativeComRuntime(),   NativeFileSystem(),
                      NativeSecurityPort(),     NativeNetworkPort(),  NativeModuleLoader(),
                      NativeSystemServices(),   NewNativeXmlDocument, NativeThreadLastError,
                      SetNativeThreadLastError, diagnostics};
}

}  // namespace tw
