// Every argument is copied and lower-cased (_wcslwr_s: only A-Z change); the tests below are
// begins-with tests on that copy, so "/S:", "/T:" and "/TakeOwnership" are accepted and anything
// after a flag word is ignored ("/f-x" is "/f-", "/helpme" a help request). Values are applied
// only after every argument was read: first the configuration file (its mode wins over a mode
// option, deliberately), then the command line's own values over the file's.
//
// The usage text offers the version code as a bare word ("V2toV5"), but only the forms with a
// leading "/" are recognised: a bare "V2toV5" is reported as unknown unless a file of that name
// exists. This mismatch is deliberate and kept.
#include "run/command_line.h"

#include <string_view>

#include "base/format.h"
#include "base/wide_string.h"
#include "config/configuration_loader.h"
#include "log/log.h"
#include "migration/process_state.h"
#include "migration/run_mode.h"

namespace tw {

namespace {

// Values collected while the arguments are read.
struct Collected {
  std::wstring sourcePath;
  std::wstring targetPath;
  std::wstring configurationPath;
  bool filesOff = false;
  bool registryOff = false;
  bool takeOwnership = false;
  bool help = false;
};

// Reads one argument; false when it is unknown.
bool ReadArgument(const std::wstring& argument, Collected& collected,
                  CommandLineServices& services) {
  std::wstring lower = argument;
  LowerCaseCrt(lower);
  if (StartsWith(lower, L"/s:")) {
    collected.sourcePath = lower.substr(3);
  } else if (StartsWith(lower, L"/t:")) {
    collected.targetPath = lower.substr(3);
  } else if (StartsWith(lower, L"/p:")) {
    g_profilePath = lower.substr(3);  // not in the usage text, deliberately
  } else if (StartsWith(lower, L"/f-")) {
    collected.filesOff = true;
  } else if (StartsWith(lower, L"/r-")) {
    collected.registryOff = true;
  } else if (StartsWith(lower, L"/takeownership")) {
    collected.takeOwnership = true;
  } else if (StartsWith(lower, L"/help") || StartsWith(lower, L"-help") ||
             StartsWith(lower, L"/?") || StartsWith(lower, L"-?")) {
    collected.help = true;
  } else if (services.files.PathExists(lower)) {
    collected.configurationPath = lower;  // a later one replaces an earlier one
  } else {
    std::wstring upper = lower;
    UpperCaseCrt(upper);
    for (const NamedRunMode& named : kNamedRunModes) {
      if (StartsWith(upper, named.option)) {
        g_runMode = named.mode;  // a later mode option replaces an earlier one
        return true;
      }
    }
    return false;
  }
  return true;
}

}  // namespace

bool ParseCommandLine(std::span<const std::wstring> args, MigrationSettings& settings,
                      CommandLineServices& services) {
  Collected collected;
  for (const std::wstring& argument : args) {
    if (!ReadArgument(argument, collected, services)) {
      // Reported as typed, not case-converted; an unknown argument is no failure.
      Log(L"Unknown command line arg: %s", argument);
      services.console.Write(FormatMessageText(L"Unknown command line arg: %s\r\n", argument));
    }
  }

  if (!collected.configurationPath.empty()) {
    const HResult loaded =
        LoadConfiguration(settings, collected.configurationPath, services.configDocument);
    if (Failed(loaded)) {
      Log(L"Failed loading migration configuration file: %s (0x%08X)", collected.configurationPath,
          loaded);
    }
  }

  const RunMode configured{settings.sourceVersion, settings.targetVersion};
  if (IsNamedRunMode(configured)) g_runMode = configured;

  if (!collected.sourcePath.empty()) settings.sourcePath = collected.sourcePath;
  if (!collected.targetPath.empty()) settings.targetPath = collected.targetPath;
  if (collected.filesOff) settings.folderMask = kMaskOff;
  if (collected.registryOff) settings.registryMask = kMaskOff;
  if (collected.takeOwnership) settings.takeOwnership = true;
  if (collected.help) settings.showHelp = true;

  return !settings.sourcePath.empty() || settings.showHelp;
}

}  // namespace tw
