// The usage text printed for "/help", "-help", "/?" and "-?".
#pragma once

namespace tw {

extern const wchar_t* const kUsageText;

}  // namespace tw
