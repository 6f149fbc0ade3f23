// The system port over the C run-time's clock and the Win32 thread and code-page calls.
#include "ports/system_services.h"

#include <ctime>
#include <string>

#include "os/native_ports.h"
#include "os/win32/windows_headers.h"

namespace tw {
namespace {

class Win32SystemServices final : public SystemServices {
 public:
  bool CurrentLocalTime(CalendarTime& time) override {
    const std::time_t now = std::time(nullptr);
    struct tm local {};
    if (::localtime_s(&local, &now) != 0) return false;
    time.year = local.tm_year + 1900;
    time.month = local.tm_mon + 1;
    time.day = local.tm_mday;
    time.dayOfWeek = local.tm_wday;
    time.hour = local.tm_hour;
    time.minute = local.tm_min;
    time.second = local.tm_sec;
    return true;
  }

  std::uint32_t CurrentThreadId() override {
    return static_cast<std::uint32_t>(::GetCurrentThreadId());
  }

  // The buffer starts with room for four bytes per character; when that is not enough the
  // needed size is asked for and the conversion repeated.
  [[nodiscard]] err::Win32Error EncodeToThreadAnsi(std::wstring_view text,
                                                   std::string& bytes) override {
    bytes.clear();
    if (text.empty()) return err::kSuccess;
    const int length = static_cast<int>(text.size());
    std::string buffer(text.size() * 4, '\0');
    int written = ::WideCharToMultiByte(CP_THREAD_ACP, 0, text.data(), length, buffer.data(),
                                        static_cast<int>(buffer.size()), nullptr, nullptr);
    if (written == 0) {
      const DWORD error = ::GetLastError();
      if (error != ERROR_INSUFFICIENT_BUFFER) return static_cast<err::Win32Error>(error);
      const int needed = ::WideCharToMultiByte(CP_THREAD_ACP, 0, text.data(), length, nullptr, 0,
                                               nullptr, nullptr);
      if (needed == 0) return static_cast<err::Win32Error>(::GetLastError());
      buffer.assign(static_cast<std::size_t>(needed), '\0');
      written = ::WideCharToMultiByte(CP_THREAD_ACP, 0, text.data(), length, buffer.data(), needed,
                                      nullptr, nullptr);
      if (written == 0) return static_cast<err::Win32Error>(::GetLastError());
    }
    buffer.resize(static_cast<std::size_t>(written));
    bytes = std::move(buffer);
    return err::kSuccess;
  }
};

}  // namespace

SystemServices& NativeSystemServices() {
  static Win32SystemServices services;
  return services;
}

}  // namespace tw
