// Reading a folder tree ahead on Linux (the read-ahead port's walk): each regular file's content
// through posix_fadvise(WILLNEED), and each file's and folder's extended attributes (where the
// file server keeps the security descriptor and the DOS attributes) by one size query.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace tw::posix {

// What one walk asked to be read.
struct ReadAheadCounts {
  std::size_t files = 0;
  std::size_t folders = 0;
};

// The deepest folder level below the start that the walk enters.
inline constexpr int kReadAheadDepth = 64;

// Walks the folder at native (reached beneath its share as every path of the adapter, never
// through a link). Every entry below is opened relative to its folder with O_NOFOLLOW; an entry
// that its listing (or, where the listing does not tell, one lstat) shows to be anything but a
// regular file or a folder is never opened. Stops before the next entry once stop() gives true.
ReadAheadCounts ReadTreeAhead(const std::string& native, const std::function<bool()>& stop);

}  // namespace tw::posix
