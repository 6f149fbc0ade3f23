// tarnwick-batch over generated shares, running the built tarnwick beside it: one failing
// profile among several with its cause in the report, finished targets skipped, a whole share
// with --share, four runs at once equal to one run after another, and Ctrl-C (SIGINT to the
// terminal's process group) that lets running runs finish and starts no more.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/sized_file.h"
#include "fakes/tree_state.h"

extern char** environ;

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::E2eShare;
using testing::ProcessResult;

constexpr char kMarker[] = "_qzk_mig_marker_";

// The batch program copied beside the share's copy of tarnwick, so that it runs that one and
// their log lies there.
class BatchE2eTest : public ::testing::Test {
 protected:
  void SetUp() override {
    batch_ = share_.root() / "bin" / "tarnwick-batch";
    fs::copy_file(TARNWICK_BATCH_BINARY, batch_);
  }

  ProcessResult Batch(const std::vector<std::string>& args) const {
    return testing::RunProcess(batch_.string(), args, share_.RunEnvironment());
  }

  // A V1 profile owned by a SID of its own (two runs for one owner never go at once).
  fs::path AddOwnedProfile(const std::string& name) {
    const fs::path folder = share_.AddV1Profile(name);
    share_.SetOwner(
        folder, L"S-1-5-21-1004336348-1177238915-682003330-" + std::to_wstring(2000 + owners_++));
    return folder;
  }

  std::string Profile(const std::string& name) const {
    return std::string(E2eShare::kShare) + "\\" + name;
  }

  nlohmann::json ReadReport(const fs::path& file) const {
    return nlohmann::json::parse(testing::ReadWholeFile(file));
  }

  E2eShare share_{testing::SuiteTools()};
  fs::path batch_;
  int owners_ = 0;
};

// A finished target as content: every entry of the tree, a file with its bytes (a hive as
// exported, since its bytes hold save times).
std::map<std::string, std::string> TargetContent(const fs::path& target) {
  std::map<std::string, std::string> content;
  for (const std::string& relative : testing::Tree(target)) {
    const fs::path path = target / relative;
    if (fs::is_directory(fs::symlink_status(path))) {
      content[relative] = "folder";
    } else if (path.filename() == "ntuser.dat" || path.filename() == "UsrClass.dat") {
      content[relative] = E2eShare::ExportHive(path);
    } else {
      content[relative] = testing::ReadWholeFile(path);
    }
  }
  return content;
}

TEST_F(BatchE2eTest, OneFailingProfileAmongSeveralIsReportedWithItsCause) {
  for (const std::string name : {"anna", "bert", "carl", "dora"}) AddOwnedProfile(name);
  testing::WriteText(share_.share() / "carl" / "ntuser.dat", "this is no hive");
  const testing::TreeState before = testing::CaptureTreeState(share_.share());
  const fs::path report = share_.root() / "report.json";

  const ProcessResult result = Batch({"--jobs", "2", "--report", report.string(), Profile("anna"),
                                      Profile("bert"), Profile("carl"), Profile("dora")});
  EXPECT_EQ(result.exitStatus, 1) << result.output << result.errors;
  EXPECT_TRUE(Contains(result.output, "] failed \\\\fs\\profiles\\carl: ")) << result.output;
  EXPECT_TRUE(Contains(result.output, "4 profiles: 3 migrated, 0 skipped as finished, 1 failed"))
      << result.output;

  const nlohmann::json json = ReadReport(report);
  ASSERT_EQ(json["profiles"].size(), 4u);
  EXPECT_EQ(json["exitValue"], 1);
  const nlohmann::json& carl = json["profiles"][2];
  EXPECT_EQ(carl["source"], "\\\\fs\\profiles\\carl");
  EXPECT_EQ(carl["result"], "failed");
  EXPECT_EQ(carl["exitValue"], 255);
  EXPECT_EQ(carl["arguments"], nlohmann::json::array({"/s:\\\\fs\\profiles\\carl"}));
  const std::string cause = carl["cause"];
  EXPECT_TRUE(Contains(cause, "\\\\fs\\profiles\\carl")) << cause;
  // The run's own log lines, told apart from the other runs' by their thread id.
  bool namesCarl = false;
  for (const std::string message : carl["log"]) {
    EXPECT_FALSE(Contains(message, "anna") || Contains(message, "bert") ||
                 Contains(message, "dora"))
        << message;
    namesCarl = namesCarl || Contains(message, "\\\\fs\\profiles\\carl");
  }
  EXPECT_TRUE(namesCarl) << carl.dump(2);
  for (int i : {0, 1, 3}) {
    EXPECT_EQ(json["profiles"][i]["result"], "migrated");
    EXPECT_EQ(json["profiles"][i]["exitValue"], 0);
    const std::string name = json["profiles"][i]["source"].get<std::string>().substr(14);
    EXPECT_EQ(
        testing::ReadWholeFile(share_.share() / (name + ".V2") / "Other" / "Deep" / "other.txt"),
        "other " + name);
  }
  // The sources are as they were (only the targets are new).
  testing::TreeState after = testing::CaptureTreeState(share_.share());
  std::erase_if(after, [&](const auto& entry) { return !before.count(entry.first); });
  after.at(".") = before.at(".");  // the share's folder gained the targets
  EXPECT_EQ(testing::DescribeTreeChanges(before, after), "");
}

