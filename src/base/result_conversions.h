// The places where the tool mixes a Win32 error code and a result code on purpose, as the
// documented behaviour requires. Each mix has one name here, so that it is visible where it
// happens and nothing else can mix the two types by accident (HResult and Win32Error neither
// compare nor convert). Turning a Win32 code into a result the regular way is HResultFromWin32.
#pragma once

#include "base/hresult.h"
#include "base/win32_error.h"

namespace tw {

// MigrateProfile hands some raw Win32 codes back as its result unchanged, not made HRESULTs:
// 1 (ERROR_INVALID_FUNCTION) when CreateProfile is not bound and 3 (ERROR_PATH_NOT_FOUND) when
// the temporary profile path or the target path is empty before the default-profile copy. The
// result is the code's number as it is: 1 stays 1, not 0x80070001.
[[nodiscard]] constexpr HResult RawWin32CodeAsResult(err::Win32Error code) {
  return HResult::FromBits(code.Code());
}

// The run over the profiles tests a profile's result against a bare Win32 value, ERROR_ALREADY_
// EXISTS (183), and not against its HRESULT: MigrateProfile reports an existing, finished target
// as 0x800700B7, which therefore does not match and is reported as a failure. This asymmetry is
// the documented behaviour; the test stays for any path that returns the bare value.
[[nodiscard]] constexpr bool ResultIsBareWin32Code(HResult result, err::Win32Error code) {
  return result.Bits() == code.Code();
}

}  // namespace tw
