// How gtest and diagnostics print the two result types.
#include <cstdio>
#include <ostream>

#include "base/hresult.h"
#include "base/win32_error.h"

namespace tw {

void PrintTo(HResult result, std::ostream* out) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(result.Bits()));
  *out << text;
}

namespace err {
void PrintTo(Win32Error error, std::ostream* out) { *out << "Win32Error " << error.Code(); }
}  // namespace err

}  // namespace tw
