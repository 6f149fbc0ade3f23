// The well-known SIDs the tool needs, the two-letter SID aliases accepted by the text
// conversion, and the Unix user and group SIDs of a Samba file server (S-1-22-1-uid and
// S-1-22-2-gid), which the POSIX adapter gives to files without a stored descriptor.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "descriptor/sid.h"

namespace tw::security {

const Sid& EveryoneSid();               // S-1-1-0
const Sid& CreatorOwnerSid();           // S-1-3-0
const Sid& CreatorGroupSid();           // S-1-3-1
const Sid& LocalSystemSid();            // S-1-5-18
const Sid& BuiltinAdministratorsSid();  // S-1-5-32-544
const Sid& BuiltinUsersSid();           // S-1-5-32-545

// The alias table of the text conversion. Only aliases that name one fixed SID are accepted;
// the domain-relative ones ("DA", "DU", "LA", ...) need a domain and are not. Upper case only.
//   WD S-1-1-0       CO S-1-3-0        CG S-1-3-1        OW S-1-3-4
//   NU S-1-5-2       IU S-1-5-4        SU S-1-5-6        AN S-1-5-7        ED S-1-5-9
//   PS S-1-5-10      AU S-1-5-11       RC S-1-5-12       SY S-1-5-18       LS S-1-5-19
//   NS S-1-5-20      BA S-1-5-32-544   BU S-1-5-32-545   BG S-1-5-32-546   PU S-1-5-32-547
//   AO S-1-5-32-548  SO S-1-5-32-549   PO S-1-5-32-550   BO S-1-5-32-551   RE S-1-5-32-552
//   RU S-1-5-32-554  RD S-1-5-32-555   NO S-1-5-32-556
//   LW S-1-16-4096   ME S-1-16-8192    HI S-1-16-12288   SI S-1-16-16384
// Returns null when `text` is not an alias.
const Sid* FindSidAlias(std::wstring_view text);

constexpr std::uint64_t kUnixAuthority = 22;
constexpr std::uint32_t kUnixUserDomain = 1;
constexpr std::uint32_t kUnixGroupDomain = 2;

Sid UnixUserSid(std::uint32_t uid);   // S-1-22-1-uid
Sid UnixGroupSid(std::uint32_t gid);  // S-1-22-2-gid
// The uid / gid a Unix user / group SID stands for; nothing for any other SID.
std::optional<std::uint32_t> UnixUidFromSid(const Sid& sid);
std::optional<std::uint32_t> UnixGidFromSid(const Sid& sid);

}  // namespace tw::security
