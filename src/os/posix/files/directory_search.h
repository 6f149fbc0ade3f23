// The directory search of the POSIX adapter (FindFirstFileW over a Linux folder).
#pragma once

#include <string_view>
#include <vector>

#include "base/win32_error.h"
#include "ports/file_system.h"

namespace tw::posix {

// Every entry that the search for pattern yields, in order: "." and ".." first for any folder
// but the Linux root (which stands for the drive root Z:\), then the folder's entries in the
// order readdir gives them. The list is read whole when the search starts; entries made or
// removed later are not seen by the running search. The folder itself is never entered through
// a symbolic link (a link there fails as a file does, with kDirectory). Names that Windows could
// not hold and its path functions would not take as one name (holding a backslash, or starting
// with a drive such as "Z:") are not listed. The errors are those of FileSystem::FindFirstEntry.
[[nodiscard]] err::Win32Error CollectSearchEntries(std::wstring_view pattern,
                                                   std::vector<FindEntry>& entries);

// FileSystem::ListFolder over a Linux folder: the entries of the folder that path (Windows form)
// names, never entered through a symbolic link, with the same names left out as above. Each
// entry's type comes from the listing where it tells one, else from one lstat; the size from one
// lstat of each file. No stored attribute is read.
[[nodiscard]] err::Win32Error ListFolderEntries(std::wstring_view path,
                                                std::vector<FindEntry>& entries);

}  // namespace tw::posix
