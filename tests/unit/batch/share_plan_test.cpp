// The plan of --share from the survey's rows: sources, targets of the mode, states, sizes, owners.
#include "batch/share_plan.h"

#include <gtest/gtest.h>

namespace tw::batch {
namespace {

survey::SurveyRow Row(const std::wstring& name, survey::TargetState state) {
  survey::SurveyRow row;
  row.name = name;
  row.path = L"\\\\fs\\p\\" + name;
  row.kind = survey::ProfileKind::kV2;
  row.ownerSid = L"S-1-5-21-1-2-3-1001";
  row.bytes = 1234;
  row.files = 5;
  row.targets.push_back({survey::Mode::kV2ToV5, L"\\\\fs\\p\\anna.V5", survey::TargetState::kNone});
  row.targets.push_back({survey::Mode::kV2ToV6, L"\\\\fs\\p\\anna.V6", state});
  return row;
}

TEST(SharePlanTest, TakesTheModesTargetAndItsState) {
  const PlannedProfile profile =
      FromSurveyRow(Row(L"anna.V2", survey::TargetState::kInterrupted), BatchMode::kV2ToV6);
  EXPECT_EQ(profile.source, "\\\\fs\\p\\anna.V2");
  EXPECT_EQ(profile.target, "\\\\fs\\p\\anna.V6");
  EXPECT_EQ(profile.targetState, TargetState::kInterrupted);
  EXPECT_EQ(profile.bytes, 1234u);
  EXPECT_EQ(profile.files, 5u);
  EXPECT_EQ(profile.owner, "S-1-5-21-1-2-3-1001");
}

TEST(SharePlanTest, FinishedAndLockedTargetsGetNoRun) {
  EXPECT_EQ(
      FromSurveyRow(Row(L"a.V2", survey::TargetState::kFinished), BatchMode::kV2ToV6).targetState,
      TargetState::kFinished);
  const PlannedProfile locked =
      FromSurveyRow(Row(L"a.V2", survey::TargetState::kLocked), BatchMode::kV2ToV6);
  EXPECT_EQ(locked.targetState, TargetState::kLocked);
  EXPECT_FALSE(IsRunnable(locked));
}

}  // namespace
}  // namespace tw::batch
