#include "descriptor/inheritance.h"

#include <utility>
#include <vector>

#include "base/hresult.h"
#include "base/hresult_error.h"
#include "descriptor/well_known_sids.h"

namespace tw::security {

namespace {

constexpr std::uint32_t kGenericBits = kGenericRead | kGenericWrite | kGenericExecute | kGenericAll;

bool IsCreatorSid(const Sid& sid) { return sid == CreatorOwnerSid() || sid == CreatorGroupSid(); }

// The entry as it applies to the child itself.
Ace EffectiveAce(const Ace& parentAce, const Sid& owner, const Sid& group,
                 const GenericMapping& mapping) {
  Ace ace = parentAce;
  ace.flags = static_cast<std::uint8_t>((parentAce.flags & ~kValidInheritFlags) | kInheritedAce);
  if (ace.HasSid()) {
    ace.mask = MapGenericMask(ace.mask, mapping);
    if (ace.sid == CreatorOwnerSid()) {
      ace.sid = owner;
    } else if (ace.sid == CreatorGroupSid()) {
      ace.sid = group;
    }
  }
  return ace;
}

// The entry kept only for the child's own children.
Ace InheritOnlyAce(const Ace& parentAce) {
  Ace ace = parentAce;
  ace.flags = static_cast<std::uint8_t>(parentAce.flags | kInheritOnlyAce | kInheritedAce);
  return ace;
}

void InheritOne(const Ace& ace, bool isContainer, const Sid& owner, const Sid& group,
                const GenericMapping& mapping, std::vector<Ace>& out) {
  const bool containerInherit = (ace.flags & kContainerInheritAce) != 0;
  const bool objectInherit = (ace.flags & kObjectInheritAce) != 0;
  const bool noPropagate = (ace.flags & kNoPropagateInheritAce) != 0;

  if (!isContainer) {
    if (objectInherit) out.push_back(EffectiveAce(ace, owner, group, mapping));
    return;
  }
  if (containerInherit) {
    const bool needsSplit =
        ace.HasSid() && ((ace.mask & kGenericBits) != 0 || IsCreatorSid(ace.sid));
    if (noPropagate) {
      out.push_back(EffectiveAce(ace, owner, group, mapping));
    } else if (needsSplit) {
      out.push_back(EffectiveAce(ace, owner, group, mapping));
      out.push_back(InheritOnlyAce(ace));
    } else {
      Ace both = ace;
      both.flags = static_cast<std::uint8_t>((ace.flags & ~kInheritOnlyAce) | kInheritedAce);
      out.push_back(std::move(both));
    }
  } else if (objectInherit && !noPropagate) {
    out.push_back(InheritOnlyAce(ace));
  }
}

}  // namespace

std::uint32_t MapGenericMask(std::uint32_t mask, const GenericMapping& mapping) {
  std::uint32_t result = mask & ~kGenericBits;
  if ((mask & kGenericRead) != 0) result |= mapping.read;
  if ((mask & kGenericWrite) != 0) result |= mapping.write;
  if ((mask & kGenericExecute) != 0) result |= mapping.execute;
  if ((mask & kGenericAll) != 0) result |= mapping.all;
  return result;
}

Acl InheritedAcl(const Acl& parentDacl, bool isContainer, const Sid& owner, const Sid& group,
                 const GenericMapping& mapping) {
  std::vector<Ace> aces;
  for (const Ace& ace : parentDacl.aces()) {
    InheritOne(ace, isContainer, owner, group, mapping, aces);
  }
  const std::uint8_t revision =
      parentDacl.revision() > kAclRevision ? parentDacl.revision() : kAclRevision;
  Acl result;
  // Only a child list larger than 64 KiB can fail here (entries were valid in the parent).
  if (const err::Win32Error error = Acl::FromAces(revision, std::move(aces), &result);
      error != err::kSuccess) {
    ThrowHResult(HResultFromWin32(error));
  }
  return result;
}

SecurityDescriptor InheritFromParent(const SecurityDescriptor& parent, bool isContainer,
                                     const Sid& owner, const Sid& group,
                                     const GenericMapping& mapping) {
  SecurityDescriptor child;
  child.owner = owner;
  child.group = group;
  if (parent.HasDacl() && parent.dacl) {
    child.SetDacl(InheritedAcl(*parent.dacl, isContainer, owner, group, mapping));
  } else {
    child.SetDacl(Acl());
  }
  if ((parent.control & kSeDaclAutoInherited) != 0) child.control |= kSeDaclAutoInherited;
  return child;
}

[[nodiscard]] err::Win32Error ReinheritedAcl(const Acl& dacl, const Acl* parentDacl,
                                             bool isContainer, const Sid& owner, const Sid& group,
                                             const GenericMapping& mapping, Acl* result) {
  std::vector<Ace> aces;
  for (const Ace& ace : dacl.aces()) {
    if (!ace.IsInherited()) aces.push_back(ace);
  }
  std::uint8_t revision = dacl.revision();
  if (parentDacl != nullptr) {
    for (const Ace& ace : parentDacl->aces()) {
      InheritOne(ace, isContainer, owner, group, mapping, aces);
    }
    if (parentDacl->revision() > revision) revision = parentDacl->revision();
  }
  return Acl::FromAces(revision, std::move(aces), result);
}

bool HasInheritableEntries(const SecurityDescriptor& sd) {
  if (!sd.HasDacl() || !sd.dacl) return false;
  for (const Ace& ace : sd.dacl->aces()) {
    if ((ace.flags & (kObjectInheritAce | kContainerInheritAce)) != 0) return true;
  }
  return false;
}

SecurityDescriptor CreateChildDescriptor(const SecurityDescriptor* parent, bool isContainer,
                                         const Sid& owner, const Sid& group, const Acl& defaultDacl,
                                         const GenericMapping& mapping) {
  if (parent != nullptr && HasInheritableEntries(*parent)) {
    return InheritFromParent(*parent, isContainer, owner, group, mapping);
  }
  std::vector<Ace> aces;
  for (Ace ace : defaultDacl.aces()) {
    if (ace.HasSid()) ace.mask = MapGenericMask(ace.mask, mapping);
    aces.push_back(std::move(ace));
  }
  Acl dacl;
  if (const err::Win32Error error = Acl::FromAces(defaultDacl.revision(), std::move(aces), &dacl);
      error != err::kSuccess) {
    ThrowHResult(HResultFromWin32(error));
  }
  SecurityDescriptor child;
  child.owner = owner;
  child.group = group;
  child.SetDacl(std::move(dacl));
  return child;
}

}  // namespace tw::security
