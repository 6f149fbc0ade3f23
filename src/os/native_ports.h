// The system's own adapters of every port (os/posix or os/win32, whichever this build has), and
// the process ports made of them, for the executables to install (ports/process_ports.h).
#pragma once

#include <cstdint>
#include <memory>

#include "ports/com_runtime.h"
#include "ports/console.h"
#include "ports/diagnostics.h"
#include "ports/file_system.h"
#include "ports/module_loader.h"
#include "ports/network_port.h"
#include "ports/process_ports.h"
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
std::unique_ptr<XmlDocument> NewNativeXmlDocument();
std::uint32_t NativeThreadLastError();
void SetNativeThreadLastError(std::uint32_t error);

// The system's ports, reporting the adapters' diagnostics to diagnostics.
inline ProcessPorts NativeProcessPorts(DiagnosticSink& diagnostics) {
  return ProcessPorts{NativeConsole(),          NativeComRuntime(),   NativeFileSystem(),
                      NativeSecurityPort(),     NativeNetworkPort(),  NativeModuleLoader(),
                      NativeSystemServices(),   NewNativeXmlDocument, NativeThreadLastError,
                      SetNativeThreadLastError, diagnostics};
}

}  // namespace tw
