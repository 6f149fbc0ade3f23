// UNC paths on Linux: "\\server\share\rest" names a local folder through the share map.
//
// The share map (share_map.h) names the folder behind each share; ToNativePath hands every UNC
// path here.
#pragma once

#include <string>
#include <string_view>

#include "base/win32_error.h"

namespace tw::posix {

// The Linux path behind uncPath, which starts with two backslashes ("\\server\share\rest"; the
// "\\?\UNC\" prefix has already been turned into "\\"). Returns false with error set when the
// server is unknown (kBadNetPath) or the server has no such share (kBadNetName), and also
// kBadNetPath for every UNC path when the share map could not be used. The rest of the path is
// appended as it stands; its case is resolved by ToNativePath.
bool MapUncPathToNative(std::wstring_view uncPath, std::string& native, err::Win32Error& error);

}  // namespace tw::posix
