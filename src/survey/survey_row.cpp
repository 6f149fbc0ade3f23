#include "survey/survey_row.h"

#include <algorithm>

namespace tw::survey {

const TargetInfo* SurveyRow::TargetOf(Mode mode) const {
  const auto found = std::find_if(targets.begin(), targets.end(),
                                  [mode](const TargetInfo& target) { return target.mode == mode; });
  return found == targets.end() ? nullptr : &*found;
}

bool SurveyRow::WouldFail(Mode mode) const {
  if (TargetOf(mode) == nullptr) return true;
  return !Failures(mode).empty();
}

std::vector<std::wstring> SurveyRow::Failures(std::optional<Mode> only) const {
  std::vector<std::wstring> failures;
  if (kind == ProfileKind::kNone) return failures;
  if (only && SourceKindOf(*only) != kind) return failures;
  if (targets.empty() && wouldFail.empty()) return failures;
  failures = wouldFail;
  for (const TargetInfo& target : targets) {
    if (only && target.mode != *only) continue;
    if (target.state == TargetState::kFinished) {
      failures.push_back(std::wstring(ModeName(target.mode)) + L": the target exists, finished: " +
                         target.path);
    } else if (target.state == TargetState::kLocked) {
      failures.push_back(std::wstring(ModeName(target.mode)) +
                         L": the target is locked by a live run: " + target.path);
    }
  }
  return failures;
}

const wchar_t* KindName(ProfileKind kind) {
  switch (kind) {
    case ProfileKind::kV1:
      return L"V1";
    case ProfileKind::kV2:
      return L"V2";
    case ProfileKind::kV5:
      return L"V5";
    case ProfileKind::kV6:
      return L"V6";
    case ProfileKind::kNone:
      break;
  }
  return L"none";
}

const wchar_t* ModeName(Mode mode) {
  switch (mode) {
    case Mode::kV1ToV2:
      return L"v1tov2";
    case Mode::kV2ToV5:
      return L"v2tov5";
    case Mode::kV2ToV6:
      return L"v2tov6";
    case Mode::kV5ToV6:
      return L"v5tov6";
  }
  return L"v1tov2";
}

std::optional<Mode> ModeFromName(std::wstring_view name) {
  for (const Mode mode : kAllModes)
    if (name == ModeName(mode)) return mode;
  return std::nullopt;
}

ProfileKind SourceKindOf(Mode mode) {
  switch (mode) {
    case Mode::kV1ToV2:
      return ProfileKind::kV1;
    case Mode::kV2ToV5:
    case Mode::kV2ToV6:
      return ProfileKind::kV2;
    case Mode::kV5ToV6:
      return ProfileKind::kV5;
  }
  return ProfileKind::kV1;
}

std::uint32_t SourceVersionOf(Mode mode) {
  switch (SourceKindOf(mode)) {
    case ProfileKind::kV2:
      return 2;
    case ProfileKind::kV5:
      return 5;
    default:
      return 1;
  }
}

std::uint32_t TargetVersionOf(Mode mode) {
  switch (mode) {
    case Mode::kV1ToV2:
      return 2;
    case Mode::kV2ToV5:
      return 5;
    case Mode::kV2ToV6:
    case Mode::kV5ToV6:
      return 6;
  }
  return 2;
}

const wchar_t* HiveStateName(HiveState state) {
  switch (state) {
    case HiveState::kClean:
      return L"clean";
    case HiveState::kDirtyWithLogs:
      return L"dirty (usable logs)";
    case HiveState::kDirtyWithoutLogs:
      return L"dirty (no usable logs)";
    case HiveState::kCorrupt:
      return L"corrupt";
    case HiveState::kMissing:
      break;
  }
  return L"missing";
}

const wchar_t* TargetStateName(TargetState state) {
  switch (state) {
    case TargetState::kFinished:
      return L"finished";
    case TargetState::kInterrupted:
      return L"interrupted";
    case TargetState::kLocked:
      return L"locked";
    case TargetState::kNone:
      break;
  }
  return L"none";
}

}  // namespace tw::survey
