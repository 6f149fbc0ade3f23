// The one exception type of the tool: a resource or programming failure inside a helper class
// (out of memory, invalid argument, a failing call), carrying one result code. Nothing in the
// migration catches it; it ends the process.
#pragma once

#include <exception>

#include "base/hresult.h"

namespace tw {

class HResultError : public std::exception {
 public:
  explicit HResultError(HResult code) noexcept : code_(code) {}
  [[nodiscard]] HResult code() const noexcept { return code_; }
  const char* what() const noexcept override;

 private:
  HResult code_;
};

[[noreturn]] void ThrowHResult(HResult code);

}  // namespace tw
