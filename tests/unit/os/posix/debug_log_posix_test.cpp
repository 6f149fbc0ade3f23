// CDebugLog through the real POSIX adapters, on files in a scratch folder.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
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
using testing::WriteSizedFile;

const std::regex kLine(R"(\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\]\[0x[0-9a-f]{8}\] (.*)\r)");

class PosixDebugLogTest : public ::testing::Test {
 protected:
  std::wstring Module() const {
    return posix::ToWindowsPath((folder.path() / "tarnwick.exe").string());
  }
  std::filesystem::path LogFile() const { return folder.path() / "tarnwick.log"; }
  std::filesystem::path RotatedFile() const { return folder.path() / "tarnwick (previous).log"; }

  // The lines of the log file, each checked against the line format; the messages.
  std::vector<std::string> Messages() const {
    std::vector<std::string> messages;
    std::istringstream in(ReadBytes(LogFile()));
    std::string line;
    while (std::getline(in, line)) {
      std::smatch match;
      EXPECT_TRUE(std::regex_match(line, match, kLine)) << line;
      if (match.size() == 2) messages.push_back(match[1]);
    }
    return messages;
  }

  ScratchFolder folder;
  FileSystem& files = ProcessFileSystem();
  SystemServices& system = ProcessSystemServices();
};

TEST_F(PosixDebugLogTest, LogFileSitsBesideTheProgramWithItsName) {
  CDebugLog log(files, system, Module());
  EXPECT_EQ(log.LogDirectory(), posix::ToWindowsPath(folder.path().string()) + L"\\");
  log.Log(L"hello %s", L"world");
  EXPECT_EQ(Messages(), std::vector<std::string>{"hello world"});
  EXPECT_EQ(ReadBytes(LogFile()).substr(ReadBytes(LogFile()).size() - 2), "\r\n");
}

TEST_F(PosixDebugLogTest, AppendsAcrossRuns) {
  {
    CDebugLog first(files, system, Module());
    first.WriteMessage(L"first run");
  }
  {
    CDebugLog second(files, system, Module());
    second.WriteMessage(L"second run");
  }
  EXPECT_EQ(Messages(), (std::vector<std::string>{"first run", "second run"}));
}

TEST_F(PosixDebugLogTest, FileOfExactlyTheLimitIsNotRotated) {
  WriteSizedFile(LogFile(), "", kLogRotationSize);
  CDebugLog log(files, system, Module());
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"appended"), hr::kOk);
  EXPECT_FALSE(std::filesystem::exists(RotatedFile()));
  EXPECT_GT(std::filesystem::file_size(LogFile()), kLogRotationSize);
}

TEST_F(PosixDebugLogTest, FileOverTheLimitIsCopiedAsidAndEmptiedBeforeTheLine) {
  WriteSizedFile(LogFile(), "old head\r\n", kLogRotationSize + 1);
  WriteSizedFile(RotatedFile(), "older generation", 16);
  CDebugLog log(files, system, Module());
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"first line of the new file"), hr::kOk);
  EXPECT_EQ(Messages(), std::vector<std::string>{"first line of the new file"});
  ASSERT_EQ(std::filesystem::file_size(RotatedFile()), kLogRotationSize + 1);
  EXPECT_EQ(ReadBytes(RotatedFile()).substr(0, 10), "old head\r\n");
  log.WriteMessage(L"second");
  EXPECT_EQ(Messages(), (std::vector<std::string>{"first line of the new file", "second"}));
}

TEST_F(PosixDebugLogTest, TwoThreadsWriteWholeLinesWithTheirOwnThreadIds) {
  CDebugLog log(files, system, Module());
  constexpr int kLines = 200;
  std::uint32_t ids[2] = {0, 0};
  auto writer = [&](int index) {
    ids[index] = system.CurrentThreadId();
    for (int i = 0; i < kLines; ++i) log.Log(L"thread %d line %d", index, i);
  };
  std::thread a(writer, 0);
  std::thread b(writer, 1);
  a.join();
  b.join();
  ASSERT_NE(ids[0], ids[1]);

  std::istringstream in(ReadBytes(LogFile()));
  std::string line;
  int counts[2] = {0, 0};
  const std::regex threadLine(R"(\[[^\]]+\]\[0x([0-9a-f]{8})\] thread (\d) line (\d+)\r)");
  while (std::getline(in, line)) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, threadLine)) << line;
    const int index = std::stoi(match[2]);
    char expectedId[16];
    std::snprintf(expectedId, sizeof expectedId, "%08x", ids[index]);
    EXPECT_EQ(match[1].str(), expectedId);
    EXPECT_EQ(std::stoi(match[3]), counts[index]);  // each thread's lines in its order
    ++counts[index];
  }
  EXPECT_EQ(counts[0], kLines);
  EXPECT_EQ(counts[1], kLines);
}

