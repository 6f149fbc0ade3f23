// CDebugLog over the fake ports: names, line format, the handle cache, rotation and the
// failure rules.
#include "log/debug_log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "base/hresult.h"
#include "base/hresult_error.h"
#include "fakes/fake_file_system.h"
#include "fakes/fake_system_services.h"
#include "fakes/log_capture.h"

namespace tw {
namespace {

using testing::FakeFileSystem;
using testing::FakeSystemServices;
using testing::FileOp;

constexpr wchar_t kModule[] = L"C:\\Tools\\tarnwick.exe";
constexpr wchar_t kLogFile[] = L"C:\\Tools\\tarnwick.log";
constexpr wchar_t kRotatedFile[] = L"C:\\Tools\\tarnwick (previous).log";
constexpr char kPrefix[] = "[11/16/26 02:21:38][0x00001a2c] ";

class DebugLogTest : public ::testing::Test {
 protected:
  FakeFileSystem files{kModule};
  FakeSystemServices system;
};

TEST_F(DebugLogTest, DerivesFolderAndNameFromTheModulePath) {
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.LogDirectory(), L"C:\\Tools\\");
  EXPECT_EQ(log.LogName(), L"tarnwick");
  EXPECT_EQ(files.Calls(FileOp::kOpen), 0);  // nothing is opened before the first write
}

TEST_F(DebugLogTest, WritesTheLineFormatWithCarriageReturnLineFeed) {
  CDebugLog log(files, system, kModule);
  log.Log(L"Failed getting %s function pointers (0x%08X)", L"offreg.dll", 0x80070002u);
  EXPECT_EQ(files.FileContent(kLogFile),
            std::string(kPrefix) + "Failed getting offreg.dll function pointers (0x80070002)\r\n");
  EXPECT_FALSE(files.HasFile(kRotatedFile));
}

TEST_F(DebugLogTest, ThreadIdIsEightLowercaseHexDigits) {
  system.threadId = 0xABCDEF;
  CDebugLog log(files, system, kModule);
  log.WriteMessage(L"x");
  EXPECT_EQ(files.FileContent(kLogFile), "[11/16/26 02:21:38][0x00abcdef] x\r\n");
}

TEST_F(DebugLogTest, InvalidTimeIsWrittenAsInvalidDateTime) {
  system.time.day = 31;  // November has 30 days
  CDebugLog log(files, system, kModule);
  log.WriteMessage(L"x");
  EXPECT_EQ(files.FileContent(kLogFile), "[Invalid DateTime][0x00001a2c] x\r\n");
}

TEST_F(DebugLogTest, FinishedMessageIsWrittenVerbatim) {
  CDebugLog log(files, system, kModule);
  LogWriter& writer = log;
  writer.WriteMessage(L"100% done in \\\\srv\\%s");
  EXPECT_EQ(files.FileContent(kLogFile), std::string(kPrefix) + "100% done in \\\\srv\\%s\r\n");
}

TEST_F(DebugLogTest, AppendsToAnExistingFile) {
  files.SetFile(kLogFile, "earlier run\r\n");
  CDebugLog log(files, system, kModule);
  log.WriteMessage(L"next");
  EXPECT_EQ(files.FileContent(kLogFile), "earlier run\r\n" + std::string(kPrefix) + "next\r\n");
  EXPECT_EQ(files.Opens(CreationDisposition::kOpenAlways), 1);
}

TEST_F(DebugLogTest, HandleIsOpenedOnceForManyWritesAndClosedAtDestruction) {
  {
    CDebugLog log(files, system, kModule);
    for (int i = 0; i < 5; ++i) log.Log(L"line %d", i);
    EXPECT_EQ(files.Calls(FileOp::kOpen), 1);
    EXPECT_EQ(files.Calls(FileOp::kWrite), 5);
    EXPECT_EQ(files.Calls(FileOp::kFlush), 5);  // every line is flushed
    EXPECT_EQ(files.OpenHandles(), 1);
  }
  EXPECT_EQ(files.OpenHandles(), 0);
  EXPECT_EQ(files.Calls(FileOp::kClose), 1);
}

TEST_F(DebugLogTest, PathsDifferingOnlyInCaseShareOneHandle) {
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"a"), hr::kOk);
  EXPECT_EQ(log.WriteEntry(L"TARNWICK", L"b"), hr::kOk);
  EXPECT_EQ(files.Calls(FileOp::kOpen), 1);
  EXPECT_EQ(files.FileContent(kLogFile),
            std::string(kPrefix) + "a\r\n" + std::string(kPrefix) + "b\r\n");
}

