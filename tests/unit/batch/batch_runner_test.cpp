// The runner over a scripted launcher: at most N runs at once, every run's own log entries by
// its thread id, no runs for skipped profiles, and no new runs once a stop is asked.
#include "batch/batch_runner.h"

#include <gtest/gtest.h>

#include <atomic>

#include "fakes/fake_child_process.h"
#include "fakes/temp_folder.h"

namespace tw::batch {
namespace {

using testing::FakeChildLauncher;
using testing::ScriptedRun;

class NullObserver : public RunObserver {
 public:
  void Started(std::size_t) override { ++started; }
  void Finished(std::size_t, const ProfileRun&) override { ++finished; }
  void Tick() override {}
  int started = 0;
  int finished = 0;
};

std::vector<PlannedProfile> Plan(int count) {
  std::vector<PlannedProfile> plan;
  for (int i = 0; i < count; ++i) {
    PlannedProfile profile;
    profile.source = "\\\\fs\\p\\user" + std::to_string(i);
    profile.target = profile.source + ".V2";
    profile.owner = "S-1-5-21-1-2-3-" + std::to_string(1000 + i);
    plan.push_back(profile);
  }
  return plan;
}

// The child for "/s:<source>" logs "<source> one" and "<source> two", prints "<source>" and
// fails when the source ends in "3".
ScriptedRun Script(const std::vector<std::string>& arguments) {
  const std::string source = arguments.at(0).substr(3);
  ScriptedRun run;
  run.console = source + "\r\n";
  run.logMessages = {source + " one", "Failed migrating file (0x5): " + source + "\\f",
                     source + " two"};
  run.exitValue = source.back() == '3' ? 255 : 0;
  run.milliseconds = 15;
  return run;
}

class BatchRunnerTest : public ::testing::Test {
 protected:
  testing::TempFolder temp;
  std::filesystem::path log = temp.path() / "tarnwick.log";
};

TEST_F(BatchRunnerTest, RunsAtMostJobsAtOnceAndGivesEachRunItsOwnLogEntries) {
  FakeChildLauncher launcher(log, Script);
  LogFollower follower(log, temp.path() / "old.log");
  BatchRunner runner(launcher, follower, {"tarnwick", BatchMode::kV1ToV2, "", 3});
  NullObserver observer;
  const std::vector<PlannedProfile> plan = Plan(12);
  const std::vector<ProfileRun> runs = runner.Run(plan, observer, [] { return false; });
  ASSERT_EQ(runs.size(), 12u);
  EXPECT_LE(launcher.MostAtOnce(), 3);
  EXPECT_GE(launcher.MostAtOnce(), 2);
  EXPECT_EQ(observer.finished, 12);
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const std::string& source = plan[i].source;
    EXPECT_EQ(runs[i].command, std::vector<std::string>{"/s:" + source});
    EXPECT_EQ(runs[i].console, source + "\r\n");
    EXPECT_EQ(runs[i].log, (std::vector<std::string>{
                               source + " one", "Failed migrating file (0x5): " + source + "\\f",
                               source + " two"}));
    EXPECT_EQ(runs[i].items.files, 1);
    EXPECT_EQ(runs[i].outcome, i == 3 ? Outcome::kFailed : Outcome::kMigrated) << i;
  }
}

TEST_F(BatchRunnerTest, ProfilesOfOneOwnerNeverRunAtOnce) {
  FakeChildLauncher launcher(log, Script);
  LogFollower follower(log, temp.path() / "old.log");
  BatchRunner runner(launcher, follower, {"tarnwick", BatchMode::kV1ToV2, "", 4});
  NullObserver observer;
  std::vector<PlannedProfile> plan = Plan(5);
  for (PlannedProfile& profile : plan) profile.owner = "S-1-5-21-1-2-3-1001";
  runner.Run(plan, observer, [] { return false; });
  EXPECT_EQ(launcher.MostAtOnce(), 1);
  EXPECT_EQ(launcher.Commands().size(), 5u);
}

TEST_F(BatchRunnerTest, ProfilesWithoutARunAreNotStartedAndAFailedStartIsAFailure) {
  FakeChildLauncher launcher(log, Script);
  launcher.failToStart = "\\\\fs\\p\\user2";
  LogFollower follower(log, temp.path() / "old.log");
  BatchRunner runner(launcher, follower, {"tarnwick", BatchMode::kV2ToV6, "\\\\fs\\t", 2});
  NullObserver observer;
  std::vector<PlannedProfile> plan = Plan(3);
  plan[1].targetState = TargetState::kFinished;
  const std::vector<ProfileRun> runs = runner.Run(plan, observer, [] { return false; });
  EXPECT_EQ(launcher.Commands().size(), 2u);
  EXPECT_EQ(launcher.Commands()[0],
            (std::vector<std::string>{"/s:\\\\fs\\p\\user0", "/t:\\\\fs\\t", "/V2TOV6"}));
  EXPECT_EQ(runs[1].outcome, Outcome::kSkippedFinished);
  EXPECT_EQ(runs[2].outcome, Outcome::kFailed);
  EXPECT_EQ(runs[2].cause, "cannot start (scripted)");
}

TEST_F(BatchRunnerTest, AStopStartsNoNewRunsAndLetsRunningOnesFinish) {
  FakeChildLauncher launcher(log, Script);
  LogFollower follower(log, temp.path() / "old.log");
  BatchRunner runner(launcher, follower, {"tarnwick", BatchMode::kV1ToV2, "", 2});
  NullObserver observer;
  // The stop comes once two runs were started.
  const std::vector<ProfileRun> runs =
      runner.Run(Plan(6), observer, [&] { return launcher.Commands().size() >= 2; });
  EXPECT_EQ(launcher.Commands().size(), 2u);
  EXPECT_EQ(runs[0].outcome, Outcome::kMigrated);
  EXPECT_EQ(runs[1].outcome, Outcome::kMigrated);
  for (std::size_t i = 2; i < runs.size(); ++i) {
    EXPECT_EQ(runs[i].outcome, Outcome::kNotStarted);
    EXPECT_EQ(runs[i].cause, "interrupted before its run started");
  }
  EXPECT_EQ(observer.finished, 6);
}

}  // namespace
}  // namespace tw::batch
