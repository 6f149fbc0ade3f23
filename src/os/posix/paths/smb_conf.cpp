#include "os/posix/paths/smb_conf.h"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>

#include "base/format.h"
#include "base/text_encoding.h"
#include "base/wide_string.h"
#include "os/posix/paths/computer_name.h"

namespace tw::posix {
namespace {

constexpr int kMaxIncludeDepth = 100;  // Samba's own limit

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (IsBlank(text.front()) || text.front() == '\r')) text.remove_prefix(1);
  while (!text.empty() && (IsBlank(text.back()) || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

// A parameter name as Samba compares it: without white space, lower case.
std::string NameKey(std::string_view name) {
  std::string key;
  for (const char c : name) {
    if (IsBlank(c)) continue;
    key.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
  }
  return key;
}

// The value with each run of blanks inside cut to its first character.
std::string CollapseBlanks(std::string_view value) {
  std::string out;
  bool previousBlank = false;
  for (const char c : value) {
    const bool blank = IsBlank(c);
    if (!(blank && previousBlank)) out.push_back(c);
    previousBlank = blank;
  }
  return out;
}

std::optional<bool> ParseBoolean(std::string_view value) {
  const std::string key = NameKey(value);
  if (key == "yes" || key == "true" || key == "on" || key == "1") return true;
  if (key == "no" || key == "false" || key == "off" || key == "0") return false;
  return std::nullopt;
}

bool SameName(std::string_view a, std::string_view b) {
  return EqualsNoCase(Utf8ToWide(a), Utf8ToWide(b));
}

// What a section says of itself that the share map needs.
struct Section {
  std::string name;
  std::optional<std::string> path;
  bool printable = false;
};

class Reader {
 public:
  Reader(std::string topFile, SmbConf& conf) : topFile_(std::move(topFile)), conf_(conf) {}

  bool ReadFile(const std::string& file, bool top, std::wstring& problem) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      if (top) problem = Format(L"Samba configuration \"%s\" cannot be read", Utf8ToWide(file));
      return !top;  // a missing include is skipped, as Samba does
    }
    char* resolved = ::realpath(file.c_str(), nullptr);
    const std::string identity = resolved != nullptr ? resolved : file;
    std::free(resolved);
    for (const std::string& open : openFiles_) {
      if (open == identity) return IncludeLoop(file, problem);
    }
    if (openFiles_.size() >= kMaxIncludeDepth) return IncludeLoop(file, problem);
    std::ostringstream content;
    content << in.rdbuf();
    openFiles_.push_back(identity);
    const bool ok = ReadText(content.str(), problem);
    openFiles_.pop_back();
    return ok;
  }

  void Finish(std::string_view hostName) {
    std::string netbiosName =
        netbiosName_.empty() ? WideToUtf8(ComputerNameFromHostName(hostName)) : netbiosName_;
    for (char& c : netbiosName) {
      if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    AddServerName(netbiosName);
    std::string_view aliases = netbiosAliases_;
    while (!aliases.empty()) {
      const std::size_t end = aliases.find_first_of(" \t,;");
      AddServerName(aliases.substr(0, end));
      aliases.remove_prefix(end == std::string_view::npos ? aliases.size() : end + 1);
    }
    AddServerName(hostName.substr(0, hostName.find('.')));
    AddServerName(hostName);

    for (const Section& section : sections_) {
      if (section.printable || !section.path || SameName(section.name, "homes") ||
          SameName(section.name, "printers")) {
        continue;
      }
      std::string path = *section.path;
      if (path.size() >= 2 && path.front() == '"' && path.back() == '"' &&
          path.find('"', 1) == path.size() - 1) {
        path = path.substr(1, path.size() - 2);
      }
      if (path.empty()) continue;  // Samba makes a share without a path unavailable
      const char* why = nullptr;
      if (path.find('%') != std::string::npos) {
        why = "has %-substitutions, which differ per client or user";
      } else if (path.front() != '/') {
        why = "is not an absolute path";
      }
      if (why != nullptr) {
        conf_.notes.push_back(Format(
            L"Samba configuration \"%s\": share [%s] left out: its path "
            L"\"%s\" %s",
            Utf8ToWide(topFile_), Utf8ToWide(section.name), Utf8ToWide(path), Utf8ToWide(why)));
        continue;
      }
      conf_.shares.push_back({section.name, path});
    }
  }

 private:
  void AddServerName(std::string_view name) {
    if (name.empty()) return;
    for (const std::string& known : conf_.serverNames) {
      if (SameName(known, name)) return;
    }
    conf_.serverNames.emplace_back(name);
  }

  bool IncludeLoop(const std::string& file, std::wstring& problem) {
    problem = Format(L"Samba configuration \"%s\": the include of \"%s\" loops",
                     Utf8ToWide(topFile_), Utf8ToWide(file));
    return false;
  }

  bool ReadText(std::string_view text, std::wstring& problem) {
    while (!text.empty()) {
      std::string line;
      for (;;) {  // a line ending in "\" goes on with the next one
        const std::size_t end = text.find('\n');
        std::string_view physical = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (!physical.empty() && physical.back() == '\r') physical.remove_suffix(1);
        const bool continued = !physical.empty() && physical.back() == '\\';
        if (continued) physical.remove_suffix(1);
        line.append(physical);
        if (!continued || text.empty()) break;
      }
      if (!ReadLine(Trim(line), problem)) return false;
    }
    return true;
  }

  bool ReadLine(std::string_view line, std::wstring& problem) {
    if (line.empty() || line.front() == '#' || line.front() == ';') return true;
    if (line.front() == '[') {
      const std::size_t close = line.find(']');
      if (close != std::string_view::npos) OpenSection(line.substr(1, close - 1));
      return true;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return true;  // Samba ignores such lines
    const std::string key = NameKey(line.substr(0, equals));
    const std::string value = CollapseBlanks(Trim(line.substr(equals + 1)));
    if (key == "include") return Include(value, problem);
    if (current_ == kGlobal) {
      if (key == "netbiosname") netbiosName_ = value;
      if (key == "netbiosaliases") netbiosAliases_ = value;
      if (key == "privatedir" || key == "privatedirectory") conf_.privateDir = value;
      if (key == "passdbbackend") conf_.passdbBackend = value;
    }
    Section& target = current_ == kGlobal ? defaults_ : sections_[current_];
    if (key == "path" || key == "directory") target.path = value;
    if (key == "printable" || key == "printok") {
      if (const std::optional<bool> flag = ParseBoolean(value)) target.printable = *flag;
    }
    if (key == "copy" && current_ != kGlobal) {
      for (std::size_t i = 0; i < current_; ++i) {
        if (!SameName(sections_[i].name, value)) continue;
        sections_[current_].path = sections_[i].path;
        sections_[current_].printable = sections_[i].printable;
        break;
      }
    }
    return true;
  }

  void OpenSection(std::string_view name) {
    if (SameName(name, "global")) {
      current_ = kGlobal;
      return;
    }
    for (std::size_t i = 0; i < sections_.size(); ++i) {
      if (SameName(sections_[i].name, name)) {
        current_ = i;
        return;
      }
    }
    Section section = defaults_;  // a new share starts from the [global] values so far
    section.name.assign(name);
    sections_.push_back(std::move(section));
    current_ = sections_.size() - 1;
  }

  bool Include(const std::string& value, std::wstring& problem) {
    if (value.empty()) return true;
    if (value.find('%') != std::string::npos || value == "registry") {
      conf_.notes.push_back(Format(L"Samba configuration \"%s\": \"include = %s\" is not read",
                                   Utf8ToWide(topFile_), Utf8ToWide(value)));
      return true;
    }
    return ReadFile(value, false, problem);
  }

  static constexpr std::size_t kGlobal = SIZE_MAX;

  std::string topFile_;
  SmbConf& conf_;
  std::vector<std::string> openFiles_;
  std::vector<Section> sections_;
  Section defaults_;
  std::size_t current_ = kGlobal;
  std::string netbiosName_;
  std::string netbiosAliases_;
};

}  // namespace

bool ReadSmbConf(const std::string& file, std::string_view hostName, SmbConf& conf,
                 std::wstring& problem) {
  conf = SmbConf();
  problem.clear();
  Reader reader(file, conf);
  if (!reader.ReadFile(file, true, problem)) {
    conf = SmbConf();
    return false;
  }
  reader.Finish(hostName);
  return true;
}

}  // namespace tw::posix
