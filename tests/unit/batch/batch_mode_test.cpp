// Targets and command lines of the runs, as an administrator would type them.
#include "batch/batch_mode.h"

#include <gtest/gtest.h>

namespace tw::batch {
namespace {

using Args = std::vector<std::string>;

TEST(BatchModeTest, TargetLiesBesideTheSourceOrInTheTargetRoot) {
  EXPECT_EQ(TargetPathFor("\\\\fs\\profiles\\anna", BatchMode::kV1ToV2, ""),
            "\\\\fs\\profiles\\anna.V2");
  EXPECT_EQ(TargetPathFor("\\\\fs\\profiles\\anna.V2", BatchMode::kV2ToV6, "\\\\fs\\targets"),
            "\\\\fs\\targets\\anna.V6");
  EXPECT_EQ(TargetPathFor("\\\\fs\\profiles\\anna.v5", BatchMode::kV5ToV6, "\\\\fs\\t\\"),
            "\\\\fs\\t\\anna.V6");
  EXPECT_EQ(TargetPathFor("\\\\fs\\profiles\\anna.V2\\", BatchMode::kV2ToV5, ""),
            "\\\\fs\\profiles\\anna.V5");
}

TEST(BatchModeTest, ArgumentsAreTheToolsOwnOptions) {
  EXPECT_EQ(TarnwickArguments("\\\\fs\\p\\anna", BatchMode::kV1ToV2, ""),
            Args{"/s:\\\\fs\\p\\anna"});
  EXPECT_EQ(TarnwickArguments("\\\\fs\\p\\anna.V2", BatchMode::kV2ToV6, "\\\\fs\\t"),
            (Args{"/s:\\\\fs\\p\\anna.V2", "/t:\\\\fs\\t", "/V2TOV6"}));
  EXPECT_EQ(TarnwickArguments("x", BatchMode::kV2ToV5, "")[1], "/V2TOV5");
  EXPECT_EQ(TarnwickArguments("x", BatchMode::kV5ToV6, "")[1], "/V5TOV6");
  EXPECT_EQ(ModeWord(BatchMode::kV2ToV6), "v2tov6");
}

TEST(BatchModeTest, CommandTextQuotesArgumentsWithBlanks) {
  EXPECT_EQ(CommandText("/opt/tw/tarnwick", {"/s:\\\\fs\\p\\Anna Lee", "/V2TOV6"}),
            "/opt/tw/tarnwick \"/s:\\\\fs\\p\\Anna Lee\" /V2TOV6");
}

}  // namespace
}  // namespace tw::batch