TEST_F(DebugLogTest, SlashInTheLogPathBecomesDash) {
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"run 11/16/26", L"dated"), hr::kOk);
  EXPECT_EQ(files.FileContent(L"C:\\Tools\\run 11-16-26.log"), std::string(kPrefix) + "dated\r\n");
}

TEST_F(DebugLogTest, CharacterOutsideTheCodePageIsWrittenAsQuestionMark) {
  CDebugLog log(files, system, kModule);
  log.WriteMessage(L"caf\u00e9 \u20ac \u0416");  // é and € are in Windows-1252, Ж is not
  EXPECT_EQ(files.FileContent(kLogFile), std::string(kPrefix) + "caf\xe9 \x80 ?\r\n");
}

TEST_F(DebugLogTest, ByteCountIsTheLinesUtf16Length) {
  CDebugLog log(files, system, kModule);
  // U+1F600 is two UTF-16 code units but one default character: the count keeps two bytes, the
  // second being the zero that follows the converted text.
  log.WriteMessage(L"\U0001F600!");
  const std::string expected = std::string(kPrefix) + "?!\r\n" + std::string(1, '\0');
  EXPECT_EQ(files.FileContent(kLogFile), expected);
}

TEST_F(DebugLogTest, OpenFailureIsReturnedAndSwallowedByLogAndRetriedLater) {
  files.FailOperation(FileOp::kOpen, err::kAccessDenied);
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"x"), HResultFromWin32(err::kAccessDenied));
  log.WriteMessage(L"swallowed");
  EXPECT_FALSE(files.HasFile(kLogFile));
  EXPECT_EQ(files.Calls(FileOp::kOpen), 2);  // not in the map: a later write opens afresh
  files.ClearFailures();
  log.WriteMessage(L"now");
  EXPECT_EQ(files.FileContent(kLogFile), std::string(kPrefix) + "now\r\n");
}

TEST_F(DebugLogTest, WriteFailureIsReturnedWithoutFlush) {
  files.FailOperation(FileOp::kWrite, err::kDiskFull);
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"x"), HResultFromWin32(err::kDiskFull));
  EXPECT_EQ(files.Calls(FileOp::kFlush), 0);
}

TEST_F(DebugLogTest, MissingFolderFailsWithPathNotFound) {
  CDebugLog log(files, system, L"D:\\Nowhere\\tarnwick.exe");
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"x"), HResultFromWin32(err::kPathNotFound));
}

TEST_F(DebugLogTest, EncodingFailureThrowsTheErrorAsHResult) {
  system.encodeError = err::kInvalidParameter;
  CDebugLog log(files, system, kModule);
  try {
    log.WriteMessage(L"x");
    FAIL() << "no exception";
  } catch (const HResultError& error) {
    EXPECT_EQ(error.code(), HResultFromWin32(err::kInvalidParameter));
  }
}

TEST_F(DebugLogTest, OutOfMemoryThrowsEOutOfMemoryAndReleasesTheLock) {
  system.encodeRunsOutOfMemory = true;
  CDebugLog log(files, system, kModule);
  try {
    log.WriteMessage(L"x");
    FAIL() << "no exception";
  } catch (const HResultError& error) {
    EXPECT_EQ(error.code(), hr::kOutOfMemory);
  }
  system.encodeRunsOutOfMemory = false;
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"after"), hr::kOk);  // the lock was released
}

