// The name matching of a directory search (FindFirstFileW), shared by the POSIX adapter and the
// test fake so both answer a pattern the way Windows does.
#pragma once

#include <string>
#include <string_view>

namespace tw {

// Whether the long name `name` matches the last element of a search pattern. Matching ignores
// case (Windows' upper-case table). Before matching, the pattern is rewritten as the Win32 search
// does: "?" becomes the DOS question mark (one character, or none at a "." or the end of the
// name), "*" followed by "." the DOS star (any characters up to the last "." of the name), and a
// "." followed by "*" or "?" or ending the pattern the DOS dot (a "." or the end of the name).
// So "*.*" matches every name, "*." the names without a dot, and "*.V2" ends in ".V2". A
// pattern without "*" and "?" is compared as a name. Short 8.3 names play no part.
bool MatchesSearchPattern(std::wstring_view pattern, std::wstring_view name);

// Whether text holds "*" or "?".
bool HasWildcards(std::wstring_view text);

// A search pattern path cut at its last separator ("\" or "/"): the folder part keeps a root's
// separator ("C:\*" -> "C:\" + "*", "\\srv\share\*" -> "\\srv\share" + "*"); a pattern without
// a separator has an empty folder (the current folder) and a drive-relative "C:x" the folder
// "C:".
struct SearchPatternParts {
  std::wstring folder;
  std::wstring name;
};
SearchPatternParts SplitSearchPattern(std::wstring_view pattern);

}  // namespace tw