TEST_F(BatchE2eTest, FinishedTargetsAreSkippedNotFailedAndDryRunRunsNothing) {
  share_.AddV1Profile("anna");
  share_.AddV1Profile("bert");
  testing::WriteText(share_.share() / "anna.V2" / "mine.txt", "finished before");

  const ProcessResult upper =
      Batch({"--dry-run", "--mode", "V2TOV6", "--target", E2eShare::kTargets, Profile("x.V2")});
  EXPECT_EQ(upper.output, (share_.root() / "bin" / "tarnwick").string() +
                              " /s:\\\\fs\\profiles\\x.V2 /t:\\\\fs\\targets /V2TOV6\n");
  const ProcessResult dry = Batch({"--dry-run", Profile("anna"), Profile("bert")});
  EXPECT_EQ(dry.exitStatus, 0) << dry.errors;
  EXPECT_EQ(dry.output,
            "# skipped \\\\fs\\profiles\\anna: target is finished: "
            "\\\\fs\\profiles\\anna.V2\n" +
                (share_.root() / "bin" / "tarnwick").string() + " /s:\\\\fs\\profiles\\bert\n");
  EXPECT_FALSE(fs::exists(share_.share() / "bert.V2"));

  const fs::path report = share_.root() / "report.json";
  const ProcessResult result =
      Batch({"--report", report.string(), Profile("anna"), Profile("bert")});
  EXPECT_EQ(result.exitStatus, 0) << result.output << result.errors;
  EXPECT_EQ(ReadReport(report)["profiles"][1]["itemsNotCopied"]["total"], 0)
      << ReadReport(report)["profiles"][1].dump(2);
  EXPECT_TRUE(Contains(result.output, "2 profiles: 1 migrated, 1 skipped as finished, 0 failed"))
      << result.output;
  EXPECT_EQ(testing::Tree(share_.share() / "anna.V2"), std::vector<std::string>{"mine.txt"});
  EXPECT_TRUE(fs::exists(share_.share() / "bert.V2" / "ntuser.dat"));
}

TEST_F(BatchE2eTest, ShareRunsEveryProfileOfTheModesKind) {
  share_.AddV1Profile("anna");
  share_.AddV1Profile("bert");
  testing::WriteText(share_.share() / "bert.V2" / "mine.txt", "finished before");
  testing::WriteText(share_.share() / "notes" / "readme.txt", "no profile");
  const fs::path report = share_.root() / "report.json";
  const ProcessResult result = Batch(
      {"--share", E2eShare::kShare, "--target", E2eShare::kTargets, "--report", report.string()});
  EXPECT_EQ(result.exitStatus, 0) << result.output << result.errors;
  const nlohmann::json json = ReadReport(report);
  ASSERT_EQ(json["profiles"].size(), 2u) << json.dump(2);
  EXPECT_EQ(json["profiles"][0]["source"], "\\\\fs\\profiles\\anna");
  EXPECT_EQ(json["profiles"][0]["target"], "\\\\fs\\targets\\anna.V2");
  EXPECT_EQ(json["profiles"][0]["result"], "migrated");
  EXPECT_EQ(json["profiles"][1]["result"], "migrated");  // bert.V2 beside it is no target here
  EXPECT_TRUE(fs::exists(share_.targets() / "anna.V2" / "ntuser.dat"));
  EXPECT_TRUE(fs::exists(share_.targets() / "bert.V2" / "ntuser.dat"));
}

TEST_F(BatchE2eTest, BadUsageExitsWithTwo) {
  EXPECT_EQ(Batch({}).exitStatus, 2);
  EXPECT_EQ(Batch({"--mode", "v9tov9", Profile("a")}).exitStatus, 2);
  EXPECT_EQ(Batch({"--share", E2eShare::kShare, Profile("a")}).exitStatus, 2);
  EXPECT_EQ(Batch({"--tarnwick", "/nonexistent/tarnwick", Profile("a")}).exitStatus, 2);
  EXPECT_EQ(Batch({"--share", "\\\\nosuch\\share"}).exitStatus, 2);
}

