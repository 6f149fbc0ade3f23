#include "descriptor/well_known_sids.h"

#include <array>

namespace tw::security {

namespace {

struct Alias {
  std::wstring_view name;
  std::uint64_t authority;
  std::uint32_t first;   // first sub-authority
  std::uint32_t second;  // second sub-authority, 0 when there is only one
};

constexpr std::array<Alias, 31> kAliases = {{
    {L"WD", 1, 0, 0},     {L"CO", 3, 0, 0},      {L"CG", 3, 1, 0},      {L"OW", 3, 4, 0},
    {L"NU", 5, 2, 0},     {L"IU", 5, 4, 0},      {L"SU", 5, 6, 0},      {L"AN", 5, 7, 0},
    {L"ED", 5, 9, 0},     {L"PS", 5, 10, 0},     {L"AU", 5, 11, 0},     {L"RC", 5, 12, 0},
    {L"SY", 5, 18, 0},    {L"LS", 5, 19, 0},     {L"NS", 5, 20, 0},     {L"BA", 5, 32, 544},
    {L"BU", 5, 32, 545},  {L"BG", 5, 32, 546},   {L"PU", 5, 32, 547},   {L"AO", 5, 32, 548},
    {L"SO", 5, 32, 549},  {L"PO", 5, 32, 550},   {L"BO", 5, 32, 551},   {L"RE", 5, 32, 552},
    {L"RU", 5, 32, 554},  {L"RD", 5, 32, 555},   {L"NO", 5, 32, 556},   {L"LW", 16, 4096, 0},
    {L"ME", 16, 8192, 0}, {L"HI", 16, 12288, 0}, {L"SI", 16, 16384, 0},
}};

Sid MakeAliasSid(const Alias& alias) {
  if (alias.authority == 5 && alias.first == 32) return Sid(5, {32, alias.second});
  return Sid(alias.authority, {alias.first});
}

struct AliasTable {
  std::array<Sid, kAliases.size()> sids;
  AliasTable() {
    for (std::size_t i = 0; i < kAliases.size(); ++i) sids[i] = MakeAliasSid(kAliases[i]);
  }
};

const AliasTable& Aliases() {
  static const AliasTable table;
  return table;
}

std::optional<std::uint32_t> UnixIdFromSid(const Sid& sid, std::uint32_t domain) {
  if (sid.authority() != kUnixAuthority || sid.subAuthorities().size() != 2 ||
      sid.subAuthorities()[0] != domain) {
    return std::nullopt;
  }
  return sid.subAuthorities()[1];
}

}  // namespace

const Sid& EveryoneSid() {
  static const Sid sid(1, {0});
  return sid;
}

const Sid& CreatorOwnerSid() {
  static const Sid sid(3, {0});
  return sid;
}

const Sid& CreatorGroupSid() {
  static const Sid sid(3, {1});
  return sid;
}

const Sid& LocalSystemSid() {
  static const Sid sid(5, {18});
  return sid;
}

const Sid& BuiltinAdministratorsSid() {
  static const Sid sid(5, {32, 544});
  return sid;
}

const Sid& BuiltinUsersSid() {
  static const Sid sid(5, {32, 545});
  return sid;
}

const Sid* FindSidAlias(std::wstring_view text) {
  for (std::size_t i = 0; i < kAliases.size(); ++i) {
    if (kAliases[i].name == text) return &Aliases().sids[i];
  }
  return nullptr;
}

Sid UnixUserSid(std::uint32_t uid) { return Sid(kUnixAuthority, {kUnixUserDomain, uid}); }

Sid UnixGroupSid(std::uint32_t gid) { return Sid(kUnixAuthority, {kUnixGroupDomain, gid}); }

std::optional<std::uint32_t> UnixUidFromSid(const Sid& sid) {
  return UnixIdFromSid(sid, kUnixUserDomain);
}

std::optional<std::uint32_t> UnixGidFromSid(const Sid& sid) {
  return UnixIdFromSid(sid, kUnixGroupDomain);
}

}  // namespace tw::security
