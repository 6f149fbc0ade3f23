#include "share_description.h"

namespace tw::tools {
namespace {

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
    text.remove_suffix(1);
  return text;
}

std::string_view SplitWord(std::string_view& text) {
  const std::size_t blank = text.find(' ');
  const std::string_view word = text.substr(0, blank);
  text = blank == std::string_view::npos ? std::string_view() : Trim(text.substr(blank + 1));
  return word;
}

// "<name> = <text>" (the name ends at the first " = "); false when there is no " = ".
bool SplitAssignment(std::string_view line, std::string& name, std::string& text) {
  const std::size_t equals = line.find(" = ");
  if (equals == std::string_view::npos || equals == 0) return false;
  name = std::string(line.substr(0, equals));
  text = std::string(line.substr(equals + 3));
  return true;
}

// A single path component: not empty, no separators, not "." or "..".
bool IsPlainName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of("/\\") == std::string_view::npos;
}

void ReplaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

}  // namespace

std::string UserNameOf(std::string_view folder) {
  for (std::string_view suffix : {".V2", ".V5", ".V6"}) {
    if (folder.size() > suffix.size() && folder.substr(folder.size() - suffix.size()) == suffix)
      return std::string(folder.substr(0, folder.size() - suffix.size()));
  }
  return std::string(folder);
}

bool ParseShareDescription(std::string_view text, ShareDescription& description,
                           std::string& error) {
  int lineNumber = 0;
  auto fail = [&](const std::string& what) {
    error = "line " + std::to_string(lineNumber) + ": " + what;
    return false;
  };
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = Trim(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    ++lineNumber;
    if (line.empty() || line.front() == '#') continue;
    const std::string_view word = SplitWord(line);
    std::string name;
    std::string value;
    if (word == "share") {
      if (line.size() < 5 || line.substr(0, 2) != "\\\\") return fail("a UNC path is expected");
      description.unc = std::string(line);
    } else if (word == "default" || word == "set") {
      if (!SplitAssignment(line, name, value)) return fail("\"<name> = <text>\" is expected");
      if (word == "default") {
        description.defaults[name] = value;
      } else {
        if (description.profiles.empty()) return fail("\"set\" before any profile");
        description.profiles.back().placeholders[name] = value;
      }
    } else if (word == "profile") {
      SampleProfile profile;
      profile.folder = std::string(SplitWord(line));
      profile.layout = std::string(SplitWord(line));
      profile.owner = std::string(SplitWord(line));
      if (!IsPlainName(profile.folder) || !IsPlainName(profile.layout) ||
          profile.owner.rfind("S-", 0) != 0 || !line.empty())
        return fail("\"profile <folder> <layout> <SID>\" is expected");
      description.profiles.push_back(std::move(profile));
    } else if (word == "folder") {
      if (!IsPlainName(line)) return fail("a folder name is expected");
      description.items.push_back({ShareItem::Kind::kFolder, std::string(line), std::string()});
    } else if (word == "file" || word == "link") {
      if (!SplitAssignment(line, name, value) || !IsPlainName(name) ||
          (word == "link" && !IsPlainName(value)))
        return fail("\"" + std::string(word) + " <name> = <text>\" is expected");
      description.items.push_back(
          {word == "file" ? ShareItem::Kind::kFile : ShareItem::Kind::kLink, name, value});
    } else {
      return fail("unknown item \"" + std::string(word) + "\"");
    }
  }
  if (description.unc.empty()) {
    lineNumber = 0;
    return fail("no \"share\" line");
  }
  return true;
}

std::string ExpandLayout(std::string_view layout, const ShareDescription& share,
                         const SampleProfile& profile) {
  const std::string user = UserNameOf(profile.folder);
  std::map<std::string, std::string> placeholders = share.defaults;
  for (const auto& [name, text] : profile.placeholders) placeholders[name] = text;
  std::string result(layout);
  for (auto& [name, text] : placeholders) {
    std::string value = text;
    ReplaceAll(value, "{user}", user);
    ReplaceAll(result, "{" + name + "}", value);
  }
  ReplaceAll(result, "{user}", user);
  return result;
}

}  // namespace tw::tools