TEST_F(BatchE2eTest, FourRunsAtOnceMakeTheSameTargetsAsOneAfterAnother) {
  std::vector<std::string> profiles;
  for (int i = 0; i < 20; ++i) {
    const std::string name = "user" + std::to_string(i);
    AddOwnedProfile(name);
    profiles.push_back(Profile(name));
  }
  std::vector<std::string> args = {"--jobs", "4", "--target", E2eShare::kTargets};
  args.insert(args.end(), profiles.begin(), profiles.end());
  const ProcessResult parallel = Batch(args);
  ASSERT_EQ(parallel.exitStatus, 0) << parallel.output << parallel.errors;
  const fs::path parallelTargets = share_.root() / "targets-parallel";
  fs::rename(share_.targets(), parallelTargets);
  fs::create_directory(share_.targets());
  for (const std::string& profile : profiles) {
    ASSERT_EQ(share_.Run({"/s:" + profile, std::string("/t:") + E2eShare::kTargets}).exitStatus, 0);
  }
  for (int i = 0; i < 20; ++i) {
    const std::string target = "user" + std::to_string(i) + ".V2";
    EXPECT_FALSE(fs::exists(parallelTargets / target / kMarker));
    const std::map<std::string, std::string> sequential = TargetContent(share_.targets() / target);
    EXPECT_GT(sequential.size(), 5u);
    EXPECT_EQ(TargetContent(parallelTargets / target), sequential) << target;
  }
}

// Starts the batch in a process group of its own, as a terminal's foreground job is, with its
// output in `output`.
pid_t StartInOwnGroup(const std::string& program, const std::vector<std::string>& args,
                      const std::map<std::string, std::string>& extra, const fs::path& output) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) environment.emplace_back(*entry);
  for (const auto& [name, value] : extra) environment.push_back(name + "=" + value);
  std::vector<char*> envp;
  for (std::string& entry : environment) envp.push_back(entry.data());
  envp.push_back(nullptr);
  std::vector<std::string> strings = {program};
  strings.insert(strings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& text : strings) argv.push_back(text.data());
  argv.push_back(nullptr);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid = -1;
  const int started =
      posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  return started == 0 ? pid : -1;
}

TEST_F(BatchE2eTest, CtrlCStartsNoNewRunsAndLeavesNoHalfBuiltTargetWithoutItsMarker) {
  constexpr int kProfiles = 10;
  constexpr std::uint64_t kBigFile = 64ull << 20;
  std::vector<std::string> args = {"--jobs", "2"};
  for (int i = 0; i < kProfiles; ++i) {
    const std::string name = "user" + std::to_string(i);
    AddOwnedProfile(name);
    testing::WriteSizedFile(share_.share() / name / "Other" / "big.bin", "big", kBigFile);
    args.push_back(Profile(name));
  }
  const fs::path output = share_.root() / "batch.out";
  const pid_t batch = StartInOwnGroup(batch_.string(), args, share_.RunEnvironment(), output);
  ASSERT_GT(batch, 0);
  // Ctrl-C on a terminal: SIGINT to the whole foreground process group, once the first target
  // is being built, and a second one a moment later.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!fs::exists(share_.share() / "user0.V2") && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ASSERT_EQ(::kill(-batch, SIGINT), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ::kill(-batch, SIGINT);
  int status = 0;
  ASSERT_EQ(::waitpid(batch, &status, 0), batch);
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 1);
  const std::string text = testing::ReadWholeFile(output);
  EXPECT_TRUE(Contains(text, "Interrupted: no new runs are started")) << text;
  EXPECT_TRUE(Contains(text, " not started; ")) << text;
  EXPECT_TRUE(Contains(text, " (interrupted)\n")) << text;

  int built = 0;
  for (int i = 0; i < kProfiles; ++i) {
    const fs::path target = share_.share() / ("user" + std::to_string(i) + ".V2");
    if (!fs::exists(target)) continue;
    ++built;
    // The runs under way were not interrupted: each target is whole and without marker.
    EXPECT_FALSE(fs::exists(target / kMarker)) << target;
    EXPECT_EQ(fs::file_size(target / "Other" / "big.bin"), kBigFile) << target;
    EXPECT_TRUE(fs::exists(target / "ntuser.dat")) << target;
  }
  EXPECT_GE(built, 1);
  EXPECT_LT(built, kProfiles) << text;
}

}  // namespace
}  // namespace tw