TEST_F(DebugLogTest, FileOfExactlyTheLimitIsNotRotated) {
  files.SetFile(kLogFile, std::string(kLogRotationSize, 'a'));
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"next"), hr::kOk);
  EXPECT_FALSE(files.HasFile(kRotatedFile));
  EXPECT_EQ(files.FileContent(kLogFile).size(), kLogRotationSize + std::strlen(kPrefix) + 6);
}

TEST_F(DebugLogTest, FileOneByteOverTheLimitIsRotatedBeforeTheLine) {
  const std::string old = "old first line\r\n" + std::string(kLogRotationSize - 15, 'a');
  ASSERT_EQ(old.size(), kLogRotationSize + 1);
  files.SetFile(kLogFile, old);
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"first of the new file"), hr::kOk);
  EXPECT_TRUE(files.FileContent(kRotatedFile) == old);
  EXPECT_EQ(files.FileContent(kLogFile), std::string(kPrefix) + "first of the new file\r\n");
  EXPECT_EQ(files.Opens(CreationDisposition::kCreateAlways), 1);
  EXPECT_EQ(files.OpenHandles(), 1);  // the old handle was closed
  log.WriteMessage(L"second");
  EXPECT_EQ(files.Calls(FileOp::kOpen), 2);  // the new handle is cached
  EXPECT_EQ(files.FileContent(kLogFile), std::string(kPrefix) + "first of the new file\r\n" +
                                             std::string(kPrefix) + "second\r\n");
}

TEST_F(DebugLogTest, RotationOverwritesTheOlderGeneration) {
  files.SetFile(kRotatedFile, "generation before");
  files.SetFile(kLogFile, std::string(kLogRotationSize + 1, 'b'));
  CDebugLog log(files, system, kModule);
  log.WriteMessage(L"x");
  EXPECT_TRUE(files.FileContent(kRotatedFile) == std::string(kLogRotationSize + 1, 'b'));
}

TEST_F(DebugLogTest, FailedCopyStillEmptiesTheFile) {
  files.FailOperation(FileOp::kCopy, err::kAccessDenied);
  files.SetFile(kLogFile, std::string(kLogRotationSize + 1, 'c'));
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"x"), hr::kOk);  // the copy's result is ignored
  EXPECT_EQ(files.FileContent(kLogFile), std::string(kPrefix) + "x\r\n");
}

TEST_F(DebugLogTest, FailedReopenKeepsTheStaleHandleAndLaterWritesFail) {
  files.SetFile(kLogFile, std::string(kLogRotationSize + 1, 'd'));
  files.FailOperation(FileOp::kOpen, err::kSharingViolation, /*succeedFirst=*/1);
  CDebugLog log(files, system, kModule);
  // This write goes to INVALID_HANDLE_VALUE and fails.
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"lost"), HResultFromWin32(err::kInvalidHandle));
  EXPECT_TRUE(files.FileContent(kRotatedFile) == std::string(kLogRotationSize + 1, 'd'));
  EXPECT_EQ(files.Calls(FileOp::kOpen), 2);
  files.ClearFailures();
  // The map still holds the closed handle: no new open, and the write fails.
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"also lost"), HResultFromWin32(err::kInvalidHandle));
  log.WriteMessage(L"swallowed");
  EXPECT_EQ(files.Calls(FileOp::kOpen), 2);
  EXPECT_EQ(files.OpenHandles(), 0);
  EXPECT_EQ(files.FileContent(kLogFile).size(), kLogRotationSize + 1);  // nothing was added
}

// The fake file system handing out a closed handle's value again for the next file opened, as
// Windows does.
class RecyclingFileSystem final : public FakeFileSystem {
 public:
  using FakeFileSystem::FakeFileSystem;
  FileHandle lastClosed = kInvalidFileHandle;

