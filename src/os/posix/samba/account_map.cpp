#include "os/posix/samba/account_map.h"

#include <pwd.h>
#include <sys/types.h>

// The winbind client header declares C functions without saying so.
extern "C" {
#include <wbclient.h>
}

#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "base/text_encoding.h"
#include "descriptor/well_known_sids.h"
#include "os/posix/paths/computer_name.h"
#include "os/posix/paths/smb_conf.h"
#include "os/posix/samba/passdb.h"

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

// The uid of a user name, and back (the reentrant calls: other threads may look users up too).
std::optional<std::uint32_t> UidOfName(const std::string& name) {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(found->pw_uid);
}

std::optional<std::string> NameOfUid(std::uint32_t uid) {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(static_cast<uid_t>(uid), &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr) {
    return std::nullopt;
  }
  return std::string(found->pw_name);
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
    const Passdb* passdb = ServerPassdb();
    if (passdb == nullptr || !passdb->InDomain(sid)) return std::nullopt;
    const std::uint32_t rid = sid.subAuthorities().back();
    const auto known = uidOfRid_.find(rid);
    if (known != uidOfRid_.end()) return known->second;
    std::optional<std::uint32_t> uid;
    if (const std::optional<std::string> name = passdb->UserOfSid(sid)) uid = UidOfName(*name);
    uidOfRid_.emplace(rid, uid);
    return uid;
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
      if (const Passdb* passdb = ServerPassdb()) {
        auto known = sidOfUid_.find(uid);
        if (known == sidOfUid_.end()) {
          std::optional<security::Sid> sid;
          if (const std::optional<std::string> name = NameOfUid(uid))
            sid = passdb->SidOfUser(*name);
          known = sidOfUid_.emplace(uid, sid).first;
        }
        if (known->second) return *known->second;
      }
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

  // The server's passdb (a tdbsam one), found on first need from the configuration
  // TARNWICK_SMB_CONF names, else the server's own. Called with mutex_ held.
  const Passdb* ServerPassdb() {
    if (!passdbLoaded_) {
      passdbLoaded_ = true;
      const char* named = std::getenv("TARNWICK_SMB_CONF");
      const std::string file = named != nullptr && *named != '\0' ? named : kServerSmbConf;
      SmbConf conf;
      std::wstring problem;
      if (ReadSmbConf(file, HostName(), conf, problem)) {
        if (const std::optional<PassdbFiles> files = TdbsamFiles(conf)) {
          passdb_ = Passdb::Open(*files);
        }
      }
    }
    return passdb_.get();
  }

  std::once_flag winbindOnce_;
  bool winbind_ = false;
  std::mutex mutex_;
  bool passdbLoaded_ = false;
  std::unique_ptr<Passdb> passdb_;
  std::map<std::uint32_t, std::optional<std::uint32_t>> uidOfRid_;  // passdb answers so far
  std::map<std::uint32_t, std::optional<security::Sid>> sidOfUid_;
};

AccountMap*& Installed() {
  static AccountMap* installed = nullptr;
  return installed;
}

}  // namespace

std::unique_ptr<AccountMap> MakeServerAccountMap() { return std::make_unique<ServerAccountMap>(); }

AccountMap& Accounts() {
  if (AccountMap* map = Installed()) return *map;
  static ServerAccountMap* server = new ServerAccountMap;  // lives until the process ends
  return *server;
}

ScopedAccountMap::ScopedAccountMap(AccountMap& map) : previous_(Installed()) { Installed() = &map; }
ScopedAccountMap::~ScopedAccountMap() { Installed() = previous_; }

}  // namespace tw::posix::samba
