#include "fakes/process_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace tw::testing {
namespace {

void ReadBoth(int outFd, int errFd, std::string& out, std::string& err) {
  std::array<pollfd, 2> fds{{{outFd, POLLIN, 0}, {errFd, POLLIN, 0}}};
  int open = 2;
  std::array<char, 65536> buffer{};
  while (open > 0) {
    if (poll(fds.data(), fds.size(), -1) < 0) break;
    for (std::size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      const ssize_t n = read(fds[i].fd, buffer.data(), buffer.size());
      if (n <= 0) {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
        continue;
      }
      (i == 0 ? out : err).append(buffer.data(), static_cast<std::size_t>(n));
    }
  }
}

}  // namespace

ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& extraEnvironment) {
  ProcessResult result;
  int outPipe[2];
  int errPipe[2];
  if (pipe(outPipe) != 0 || pipe(errPipe) != 0) return result;
  const pid_t pid = fork();
  if (pid == 0) {
    const int devNull = open("/dev/null", O_RDONLY);
    dup2(devNull, 0);
    dup2(outPipe[1], 1);
    dup2(errPipe[1], 2);
    close(outPipe[0]);
    close(errPipe[0]);
    for (const auto& [name, value] : extraEnvironment) setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(outPipe[1]);
  close(errPipe[1]);
  if (pid < 0) {
    close(outPipe[0]);
    close(errPipe[0]);
    return result;
  }
  ReadBoth(outPipe[0], errPipe[0], result.output, result.errors);
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

}  // namespace tw::testing
