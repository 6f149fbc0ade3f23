// Hostile configuration paths through the built binary: a folder, a FIFO without a writer, the
// device /dev/zero and a file over 16 MiB are taken as files that did not parse (the run goes on
// with the command line alone and logs nothing about them); 200,000 nested elements load. Every
// run ends with its summary, and the source profile is unchanged.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/tree_state.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::E2eShare;
using testing::kExit0;
using testing::kStart;
using testing::ProcessResult;

const std::string kMigrated = "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n";

class HostileConfigurationE2eTest : public ::testing::Test {
 protected:
  void SetUp() override { source_ = share_.AddV1Profile("alice"); }

  // Runs with `config` as the configuration and "/s:" naming alice; the run must end within a
  // minute (a FIFO that blocked it is then opened for writing to release it, and the test fails).
  ProcessResult RunWith(const std::string& config) {
    auto run = std::async(std::launch::async, [this, &config] {
      return share_.Run({config, "/s:\\\\fs\\profiles\\alice"});
    });
    if (run.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
      struct stat info {};
      if (stat(config.c_str(), &info) == 0 && S_ISFIFO(info.st_mode)) {
        const int writer = open(config.c_str(), O_WRONLY | O_NONBLOCK);
        if (writer >= 0) close(writer);
      }
      ADD_FAILURE() << "the run did not end within a minute: " << config;
    }
    return run.get();
  }

  // The run migrated alice beside the source as the command line alone says, logged nothing
  // about the configuration, and left the source profile as it was.
  void ExpectMigratedWithoutConfiguration(const ProcessResult& result,
                                          const testing::TreeState& before) {
    EXPECT_EQ(result.exitStatus, 0) << result.output;
    EXPECT_EQ(result.output, kStart + kExit0 + kMigrated);
    EXPECT_EQ(share_.CountLoggedContaining("configuration"), 0);
    EXPECT_TRUE(fs::exists(share_.share() / "alice.V2" / "ntuser.dat"));
    EXPECT_FALSE(fs::exists(share_.targets() / "alice.V2"));
    EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(source_)), "");
  }

  // A well-formed configuration that would send the target to \\fs\targets, padded to `size`.
  static std::string TargetsConfiguration(std::size_t size) {
    const std::string head = "<c><target><profilepath>\\\\fs\\targets</profilepath></target>";
    const std::string tail = "</c>";
    return head + std::string(size - head.size() - tail.size(), ' ') + tail;
  }

  E2eShare share_{testing::SuiteTools()};
  fs::path source_;
};

TEST_F(HostileConfigurationE2eTest, AFolderIsAConfigurationThatDidNotParse) {
  const fs::path folder = share_.root() / "config-folder";
  fs::create_directory(folder);
  const testing::TreeState before = testing::CaptureTreeState(source_);
  ExpectMigratedWithoutConfiguration(RunWith(folder.string()), before);
}

TEST_F(HostileConfigurationE2eTest, AFifoWithoutWriterNeitherHangsTheRunNorIsRead) {
  const fs::path fifo = share_.root() / "config.fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const testing::TreeState before = testing::CaptureTreeState(source_);
  ExpectMigratedWithoutConfiguration(RunWith(fifo.string()), before);
}

TEST_F(HostileConfigurationE2eTest, DevZeroIsNeverRead) {
  const testing::TreeState before = testing::CaptureTreeState(source_);
  ExpectMigratedWithoutConfiguration(RunWith("/dev/zero"), before);
}

TEST_F(HostileConfigurationE2eTest, AFileOverSixteenMebibytesIsNotRead) {
  const std::string config =
      testing::WriteFileAt(share_.root() / "big.xml", TargetsConfiguration(17u * 1024u * 1024u));
  const testing::TreeState before = testing::CaptureTreeState(source_);
  ExpectMigratedWithoutConfiguration(RunWith(config), before);
}

// The same configuration, small, is read: the target goes to \\fs\targets.
TEST_F(HostileConfigurationE2eTest, TheSameConfigurationSmallIsRead) {
  const std::string config =
      testing::WriteFileAt(share_.root() / "small.xml", TargetsConfiguration(4096));
  const ProcessResult result = RunWith(config);
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_TRUE(fs::exists(share_.targets() / "alice.V2" / "ntuser.dat"));
}

TEST_F(HostileConfigurationE2eTest, TwoHundredThousandNestedElementsLoad) {
  std::string open;
  std::string close;
  for (int i = 0; i < 200000; ++i) {
    open += "<a>";
    close += "</a>";
  }
  const std::string config = testing::WriteFileAt(
      share_.root() / "nested.xml", "<c><deep>" + open + close +
                                        "</deep><source><profilepath>\\\\fs\\profiles\\" + open +
                                        "alice" + close + "</profilepath></source></c>");
  const testing::TreeState before = testing::CaptureTreeState(source_);
  const ProcessResult result = share_.Run({config});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(result.output, kStart + kExit0 + kMigrated);
  EXPECT_TRUE(fs::exists(share_.share() / "alice.V2" / "ntuser.dat"));
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(source_)), "");
}

}  // namespace
}  // namespace tw