  err::Win32Error Open(std::wstring_view path, const FileOpenRequest& request,
                       FileHandle& handle) override {
    FileHandle inner = kInvalidFileHandle;
    handle = kInvalidFileHandle;
    const err::Win32Error error = FakeFileSystem::Open(path, request, inner);
    if (error != err::kSuccess) return error;
    if (free_.empty()) {
      next_ += 4;
      handle = next_;
    } else {
      handle = free_.back();
      free_.pop_back();
    }
    inner_[handle] = inner;
    return err::kSuccess;
  }
  err::Win32Error Close(FileHandle handle) override {
    const auto found = inner_.find(handle);
    if (found == inner_.end()) return err::kInvalidHandle;
    FakeFileSystem::Close(found->second);
    inner_.erase(found);
    free_.push_back(handle);
    lastClosed = handle;
    return err::kSuccess;
  }
  err::Win32Error Seek(FileHandle handle, std::int64_t distance, SeekOrigin origin,
                       std::uint64_t& position) override {
    return FakeFileSystem::Seek(Inner(handle), distance, origin, position);
  }
  err::Win32Error QuerySize(FileHandle handle, std::uint64_t& size) override {
    return FakeFileSystem::QuerySize(Inner(handle), size);
  }
  err::Win32Error Write(FileHandle handle, const void* data, std::uint32_t byteCount,
                        std::uint32_t& written) override {
    return FakeFileSystem::Write(Inner(handle), data, byteCount, written);
  }
  err::Win32Error Flush(FileHandle handle) override { return FakeFileSystem::Flush(Inner(handle)); }

 private:
  // A value the fake never issued stands for a handle that is not open.
  FileHandle Inner(FileHandle handle) const {
    const auto found = inner_.find(handle);
    return found == inner_.end() ? kClosedFileHandle : found->second;
  }
  std::map<FileHandle, FileHandle> inner_;
  std::vector<FileHandle> free_;
  FileHandle next_ = 0x100;
};

// The closed handle the log keeps after a failed reopen is kept as kClosedFileHandle, never as its
// old value: a file opened afterwards that receives that value gets none of the log's lines, and
// the log's destructor does not close it.
TEST_F(DebugLogTest, AClosedHandleValueHandedOutAgainNeverReceivesTheLog) {
  RecyclingFileSystem recycling{kModule};
  recycling.SetFile(kLogFile, std::string(kLogRotationSize + 1, 'f'));
  recycling.FailOperation(FileOp::kOpen, err::kSharingViolation, /*succeedFirst=*/1);
  const wchar_t kOther[] = L"C:\\Tools\\other.txt";
  FileHandle other = kInvalidFileHandle;
  {
    CDebugLog log(recycling, system, kModule);
    EXPECT_EQ(log.WriteEntry(L"tarnwick", L"lost"), HResultFromWin32(err::kInvalidHandle));
    recycling.ClearFailures();
    FileOpenRequest request;
    request.write = true;
    request.disposition = CreationDisposition::kCreateNew;
    ASSERT_EQ(recycling.Open(kOther, request, other), err::kSuccess);
    ASSERT_EQ(other, recycling.lastClosed);  // the value the log's handle had
    EXPECT_EQ(log.WriteEntry(L"tarnwick", L"must not land"), HResultFromWin32(err::kInvalidHandle));
    EXPECT_EQ(recycling.FileContent(kOther), "");
  }
  EXPECT_EQ(recycling.Close(other), err::kSuccess);  // still open: the log left it alone
  EXPECT_EQ(recycling.FileContent(kLogFile).size(), kLogRotationSize + 1);
}

TEST_F(DebugLogTest, SizeFailureSkipsRotation) {
  files.SetFile(kLogFile, std::string(kLogRotationSize + 1, 'e'));
  files.FailOperation(FileOp::kQuerySize, err::kInvalidFunction);
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"x"), hr::kOk);
  EXPECT_FALSE(files.HasFile(kRotatedFile));
  EXPECT_EQ(files.FileContent(kLogFile).size(), kLogRotationSize + 1 + std::strlen(kPrefix) + 3);
}

// --- A log file that several processes share ---

