#include "platform/posix/samba/account_map.h"

#include <pwd.h>
#include <sys/types.h>

// The winbind client header declares C functions without saying so.
extern "C" {
#include <wbclient.h>
}

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "base/text_encoding.h"
#include "security/codec/well_known_sids.h"

namespace tw::posix::samba {
namespace {

std::optional<security::Sid> SidFromText(const std::string& text) {
  security::Sid sid;
  if (security::Sid::FromString(Utf8ToWide(text), &sid) != err::kSuccess) return std::nullopt;
  return sid;
}

std::optional<wbcDomainSid> ToWinbind(const security::Sid& sid) {
  wbcDomainSid out{};
  if (wbcStringToSid(WideToUtf8(sid.ToString()).c_str(), &out) != WBC_ERR_SUCCESS) {
    return std::nullopt;
  }
  return out;
}

std::optional<security::Sid> FromWinbind(const wbcDomainSid& sid) {
  char* text = nullptr;
  if (wbcSidToString(&sid, &text) != WBC_ERR_SUCCESS) return std::nullopt;
  const std::string copy(text);
  wbcFreeMemory(text);
  return SidFromText(copy);
}

std::string Trimmed(std::string text) {
  const std::string::size_type first = text.find_first_not_of(" \t");
  const std::string::size_type last = text.find_last_not_of(" \t\r\n");
  if (first == std::string::npos) return {};
  return text.substr(first, last - first + 1);
}

class ServerAccountMap final : public AccountMap {
 public:
  std::optional<std::uint32_t> UidOf(const security::Sid& sid) override {
    if (auto uid = security::UnixUidFromSid(sid)) return uid;
    if (Winbind()) {
      if (auto wb = ToWinbind(sid)) {
        uid_t uid = 0;
        if (wbcSidToUid(&*wb, &uid) == WBC_ERR_SUCCESS) return static_cast<std::uint32_t>(uid);
      }
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    LoadPassdb();
    for (const auto& [uid, userSid] : users_) {
      if (userSid == sid) return uid;
    }
    return std::nullopt;
  }

  std::optional<std::uint32_t> GidOf(const security::Sid& sid) override {
    if (auto gid = security::UnixGidFromSid(sid)) return gid;
    if (Winbind()) {
      if (auto wb = ToWinbind(sid)) {
        gid_t gid = 0;
        if (wbcSidToGid(&*wb, &gid) == WBC_ERR_SUCCESS) return static_cast<std::uint32_t>(gid);
      }
    }
    return std::nullopt;
  }

  security::Sid SidOfUid(std::uint32_t uid) override {
    if (Winbind()) {
      wbcDomainSid sid{};
      if (wbcUidToSid(static_cast<uid_t>(uid), &sid) == WBC_ERR_SUCCESS) {
        if (auto mapped = FromWinbind(sid)) return *mapped;
      }
    }
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      LoadPassdb();
      const auto found = users_.find(uid);
      if (found != users_.end()) return found->second;
    }
    return security::UnixUserSid(uid);
  }

  security::Sid SidOfGid(std::uint32_t gid) override {
    if (Winbind()) {
      wbcDomainSid sid{};
      if (wbcGidToSid(static_cast<gid_t>(gid), &sid) == WBC_ERR_SUCCESS) {
        if (auto mapped = FromWinbind(sid)) return *mapped;
      }
    }
    return security::UnixGroupSid(gid);
  }

 private:
  bool Winbind() {
    std::call_once(winbindOnce_, [this] { winbind_ = wbcPing() == WBC_ERR_SUCCESS; });
    return winbind_;
  }

  // The passdb's users ("Unix username:" and "User SID:" lines of pdbedit's verbose list), read
  // once; the configuration is the one TARNWICK_SMB_CONF names, else the server's own.
  void LoadPassdb() {
    if (passdbLoaded_) return;
    passdbLoaded_ = true;
    std::string command = "pdbedit -L -v";
    if (const char* conf = std::getenv("TARNWICK_SMB_CONF"); conf != nullptr && *conf != '\0') {
      std::string quoted = "'";
      for (const char c : std::string(conf)) {
        if (c == '\'') {
          quoted += "'\\''";
        } else {
          quoted += c;
        }
      }
      command += " -s " + quoted + "'";
    }
    command += " 2>/dev/null";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return;
    std::string output;
    char chunk[4096];
    std::size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) output.append(chunk, got);
    ::pclose(pipe);
    for (auto& [name, sid] : ParsePassdbUsers(output)) {
      if (const passwd* entry = ::getpwnam(name.c_str())) {
        users_.emplace(static_cast<std::uint32_t>(entry->pw_uid), std::move(sid));
      }
    }
  }

  std::once_flag winbindOnce_;
  bool winbind_ = false;
  std::mutex mutex_;
  bool passdbLoaded_ = false;
  std::map<std::uint32_t, security::Sid> users_;
};

AccountMap*& Installed() {
  static AccountMap* installed = nullptr;
  return installed;
}

}  // namespace

std::vector<std::pair<std::string, security::Sid>> ParsePassdbUsers(std::string_view verbose) {
  std::vector<std::pair<std::string, security::Sid>> users;
  std::string user;
  std::size_t at = 0;
  while (at < verbose.size()) {
    std::size_t end = verbose.find('\n', at);
    if (end == std::string_view::npos) end = verbose.size();
    const std::string line(verbose.substr(at, end - at));
    at = end + 1;
    const std::string::size_type colon = line.find(':');
    if (colon == std::string::npos) continue;
    const std::string key = line.substr(0, colon);
    const std::string value = Trimmed(line.substr(colon + 1));
    if (key == "Unix username") {
      user = value;
    } else if (key == "User SID" && !user.empty()) {
      if (auto sid = SidFromText(value)) users.emplace_back(user, *sid);
      user.clear();
    }
  }
  return users;
}

std::unique_ptr<AccountMap> MakeServerAccountMap() { return std::make_unique<ServerAccountMap>(); }

AccountMap& Accounts() {
  if (AccountMap* map = Installed()) return *map;
  static ServerAccountMap* server = new ServerAccountMap;  // lives until the process ends
  return *server;
}

ScopedAccountMap::ScopedAccountMap(AccountMap& map) : previous_(Installed()) { Installed() = &map; }
ScopedAccountMap::~ScopedAccountMap() { Installed() = previous_; }

}  // namespace tw::posix::samba
