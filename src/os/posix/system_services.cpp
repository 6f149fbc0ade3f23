// The system port on Linux: local time through localtime_r (the TZ rules, never the locale),
// the kernel thread id, and Windows-1252 as the thread's ANSI code page with '?' as its default
// character, so log files are the bytes an English-language Windows writes.
#include "ports/system_services.h"

#include <sys/types.h>
#include <unistd.h>

#include <ctime>

#include "base/text_encoding.h"
#include "os/native_ports.h"

namespace tw {
namespace {

class PosixSystemServices final : public SystemServices {
 public:
  bool CurrentLocalTime(CalendarTime& time) override {
    const std::time_t now = std::time(nullptr);
    struct tm local {};
    if (::localtime_r(&now, &local) == nullptr) return false;
    time.year = local.tm_year + 1900;
    time.month = local.tm_mon + 1;
    time.day = local.tm_mday;
    time.dayOfWeek = local.tm_wday;
    time.hour = local.tm_hour;
    time.minute = local.tm_min;
    time.second = local.tm_sec;
    return true;
  }

  // The kernel's id of the calling thread; Linux ids fit in 32 bits (pid_max <= 2^22).
  std::uint32_t CurrentThreadId() override { return static_cast<std::uint32_t>(::gettid()); }

  [[nodiscard]] err::Win32Error EncodeToThreadAnsi(std::wstring_view text,
                                                   std::string& bytes) override {
    bytes = WideToWindows1252(text);
    return err::kSuccess;
  }
};

}  // namespace

SystemServices& NativeSystemServices() {
  static PosixSystemServices services;
  return services;
}

}  // namespace tw
