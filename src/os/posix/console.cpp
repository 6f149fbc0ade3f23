#include "ports/console.h"

#include <cstdio>
#include <string>

#include "base/text_encoding.h"
#include "os/native_ports.h"

namespace tw {
namespace {

class StdoutConsole final : public Console {
 public:
  void Write(std::wstring_view text) override {
    const std::string bytes = WideToUtf8(text);
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
    std::fflush(stdout);
  }
};

}  // namespace

Console& NativeConsole() {
  static StdoutConsole console;
  return console;
}

}  // namespace tw
