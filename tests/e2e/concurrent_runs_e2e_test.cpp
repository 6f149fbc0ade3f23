// Runs of the built binary at the same time: one run per target (a run that finds a target
// another live run builds fails that profile with ERROR_SHARING_VIOLATION and changes nothing of
// it), two runs for profiles of one owner (the second CreateProfile fails with
// ERROR_ALREADY_EXISTS while the first run's temporary profile exists, and harms nothing of the
// first), and a killed run's lock and temporary profile, which block nothing afterwards. Every
// case checks that the source profiles did not change and that no temporary-profile registration
// is left behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/tree_state.h"

extern char** environ;

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::CaptureTreeState;
using testing::DescribeTreeChanges;
using testing::E2eShare;
using testing::TreeState;

constexpr char kMarker[] = "_qzk_mig_marker_";
constexpr int kExitFailed = 255;

// A finished target as content: every entry of the tree, a file with its bytes (a hive as
// exported, since its bytes hold save times).
std::map<std::string, std::string> TargetContent(const fs::path& target) {
  std::map<std::string, std::string> content;
  for (const std::string& relative : testing::Tree(target)) {
    const fs::path path = target / relative;
    if (fs::is_directory(fs::symlink_status(path))) {
      content[relative] = "folder";
      continue;
    }
    const std::string name = path.filename().string();
    content[relative] = name == "ntuser.dat" || name == "UsrClass.dat"
                            ? E2eShare::ExportHive(path)
                            : testing::ReadWholeFile(path);
  }
  return content;
}