TEST_F(DebugLogTest, LineBreakInAnArgumentCannotStartALine) {
  CDebugLog log(files, system, kModule);
  log.Log(L"Processing folder %s", L"x\r\n[11/16/26 02:21:38][0x00000001] forged\n");
  EXPECT_EQ(files.FileContent(kLogFile),
            std::string(kPrefix) +
                "Processing folder x<CR><LF>[11/16/26 02:21:38][0x00000001] forged<LF>\r\n");
}

TEST_F(DebugLogTest, LineBreakOfAFinishedMessageIsWrittenAsItStands) {
  // The run flow's summary carries its own "\r\n": the entry ends in an empty line.
  CDebugLog log(files, system, kModule);
  log.WriteMessage(L"1 profiles were migrated from \\\\srv\\p\\alice.\r\n");
  EXPECT_EQ(files.FileContent(kLogFile),
            std::string(kPrefix) + "1 profiles were migrated from \\\\srv\\p\\alice.\r\n\r\n");
}

TEST_F(DebugLogTest, EachLineIsAppendedAfterWhatAnotherWriterAdded) {
  // Two logs over one file play two processes: each keeps its handle open, and neither
  // overwrites the other's lines.
  CDebugLog first(files, system, kModule);
  CDebugLog second(files, system, kModule);
  first.WriteMessage(L"one");
  second.WriteMessage(L"two");
  first.WriteMessage(L"three");
  second.WriteMessage(L"four");
  EXPECT_EQ(files.FileContent(kLogFile), std::string(kPrefix) + "one\r\n" + kPrefix + "two\r\n" +
                                             kPrefix + "three\r\n" + kPrefix + "four\r\n");
}

TEST_F(DebugLogTest, EveryWriteHoldsTheFileLockUntilTheLineIsWritten) {
  CDebugLog log(files, system, kModule);
  for (int i = 0; i < 3; ++i) log.Log(L"line %d", i);
  EXPECT_EQ(files.Calls(FileOp::kLockLog), 3);
  EXPECT_EQ(files.Calls(FileOp::kUnlockLog), 3);
  // The lock is free again: another writer gets it at once.
  EXPECT_EQ(files.LockLogFile(kLogFile), err::kSuccess);
  EXPECT_EQ(files.UnlockLogFile(kLogFile), err::kSuccess);
}

TEST_F(DebugLogTest, LockIsHeldAcrossTheRotationAndReleasedAfterAFailedReopen) {
  files.SetFile(kLogFile, std::string(kLogRotationSize + 1, 'f'));
  files.FailOperation(FileOp::kOpen, err::kSharingViolation, /*succeedFirst=*/1);
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"lost"), HResultFromWin32(err::kInvalidHandle));
  EXPECT_EQ(files.Calls(FileOp::kLockLog), 1);
  EXPECT_EQ(files.Calls(FileOp::kUnlockLog), 1);
  EXPECT_EQ(files.LockLogFile(kLogFile), err::kSuccess);  // not left locked
  EXPECT_EQ(files.UnlockLogFile(kLogFile), err::kSuccess);
}

TEST_F(DebugLogTest, LineIsWrittenWhenTheLockCannotBeHad) {
  files.FailOperation(FileOp::kLockLog, err::kNotSupported);
  CDebugLog log(files, system, kModule);
  EXPECT_EQ(log.WriteEntry(L"tarnwick", L"unlocked"), hr::kOk);
  EXPECT_EQ(files.FileContent(kLogFile), std::string(kPrefix) + "unlocked\r\n");
  EXPECT_EQ(files.Calls(FileOp::kUnlockLog), 0);
}

