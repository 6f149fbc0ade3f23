// The description of the sample share (share.txt explains the format): the share's UNC name,
// its profiles with their layouts, owners and placeholder texts, and the other items of the
// share (a folder without a hive, a plain file, a symbolic link).
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tw::tools {

struct SampleProfile {
  std::string folder;  // the profile folder's name in the share ("alice", "erin.V2")
  std::string layout;  // the layout description file, beside share.txt
  std::string owner;   // the owner SID, in string form
  std::map<std::string, std::string> placeholders;  // "set" lines of this profile
};

struct ShareItem {
  enum class Kind { kFolder, kFile, kLink } kind = Kind::kFolder;
  std::string name;
  std::string text;  // the file's content, or the link's target folder (below DIR)
};

struct ShareDescription {
  std::string unc;                              // "\\server\share"
  std::map<std::string, std::string> defaults;  // "default" lines
  std::vector<SampleProfile> profiles;
  std::vector<ShareItem> items;
};

// Reads share.txt (UTF-8). On a malformed line returns false with error "line N: <what>".
bool ParseShareDescription(std::string_view text, ShareDescription& description,
                           std::string& error);

// The user name of a profile folder: the name without a ".V2", ".V5" or ".V6" suffix.
std::string UserNameOf(std::string_view folder);

// `layout` with every "{name}" of the profile's placeholders (its "set" lines over the
// defaults) and "{user}" replaced; "{user}" inside the placeholder texts is replaced too.
// Braces that name no placeholder stay as they are.
std::string ExpandLayout(std::string_view layout, const ShareDescription& share,
                         const SampleProfile& profile);

}  // namespace tw::tools
