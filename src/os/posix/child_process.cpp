// The child process port on POSIX: posix_spawn into a new process group, one pipe for standard
// output and standard error, waitid(WNOWAIT) so that the child's pid stays reserved (as a zombie)
// until the object is destroyed.
#include "ports/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "os/native_ports.h"
#include "os/posix/install_layout.h"

extern char** environ;

namespace tw {
namespace {

class PosixChild : public ChildProcess {
 public:
  PosixChild(pid_t pid, int output) : pid_(pid), output_(output) {}
  ~PosixChild() override {
    if (output_ >= 0) ::close(output_);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
  }

  bool ReadOutput(std::string& output) override {
    if (output_ < 0) return false;
    char buffer[16384];
    for (;;) {
      const ssize_t count = ::read(output_, buffer, sizeof buffer);
      if (count > 0) {
        output.append(buffer, static_cast<std::size_t>(count));
        return true;
      }
      if (count < 0 && errno == EINTR) continue;
      ::close(output_);
      output_ = -1;
      return false;
    }
  }

  int WaitForExit() override {
    if (exitValue_ >= 0) return exitValue_;
    siginfo_t info{};
    for (;;) {
      if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) == 0) break;
      if (errno != EINTR) return exitValue_ = 255;
    }
    exitValue_ = info.si_code == CLD_EXITED ? (info.si_status & 0xFF) : 128 + info.si_status;
    return exitValue_;
  }

  std::uint32_t LogThreadId() const override { return static_cast<std::uint32_t>(pid_); }

 private:
  pid_t pid_;
  int output_;
  int exitValue_ = -1;
};

// posix_spawn's attributes and file actions, released on every path.
struct SpawnSetup {
  posix_spawnattr_t attributes{};
  posix_spawn_file_actions_t actions{};
  SpawnSetup() {
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_init(&actions);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
};

class PosixLauncher : public ChildProcessLauncher {
 public:
  std::unique_ptr<ChildProcess> Start(const std::filesystem::path& program,
                                      const std::vector<std::string>& arguments,
                                      std::string& error) override {
    int pipeEnds[2];
    // Close-on-exec, so that no other child inherits this child's pipe and delays its end.
    if (::pipe2(pipeEnds, O_CLOEXEC) != 0) {
      error = std::string("cannot make a pipe: ") + std::strerror(errno);
      return nullptr;
    }
    SpawnSetup setup;
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGPIPE);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setpgroup(&setup.attributes, 0);
    posix_spawnattr_setsigdefault(&setup.attributes, &defaults);
    posix_spawnattr_setsigmask(&setup.attributes, &none);
    posix_spawnattr_setflags(
        &setup.attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&setup.actions, pipeEnds[1], 1);
    posix_spawn_file_actions_adddup2(&setup.actions, pipeEnds[1], 2);

    const std::string file = program.string();
    std::vector<std::string> strings;
    strings.reserve(arguments.size() + 1);
    strings.push_back(file);
    strings.insert(strings.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& text : strings) argv.push_back(text.data());
    argv.push_back(nullptr);

    pid_t pid = 0;
    const int result =
        ::posix_spawn(&pid, file.c_str(), &setup.actions, &setup.attributes, argv.data(), environ);
    ::close(pipeEnds[1]);
    if (result != 0) {
      ::close(pipeEnds[0]);
      error = "cannot start " + file + ": " + std::strerror(result);
      return nullptr;
    }
    return std::make_unique<PosixChild>(pid, pipeEnds[0]);
  }
};

std::atomic<int> g_interrupts{0};

extern "C" void CountInterrupt(int) { g_interrupts.fetch_add(1); }

}  // namespace

ChildProcessLauncher& NativeChildLauncher() {
  static PosixLauncher launcher;
  return launcher;
}

std::filesystem::path OwnProgramFile() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error);
}

std::filesystem::path ProgramLogFile(const std::filesystem::path& program, bool previous) {
  const char* variable = std::getenv(posix::kLogDirVariable);
  const std::string folder =
      posix::LogFolder(std::filesystem::weakly_canonical(program).parent_path().string(),
                       variable == nullptr ? "" : variable, posix::BuildInstallDirs());
  const std::string name = program.stem().string() + (previous ? " (previous).log" : ".log");
  return std::filesystem::path(folder) / name;
}

bool StandardOutputIsTerminal() { return ::isatty(1) == 1; }

void WatchInterrupts() {
  struct sigaction action {};
  action.sa_handler = CountInterrupt;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGINT, &action, nullptr);
}

int InterruptCount() { return g_interrupts.load(); }

}  // namespace tw
