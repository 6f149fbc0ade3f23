#include "run/run_flow.h"

#include <string_view>

#include "base/format.h"
#include "base/wide_string.h"
#include "config/migration_settings.h"
#include "profile/profile_migration.h"
#include "run/command_line.h"
#include "run/profile_loop.h"
#include "run/report.h"
#include "run/source_profile_enum.h"
#include "run/usage_text.h"
#include "security/current_user_sid.h"
#include "security/migration_privileges.h"

namespace tw {
namespace {

constexpr int kExitFailure = -1;

// CoUninitialize, after the configuration document is released: the MSXML objects belong to
// COM and must not outlive it.
void EndCom(RunServices& services) {
  services.configDocument.Close();
  services.com.Uninitialize();
}

bool IsVersionMode(std::int32_t source, std::int32_t target) {
  return (source == 2 && target == 5) || (source == 2 && target == 6) ||
         (source == 5 && target == 6);
}

// Reports the refusal of a source path that names a profile version in the V1 to V2 mode and in
// the 6/6 selection. Returns false after reporting it.
bool AcceptSourceForV1Mode(const std::wstring& sourcePath, Console& console) {
  const VersionSuffixAdvice* refused = RefusedSourceSuffixForV1Mode(sourcePath);
  if (refused == nullptr) return true;
  Report(console,
         L"Source profile is %s. %s option must be specified for V2 to V5 or V2 to V6 "
         L"or V5 to V6\r\n---------- Exiting tarnwick.exe (return -1) ----------",
         refused->suffix, refused->advice);
  return false;
}

// The mode and binding checks. Returns false after reporting why the run cannot go on.
bool CheckModeAndBinding(const MigrationSettings& settings, const RunServices& services) {
  Console& console = services.console;
  const bool userenvBound = services.offreg.IsUserenvBound();
  const bool offregComplete = services.offreg.IsOffregComplete();
  if (IsVersionMode(g_sourceVersion, g_targetVersion)) {
    if (!userenvBound) {
      // This wording is deliberate: the userenv functions choose it, not offreg.
      Report(console,
             L"Windows offline registry APIs are not available\r\n---------- Exiting tarnwick.exe "
             L"(return -1) ----------");
      return false;
    }
  } else if (!AcceptSourceForV1Mode(settings.sourcePath, console)) {
    return false;
  }
  if (!userenvBound) {
    Report(console,
           L"Windows 7 APIs are not available\r\n---------- Exiting tarnwick.exe (return -1) "
           L"----------");
    return false;
  }
  if (!offregComplete) {
    Report(console,
           L"Offline registry APIs are not available\r\n---------- Exiting tarnwick.exe (return "
           L"-1) ----------");
    return false;
  }
  return true;
}

}  // namespace

const VersionSuffixAdvice* RefusedSourceSuffixForV1Mode(std::wstring_view sourcePath) {
  static constexpr VersionSuffixAdvice kSuffixes[] = {
      {L"V2", L"/V2toV5 or /V2toV6"}, {L"V5", L"/V5toV6"}, {L"V6", L"/V6toV6"}};
  const std::wstring_view tail =
      sourcePath.substr(sourcePath.size() < 2 ? 0 : sourcePath.size() - 2);
  for (const VersionSuffixAdvice& s : kSuffixes) {
    if (CompareNoCaseCrt(tail, s.suffix) == 0) return &s;
  }
  return nullptr;
}

int RunTarnwick(std::span<const std::wstring> args, RunServices& services) {
  Console& console = services.console;
  Report(console, L"---------- Starting tarnwick.exe ----------");
  if (args.size() < 2) {
    Report(console,
           L"No command line args, exiting.\r\n---------- Exiting tarnwick.exe (return -1) "
           L"----------");
    return kExitFailure;  // COM was not initialised yet
  }

  services.com.Initialize();
  MigrationSettings settings;
  InitSettings(settings);
  CommandLineServices parseServices{console, services.files, services.configDocument};
  if (!ParseCommandLine(args.subspan(1), settings, parseServices)) {
    Report(console,
           L"Failed parsing command line args, exiting\r\n---------- Exiting tarnwick.exe "
           L"(return -1) ----------");
    EndCom(services);
    return kExitFailure;
  }

  if (settings.showHelp) {
    console.Write(kUsageText);  // console only; no exit banner, COM stays initialised
    return 0;
  }

  if (!CheckModeAndBinding(settings, services)) {
    EndCom(services);
    return kExitFailure;
  }

  PrivilegeToken token;
  const PrivilegeResult privileges =
      EnableMigrationPrivileges(services.security, settings.takeOwnership, token);
  if (Failed(privileges.code)) {
    Report(console, L"%s", privileges.message);  // no exit banner of its own
    EndCom(services);
    return kExitFailure;
  }

  // The migration context records the running user once per process.
  LoadCurrentUserSid(services.security);
  MigrationContext context{&settings, services.files, services.security, services.offreg,
                           services.network};
  CSourceProfileEnum profiles(services.files, settings.sourcePath);
  const MigrateProfileFunction migrate =
      services.migrateProfile ? services.migrateProfile : MigrateProfileFunction(MigrateProfile);
  const ProfileLoopOutcome outcome = RunProfileLoop(profiles, context, migrate, console);

  token.Close();
  EndCom(services);
  Report(console, L"---------- Exiting tarnwick.exe (return %d) ----------", outcome.returnValue);
  // The summary names the source path as given, wildcard included. The loop without a suffix
  // uses formats that carry their own "\r\n", so its log entry ends in a line break and the
  // console shows an empty line after it; the difference between the loops is deliberate.
  if (IsSuffixLoop()) {
    if (outcome.migrated < 1) {
      Report(console, L"The source does not contain any profiles to migrate: %s",
             settings.sourcePath);
    } else {
      Report(console, L"%d profiles were migrated from %s.", outcome.migrated, settings.sourcePath);
    }
  } else if (outcome.migrated < 1) {
    Report(console, L"The source does not contain any profiles to migrate: %s\r\n",
           settings.sourcePath);
  } else {
    Report(console, L"%d profiles were migrated from %s.\r\n", outcome.migrated,
           settings.sourcePath);
  }
  return outcome.returnValue;
}

}  // namespace tw
