// Result codes of the tool: 32-bit HRESULT-style values, 0 success, negative failure.
#pragma once

#include <cstdint>

namespace tw {

using HResult = std::int32_t;

// The one rule for turning a Win32 error code into a result: a code above 0 becomes
// (code AND 0xFFFF) OR 0x80070000; 0 and values that are already negative are kept.
constexpr HResult HResultFromWin32(std::uint32_t code) {
  const auto asSigned = static_cast<std::int32_t>(code);
  if (asSigned <= 0) return asSigned;
  return static_cast<HResult>((code & 0xFFFFu) | 0x80070000u);
}

constexpr bool Succeeded(HResult hr) { return hr >= 0; }
constexpr bool Failed(HResult hr) { return hr < 0; }

namespace hr {
constexpr HResult kOk = 0;                                            // S_OK
constexpr HResult kFalse = 1;                                         // S_FALSE
constexpr HResult kFail = static_cast<HResult>(0x80004005u);          // E_FAIL
constexpr HResult kNotImpl = static_cast<HResult>(0x80004001u);       // E_NOTIMPL
constexpr HResult kOutOfMemory = static_cast<HResult>(0x8007000Eu);   // E_OUTOFMEMORY
constexpr HResult kInvalidArg = static_cast<HResult>(0x80070057u);    // E_INVALIDARG
constexpr HResult kAccessDenied = static_cast<HResult>(0x80070005u);  // E_ACCESSDENIED
constexpr HResult kHandle = static_cast<HResult>(0x80070006u);        // E_HANDLE: the -1 handle
constexpr HResult kNotBound =
    static_cast<HResult>(0x80070001u);  // an unbound offline-registry function
constexpr HResult kAlreadyExists =
    static_cast<HResult>(0x800700B7u);  // an existing, finished target
// The program's own codes.
constexpr HResult kSourceProfileInvalid = static_cast<HResult>(0x80040001u);
constexpr HResult kTargetProfileInvalid = static_cast<HResult>(0x80040002u);
}  // namespace hr

}  // namespace tw
