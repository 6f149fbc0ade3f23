#include "fakes/fake_child_process.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

namespace tw::testing {
namespace {

class FakeChild : public ChildProcess {
 public:
  FakeChild(FakeChildLauncher& launcher, std::uint32_t threadId, ScriptedRun run)
      : launcher_(launcher), threadId_(threadId), run_(std::move(run)) {}

  bool ReadOutput(std::string& output) override {
    if (done_) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(run_.milliseconds));
    launcher_.AppendLog(threadId_, run_.logMessages);
    output += run_.console;
    done_ = true;
    launcher_.Ended();
    return true;
  }
  int WaitForExit() override {
    std::string ignored;
    while (ReadOutput(ignored)) {
    }
    return run_.exitValue;
  }
  std::uint32_t LogThreadId() const override { return threadId_; }

 private:
  FakeChildLauncher& launcher_;
  std::uint32_t threadId_;
  ScriptedRun run_;
  bool done_ = false;
};

}  // namespace

FakeChildLauncher::FakeChildLauncher(
    std::filesystem::path log, std::function<ScriptedRun(const std::vector<std::string>&)> script)
    : log_(std::move(log)), script_(std::move(script)) {}

std::unique_ptr<ChildProcess> FakeChildLauncher::Start(const std::filesystem::path&,
                                                       const std::vector<std::string>& arguments,
                                                       std::string& error) {
  std::uint32_t threadId = 0;
  {
    std::lock_guard<std::mutex> hold(lock_);
    commands_.push_back(arguments);
    threadId = nextThreadId_++;
  }
  if (!failToStart.empty() && arguments.at(0) == "/s:" + failToStart) {
    error = "cannot start (scripted)";
    return nullptr;
  }
  const int now = ++running_;
  int most = mostAtOnce_.load();
  while (now > most && !mostAtOnce_.compare_exchange_weak(most, now)) {
  }
  return std::make_unique<FakeChild>(*this, threadId, script_(arguments));
}

std::vector<std::vector<std::string>> FakeChildLauncher::Commands() const {
  std::lock_guard<std::mutex> hold(lock_);
  return commands_;
}

void FakeChildLauncher::AppendLog(std::uint32_t threadId,
                                  const std::vector<std::string>& messages) {
  std::lock_guard<std::mutex> hold(lock_);
  std::ofstream out(log_, std::ios::binary | std::ios::app);
  for (const std::string& message : messages) {
    char prefix[64];
    std::snprintf(prefix, sizeof prefix, "[11/24/26 07:00:00][0x%08x] ", threadId);
    out << prefix << message << "\r\n";
  }
}

void FakeChildLauncher::Ended() { --running_; }

}  // namespace tw::testing
