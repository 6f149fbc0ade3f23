#include "os/posix/samba/posix_acl_mapping.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "descriptor/ace.h"
#include "descriptor/acl.h"
#include "descriptor/well_known_sids.h"

namespace tw::posix::samba {
namespace {

constexpr std::uint8_t kPaiVersion = 2;
constexpr std::uint8_t kPaiUser = 0;
constexpr std::uint8_t kPaiGroup = 1;
constexpr std::uint8_t kPaiWorld = 2;
constexpr std::uint8_t kBothInherit = security::kObjectInheritAce | security::kContainerInheritAce;

constexpr std::uint32_t kGenericAll = 0x10000000;
// GENERIC_READ | FILE_READ_DATA | FILE_READ_EA
constexpr std::uint32_t kReadRights = 0x80000000 | 0x00000001 | 0x00000008;
// GENERIC_WRITE | FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_EA
constexpr std::uint32_t kWriteRights = 0x40000000 | 0x00000002 | 0x00000004 | 0x00000010;
constexpr std::uint32_t kExecuteRights = 0x20000000 | 0x00000020;  // GENERIC_EXECUTE | EXECUTE

unsigned PermOf(std::uint32_t mask) {
  if ((mask & kGenericAll) != 0) return 7;
  return ((mask & kReadRights) != 0 ? 4u : 0u) | ((mask & kWriteRights) != 0 ? 2u : 0u) |
         ((mask & kExecuteRights) != 0 ? 1u : 0u);
}

// One entry of the ACL being built: whom it names, the bits allowed and denied so far, and the
// flags of the DACL entry that made it (recorded in the PAI attribute).
struct Slot {
  std::uint16_t tag = 0;
  std::uint32_t id = 0;
  unsigned allowed = 0;
  unsigned denied = 0;
  std::uint8_t flags = 0;
  std::size_t rank = std::numeric_limits<std::size_t>::max();  // index of its first allow
  std::size_t denyRank = 0;
};

struct Target {
  std::uint32_t uid;
  std::uint32_t gid;
  AccountMap& accounts;
};

// Whom `sid` names in an access ACL (`asDefault` false) or a default ACL; nothing when no one.
std::optional<std::pair<std::uint16_t, std::uint32_t>> Trustee(const security::Sid& sid,
                                                               bool asDefault,
                                                               const Target& target) {
  if (sid == security::EveryoneSid()) return std::pair{kAclOther, 0u};
  if (sid == security::CreatorOwnerSid()) {
    if (!asDefault) return std::nullopt;
    return std::pair{kAclUserObj, target.uid};
  }
  if (sid == security::CreatorGroupSid()) {
    if (!asDefault) return std::nullopt;
    return std::pair{kAclGroupObj, target.gid};
  }
  if (const auto uid = target.accounts.UidOf(sid)) {
    if (!asDefault && *uid == target.uid) return std::pair{kAclUserObj, *uid};
    return std::pair{kAclUser, *uid};
  }
  if (const auto gid = target.accounts.GidOf(sid)) {
    if (!asDefault && *gid == target.gid) return std::pair{kAclGroupObj, *gid};
    return std::pair{kAclGroup, *gid};
  }
  return std::nullopt;
}

Slot* Find(std::vector<Slot>& slots, std::uint16_t tag, std::uint32_t id) {
  for (Slot& slot : slots) {
    const bool named = tag == kAclUser || tag == kAclGroup;
    if (slot.tag == tag && (!named || slot.id == id)) return &slot;
  }
  return nullptr;
}

// Where one DACL entry counts in an ACL: in an access ACL (`asDefault` false) every entry that
// is not inherit-only (a folder's entry that passes to both files and folders is recorded without
// those flags); in a default ACL only a folder's entries that pass to both. Nothing for others.
std::optional<std::uint8_t> EntryFlags(const security::Ace& ace, bool isFolder, bool asDefault) {
  if (asDefault) {
    if (!isFolder || (ace.flags & kBothInherit) != kBothInherit) return std::nullopt;
    return ace.flags;
  }
  if ((ace.flags & security::kInheritOnlyAce) != 0) return std::nullopt;
  if (isFolder && (ace.flags & kBothInherit) == kBothInherit) {
    return static_cast<std::uint8_t>(ace.flags & ~kBothInherit);
  }
  return ace.flags;
}

// The slots the DACL's entries make, in DACL order, each with the bits its allows and denies
// give it (an earlier allow or deny of a bit wins over a later one).
std::vector<Slot> SlotsFromDacl(const security::SecurityDescriptor& sd, bool isFolder,
                                bool asDefault, const Target& target) {
  std::vector<Slot> slots;
  if (!sd.HasDacl() || !sd.dacl) return slots;
  std::size_t index = 0;
  for (const security::Ace& ace : sd.dacl->aces()) {
    ++index;
    if (!ace.HasSid()) continue;
    const std::optional<std::uint8_t> flags = EntryFlags(ace, isFolder, asDefault);
    if (!flags) continue;
    const auto trustee = Trustee(ace.sid, asDefault, target);
    if (!trustee) continue;
    Slot* slot = Find(slots, trustee->first, trustee->second);
    if (slot == nullptr) {
      slots.push_back(Slot{trustee->first, trustee->second, 0, 0, *flags});
      slot = &slots.back();
      slot->denyRank = index;
    }
    const unsigned bits = PermOf(ace.mask);
    if (ace.type == security::kAccessDeniedAceType) {
      slot->denied |= bits & ~slot->allowed;
    } else {
      if (slot->rank == std::numeric_limits<std::size_t>::max()) {
        slot->rank = index;
        slot->flags = *flags;
      }
      slot->allowed |= bits & ~slot->denied;
    }
  }
  return slots;
}

// Everyone's bits belong to every account, allowed or denied; a deny for Everyone alone makes
// no entry. Returns Everyone's allowed and denied bits.
std::pair<unsigned, unsigned> SpreadEveryone(std::vector<Slot>& slots) {
  const Slot* world = Find(slots, kAclOther, 0);
  const unsigned everyone = world != nullptr ? world->allowed : 0u;
  const unsigned everyoneDenied = world != nullptr ? world->denied : 0u;
  if (world != nullptr && world->rank == std::numeric_limits<std::size_t>::max()) {
    slots.erase(slots.begin() + (world - slots.data()));
  }
  for (Slot& slot : slots) {
    if (slot.tag == kAclOther) continue;
    slot.allowed = (slot.allowed | (everyone & ~slot.denied)) & ~everyoneDenied;
  }
  return {everyone, everyoneDenied};
}

// The entries every ACL needs, each added in front when missing.
void AddRequiredSlots(std::vector<Slot>& slots, bool isFolder, mode_t mode, const Target& target,
                      unsigned everyone, unsigned everyoneDenied) {
  auto addFront = [&](Slot slot) { slots.insert(slots.begin(), slot); };
  const unsigned ownerBits = (static_cast<unsigned>(mode) >> 6) & 7u;
  if (Find(slots, kAclUserObj, 0) == nullptr) {
    const Slot* named = Find(slots, kAclUser, target.uid);
    addFront(Slot{kAclUserObj, target.uid,
                  named != nullptr ? named->allowed : (ownerBits | everyone) & ~everyoneDenied});
  }
  // The owner can always read a file (so that it can read and change its permissions), and has
  // full control of a folder and of what a folder passes on to new objects.
  Find(slots, kAclUserObj, 0)->allowed |= isFolder ? 7u : 4u;
  if (Find(slots, kAclGroupObj, 0) == nullptr) {
    const Slot* named = Find(slots, kAclGroup, target.gid);
    addFront(Slot{kAclGroupObj, target.gid, named != nullptr ? named->allowed : everyone});
  }
  if (Find(slots, kAclOther, 0) == nullptr) addFront(Slot{kAclOther, 0, 0});
  if (Find(slots, kAclUser, target.uid) == nullptr) {
    addFront(Slot{kAclUser, target.uid, Find(slots, kAclUserObj, 0)->allowed});
  }
  if (Find(slots, kAclGroup, target.gid) == nullptr) {
    addFront(Slot{kAclGroup, target.gid, Find(slots, kAclGroupObj, 0)->allowed});
  }
}

// The slots of one ACL, in the server's order: the entries made from the DACL in the order of
// their first allow (deny-only ones after them), then the required ones it adds in front.
std::vector<Slot> BuildSlots(const security::SecurityDescriptor& sd, bool isFolder, bool asDefault,
                             mode_t mode, const Target& target) {
  std::vector<Slot> slots = SlotsFromDacl(sd, isFolder, asDefault, target);
  // A folder none of whose entries inherit to both files and folders has no default ACL.
  if (asDefault && slots.empty()) return slots;
  std::stable_sort(slots.begin(), slots.end(), [](const Slot& a, const Slot& b) {
    if (a.rank != b.rank) return a.rank < b.rank;
    return a.denyRank < b.denyRank;
  });
  const auto [everyone, everyoneDenied] = SpreadEveryone(slots);
  AddRequiredSlots(slots, isFolder, mode, target, everyone, everyoneDenied);
  return slots;
}

// The kernel's form: owner, named users by id, owning group, named groups by id, mask, other.
std::vector<PosixAclEntry> KernelAcl(const std::vector<Slot>& slots) {
  std::vector<PosixAclEntry> acl;
  for (const Slot& slot : slots) {
    const bool named = slot.tag == kAclUser || slot.tag == kAclGroup;
    acl.push_back(PosixAclEntry{slot.tag, static_cast<std::uint16_t>(slot.allowed & 7u),
                                named ? slot.id : 0u});
  }
  acl.push_back(PosixAclEntry{kAclMask, 7, 0});
  std::sort(acl.begin(), acl.end(), [](const PosixAclEntry& a, const PosixAclEntry& b) {
    return a.tag != b.tag ? a.tag < b.tag : a.id < b.id;
  });
  return acl;
}

void PutPaiEntries(const std::vector<Slot>& slots, std::vector<std::uint8_t>& out) {
  for (const Slot& slot : slots) {
    out.push_back(slot.flags);
    const bool user = slot.tag == kAclUserObj || slot.tag == kAclUser;
    const bool world = slot.tag == kAclOther;
    out.push_back(world ? kPaiWorld : user ? kPaiUser : kPaiGroup);
    const std::uint32_t id = world ? 0xFFFFFFFFu : slot.id;
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(id >> (8 * i)));
  }
}

void PutU16(std::vector<std::uint8_t>& out, std::size_t value) {
  out.push_back(static_cast<std::uint8_t>(value & 0xFFu));
  out.push_back(static_cast<std::uint8_t>((value >> 8) & 0xFFu));
}

}  // namespace

