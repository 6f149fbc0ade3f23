// Test hives made from .reg text by the project's own hive engine: the keys and values of the
// text merged into a copy of a base hive (the minimal hive of tests/data), as a test fixture
// needs them when it is not about reading hives another tool wrote. New keys take their parent's
// security descriptor and last write time; values are set in the order of the text.
//
// The text is the body of a .reg file (no header line): sections "[\Key\Sub]" ("[\]" is the
// root), value lines "name"="text" (REG_SZ, UTF-16LE with its terminating zero), "name"=dword:
// hhhhhhhh, "name"=hex:bb,... (REG_BINARY) and "name"=hex(t):bb,... with lines continued by a
// trailing backslash, @ for the default value, blank lines and ";" comments. Anything else
// (deletions, non-ASCII text) is refused with a reason.
#pragma once

#include <filesystem>
#include <string>

namespace tw::testing {

// Writes `file` anew: `base` with `reg` merged in. Returns "" or what was wrong.
std::string WriteHiveFromRegText(const std::filesystem::path& base, const std::string& reg,
                                 const std::filesystem::path& file);

}  // namespace tw::testing
