// What the survey finds about one folder of a share: its kind (a profile of which version, or
// not a profile and why), owner, size, the state of its hives, the target each migration mode
// would build and that target's state, and the items a migration would lose or refuse. The rows
// are plain data: the scan (survey_scan.h) fills them, the writers (survey_output.h) print them,
// and the batch picks the profiles of the kind its mode needs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw::survey {

// The kind of a folder: a profile of version 1, 2, 5 or 6, or no profile.
enum class ProfileKind { kV1, kV2, kV5, kV6, kNone };

// The migration modes of tarnwick (the versions it is run with).
enum class Mode { kV1ToV2, kV2ToV5, kV2ToV6, kV5ToV6 };
inline constexpr Mode kAllModes[] = {Mode::kV1ToV2, Mode::kV2ToV5, Mode::kV2ToV6, Mode::kV5ToV6};

// The state of a hive file, read from its base block (and its transaction logs' presence).
enum class HiveState {
  kClean,             // base block valid, sequence numbers equal
  kDirtyWithLogs,     // sequence numbers differ, a usable transaction log is beside it
  kDirtyWithoutLogs,  // sequence numbers differ, no usable log
  kCorrupt,           // base block unreadable or invalid (HiveInfo::reason says why)
  kMissing,           // no such file
};

struct HiveInfo {
  HiveState state = HiveState::kMissing;
  std::wstring reason;  // for kCorrupt (and, for kDirtyWithoutLogs, why a log was not usable)
};

// The state of a target folder that a mode would build.
enum class TargetState {
  kNone,         // does not exist: the mode would build it
  kFinished,     // exists without the marker: a finished profile, the run would refuse it
  kInterrupted,  // exists with the marker and no run holds its lock: the run would rebuild it
  kLocked,       // exists with the marker that a live run holds locked
};

struct TargetInfo {
  Mode mode = Mode::kV1ToV2;
  std::wstring path;  // the target's UNC path, as tarnwick would compute it
  TargetState state = TargetState::kNone;
};

// Something on the way that would make a mode's run fail for this profile, or lose items.
struct Problem {
  std::wstring what;  // short text, e.g. "path over 260 characters"
  std::wstring path;  // the item concerned (UNC path), may be empty
};

struct SurveyRow {
  std::wstring name;  // the folder's name
  std::wstring path;  // its UNC path
  ProfileKind kind = ProfileKind::kNone;
  std::wstring reason;  // why kind is kNone ("no ntuser.dat", "reparse point", ...)

  std::wstring ownerSid;   // "S-1-5-..." or empty when unreadable
  std::wstring ownerName;  // "DOMAIN\\user" where the server can name it, else empty
  std::uint64_t bytes = 0;
  std::uint64_t files = 0;

  HiveInfo hive;      // ntuser.dat
  HiveInfo usrClass;  // UsrClass.dat (under Local Settings\Application Data\Microsoft\Windows
                      // for V1, AppData\Local\Microsoft\Windows for the later layouts)

  // The targets of the modes whose source kind this folder has (none for kNone).
  std::vector<TargetInfo> targets;

  // A temporary profile of the same owner left behind by an earlier run (its local path), or
  // empty.
  std::wstring leftoverTemporaryProfile;
  // Special folders the user's hive redirects to UNC paths: "Name=\\\\server\\path".
  std::vector<std::wstring> redirectedFolders;

  // Items the migration would lose: paths over 260 characters, names that differ from another
  // only in case, items that cannot be read.
  std::vector<std::wstring> longPaths;
  std::vector<std::wstring> caseCollisions;
  std::vector<std::wstring> unreadable;

  // Causes for which tarnwick itself would refuse the profile ("would fail").
  std::vector<std::wstring> wouldFail;

  // The target of `mode`, or null when this folder is not a source of that mode.
  const TargetInfo* TargetOf(Mode mode) const;
  // True when a run of `mode` on this folder would fail (a refused name, a corrupt or missing
  // hive, a finished or locked target). A dirty hive without usable logs is migrated as it
  // stands (stale), which the row shows but does not count as a failure.
  bool WouldFail(Mode mode) const;
  // Why runs on this folder would fail: the refusals of wouldFail, then for each target of
  // `only` (every target when absent) that is finished or locked, a line naming it. Empty for a
  // folder that is no profile, and for a V6 profile (no mode migrates it).
  std::vector<std::wstring> Failures(std::optional<Mode> only) const;
};

// The whole survey.
struct SurveyResult {
  std::wstring sharePath;
  std::vector<SurveyRow> rows;
};

// "V1", "V2", "V5", "V6" or "none".
const wchar_t* KindName(ProfileKind kind);
// "v1tov2", "v2tov5", "v2tov6", "v5tov6" (the batch's --mode words).
const wchar_t* ModeName(Mode mode);
std::optional<Mode> ModeFromName(std::wstring_view name);
// The source kind a mode migrates, and the target version it builds.
ProfileKind SourceKindOf(Mode mode);
std::uint32_t SourceVersionOf(Mode mode);
std::uint32_t TargetVersionOf(Mode mode);
// "clean", "dirty (usable logs)", "dirty (no usable logs)", "corrupt", "missing".
const wchar_t* HiveStateName(HiveState state);
// "none", "finished", "interrupted", "locked".
const wchar_t* TargetStateName(TargetState state);

}  // namespace tw::survey
