// The plan: target states as the tool will judge them, and no two runs on one target.
#include "batch/batch_plan.h"

#include <gtest/gtest.h>

#include <set>

namespace tw::batch {
namespace {

TEST(BatchPlanTest, ProbesTargetsAndMarksDuplicateTargets) {
  const std::set<std::string> existing = {"\\\\fs\\p\\done.V2", "\\\\fs\\p\\half.V2",
                                          "\\\\fs\\p\\half.V2\\_qzk_mig_marker_"};
  const PathProbe exists = [&](const std::string& path) { return existing.count(path) > 0; };
  const std::vector<PlannedProfile> plan = PlanProfiles(
      {"\\\\fs\\p\\new", "\\\\fs\\p\\done", "\\\\fs\\p\\half", "\\\\fs\\p\\NEW", "\\\\fs\\q\\new"},
      BatchMode::kV1ToV2, "", exists);
  ASSERT_EQ(plan.size(), 5u);
  EXPECT_EQ(plan[0].targetState, TargetState::kNone);
  EXPECT_EQ(plan[1].targetState, TargetState::kFinished);
  EXPECT_EQ(plan[2].targetState, TargetState::kInterrupted);
  EXPECT_EQ(plan[3].targetState, TargetState::kDuplicate);
  EXPECT_EQ(plan[3].duplicateOf, "\\\\fs\\p\\new");
  EXPECT_EQ(plan[4].targetState, TargetState::kNone);
  EXPECT_TRUE(IsRunnable(plan[0]));
  EXPECT_FALSE(IsRunnable(plan[1]));
  EXPECT_TRUE(IsRunnable(plan[2]));
  EXPECT_FALSE(IsRunnable(plan[3]));
}

TEST(BatchPlanTest, OneTargetRootGathersSameNamesOfTwoShares) {
  const std::vector<PlannedProfile> plan =
      PlanProfiles({"\\\\a\\p\\anna", "\\\\b\\p\\anna"}, BatchMode::kV1ToV2, "\\\\fs\\t",
                   [](const std::string&) { return false; });
  EXPECT_EQ(plan[1].targetState, TargetState::kDuplicate);
}

}  // namespace
}  // namespace tw::batch
