// One log file written by four processes at once through the real POSIX adapters, rotated while
// they write: no line is lost, none is torn, each process's lines keep their order, and only one
// process rotates the file.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "fakes/sized_file.h"
#include "log/debug_log.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"
#include "ports/system_services.h"

namespace tw {
namespace {

using testing::ReadBytes;
using testing::ScratchFolder;

constexpr int kWriters = 4;
constexpr int kLines = 2000;
// Room left below the rotation size when the writers start: they pass it about halfway, and the
// file they go on with stays far below it, so the test sees exactly one rotation.
constexpr std::uint64_t kRoom = 200'000;

// One child process: waits until the parent closes `start`, writes its lines through a log of
// its own over the process's real ports, and exits with 0 (1 when anything threw).
[[noreturn]] void RunWriter(int start, int writer, const std::wstring& module) {
  char byte = 0;
  while (::read(start, &byte, 1) > 0) {
  }
  int status = 0;
  try {
    CDebugLog log(ProcessFileSystem(), ProcessSystemServices(), module);
    for (int i = 0; i < kLines; ++i) log.Log(L"writer %d line %d", writer, i);
  } catch (const std::exception&) {
    status = 1;
  }
  ::_exit(status);
}

TEST(SharedLogPosix, FourProcessesLoseAndTearNothingWhileTheLogRotates) {
  ScratchFolder folder;
  const std::filesystem::path logFile = folder.path() / "tarnwick.log";
  const std::filesystem::path rotatedFile = folder.path() / "tarnwick (previous).log";
  const std::wstring module = posix::ToWindowsPath((folder.path() / "tarnwick.exe").string());

  // Earlier lines in the log's own format, up to kRoom below the rotation size.
  std::string earlier;
  for (int i = 0; earlier.size() < kLogRotationSize - kRoom; ++i) {
    earlier += "[11/16/26 02:21:38][0x00000001] earlier line " + std::to_string(i) + "\r\n";
  }
  std::ofstream(logFile, std::ios::binary) << earlier;

  int start[2];
  ASSERT_EQ(::pipe(start), 0);
  std::vector<pid_t> children;
  for (int writer = 0; writer < kWriters; ++writer) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(start[1]);
      RunWriter(start[0], writer, module);
    }
    children.push_back(child);
  }
  ::close(start[0]);
  ::close(start[1]);  // all four start at once
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }

  // One rotation: the rotated copy is the earlier lines and the first new ones, past the limit;
  // the file goes on below it.
  const std::string rotated = ReadBytes(rotatedFile);
  const std::string current = ReadBytes(logFile);
  ASSERT_GT(rotated.size(), kLogRotationSize);
  EXPECT_LT(current.size(), kLogRotationSize);
  ASSERT_EQ(rotated.substr(0, earlier.size()), earlier);

  const std::regex format(
      R"(\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\]\[0x([0-9a-f]{8})\] writer (\d) line (\d+)\r)");
  std::vector<int> next(kWriters, 0);
  std::map<int, std::string> threadIds;
  std::istringstream lines(rotated.substr(earlier.size()) + current);
  std::string line;
  int total = 0;
  while (std::getline(lines, line)) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, format)) << "line " << total << ": " << line;
    const int writer = std::stoi(match[2]);
    ASSERT_LT(writer, kWriters);
    EXPECT_EQ(std::stoi(match[3]), next[writer]) << line;  // each process's lines, in order
    next[writer] = std::stoi(match[3]) + 1;
    const auto id = threadIds.emplace(writer, match[1]).first;
    EXPECT_EQ(id->second, match[1].str()) << line;  // one thread id per process
    ++total;
  }
  EXPECT_EQ(next, std::vector<int>(kWriters, kLines));
  EXPECT_EQ(total, kWriters * kLines);
  EXPECT_EQ(threadIds.size(), static_cast<std::size_t>(kWriters));
}

}  // namespace
}  // namespace tw
