// The process-wide ports: the objects ProcessFileSystem() and its kin return, for code that is not
// handed a port of its own. This library only declares them; each executable installs them by
// defining InstalledProcessPorts() once, in its wiring (src/main.cpp, the tools' mains, the test
// suites' ports file), usually with the system's adapters (os/native_ports.h). So the core never
// links an adapter, and an adapter never links the core.
#pragma once

#include <cstdint>
#include <memory>

#include "base/win32_error.h"

namespace tw {

class ComRuntime;
class Console;
class DiagnosticSink;
class FileSystem;
class ModuleLoader;
class NetworkPort;
class SecurityPort;
class SystemServices;
class XmlDocument;

struct ProcessPorts {
  Console& console;
  ComRuntime& comRuntime;
  FileSystem& fileSystem;
  SecurityPort& securityPort;
  NetworkPort& networkPort;
  ModuleLoader& moduleLoader;
  SystemServices& systemServices;
  // A new, not yet created XML document (NewXmlDocument()).
  std::unique_ptr<XmlDocument> (*newXmlDocument)();
  // The calling thread's last-error value (ThreadLastError(), SetThreadLastError()).
  err::Win32Error (*threadLastError)();
  void (*setThreadLastError)(err::Win32Error error);
  // Where the adapters report what a port's result cannot carry (ReportDiagnostic()).
  DiagnosticSink& diagnostics;
};

// Defined by each executable, exactly once: the ports the process runs with, built on first use
// and kept for the life of the process. The first call may come during static initialisation
// (the process log and the offline-registry binding are built then), so the definition may only
// use function-local statics.
const ProcessPorts& InstalledProcessPorts();

}  // namespace tw