ServerPosixAcls PosixAclsForDescriptor(const security::SecurityDescriptor& sd, bool isFolder,
                                       std::uint32_t uid, std::uint32_t gid, mode_t mode,
                                       AccountMap& accounts) {
  const Target target{uid, gid, accounts};
  const std::vector<Slot> access = BuildSlots(sd, isFolder, false, mode, target);
  std::vector<Slot> defaults;
  if (isFolder) defaults = BuildSlots(sd, isFolder, true, mode, target);

  ServerPosixAcls acls;
  acls.access = KernelAcl(access);
  if (isFolder) {
    acls.defaults = defaults.empty() ? std::vector<PosixAclEntry>{} : KernelAcl(defaults);
  }
  const auto control = static_cast<std::uint16_t>(
      (sd.control & ~(security::kSeSaclPresent | security::kSeSaclAutoInherited |
                      security::kSeSaclProtected | security::kSeSaclDefaulted)) |
      security::kSeSelfRelative | security::kSeDaclPresent);
  acls.pai.push_back(kPaiVersion);
  PutU16(acls.pai, control);
  PutU16(acls.pai, access.size());
  PutU16(acls.pai, defaults.size());
  PutPaiEntries(access, acls.pai);
  PutPaiEntries(defaults, acls.pai);
  return acls;
}

}  // namespace tw::posix::samba
