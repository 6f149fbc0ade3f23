// Collects what the code under test logs, message by message, while it is alive.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "log/log.h"

namespace tw::testing {

class LogCapture : public LogWriter {
 public:
  LogCapture() : redirect_(*this) {}
  void WriteMessage(std::wstring_view message) override { messages_.emplace_back(message); }
  const std::vector<std::wstring>& messages() const { return messages_; }
  void Clear() { messages_.clear(); }

 private:
  std::vector<std::wstring> messages_;
  ScopedLogRedirect redirect_;
};

}  // namespace tw::testing
