// How a run's exit value, console and log give its outcome and cause.
#include "batch/profile_run.h"

#include <gtest/gtest.h>

namespace tw::batch {
namespace {

TEST(ProfileRunTest, ExitZeroIsMigratedWithItsItemFailuresCounted) {
  ProfileRun run;
  run.exitValue = 0;
  run.log = {"Migrating profile: x", "Failed migrating file (0x80070005): \\\\fs\\p\\x\\f"};
  Judge(run);
  EXPECT_EQ(run.outcome, Outcome::kMigrated);
  EXPECT_EQ(run.items.files, 1);
  EXPECT_EQ(run.cause, "");
}

TEST(ProfileRunTest, TheCauseIsTheProfilesFailureLineAndTheDetailTheLogsFirstFailure) {
  ProfileRun run;
  run.exitValue = 255;
  run.console =
      "---------- Starting tarnwick.exe ----------\r\n"
      "Failed migrating profile (0x80070005): \\\\fs\\p\\bob\r\n"
      "---------- Exiting tarnwick.exe (return -1) ----------\r\n"
      "The source does not contain any profiles to migrate: \\\\fs\\p\\bob\r\n\r\n";
  run.log = {"Failed migrating file (0x80070005): \\\\fs\\p\\bob\\f",
             "Failed to open registry hive (0x80070005): \\\\fs\\p\\bob\\ntuser.dat",
             "Failed migrating profile (0x80070005): \\\\fs\\p\\bob"};
  Judge(run);
  EXPECT_EQ(run.outcome, Outcome::kFailed);
  EXPECT_EQ(run.cause, "The source does not contain any profiles to migrate: \\\\fs\\p\\bob");
  EXPECT_EQ(run.detail, "Failed to open registry hive (0x80070005): \\\\fs\\p\\bob\\ntuser.dat");
}

TEST(ProfileRunTest, ARunThatFoundNoProfileFailsAlthoughItReturnedZero) {
  ProfileRun run;
  run.exitValue = 0;
  run.console =
      "---------- Starting tarnwick.exe ----------\r\n"
      "---------- Exiting tarnwick.exe (return 0) ----------\r\n"
      "The source does not contain any profiles to migrate: \\\\fs\\p\\nobody\r\n\r\n";
  Judge(run);
  EXPECT_EQ(run.outcome, Outcome::kFailed);
  EXPECT_EQ(run.cause, "The source does not contain any profiles to migrate: \\\\fs\\p\\nobody");
}

TEST(ProfileRunTest, ARunThatCouldNotStartFailsWithThatReason) {
  ProfileRun run;
  run.startError = "cannot start /x/tarnwick: No such file or directory";
  Judge(run);
  EXPECT_EQ(run.outcome, Outcome::kFailed);
  EXPECT_EQ(run.cause, run.startError);
}

TEST(ProfileRunTest, ProfilesWithoutARunSayWhy) {
  PlannedProfile finished{"\\\\fs\\p\\a", "\\\\fs\\p\\a.V2", TargetState::kFinished, "", 0, 0, ""};
  EXPECT_EQ(UnrunProfile(finished, false).outcome, Outcome::kSkippedFinished);
  PlannedProfile locked = finished;
  locked.targetState = TargetState::kLocked;
  EXPECT_EQ(UnrunProfile(locked, false).outcome, Outcome::kFailed);
  PlannedProfile waiting = finished;
  waiting.targetState = TargetState::kNone;
  EXPECT_EQ(UnrunProfile(waiting, true).outcome, Outcome::kNotStarted);
  EXPECT_EQ(UnrunProfile(waiting, true).cause, "interrupted before its run started");
}

}  // namespace
}  // namespace tw::batch
