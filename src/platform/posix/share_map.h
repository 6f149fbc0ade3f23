// The share map of the POSIX adapter: which local folder stands behind each UNC share
// "\\server\share" of the file server this machine plays.
//
// The file is named by the environment variable TARNWICK_SHARES (default
// /etc/tarnwick/shares.conf) and holds one share per line:
//     \\server\share = /absolute/folder
// Blank lines and lines whose first non-blank character is "#" are ignored; blanks around the
// names and the "=" do not matter. Server and share names match case-insensitively; when a share
// is listed twice the first line counts.
//
// The map is read once per process, when the first UNC path is resolved. A file that cannot be
// read (other than a missing default file, which is an empty map) or that holds a malformed line
// is not used at all: every UNC path then fails as one on an unknown server (kBadNetPath), and
// LoadProcessShareMap() gives the reason with the file name and the line number, for the
// caller to print.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/win32_error.h"

namespace tw::posix {

struct ShareMapEntry {
  std::wstring server;
  std::wstring share;
  std::string folder;  // absolute, without a trailing "/" (except the root "/")
};

class ShareMap {
 public:
  // Reads the lines of text (the content of the file named source). Returns false with
  // `problem` set to a message naming source and the line when a line is malformed.
  bool Parse(std::string_view text, std::string_view source, std::wstring& problem);

  // The entry of "\\server\share", or nullptr with error set: kBadNetPath when no share of
  // that server is listed, kBadNetName when the server is listed without that share.
  const ShareMapEntry* Lookup(std::wstring_view server, std::wstring_view share,
                              err::Win32Error& error) const;

  const std::vector<ShareMapEntry>& entries() const { return entries_; }

 private:
  std::vector<ShareMapEntry> entries_;
};

// The process's share map, loaded on first use. Returns false, with problem set, when the file
// could not be used; the map is then empty.
bool LoadProcessShareMap(std::wstring& problem);
// The process's share map when it can be used, else nullptr: one look for the many callers that
// do not need the reason.
const ShareMap* UsableProcessShareMap();

// Test seam: the next use loads the map from file instead of TARNWICK_SHARES (an empty string
// goes back to the environment variable).
void UseShareMapFileForTesting(const std::string& file);

}  // namespace tw::posix
