// Standard output on Windows. On a console the text goes through WriteConsoleW, so every
// character shows whatever the console code page; redirected to a file or a pipe it is written
// as UTF-8 bytes without any line-end translation, so "\r\n" stays "\r\n".
#include "ports/console.h"

#include <string>

#include "os/native_ports.h"
#include "os/win32/windows_headers.h"

namespace tw {
namespace {

class Win32Console final : public Console {
 public:
  void Write(std::wstring_view text) override {
    HANDLE out = ::GetStdHandle(STD_OUTPUT_HANDLE);
    if (out == nullptr || out == INVALID_HANDLE_VALUE || text.empty()) return;
    DWORD mode = 0;
    if (::GetConsoleMode(out, &mode)) {
      DWORD written = 0;
      ::WriteConsoleW(out, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
      return;
    }
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                           nullptr, 0, nullptr, nullptr);
    if (size <= 0) return;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                          size, nullptr, nullptr);
    DWORD written = 0;
    ::WriteFile(out, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  }
};

}  // namespace

Console& NativeConsole() {
  static Win32Console console;
  return console;
}

}  // namespace tw