TEST_F(PosixDebugLogTest, CharacterOutsideWindows1252IsWrittenAsQuestionMark) {
  CDebugLog log(files, system, Module());
  log.WriteMessage(L"\u0416 caf\u00e9");
  EXPECT_EQ(Messages(), std::vector<std::string>{"? caf\xe9"});
}

TEST_F(PosixDebugLogTest, SlashInTheLogPathBecomesDash) {
  CDebugLog log(files, system, Module());
  EXPECT_EQ(log.WriteEntry(L"run 11/16/26", L"dated"), hr::kOk);
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "run 11-16-26.log"));
}

TEST_F(PosixDebugLogTest, TimestampIgnoresTheLocaleSettings) {
  const char* oldAll = std::getenv("LC_ALL");
  const std::string savedAll = oldAll ? oldAll : "";
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  setenv("LANG", "fr_FR.UTF-8", 1);
  std::setlocale(LC_ALL, "C.UTF-8");
  CDebugLog log(files, system, Module());
  const std::time_t before = std::time(nullptr);
  log.WriteMessage(L"x");
  std::setlocale(LC_ALL, "C");
  if (oldAll) {
    setenv("LC_ALL", savedAll.c_str(), 1);
  } else {
    unsetenv("LC_ALL");
  }
  const std::string text = ReadBytes(LogFile());
  std::smatch match;
  ASSERT_TRUE(std::regex_search(
      text, match,
      std::regex(R"(^\[(\d\d)/(\d\d)/(\d\d) (\d\d):(\d\d):(\d\d)\]\[0x[0-9a-f]{8}\] x\r\n$)")))
      << text;
  struct tm local {};
  localtime_r(&before, &local);
  EXPECT_EQ(std::stoi(match[1]), local.tm_mon + 1);
  EXPECT_EQ(std::stoi(match[3]), (local.tm_year + 1900) % 100);
  EXPECT_EQ(std::stoi(match[4]), local.tm_hour);
}

// Makes a folder read-only even for root: the permission bits, and where they do not bind
// (root), the immutable flag.
class ReadOnlyFolder {
 public:
  explicit ReadOnlyFolder(const std::filesystem::path& path) : path_(path) {
    std::filesystem::permissions(
        path_, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    if (::geteuid() == 0) immutable_ = SetImmutable(true);
  }
  ~ReadOnlyFolder() {
    if (immutable_) SetImmutable(false);
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
  }
  bool enforced() const { return ::geteuid() != 0 || immutable_; }

 private:
  bool SetImmutable(bool on) {
    const int fd = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd < 0) return false;
    int flags = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (ok) {
      flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
      ok = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return ok;
  }

  std::filesystem::path path_;
  bool immutable_ = false;
};

TEST_F(PosixDebugLogTest, ReadOnlyFolderLogReturnsNormallyAndWritesNothing) {
  const std::filesystem::path readOnly = folder.path() / "ro";
  std::filesystem::create_directory(readOnly);
  const std::wstring module = posix::ToWindowsPath((readOnly / "tarnwick.exe").string());
  ReadOnlyFolder guard(readOnly);
  if (!guard.enforced()) GTEST_SKIP() << "cannot make a folder read-only for root here";
  CDebugLog log(files, system, module);
  EXPECT_NO_THROW(log.WriteMessage(L"nowhere to go"));
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"x"), HResultFromWin32(err::kAccessDenied));
  EXPECT_FALSE(std::filesystem::exists(readOnly / "tarnwick.log"));
}

}  // namespace
}  // namespace tw
