#include "batch/share_plan.h"

#include "base/text_encoding.h"

namespace tw::batch {
namespace {

TargetState FromSurveyState(survey::TargetState state) {
  switch (state) {
    case survey::TargetState::kNone:
      return TargetState::kNone;
    case survey::TargetState::kFinished:
      return TargetState::kFinished;
    case survey::TargetState::kInterrupted:
      return TargetState::kInterrupted;
    case survey::TargetState::kLocked:
      break;
  }
  return TargetState::kLocked;
}

}  // namespace

PlannedProfile FromSurveyRow(const survey::SurveyRow& row, BatchMode mode) {
  PlannedProfile profile;
  profile.source = WideToUtf8(row.path);
  profile.bytes = row.bytes;
  profile.files = row.files;
  profile.owner = WideToUtf8(row.ownerSid);
  if (const survey::TargetInfo* target = row.TargetOf(mode); target != nullptr) {
    profile.target = WideToUtf8(target->path);
    profile.targetState = FromSurveyState(target->state);
  }
  return profile;
}

[[nodiscard]] err::Win32Error PlanShare(const survey::SurveyServices& services,
                                        const std::string& share, BatchMode mode,
                                        std::vector<PlannedProfile>& plan) {
  survey::SurveyResult result;
  const err::Win32Error error = survey::SurveyShare(services, Utf8ToWide(share), result);
  if (error != err::kSuccess) return error;
  plan.clear();
  for (const survey::SurveyRow* row : survey::SourcesOf(result, mode)) {
    plan.push_back(FromSurveyRow(*row, mode));
  }
  MarkDuplicateTargets(plan);
  return err::kSuccess;
}

void AddSourceFacts(const survey::SurveyServices& services, std::vector<PlannedProfile>& plan) {
  for (PlannedProfile& profile : plan) {
    const survey::SurveyRow row = survey::SurveyFolder(services, Utf8ToWide(profile.source));
    profile.bytes = row.bytes;
    profile.files = row.files;
    profile.owner = WideToUtf8(row.ownerSid);
  }
}

}  // namespace tw::batch
