// System port: the clock, the thread id and the thread's ANSI code page, as the log needs them.
// Implementations are safe to call from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/win32_error.h"

namespace tw {

// Local calendar time, the fields of a SYSTEMTIME (milliseconds are not kept).
struct CalendarTime {
  int year = 0;       // full year, e.g. 2026
  int month = 0;      // 1-12
  int day = 0;        // 1-31
  int dayOfWeek = 0;  // 0 = Sunday
  int hour = 0;       // 0-23
  int minute = 0;     // 0-59
  int second = 0;     // 0-59 (60 for a leap second where the C library reports one)
};

class SystemServices {
 public:
  SystemServices() = default;
  SystemServices(const SystemServices&) = delete;
  SystemServices& operator=(const SystemServices&) = delete;
  SystemServices(SystemServices&&) = delete;
  SystemServices& operator=(SystemServices&&) = delete;
  virtual ~SystemServices() = default;

  // time() converted by the safe form of localtime(). Returns false when the conversion fails;
  // time is then left as it was.
  virtual bool CurrentLocalTime(CalendarTime& time) = 0;

  // GetCurrentThreadId().
  virtual std::uint32_t CurrentThreadId() = 0;

  // WideCharToMultiByte(CP_THREAD_ACP, 0, text, ..., NULL, NULL): text in the calling thread's
  // ANSI code page, characters it lacks replaced by the code page's default character. On
  // failure returns the Win32 error and leaves bytes empty.
  [[nodiscard]] virtual err::Win32Error EncodeToThreadAnsi(std::wstring_view text,
                                                           std::string& bytes) = 0;
};

// The process's real system services. It lives until the process exits.
SystemServices& ProcessSystemServices();

}  // namespace tw
