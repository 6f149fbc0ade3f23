// UNC paths on Linux: "\\server\share\rest" names a local folder through the share map.
//
// Extension point: the share map (TARNWICK_SHARES, one "\\server\share = /absolute/folder" per
// line) is built here. ToNativePath hands every UNC path to MapUncPathToNative and nothing
// else needs to change when the map arrives.
#pragma once

#include <string>
#include <string_view>

#include "base/win32_error.h"

namespace tw::posix {

// The Linux path behind uncPath, which starts with two backslashes ("\\server\share\rest"; the
// "\\?\UNC\" prefix has already been turned into "\\"). Returns false with error set when the
// server is unknown (kBadNetPath) or the server has no such share (kBadNetName).
bool MapUncPathToNative(std::wstring_view uncPath, std::string& native, err::Win32Error& error);

}  // namespace tw::posix
