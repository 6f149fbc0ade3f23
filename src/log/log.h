// Log(format, ...): the one way every part of the tool writes to the log. The log adds the
// timestamp, the thread id and the line break, and never prints to the console.
//
// Log() takes a checked format literal and its arguments. A message that is already finished
// (the run flow's reports) is written with LogText(), as it stands: a "%" in it is never
// interpreted a second time.
#pragma once

#include <string>
#include <string_view>

#include "base/format.h"

namespace tw {

// Anything that takes finished log messages: the process log (CDebugLog), or a test's capture.
class LogWriter {
 public:
  LogWriter() = default;
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;
  virtual ~LogWriter() = default;

  // Writes one finished message as one line. Failures are swallowed.
  virtual void WriteMessage(std::wstring_view message) = 0;
};

// The writer Log() goes to: the process log g_log, unless a ScopedLogRedirect is alive.
LogWriter& ActiveLog();

// Points Log() at another writer for the lifetime of this object (tests). Not thread-safe:
// install it before starting threads that log.
class ScopedLogRedirect {
 public:
  explicit ScopedLogRedirect(LogWriter& writer);
  ~ScopedLogRedirect();
  ScopedLogRedirect(const ScopedLogRedirect&) = delete;
  ScopedLogRedirect& operator=(const ScopedLogRedirect&) = delete;

 private:
  LogWriter* previous_;
};

// A CR or LF inside an argument is escaped (FormatMessageText), so every line of the log starts
// with its timestamp; the line breaks of the format itself are kept.
template <class... Args>
void Log(FormatString<Args...> format, const Args&... args) {
  ActiveLog().WriteMessage(FormatMessageText(format, args...));
}

inline void LogText(std::wstring_view finished) { ActiveLog().WriteMessage(finished); }

}  // namespace tw
