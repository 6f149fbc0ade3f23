// A console that keeps what was printed.
#pragma once

#include <string>
#include <string_view>

#include "ports/console.h"

namespace tw::testing {

class FakeConsole : public Console {
 public:
  void Write(std::wstring_view text) override { text_.append(text); }
  const std::wstring& text() const { return text_; }
  void Clear() { text_.clear(); }

 private:
  std::wstring text_;
};

}  // namespace tw::testing
