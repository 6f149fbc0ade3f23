// The file shares of this server's Samba configuration, read as Samba's own testparm reads the
// file: what the share map needs of it, the names clients give the server and the folder behind
// each file share.
//
// The format: "[section]" lines open a section (text after the "]" is ignored; a section named
// twice is one section, the later values winning); "name = value" lines set a parameter, the
// name matched ignoring case and white space ("NetBIOS Name", "netbiosname"; underscores are not
// blanks), the value with its outer blanks removed and each run of blanks inside cut to its first
// character; lines whose first non-blank character is "#" or ";" are comments; a line ending in
// "\" goes on with the next line as it stands; other lines are ignored. "include = file" reads
// that file in place (a relative name is taken from the current folder, as Samba does; a missing
// file is skipped; an include loop makes the whole configuration unusable). A share parameter in
// [global] is the default of the sections opened after it, and "copy = share" takes the values
// of a section read before.
//
// Server names: "netbios name" (default: the host name's first label, upper case, at most 15
// characters), each of "netbios aliases", and the host name itself. Shares: every section except
// [global], [homes] and [printers] that is not printable ("printable", "print ok") and has a
// "path" (or "directory"). A path in double quotes loses them, as Samba's lookup does. A path
// with %-substitutions (it differs per client or user) or that is not absolute is left out with
// a note saying why; the other shares stay usable.
//
// Of [global], also where the server keeps its accounts: "private dir" ("private directory") and
// "passdb backend", as written (empty when not set).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tw::posix {

// The server's own configuration file (Samba's compiled-in default).
inline constexpr char kServerSmbConf[] = "/etc/samba/smb.conf";

struct SmbConfShare {
  std::string name;
  std::string path;
};

struct SmbConf {
  std::vector<std::string> serverNames;  // netbios name first, then aliases and host names
  std::vector<SmbConfShare> shares;      // in the order their sections first appear
  std::vector<std::wstring> notes;       // shares and includes left out, one message each
  std::string privateDir;                // "private dir", empty when not set
  std::string passdbBackend;             // "passdb backend", empty when not set
};

// Reads the configuration file (and what it includes) for a server whose host name is hostName.
// Returns false with problem set when the file cannot be read or its includes loop.
bool ReadSmbConf(const std::string& file, std::string_view hostName, SmbConf& conf,
                 std::wstring& problem);

}  // namespace tw::posix
