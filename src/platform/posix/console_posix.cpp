#include <cstdio>
#include <string>

#include "base/text_encoding.h"
#include "platform/console.h"

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

Console& ProcessConsole() {
  static StdoutConsole console;
  return console;
}

}  // namespace tw
