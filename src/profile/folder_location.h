// Where a special folder's location, as a profile's hive gives it, may be used. The hive belongs
// to the profile's owner, who can write any text into it; the tool copies with backup and
// restore rights. So a location is used only when it lies inside its own profile, judged by its
// text alone, before the file system is asked anything about it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tw {

// The path to use for `location` (a folder location with "%USERPROFILE%" already replaced by
// `profile`), when it names `profile` itself or something below it; std::nullopt otherwise.
//
// The part after the profile is resolved by its text, as Windows resolves a path it is asked to
// open: backslash and forward slash both separate names, empty names and "." go, ".." removes
// the name before it. The result is the profile followed by the remaining names, each after one
// backslash, in the canonical form the shell path functions give it (the form the copy itself
// uses), so that existence tests, security and the copy all see one and the same path.
//
// Refused (std::nullopt): a location that does not begin with the profile's own text followed by
// a separator (another server folder, a drive path such as "Z:\srv\other", a relative path), a
// ".." that climbs above the profile at any point (even when later names come back into it), and
// a name made only of dots and blanks other than "." and ".." (Windows trims trailing dots and
// blanks, so such a name could act as a "..").
std::optional<std::wstring> ResolveInsideProfile(std::wstring_view location,
                                                 std::wstring_view profile);

}  // namespace tw
