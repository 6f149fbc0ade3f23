// Reading ahead of the runs: no further than the window (profiles and bytes) beyond the runs
// started, never a source whose run has started, every walk stopped when the queue goes; the
// runner reads ahead only the sources it will run.
#include "batch/read_ahead_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

#include "batch/batch_runner.h"
#include "fakes/fake_child_process.h"
#include "fakes/temp_folder.h"

namespace tw::batch {
namespace {

using namespace std::chrono_literals;

// Records each source read ahead; while `hold` is set, a walk lasts until it is told to stop.
class RecordingReadAhead : public ReadAheadPort {
 public:
  void ReadTreeAhead(std::wstring_view path, const std::function<bool()>& stop) override {
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      read_.emplace_back(path);
    }
    while (hold && !stop()) std::this_thread::sleep_for(1ms);
    if (stop()) ++stopped;
  }
  std::vector<std::wstring> Read() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return read_;
  }
  // Waits (up to five seconds) until `count` sources were read ahead.
  bool WaitFor(std::size_t count) {
    for (int i = 0; i < 5000 && Read().size() < count; ++i) std::this_thread::sleep_for(1ms);
    return Read().size() >= count;
  }
  std::atomic<bool> hold{false};
  std::atomic<int> stopped{0};

 private:
  std::mutex mutex_;
  std::vector<std::wstring> read_;
};

constexpr std::uint64_t kNoBudget = ~std::uint64_t{0};

// count sources of `bytes` bytes each.
std::vector<ReadAheadSource> Sources(int count, std::uint64_t bytes = 1000) {
  std::vector<ReadAheadSource> sources;
  for (int i = 0; i < count; ++i)
    sources.push_back(ReadAheadSource{L"\\\\fs\\p\\user" + std::to_wstring(i), bytes});
  return sources;
}

std::wstring PathOf(const std::vector<ReadAheadSource>& sources, std::size_t index) {
  return sources[index].path;
}

std::set<std::wstring> AsSet(const std::vector<std::wstring>& list) {
  return std::set<std::wstring>(list.begin(), list.end());
}

TEST(ReadAheadQueueTest, NoFurtherThanTheWindowBeyondTheRunsStarted) {
  RecordingReadAhead port;
  const std::vector<ReadAheadSource> sources = Sources(10);
  ReadAheadQueue queue(port, sources, 3, kNoBudget, 2);
  ASSERT_TRUE(port.WaitFor(3));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(AsSet(port.Read()),
            AsSet({PathOf(sources, 0), PathOf(sources, 1), PathOf(sources, 2)}));
  queue.RunStarted();
  queue.RunStarted();
  ASSERT_TRUE(port.WaitFor(5));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(port.Read().size(), 5u);
  EXPECT_EQ(AsSet(port.Read()).count(PathOf(sources, 4)), 1u);
  EXPECT_EQ(AsSet(port.Read()).count(PathOf(sources, 5)), 0u);
}

TEST(ReadAheadQueueTest, NoMoreBytesThanTheBudgetBeyondTheVeryNextProfile) {
  RecordingReadAhead port;
  // 600 + 600 + 100 + 100 + 900 bytes against a budget of 1,000.
  std::vector<ReadAheadSource> sources = Sources(6);
  const std::uint64_t sizes[] = {600, 600, 100, 100, 900, 50};
  for (std::size_t i = 0; i < sources.size(); ++i) sources[i].bytes = sizes[i];
  ReadAheadQueue queue(port, sources, 10, 1000, 2);
  ASSERT_TRUE(port.WaitFor(1));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(port.Read(), std::vector<std::wstring>{PathOf(sources, 0)});
  queue.RunStarted();  // user0's run: 0 bytes ahead, user1 (600) fits, then user2 and user3
  ASSERT_TRUE(port.WaitFor(4));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(AsSet(port.Read()), AsSet({PathOf(sources, 0), PathOf(sources, 1), PathOf(sources, 2),
                                       PathOf(sources, 3)}));
  queue.RunStarted();  // user1's run: 200 bytes ahead, user4 (900) does not fit
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(port.Read().size(), 4u);
  queue.RunStarted();
  queue.RunStarted();  // nothing ahead: user4, however large, is the very next one
  ASSERT_TRUE(port.WaitFor(6));
  EXPECT_EQ(AsSet(port.Read()).count(PathOf(sources, 4)), 1u);
  EXPECT_EQ(AsSet(port.Read()).size(), 6u);
}

TEST(ReadAheadQueueTest, ASourceWhoseRunHasStartedIsNotReadAhead) {
  RecordingReadAhead port;
  const std::vector<ReadAheadSource> sources = Sources(6);
  port.hold = true;  // the first walk lasts until the runs have started
  ReadAheadQueue queue(port, sources, 1, kNoBudget, 1);
  ASSERT_TRUE(port.WaitFor(1));
  for (int i = 0; i < 4; ++i) queue.RunStarted();
  port.hold = false;
  ASSERT_TRUE(port.WaitFor(2));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(port.Read(), (std::vector<std::wstring>{PathOf(sources, 0), PathOf(sources, 4)}));
}

TEST(ReadAheadQueueTest, GoingStopsTheWalks) {
  RecordingReadAhead port;
  port.hold = true;
  {
    ReadAheadQueue queue(port, Sources(8), 4, kNoBudget, 2);
    ASSERT_TRUE(port.WaitFor(2));
  }
  EXPECT_EQ(port.stopped, 2);
  EXPECT_EQ(port.Read().size(), 2u);
}

TEST(ReadAheadQueueTest, TheRunnerReadsAheadOnlyWhatItWillRun) {
  testing::TempFolder temp;
  const std::filesystem::path log = temp.path() / "tarnwick.log";
  testing::FakeChildLauncher launcher(log, [](const std::vector<std::string>&) {
    testing::ScriptedRun run;
    run.milliseconds = 20;
    return run;
  });
  LogFollower follower(log, temp.path() / "old.log");
  RecordingReadAhead port;
  BatchRunner runner(launcher, follower, {"tarnwick", BatchMode::kV1ToV2, "", 2}, &port);
  std::vector<PlannedProfile> plan;
  for (int i = 0; i < 8; ++i) {
    PlannedProfile profile;
    profile.source = "\\\\fs\\p\\user" + std::to_string(i);
    profile.owner = "S-1-5-21-1-2-3-" + std::to_string(1000 + i);
    if (i == 1) profile.targetState = TargetState::kFinished;
    plan.push_back(profile);
  }
  class Quiet : public RunObserver {
    void Started(std::size_t) override {}
    void Finished(std::size_t, const ProfileRun&) override {}
    void Tick() override {}
  } observer;
  runner.Run(plan, observer, [] { return false; });
  const std::vector<std::wstring> read = port.Read();
  EXPECT_FALSE(read.empty());
  EXPECT_EQ(AsSet(read).size(), read.size());             // none twice
  EXPECT_EQ(AsSet(read).count(L"\\\\fs\\p\\user1"), 0u);  // finished: no run, no read-ahead
  for (const std::wstring& source : read) EXPECT_EQ(source.rfind(L"\\\\fs\\p\\user", 0), 0u);
  // Every walk ended with the runs: nothing is read after Run returns.
  std::this_thread::sleep_for(30ms);
  EXPECT_EQ(port.Read().size(), read.size());
}

}  // namespace
}  // namespace tw::batch
