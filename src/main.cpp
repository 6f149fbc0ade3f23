// Program entry: wmain on Windows, main on POSIX (arguments converted from UTF-8). Wires the
// process's real adapters into the run flow and nothing else.
#include <memory>
#include <string>
#include <vector>

#include "platform/com_runtime.h"
#include "platform/console.h"
#include "platform/file_system.h"
#include "platform/offreg_wrapper.h"
#include "platform/xml_document.h"
#include "run/run_flow.h"

#ifndef _WIN32
#include "base/text_encoding.h"
#endif

namespace {

int Run(std::vector<std::wstring> args) {
  std::unique_ptr<tw::XmlDocument> configDocument = tw::NewXmlDocument();
  tw::RunServices services{tw::ProcessConsole(), tw::ProcessComRuntime(), tw::ProcessFileSystem(),
                           *configDocument};
  services.userenvBound = tw::g_offreg.IsUserenvBound();
  services.offregComplete = tw::g_offreg.IsOffregComplete();
  return tw::RunTarnwick(args, services);
}

}  // namespace

#ifdef _WIN32
int wmain(int argc, wchar_t** argv) {
  return Run(std::vector<std::wstring>(argv, argv + argc));
}
#else
int main(int argc, char** argv) {
  std::vector<std::wstring> args;
  args.reserve(static_cast<std::size_t>(argc));
  for (int i = 0; i < argc; ++i) args.push_back(tw::Utf8ToWide(argv[i]));
  return Run(std::move(args));
}
#endif
