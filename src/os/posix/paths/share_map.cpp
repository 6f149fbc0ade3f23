#include "os/posix/paths/share_map.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>

#include "base/format.h"
#include "base/text_encoding.h"
#include "base/wide_string.h"
#include "os/posix/paths/computer_name.h"
#include "os/posix/paths/smb_conf.h"

namespace tw::posix {
namespace {

constexpr char kDefaultShareMapFile[] = "/etc/tarnwick/shares.conf";

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
    text.remove_suffix(1);
  return text;
}

// "\\server\share" cut into its two names; false when it has another shape.
bool ParseUncRoot(std::string_view text, std::wstring& server, std::wstring& share) {
  if (text.size() < 2 || text[0] != '\\' || text[1] != '\\') return false;
  text.remove_prefix(2);
  const std::size_t slash = text.find('\\');
  if (slash == std::string_view::npos || slash == 0) return false;
  const std::string_view shareName = text.substr(slash + 1);
  if (shareName.empty() || shareName.find('\\') != std::string_view::npos) return false;
  server = Utf8ToWide(text.substr(0, slash));
  share = Utf8ToWide(shareName);
  return true;
}

struct ProcessState {
  std::mutex mutex;
  bool loaded = false;
  bool usable = true;
  std::wstring problem;
  std::string testFile;
  ShareMap map;
};

ProcessState& State() {
  static ProcessState* state = new ProcessState;  // lives until the process ends
  return *state;
}

bool Exists(const std::string& file) {
  struct stat info {};
  return ::stat(file.c_str(), &info) == 0 || errno != ENOENT;
}

bool LoadShareMapFile(const std::string& file, ShareMap& map, std::wstring& problem) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    problem = Format(L"Share map \"%s\" cannot be read", Utf8ToWide(file));
    return false;
  }
  std::ostringstream content;
  content << in.rdbuf();
  return map.Parse(content.str(), file, problem);
}

bool LoadSmbConf(const std::string& file, const std::string& hostName, ShareMap& map,
                 std::wstring& problem) {
  SmbConf conf;
  if (!ReadSmbConf(file, hostName, conf, problem)) return false;
  for (const SmbConfShare& share : conf.shares) {
    std::string_view folder = share.path;
    while (folder.size() > 1 && folder.back() == '/') folder.remove_suffix(1);
    for (const std::string& server : conf.serverNames) {
      map.Add({Utf8ToWide(server), Utf8ToWide(share.name), std::string(folder)});
    }
  }
  for (const std::wstring& note : conf.notes) {
    if (!problem.empty()) problem += L'\n';
    problem += note;
  }
  return true;
}

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

void Load(ProcessState& state) {
  state.loaded = true;
  ShareMapSources sources;
  sources.sharesFile = state.testFile.empty() ? Environment("TARNWICK_SHARES") : state.testFile;
  sources.smbConf = state.testFile.empty() ? Environment("TARNWICK_SMB_CONF") : "";
  sources.defaultSharesFile = kDefaultShareMapFile;
  sources.defaultSmbConf = kServerSmbConf;
  sources.hostName = HostName();
  state.usable = LoadShareMap(sources, state.map, state.problem);
}

}  // namespace

bool ShareMap::Parse(std::string_view text, std::string_view source, std::wstring& problem) {
  entries_.clear();
  problem.clear();
  int lineNumber = 0;
  while (!text.empty()) {
    ++lineNumber;
    const std::size_t end = text.find('\n');
    const std::string_view line = Trim(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == '#') continue;

    const std::size_t equals = line.find('=');
    ShareMapEntry entry;
    const char* what = nullptr;
    if (equals == std::string_view::npos) {
      what = "expected \\\\server\\share = /absolute/folder";
    } else if (!ParseUncRoot(Trim(line.substr(0, equals)), entry.server, entry.share)) {
      what = "the share must be written \\\\server\\share";
    } else {
      std::string_view folder = Trim(line.substr(equals + 1));
      if (folder.empty() || folder.front() != '/') {
        what = "the folder must be an absolute path";
      } else {
        while (folder.size() > 1 && folder.back() == '/') folder.remove_suffix(1);
        entry.folder.assign(folder);
      }
    }
    if (what != nullptr) {
      problem = Format(L"Share map \"%s\", line %d: %s", Utf8ToWide(source), lineNumber,
                       Utf8ToWide(what));
      entries_.clear();
      return false;
    }
    entries_.push_back(std::move(entry));
  }
  return true;
}

const ShareMapEntry* ShareMap::Lookup(std::wstring_view server, std::wstring_view share,
                                      err::Win32Error& error) const {
  bool serverKnown = false;
  for (const ShareMapEntry& entry : entries_) {
    if (!EqualsNoCase(entry.server, server)) continue;
    serverKnown = true;
    if (EqualsNoCase(entry.share, share)) {
      error = err::kSuccess;
      return &entry;
    }
  }
  error = serverKnown ? err::kBadNetName : err::kBadNetPath;
  return nullptr;
}

bool LoadShareMap(const ShareMapSources& sources, ShareMap& map, std::wstring& problem) {
  map = ShareMap();
  problem.clear();
  bool ok = true;
  if (!sources.sharesFile.empty()) {
    ok = LoadShareMapFile(sources.sharesFile, map, problem);
  } else if (!sources.smbConf.empty()) {
    ok = LoadSmbConf(sources.smbConf, sources.hostName, map, problem);
  } else if (!sources.defaultSharesFile.empty() && Exists(sources.defaultSharesFile)) {
    ok = LoadShareMapFile(sources.defaultSharesFile, map, problem);
  } else if (!sources.defaultSmbConf.empty() && Exists(sources.defaultSmbConf)) {
    ok = LoadSmbConf(sources.defaultSmbConf, sources.hostName, map, problem);
  }
  if (!ok) map = ShareMap();
  return ok;
}

bool LoadProcessShareMap(std::wstring& problem) {
  ProcessState& state = State();
  const std::lock_guard<std::mutex> guard(state.mutex);
  if (!state.loaded) Load(state);
  problem = state.problem;
  return state.usable;
}

const ShareMap* UsableProcessShareMap() {
  ProcessState& state = State();
  const std::lock_guard<std::mutex> guard(state.mutex);
  if (!state.loaded) Load(state);
  return state.usable ? &state.map : nullptr;
}

void UseShareMapFileForTesting(const std::string& file) {
  ProcessState& state = State();
  const std::lock_guard<std::mutex> guard(state.mutex);
  state.testFile = file;
  state.loaded = false;
}

}  // namespace tw::posix
