// Child process port: starts a program in a process group of its own (a terminal's Ctrl-C then
// reaches only the parent), reads its standard output and standard error through one pipe, and
// waits for its exit. Text is UTF-8 on every platform (converted at the Windows adapter).
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tw {

// A started child. Destroying it waits for the child's exit (if nobody did) and then releases
// its process and thread ids, so that they cannot be reused while the object lives.
class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  virtual ~ChildProcess() = default;

  // Blocks until output arrives and appends it to `output`; false once the child closed its end
  // (it exited, or closed both streams).
  virtual bool ReadOutput(std::string& output) = 0;

  // Blocks until the child exits and returns its exit value: 0-255 as the child returned it
  // (POSIX), 128 + the signal number when a signal ended it; on Windows the exit code as a
  // signed value (a program returning -1 gives -1). The ids stay reserved (see above).
  virtual int WaitForExit() = 0;

  // The thread id the child's main thread writes into its log lines (POSIX: the process id;
  // Windows: the id of the primary thread).
  virtual std::uint32_t LogThreadId() const = 0;
};

class ChildProcessLauncher {
 public:
  ChildProcessLauncher() = default;
  ChildProcessLauncher(const ChildProcessLauncher&) = delete;
  ChildProcessLauncher& operator=(const ChildProcessLauncher&) = delete;
  virtual ~ChildProcessLauncher() = default;

  // Starts `program` with exactly `arguments` (no shell, no expansion) in a new process group,
  // with standard input from the null device and the parent's environment. On failure returns
  // null and a description in `error`.
  virtual std::unique_ptr<ChildProcess> Start(const std::filesystem::path& program,
                                              const std::vector<std::string>& arguments,
                                              std::string& error) = 0;
};

}  // namespace tw
