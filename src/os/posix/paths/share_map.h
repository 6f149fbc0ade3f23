// The share map of the POSIX adapter: which local folder stands behind each UNC share
// "\\server\share" of the file server this machine plays.
//
// The map comes from the first of these that applies:
//   1. the share map file named by the environment variable TARNWICK_SHARES;
//   2. the Samba configuration named by TARNWICK_SMB_CONF (see smb_conf.h);
//   3. the share map file /etc/tarnwick/shares.conf, when it exists;
//   4. the server's Samba configuration /etc/samba/smb.conf, when it exists (else no shares).
// A Samba configuration maps "\\server\share" for each of its server names and file shares.
// A share map file holds one share per line:
//     \\server\share = /absolute/folder
// Blank lines and lines whose first non-blank character is "#" are ignored; blanks around the
// names and the "=" do not matter. Server and share names match case-insensitively; when a share
// is listed twice the first line counts.
//
// The map is read once per process, when the first UNC path is resolved. A file that cannot be
// read (other than a missing default file) or that holds a malformed line (or Samba
// configuration whose includes loop) is not used at all: every UNC path then fails as one on an
// unknown server (kBadNetPath), and LoadProcessShareMap() gives the reason with the file name
// and the line number, for the caller to print. Shares of a Samba configuration that cannot be
// mapped are left out with a note; the map stays usable.
#pragma once

#include <string>
#include <string_view>
#include <utility>
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

  // Adds an entry after those there are (a share listed before keeps its folder).
  void Add(ShareMapEntry entry) { entries_.push_back(std::move(entry)); }

  const std::vector<ShareMapEntry>& entries() const { return entries_; }

 private:
  std::vector<ShareMapEntry> entries_;
};

// Where a share map may come from, in the order above; an empty name is not used.
struct ShareMapSources {
  std::string sharesFile;         // TARNWICK_SHARES
  std::string smbConf;            // TARNWICK_SMB_CONF
  std::string defaultSharesFile;  // used when it exists
  std::string defaultSmbConf;     // used when it exists
  std::string hostName;           // this server's host name, for a Samba configuration
};

// Loads the map from the first source that applies. Returns false, with problem set and the map
// empty, when that source cannot be used; true otherwise, with problem holding the notes (one a
// line) of the shares left out, if any.
bool LoadShareMap(const ShareMapSources& sources, ShareMap& map, std::wstring& problem);

// The process's share map, loaded on first use with the sources of the environment. Returns as
// LoadShareMap does.
bool LoadProcessShareMap(std::wstring& problem);
// The process's share map when it can be used, else nullptr: one look for the many callers that
// do not need the reason.
const ShareMap* UsableProcessShareMap();

// Test seam: the next use loads the map from file instead of TARNWICK_SHARES (an empty string
// goes back to the environment variable).
void UseShareMapFileForTesting(const std::string& file);

}  // namespace tw::posix
