// Names found ignoring case, remembered for the life of the process. A run handed a path in
// another case than the folders have on disk (the tool lower-cases "/s:" and "/t:") would
// otherwise look the wrong name up, fail, and walk the path component by component, reading
// whole folder listings, for every file it touches.
#pragma once

#include <string>

namespace tw::posix {

// The walk found `found` (an existing path) for `asked` (the same path as given, which did not
// exist as written). asked must be a plain path: no empty, "." or ".." component.
void RememberCaseResolution(const std::string& asked, const std::string& found);

// native with its longest remembered prefix replaced by what was found for it, when such a prefix
// still does not exist as written (one lstat); else "".
std::string ApplyCaseResolution(const std::string& native);

// Forgets every resolution (something was removed: what was found may be gone).
void ForgetCaseResolutions();

}  // namespace tw::posix