TEST_F(DebugLogTest, FourWritersSharingOneFileRotateItOnceAndLoseNothing) {
  // Four logs over one file, each on its own thread, play four processes. The file starts just
  // below the limit, so that it is rotated once while they write.
  constexpr int kWriters = 4;
  constexpr int kLines = 500;
  const std::string head = "head\r\n";
  std::string start = head + std::string(kLogRotationSize - 2000 - head.size() - 2, 'h') + "\r\n";
  files.SetFile(kLogFile, start);
  std::vector<std::thread> threads;
  for (int writer = 0; writer < kWriters; ++writer) {
    threads.emplace_back([this, writer] {
      CDebugLog log(files, system, kModule);
      for (int i = 0; i < kLines; ++i) log.Log(L"writer %d line %d", writer, i);
    });
  }
  for (std::thread& thread : threads) thread.join();

  const std::string rotated = files.FileContent(kRotatedFile);
  const std::string current = files.FileContent(kLogFile);
  ASSERT_GT(rotated.size(), kLogRotationSize);
  EXPECT_LT(current.size(), kLogRotationSize);
  ASSERT_EQ(rotated.substr(0, start.size()), start);  // the rotated copy is the older lines
  std::vector<int> next(kWriters, 0);
  std::istringstream lines(rotated.substr(start.size()) + current);
  std::string line;
  const std::string prefix(kPrefix);
  while (std::getline(lines, line)) {
    ASSERT_EQ(line.substr(0, prefix.size()), prefix) << line;
    int writer = -1;
    int number = -1;
    ASSERT_EQ(std::sscanf(line.c_str() + prefix.size(), "writer %d line %d\r", &writer, &number), 2)
        << line;
    ASSERT_TRUE(writer >= 0 && writer < kWriters) << line;
    EXPECT_EQ(number, next[writer]) << line;  // each writer's lines, in its order
    next[writer] = number + 1;
  }
  EXPECT_EQ(next, std::vector<int>(kWriters, kLines));
}

TEST(LogPathHash, IsTimes33PlusUpperCaseOn32Bits) {
  const LogPathHash hash;
  EXPECT_EQ(hash(L""), 0u);
  EXPECT_EQ(hash(L"a"), static_cast<std::uint32_t>(L'A'));
  EXPECT_EQ(hash(L"ab"), static_cast<std::uint32_t>(L'A') * 33u + static_cast<std::uint32_t>(L'B'));
  EXPECT_EQ(hash(L"C:\\Tools\\tarnwick.log"), hash(L"c:\\TOOLS\\TARNWICK.LOG"));
  std::uint32_t expected = 0;
  for (const wchar_t c : std::wstring(L"c:\\a very long path\\that overflows 32 bits.log")) {
    const wchar_t upper = (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 32) : c;
    expected = expected * 33u + static_cast<std::uint32_t>(upper);
  }
  EXPECT_EQ(hash(L"c:\\a very long path\\that overflows 32 bits.log"), expected);
  EXPECT_TRUE(LogPathEqual()(L"C:\\X.log", L"c:\\x.LOG"));
  EXPECT_FALSE(LogPathEqual()(L"C:\\X.log", L"C:\\Y.log"));
}

TEST_F(DebugLogTest, ModulePathCountsOnlyItsFirst260Characters) {
  // 264 characters: a buffer of 261 holds "C:\ddd...\abc.def", so the name is "abc", not
  // "abc.def".
  const std::wstring longPath = L"C:\\" + std::wstring(249, L'd') + L"\\abc.def.exe";
  ASSERT_EQ(longPath.size(), 264u);
  CDebugLog log(files, system, longPath);
  EXPECT_EQ(log.LogName(), L"abc");
}

TEST(ActiveLog, IsTheProcessLogUnlessRedirected) {
  EXPECT_EQ(&ActiveLog(), static_cast<LogWriter*>(&g_log));
  {
    testing::LogCapture capture;
    Log(L"to the capture %d", 7);
    EXPECT_EQ(&ActiveLog(), static_cast<LogWriter*>(&capture));
    ASSERT_EQ(capture.messages().size(), 1u);
    EXPECT_EQ(capture.messages()[0], L"to the capture 7");
  }
  EXPECT_EQ(&ActiveLog(), static_cast<LogWriter*>(&g_log));
}

}  // namespace
}  // namespace tw
