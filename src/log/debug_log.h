// CDebugLog: the process log file beside the executable ("C:\Tools\tarnwick.exe" writes
// "C:\Tools\tarnwick.log"). Each line is "[MM/DD/YY HH:MM:SS][0x<thread id>] message" + CR LF,
// appended across runs, flushed after every line, and rotated into "<name> (previous).log" once
// the file has grown past 10,485,760 bytes.
//
// Deliberate deviation, for runs that share the program and therefore its log: every line is
// appended in one write, and the size test, the rotation and the write happen under a lock that
// all processes writing the file take (FileSystem::LockLogFile), so that lines of several
// processes are neither lost nor torn and only one of them rotates the file.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "base/format.h"
#include "base/hresult.h"
#include "log/log.h"
#include "log/reference_count.h"
#include "ports/file_system.h"
#include "ports/system_services.h"

namespace tw {

// A log file grows up to this size; a write that finds it larger rotates it first.
constexpr std::uint64_t kLogRotationSize = 10'485'760;  // 0xA00000, 10 MiB

// Keys of the open-file map: case-insensitive by the C run-time's rule (the tool runs in the "C"
// locale, where towupper changes only a-z).
struct LogPathHash {
  // Starting at 0, hash = hash * 33 + towupper(c) for every character, on 32 bits.
  std::uint32_t operator()(std::wstring_view path) const;
};
struct LogPathEqual {
  bool operator()(std::wstring_view a, std::wstring_view b) const;  // _wcsicmp(a, b) == 0
};

class CDebugLog : public CReferenceCount, public LogWriter {
 public:
  // The process log: the process's real ports, and the path of the running program.
  CDebugLog();

  // A log over the given ports, as if the running program were modulePath (Windows form). Only
  // its first 260 characters count, as GetModuleFileNameW fills a buffer of 261. Nothing is
  // opened before the first write.
  CDebugLog(FileSystem& fileSystem, SystemServices& system, std::wstring_view modulePath);

  // Closes every handle in openFiles that is not kInvalidFileHandle, under the lock.
  ~CDebugLog() override;

  // Writes one line built from a checked format and its arguments (CR and LF inside them
  // escaped, as FormatMessageText does). Failures are swallowed.
  template <class... Args>
  void Log(FormatString<Args...> format, const Args&... args) {
    WriteMessage(FormatMessageText(format, args...));
  }

  // LogWriter: WriteEntry(logName, message); its result is discarded. Only exceptions
  // (out of memory, a failed ANSI conversion) leave it.
  void WriteMessage(std::wstring_view message) override;

  // Writes one line with message into "<logDirectory><name>.log" ("/" in that path becomes
  // "-"). Returns S_OK or the HRESULT of the Win32 error of the failing call. Running out of
  // memory throws HResultError(E_OUTOFMEMORY).
  [[nodiscard]] HResult WriteEntry(std::wstring_view name, std::wstring_view message);

  // The folder of the program with a trailing backslash, and its file name without extension.
  const std::wstring& LogDirectory() const { return logDirectory; }
  const std::wstring& LogName() const { return logName; }

 private:
  // WriteEntry's steps; an allocation failure leaves it as std::bad_alloc.
  [[nodiscard]] HResult WriteLine(std::wstring_view name, std::wstring_view message);

  FileSystem& fileSystem_;
  SystemServices& system_;

  // The specified fields, in their order. Full log path -> its open handle (or
  // kClosedFileHandle for the handle a failed rotation closed; see WriteEntry).
  std::unordered_map<std::wstring, FileHandle, LogPathHash, LogPathEqual> openFiles;
  // Serialises every write and the destructor's clean-up. The critical section of the Windows
  // design; std::mutex is one on every platform (it cannot fail to be created, so the
  // constructor's "cannot create the lock" failure does not arise).
  std::mutex lock;
  std::wstring logDirectory;
  std::wstring logName;
};

// The process log, built first among the process-wide objects (run/process_globals.cpp).
extern CDebugLog g_log;

}  // namespace tw
