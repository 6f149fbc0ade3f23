#include "run/profile_loop.h"

#include <string>

#include "base/format.h"
#include "base/result_conversions.h"
#include "log/log.h"
#include "migration/process_state.h"
#include "migration/run_mode.h"
#include "run/report.h"

namespace tw {
namespace {

// The bare Win32 value the result is compared with. MigrateProfile reports an existing, finished
// target as the HRESULT 0x800700B7, which therefore falls into the last row as a failure: this
// asymmetry is the required behaviour; the row stays for any path that returns the bare value.
constexpr err::Win32Error kBareAlreadyExists = err::kAlreadyExists;

// Reports one profile's result and updates the outcome.
void TakeResult(HResult code, const std::wstring& sourcePath, const std::wstring& targetPath,
                Console& console, ProfileLoopOutcome& outcome) {
  if (code == hr::kOk) {
    ++outcome.migrated;
  } else if (ResultIsBareWin32Code(code, kBareAlreadyExists)) {
    Report(console, L"Target profile already exists: %s", targetPath);
  } else if (code == hr::kSourceProfileInvalid) {
    Report(console, L"Source profile is either not valid or cannot be accessed: %s", sourcePath);
    outcome.returnValue = -1;
  } else if (code == hr::kTargetProfileInvalid) {
    Report(console, L"Target profile is either not valid or cannot be accessed: %s", targetPath);
    outcome.returnValue = -1;
  } else {
    Report(console, L"Failed migrating profile (0x%08X): %s", code, sourcePath);
    outcome.returnValue = -1;
  }
}

}  // namespace

bool IsSuffixLoop() { return IsSuffixLoopMode(g_runMode); }

ProfileLoopOutcome RunProfileLoop(CSourceProfileEnum& profiles, MigrationContext& context,
                                  const MigrateProfileFunction& migrateProfile, Console& console) {
  ProfileLoopOutcome outcome;
  const bool suffixLoop = IsSuffixLoop();
  const wchar_t* suffix = suffixLoop ? SourceSuffixOf(g_runMode) : nullptr;
  std::wstring sourcePath;
  for (bool found = profiles.FindFirstProfile(sourcePath, suffix); found;
       found = profiles.FindNextProfile(sourcePath)) {
    std::wstring targetPath;
    HResult code = hr::kOk;
    if (suffixLoop) {
      Log(L"Migrating profile: %s", sourcePath);
      console.Write(FormatMessageText(L"Migrating profile: %s...\r\n", sourcePath));
      code =
          migrateProfile(context, sourcePath, static_cast<std::uint32_t>(g_runMode.sourceVersion),
                         targetPath, static_cast<std::uint32_t>(g_runMode.targetVersion));
    } else {
      code = migrateProfile(context, sourcePath, 1, targetPath, 2);
    }
    TakeResult(code, sourcePath, targetPath, console, outcome);
  }
  return outcome;
}

}  // namespace tw
