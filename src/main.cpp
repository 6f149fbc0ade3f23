// Program entry: wmain on Windows, main on POSIX (arguments converted from UTF-8). Wires the
// process's real adapters into the run flow and nothing else.
#include <memory>
#include <string>
#include <vector>

#include "log/log_diagnostics.h"
#include "os/native_ports.h"
#include "ports/com_runtime.h"
#include "ports/console.h"
#include "ports/file_system.h"
#include "ports/process_ports.h"
#include "ports/security_port.h"
#include "ports/xml_document.h"
#include "profile/profile_migration.h"
#include "registry/offreg_wrapper.h"
#include "run/run_flow.h"

#ifndef _WIN32
#include <cstdio>
#include <string_view>

#include "base/text_encoding.h"
#include "os/posix/paths/share_map.h"
#endif

// The program runs with the system's adapters; what they cannot return in a result goes to the
// log.
const tw::ProcessPorts& tw::InstalledProcessPorts() {
  static const ProcessPorts ports = NativeProcessPorts(LogDiagnosticSink());
  return ports;
}

namespace {

int Run(std::vector<std::wstring> args) {
  std::unique_ptr<tw::XmlDocument> configDocument = tw::NewXmlDocument();
  tw::RunServices services{tw::ProcessConsole(),
                           tw::ProcessComRuntime(),
                           tw::ProcessFileSystem(),
                           *configDocument,
                           tw::ProcessSecurityPort(),
                           tw::g_offreg,
                           nullptr,
                           tw::MigrateProfile};
  return tw::RunTarnwick(args, services);
}

}  // namespace

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) { return Run(std::vector<std::wstring>(argv, argv + argc)); }
#else
int main(int argc, char** argv) {
  // A share map that cannot be used leaves every UNC path unknown (error 53); say why once, on
  // standard error, so the console output of the run itself stays as it is. The same goes for
  // the shares of the server's configuration that the map leaves out.
  std::wstring problem;
  tw::posix::LoadProcessShareMap(problem);
  std::wstring_view lines = problem;
  while (!lines.empty()) {
    const std::size_t end = lines.find(L'\n');
    std::fprintf(stderr, "tarnwick: %s\n", tw::WideToUtf8(lines.substr(0, end)).c_str());
    lines.remove_prefix(end == std::wstring_view::npos ? lines.size() : end + 1);
  }
  std::vector<std::wstring> args;
  args.reserve(static_cast<std::size_t>(argc));
  for (int i = 0; i < argc; ++i) args.push_back(tw::Utf8ToWide(argv[i]));
  return Run(std::move(args));
}
#endif
