#include "os/posix/samba/passdb.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "base/text_encoding.h"
#include "base/wide_string.h"
#include "os/posix/samba/tdb_file.h"

namespace tw::posix::samba {
namespace {

constexpr std::size_t kSamTimes = 7;     // logon, logoff, kickoff, bad password, last set, ...
constexpr std::size_t kSamStrings = 12;  // user name, domain, NT name, full name, home, ...

// Reads the little-endian 32-bit value at `at`, moving past it.
std::optional<std::uint32_t> ReadU32(std::span<const std::uint8_t> bytes, std::size_t& at) {
  if (bytes.size() < 4 || at > bytes.size() - 4) return std::nullopt;
  const std::uint32_t value = std::uint32_t{bytes[at]} | std::uint32_t{bytes[at + 1]} << 8 |
                              std::uint32_t{bytes[at + 2]} << 16 |
                              std::uint32_t{bytes[at + 3]} << 24;
  at += 4;
  return value;
}

// The text before the first NUL.
std::string UpToNul(std::span<const std::uint8_t> bytes) {
  std::string text(bytes.begin(), bytes.end());
  return text.substr(0, text.find('\0'));
}

std::string LowerCase(std::string_view name) {
  std::wstring wide = Utf8ToWide(name);
  for (wchar_t& c : wide) c = ToLowerWindows(c);
  return WideToUtf8(wide);
}

std::string Key(std::string_view prefix, std::string_view name) {
  std::string key(prefix);
  key += name;
  key.push_back('\0');
  return key;
}

std::string RidKey(std::uint32_t rid) {
  std::array<char, 16> hex{};
  std::snprintf(hex.data(), hex.size(), "%08x", static_cast<unsigned>(rid));
  return Key("RID_", hex.data());
}

// The account record of a lower-case user name, when the passdb has the layout read here.
std::optional<SamAccount> FetchAccount(const TdbFile& passdb, std::string_view lowerName) {
  const auto version = passdb.Fetch(Key("INFO/version", ""));
  std::size_t at = 0;
  if (!version || version->size() != 4) return std::nullopt;
  const std::optional<std::uint32_t> number = ReadU32(*version, at);
  if (number != 3u && number != 4u) return std::nullopt;
  const auto record = passdb.Fetch(Key("USER_", lowerName));
  if (!record) return std::nullopt;
  return ParseSamAccount(*record);
}

}  // namespace

std::optional<PassdbFiles> TdbsamFiles(const SmbConf& conf) {
  std::string_view backend = conf.passdbBackend;
  std::string_view location;
  if (const std::size_t colon = backend.find(':'); colon != std::string_view::npos) {
    location = backend.substr(colon + 1);
    backend = backend.substr(0, colon);
  }
  if (!backend.empty() && !EqualsNoCase(Utf8ToWide(backend), L"tdbsam")) return std::nullopt;
  if (conf.serverNames.empty()) return std::nullopt;
  const std::string privateDir = conf.privateDir.empty() ? kDefaultPrivateDir : conf.privateDir;
  PassdbFiles files;
  files.passdb = location.empty() ? privateDir + "/passdb.tdb" : std::string(location);
  files.secrets = privateDir + "/secrets.tdb";
  files.domainName = conf.serverNames.front();
  return files;
}

std::optional<security::Sid> ParseStoredDomainSid(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kStoredSize = 8 + 4 * security::Sid::kMaxSubAuthorities;
  if (bytes.size() != kStoredSize || bytes[0] != security::Sid::kRevision ||
      bytes[1] > security::Sid::kMaxSubAuthorities) {
    return std::nullopt;
  }
  std::uint64_t authority = 0;
  for (std::size_t i = 2; i < 8; ++i) authority = authority << 8 | bytes[i];
  std::array<std::uint32_t, security::Sid::kMaxSubAuthorities> subAuthorities{};
  for (std::size_t i = 0; i < bytes[1]; ++i) {
    // The machine's own byte order: Samba stores the structure as it is in memory.
    std::memcpy(&subAuthorities[i], bytes.data() + 8 + 4 * i, 4);
  }
  return security::Sid(authority, std::span<const std::uint32_t>(subAuthorities.data(), bytes[1]));
}

std::optional<SamAccount> ParseSamAccount(std::span<const std::uint8_t> bytes) {
  std::size_t at = 4 * kSamTimes;
  if (bytes.size() < at) return std::nullopt;
  SamAccount account;
  for (std::size_t i = 0; i < kSamStrings; ++i) {
    const std::optional<std::uint32_t> length = ReadU32(bytes, at);
    if (!length || *length > bytes.size() - at) return std::nullopt;
    if (i == 0) account.userName = UpToNul(bytes.subspan(at, *length));
    at += *length;
  }
  const std::optional<std::uint32_t> rid = ReadU32(bytes, at);
  if (!rid || account.userName.empty()) return std::nullopt;
  account.userRid = *rid;
  return account;
}

std::unique_ptr<Passdb> Passdb::Open(const PassdbFiles& files) {
  const std::unique_ptr<TdbFile> secrets = TdbFile::Open(files.secrets);
  if (!secrets) return nullptr;
  const auto stored = secrets->Fetch("SECRETS/SID/" + files.domainName);
  if (!stored) return nullptr;
  std::optional<security::Sid> domain = ParseStoredDomainSid(*stored);
  if (!domain) return nullptr;
  return std::unique_ptr<Passdb>(new Passdb(files.passdb, std::move(*domain)));
}

bool Passdb::InDomain(const security::Sid& sid) const {
  const auto domainParts = domain_.subAuthorities();
  const auto parts = sid.subAuthorities();
  return sid.authority() == domain_.authority() && parts.size() == domainParts.size() + 1 &&
         std::equal(domainParts.begin(), domainParts.end(), parts.begin());
}

std::optional<std::string> Passdb::UserOfSid(const security::Sid& sid) const {
  if (!InDomain(sid)) return std::nullopt;
  const std::uint32_t rid = sid.subAuthorities().back();
  const std::unique_ptr<TdbFile> passdb = TdbFile::Open(file_);
  if (!passdb) return std::nullopt;
  const auto name = passdb->Fetch(RidKey(rid));
  if (!name) return std::nullopt;
  const std::optional<SamAccount> account = FetchAccount(*passdb, UpToNul(*name));
  if (!account || account->userRid != rid) return std::nullopt;
  return account->userName;
}

std::optional<security::Sid> Passdb::SidOfUser(std::string_view name) const {
  const std::unique_ptr<TdbFile> passdb = TdbFile::Open(file_);
  if (!passdb) return std::nullopt;
  const std::optional<SamAccount> account = FetchAccount(*passdb, LowerCase(name));
  if (!account) return std::nullopt;
  std::vector<std::uint32_t> parts(domain_.subAuthorities().begin(),
                                   domain_.subAuthorities().end());
  if (parts.size() >= security::Sid::kMaxSubAuthorities) return std::nullopt;
  parts.push_back(account->userRid);
  return security::Sid(domain_.authority(), parts);
}

}  // namespace tw::posix::samba
