// A launcher whose children are scripted: each "run" appends its log entries (with its own
// thread id) to a log file, gives its console text, waits a little and exits with a value; the
// launcher records the commands and the most runs it saw at once.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "ports/child_process.h"

namespace tw::testing {

struct ScriptedRun {
  std::string console;
  std::vector<std::string> logMessages;
  int exitValue = 0;
  int milliseconds = 20;  // how long the child "runs"
};

class FakeChildLauncher : public ChildProcessLauncher {
 public:
  // script(arguments) tells what the child started with those arguments does.
  FakeChildLauncher(std::filesystem::path log,
                    std::function<ScriptedRun(const std::vector<std::string>&)> script);

  std::unique_ptr<ChildProcess> Start(const std::filesystem::path& program,
                                      const std::vector<std::string>& arguments,
                                      std::string& error) override;

  std::vector<std::vector<std::string>> Commands() const;
  int MostAtOnce() const { return mostAtOnce_.load(); }
  // A child whose arguments start with this source fails to start.
  std::string failToStart;

  // Called by the children.
  void AppendLog(std::uint32_t threadId, const std::vector<std::string>& messages);
  void Ended();

 private:
  std::filesystem::path log_;
  std::function<ScriptedRun(const std::vector<std::string>&)> script_;
  mutable std::mutex lock_;
  std::vector<std::vector<std::string>> commands_;
  std::uint32_t nextThreadId_ = 0x1000;
  std::atomic<int> running_{0};
  std::atomic<int> mostAtOnce_{0};
};

}  // namespace tw::testing
