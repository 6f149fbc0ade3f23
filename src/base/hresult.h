// Result codes of the tool: 32-bit HRESULT-style values, 0 success, negative failure.
//
// HResult is its own type: it neither converts to nor compares with an integer or a Win32Error
// (base/win32_error.h). A raw value enters only through the explicit constructor (an HRESULT that
// a COM call or a platform function returned) or FromBits (a code as written in hex); a Win32
// code becomes one only through HResultFromWin32. Base/format prints it through FormatValue, so
// "0x%08X" shows its 32 bits as before.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "base/win32_error.h"

namespace tw {

class HResult {
 public:
  constexpr HResult() noexcept = default;  // S_OK
  constexpr explicit HResult(std::int32_t value) noexcept : value_(value) {}
  HResult(err::Win32Error) = delete;  // a Win32 code goes through HResultFromWin32

  // The code as it is written in hex, 0x80070005.
  [[nodiscard]] static constexpr HResult FromBits(std::uint32_t bits) noexcept {
    return HResult(static_cast<std::int32_t>(bits));
  }
  [[nodiscard]] static HResult FromBits(err::Win32Error) = delete;

  [[nodiscard]] constexpr std::int32_t Value() const noexcept { return value_; }
  [[nodiscard]] constexpr std::uint32_t Bits() const noexcept {
    return static_cast<std::uint32_t>(value_);
  }
  // The value base/format prints: the signed 32-bit code, as the tool always printed it.
  [[nodiscard]] constexpr std::int32_t FormatValue() const noexcept { return value_; }

  friend constexpr bool operator==(HResult, HResult) noexcept = default;

 private:
  std::int32_t value_ = 0;
};

// gtest prints an HResult as "0x80070005".
void PrintTo(HResult result, std::ostream* out);

// The one rule for turning a Win32 error code into a result: a code above 0 becomes
// (code AND 0xFFFF) OR 0x80070000; 0 and values that are already negative are kept.
[[nodiscard]] constexpr HResult HResultFromWin32(err::Win32Error error) {
  const std::uint32_t code = error.Code();
  const auto asSigned = static_cast<std::int32_t>(code);
  if (asSigned <= 0) return HResult(asSigned);
  return HResult::FromBits((code & 0xFFFFu) | 0x80070000u);
}

[[nodiscard]] constexpr bool Succeeded(HResult hr) { return hr.Value() >= 0; }
[[nodiscard]] constexpr bool Failed(HResult hr) { return hr.Value() < 0; }

namespace hr {
constexpr HResult kOk{0};                                          // S_OK
constexpr HResult kFalse{1};                                       // S_FALSE
constexpr HResult kFail = HResult::FromBits(0x80004005u);          // E_FAIL
constexpr HResult kNotImpl = HResult::FromBits(0x80004001u);       // E_NOTIMPL
constexpr HResult kOutOfMemory = HResult::FromBits(0x8007000Eu);   // E_OUTOFMEMORY
constexpr HResult kInvalidArg = HResult::FromBits(0x80070057u);    // E_INVALIDARG
constexpr HResult kAccessDenied = HResult::FromBits(0x80070005u);  // E_ACCESSDENIED
constexpr HResult kHandle = HResult::FromBits(0x80070006u);        // E_HANDLE: the -1 handle
constexpr HResult kNotBound =
    HResult::FromBits(0x80070001u);  // an unbound offline-registry function
constexpr HResult kAlreadyExists = HResult::FromBits(0x800700B7u);  // an existing, finished target
// The program's own codes.
constexpr HResult kSourceProfileInvalid = HResult::FromBits(0x80040001u);
constexpr HResult kTargetProfileInvalid = HResult::FromBits(0x80040002u);
}  // namespace hr

}  // namespace tw
