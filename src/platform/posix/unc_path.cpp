#include "platform/posix/unc_path.h"

namespace tw::posix {

// No share map is loaded yet, so no server is known: every UNC path fails as one on an unknown
// server does on Windows. The share map replaces this body.
bool MapUncPathToNative(std::wstring_view /*uncPath*/, std::string& native,
                        err::Win32Error& error) {
  native.clear();
  error = err::kBadNetPath;
  return false;
}

}  // namespace tw::posix