class ConcurrentRunsE2eTest : public ::testing::Test {
 protected:
  // Starts the copied binary on `source` with the suite's settings, its console going to
  // `output`; returns its process id.
  pid_t Start(const std::string& source, const fs::path& output) const {
    const std::string exe = (share_.root() / "bin" / "tarnwick").string();
    const std::string argument = "/s:" + source;
    std::vector<std::string> variables = {
        "TARNWICK_SHARES=" + (share_.root() / "shares.conf").string(),
        "TARNWICK_PROFILE_ROOT=" + share_.localProfiles().string(),
        "TARNWICK_DEFAULT_PROFILE=" + testing::SuiteTools().defaultProfile};
    for (char** variable = environ; *variable != nullptr; ++variable) {
      if (std::strncmp(*variable, "TARNWICK_", 9) != 0) variables.emplace_back(*variable);
    }
    std::vector<char*> envp;
    for (std::string& variable : variables) envp.push_back(variable.data());
    envp.push_back(nullptr);
    std::vector<char*> argv = {const_cast<char*>(exe.c_str()), const_cast<char*>(argument.c_str()),
                               nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(spawned, 0);
    return spawned == 0 ? pid : -1;
  }

  // The exit status of pid, -1 when it did not exit by itself.
  static int Wait(pid_t pid) {
    int status = 0;
    if (pid <= 0 || waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  fs::path Output(const std::string& name) const { return share_.root() / (name + ".out"); }

  // No temporary profile of any run is registered or left in the profile root.
  void ExpectNoTemporaryProfileLeft() const {
    const fs::path root = share_.localProfiles();
    if (!fs::exists(root)) return;
    EXPECT_EQ(testing::Tree(root), std::vector<std::string>{"[ProfileList]/"});
  }

  // Waits until `path` exists while `pid` runs; false when the run ended first.
  static bool WaitForFile(const fs::path& path, pid_t pid) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
      if (fs::exists(path)) return true;
      int status = 0;
      if (waitpid(pid, &status, WNOHANG) == pid) return false;
      std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    return false;
  }

  E2eShare share_{testing::SuiteTools()};
};

// Two runs started at once on one profile, 20 rounds: the target is built once and equals a
// single run's; exactly one run reports it migrated; the other fails with 0x80070020 (the first
// run held the target) or, when it came after the first had finished, with 0x800700B7 (a
// finished target); no temporary profile is left; the source does not change.
TEST_F(ConcurrentRunsE2eTest, TwoRunsAtOnceOnOneProfileBuildItOnce) {
  const fs::path source = share_.AddV1Profile("alice");
  const fs::path target = share_.share() / "alice.V2";
  const std::string sourceUnc = std::string(E2eShare::kShare) + "\\alice";
  const TreeState sourceBefore = CaptureTreeState(source);
  ASSERT_EQ(share_.Run({"/s:" + sourceUnc}).exitStatus, 0);
  const std::map<std::string, std::string> expected = TargetContent(target);

  int locked = 0;
  int finished = 0;
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    fs::remove_all(target);
    const pid_t first = Start(sourceUnc, Output("first"));
    const pid_t second = Start(sourceUnc, Output("second"));
    const int firstStatus = Wait(first);
    const int secondStatus = Wait(second);
    ASSERT_TRUE((firstStatus == 0) != (secondStatus == 0))
        << "exit statuses " << firstStatus << " and " << secondStatus;
    const std::string loser = testing::ReadWholeFile(Output(firstStatus == 0 ? "second" : "first"));
    EXPECT_EQ(firstStatus == 0 ? secondStatus : firstStatus, kExitFailed);
    const std::string winner =
        testing::ReadWholeFile(Output(firstStatus == 0 ? "first" : "second"));
    EXPECT_NE(winner.find("1 profiles were migrated from " + sourceUnc), std::string::npos)
        << winner;
    if (loser.find("Failed migrating profile (0x80070020): " + sourceUnc + "\r\n") !=
        std::string::npos) {
      ++locked;
    } else if (loser.find("Failed migrating profile (0x800700B7): " + sourceUnc + "\r\n") !=
               std::string::npos) {
      ++finished;
    } else {
      ADD_FAILURE() << "the second run: " << loser;
    }
    EXPECT_FALSE(fs::exists(target / kMarker));
    EXPECT_TRUE(TargetContent(target) == expected) << "the target differs from a single run's";
    ExpectNoTemporaryProfileLeft();
    EXPECT_EQ(DescribeTreeChanges(sourceBefore, CaptureTreeState(source)), "");
  }
  EXPECT_EQ(locked + finished, 20);
  std::cout << "[          ] of 20 rounds, the other run found the target locked (0x80070020) "
            << locked << " times, finished (0x800700B7) " << finished << " times\n";
  RecordProperty("locked", locked);
  RecordProperty("finished", finished);
}

// A run that finds its target held by a live run (stopped, so that it is surely alive while the
// other runs) fails with 0x80070020 and leaves it alone; the first run then finishes the target
// as if it had been alone.
TEST_F(ConcurrentRunsE2eTest, ARunNeverTouchesTheTargetOfALiveRun) {
  const fs::path source = share_.AddV1Profile("alice");
  const fs::path target = share_.share() / "alice.V2";
  const std::string sourceUnc = std::string(E2eShare::kShare) + "\\alice";
  ASSERT_EQ(share_.Run({"/s:" + sourceUnc}).exitStatus, 0);
  const std::map<std::string, std::string> expected = TargetContent(target);
  fs::remove_all(target);
  const TreeState sourceBefore = CaptureTreeState(source);

  pid_t first = -1;
  bool caught = false;
  for (int attempt = 0; attempt < 20 && !caught; ++attempt) {
    first = Start(sourceUnc, Output("first"));
    caught = WaitForFile(target / kMarker, first) && kill(first, SIGSTOP) == 0;
    if (!caught) {
      Wait(first);
      fs::remove_all(target);
      ExpectNoTemporaryProfileLeft();
    }
  }
  ASSERT_TRUE(caught) << "the marker was never seen while the first run ran";
  const TreeState heldTarget = CaptureTreeState(target);

  const testing::ProcessResult second = share_.Run({"/s:" + sourceUnc});
  EXPECT_EQ(second.exitStatus, kExitFailed);
  EXPECT_NE(second.output.find("Failed migrating profile (0x80070020): " + sourceUnc + "\r\n"),
            std::string::npos)
      << second.output;
  EXPECT_EQ(DescribeTreeChanges(heldTarget, CaptureTreeState(target)), "");

  kill(first, SIGCONT);
  EXPECT_EQ(Wait(first), 0) << testing::ReadWholeFile(Output("first"));
  EXPECT_FALSE(fs::exists(target / kMarker));
  EXPECT_TRUE(TargetContent(target) == expected);
  ExpectNoTemporaryProfileLeft();
  EXPECT_EQ(DescribeTreeChanges(sourceBefore, CaptureTreeState(source)), "");
}

// A run killed (SIGKILL) while it builds its target holds nothing afterwards: the next run
// finds the marker's lock free, rebuilds the target, and takes back the temporary profile the
// killed run left registered.
TEST_F(ConcurrentRunsE2eTest, AKilledRunsLockAndTemporaryProfileBlockNothing) {
  const fs::path source = share_.AddV1Profile("alice");
  const fs::path target = share_.share() / "alice.V2";
  const std::string sourceUnc = std::string(E2eShare::kShare) + "\\alice";
  ASSERT_EQ(share_.Run({"/s:" + sourceUnc}).exitStatus, 0);
  const std::map<std::string, std::string> expected = TargetContent(target);
  fs::remove_all(target);
  const TreeState sourceBefore = CaptureTreeState(source);

  bool caught = false;
  for (int attempt = 0; attempt < 20 && !caught; ++attempt) {
    const pid_t first = Start(sourceUnc, Output("first"));
    // Stopped once its temporary profile is registered and its target marked, then killed.
    caught = WaitForFile(share_.localProfiles() / "_tarnwick_" / "ntuser.dat", first) &&
             kill(first, SIGSTOP) == 0 && fs::exists(target / kMarker);
    kill(first, SIGKILL);
    Wait(first);
    if (!caught) fs::remove_all(target);
  }
  ASSERT_TRUE(caught) << "the run was never caught with its temporary profile and marker";
  ASSERT_FALSE(fs::is_empty(share_.localProfiles() / "[ProfileList]"));

  share_.ClearLog();
  const testing::ProcessResult next = share_.Run({"/s:" + sourceUnc});
  EXPECT_EQ(next.exitStatus, 0) << next.output;
  EXPECT_EQ(share_.CountLogged("The target profile contains an interrupted migration, "
                               "rebuilding profile: " +
                               sourceUnc + ".V2"),
            1);
  EXPECT_FALSE(fs::exists(target / kMarker));
  EXPECT_TRUE(TargetContent(target) == expected);
  ExpectNoTemporaryProfileLeft();
  EXPECT_EQ(DescribeTreeChanges(sourceBefore, CaptureTreeState(source)), "");
}

// Two runs at once for two profiles of one owner: while one run's temporary profile exists,
// the other's CreateProfile fails with 0x800700B7 and that profile fails (its target deleted
// again); nothing of the first run is harmed, and a later run migrates the failed profile.
TEST_F(ConcurrentRunsE2eTest, TwoRunsForProfilesOfOneOwnerNeverHarmEachOther) {
  const fs::path alice = share_.AddV1Profile("alice");
  const fs::path bob = share_.AddV1Profile("bob");
  ASSERT_EQ(share_.OwnerOf(alice), share_.OwnerOf(bob));
  const std::string aliceUnc = std::string(E2eShare::kShare) + "\\alice";
  const std::string bobUnc = std::string(E2eShare::kShare) + "\\bob";
  ASSERT_EQ(share_.Run({"/s:" + aliceUnc}).exitStatus, 0);
  ASSERT_EQ(share_.Run({"/s:" + bobUnc}).exitStatus, 0);
  const std::map<std::string, std::string> expectedAlice = TargetContent(alice.string() + ".V2");
  const std::map<std::string, std::string> expectedBob = TargetContent(bob.string() + ".V2");
  const TreeState aliceBefore = CaptureTreeState(alice);
  const TreeState bobBefore = CaptureTreeState(bob);

  int collisions = 0;
  for (int round = 0; round < 5; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    fs::remove_all(alice.string() + ".V2");
    fs::remove_all(bob.string() + ".V2");
    const pid_t first = Start(aliceUnc, Output("alice"));
    const pid_t second = Start(bobUnc, Output("bob"));
    const int statuses[2] = {Wait(first), Wait(second)};
    const std::string sources[2] = {aliceUnc, bobUnc};
    const fs::path sourceFolders[2] = {alice, bob};
    const std::map<std::string, std::string>* expected[2] = {&expectedAlice, &expectedBob};
    EXPECT_TRUE(statuses[0] == 0 || statuses[1] == 0) << "both runs of the round failed";
    for (int i = 0; i < 2; ++i) {
      const fs::path targetFolder = sourceFolders[i].string() + ".V2";
      if (statuses[i] == 0) {
        EXPECT_TRUE(TargetContent(targetFolder) == *expected[i]) << sources[i];
        continue;
      }
      ++collisions;
      EXPECT_EQ(statuses[i], kExitFailed);
      EXPECT_NE(testing::ReadWholeFile(Output(i == 0 ? "alice" : "bob"))
                    .find("Failed migrating profile (0x800700B7): " + sources[i] + "\r\n"),
                std::string::npos);
      EXPECT_FALSE(fs::exists(targetFolder));
      // Once the other run has ended, the profile migrates.
      EXPECT_EQ(share_.Run({"/s:" + sources[i]}).exitStatus, 0);
      EXPECT_TRUE(TargetContent(targetFolder) == *expected[i]) << sources[i];
    }
    ExpectNoTemporaryProfileLeft();
    EXPECT_EQ(DescribeTreeChanges(aliceBefore, CaptureTreeState(alice)), "");
    EXPECT_EQ(DescribeTreeChanges(bobBefore, CaptureTreeState(bob)), "");
  }
  std::cout << "[          ] of 5 rounds, " << collisions
            << " had one run fail at CreateProfile (0x800700B7)\n";
}

}  // namespace
}  // namespace tw
