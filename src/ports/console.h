// Console port: the tool's standard output.
#pragma once

#include <string_view>

namespace tw {

class Console {
 public:
  Console() = default;
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
  virtual ~Console() = default;

  // Prints the text as it stands (no "%" is interpreted, no line break is added, "\r\n" is
  // written as is) and flushes.
  virtual void Write(std::wstring_view text) = 0;
};

// The process's standard output (POSIX: UTF-8; Windows: the console, or UTF-8 bytes when
// redirected).
Console& ProcessConsole();

}  // namespace tw
