// A SystemServices for tests: a set clock and thread id, the Windows-1252 encoding of the POSIX
// adapter, and switches to make the clock or the encoding fail.
#pragma once

#include <cstdint>
#include <new>
#include <string>
#include <string_view>

#include "base/text_encoding.h"
#include "ports/system_services.h"

namespace tw::testing {

class FakeSystemServices : public SystemServices {
 public:
  CalendarTime time{2026, 11, 16, 1, 2, 21, 38};  // 11/16/26 02:21:38, a Monday
  bool clockWorks = true;
  std::uint32_t threadId = 0x1a2c;
  err::Win32Error encodeError = err::kSuccess;
  bool encodeRunsOutOfMemory = false;  // the encoding throws std::bad_alloc

  bool CurrentLocalTime(CalendarTime& out) override {
    if (!clockWorks) return false;
    out = time;
    return true;
  }
  std::uint32_t CurrentThreadId() override { return threadId; }
  err::Win32Error EncodeToThreadAnsi(std::wstring_view text, std::string& bytes) override {
    bytes.clear();
    if (encodeRunsOutOfMemory) throw std::bad_alloc();
    if (encodeError != err::kSuccess) return encodeError;
    bytes = WideToWindows1252(text);
    return err::kSuccess;
  }
};

}  // namespace tw::testing
