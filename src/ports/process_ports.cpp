// The process-wide accessors of every port, served by the executable's InstalledProcessPorts().
#include "ports/process_ports.h"

#include "ports/com_runtime.h"
#include "ports/console.h"
#include "ports/diagnostics.h"
#include "ports/file_system.h"
#include "ports/last_error.h"
#include "ports/module_loader.h"
#include "ports/network_port.h"
#include "ports/security_port.h"
#include "ports/system_services.h"
#include "ports/xml_document.h"

namespace tw {

Console& ProcessConsole() { return InstalledProcessPorts().console; }

ComRuntime& ProcessComRuntime() { return InstalledProcessPorts().comRuntime; }

FileSystem& ProcessFileSystem() { return InstalledProcessPorts().fileSystem; }

SecurityPort& ProcessSecurityPort() { return InstalledProcessPorts().securityPort; }

NetworkPort& ProcessNetworkPort() { return InstalledProcessPorts().networkPort; }

ModuleLoader& ProcessModuleLoader() { return InstalledProcessPorts().moduleLoader; }

SystemServices& ProcessSystemServices() { return InstalledProcessPorts().systemServices; }

std::unique_ptr<XmlDocument> NewXmlDocument() { return InstalledProcessPorts().newXmlDocument(); }

[[nodiscard]] err::Win32Error ThreadLastError() {
  return InstalledProcessPorts().threadLastError();
}

void SetThreadLastError(err::Win32Error error) {
  InstalledProcessPorts().setThreadLastError(error);
}

void ReportDiagnosticText(std::wstring_view finished) {
  InstalledProcessPorts().diagnostics.WriteMessage(finished);
}

}  // namespace tw
