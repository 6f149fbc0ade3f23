// The security a new object receives from its parent when it is created without a descriptor of
// its own (for the hive engine: a new registry key under its parent key).
//
// Rules, from the inheritance algorithm of the Windows data-type documentation (the
// ComputeInheritedACLfromParent and CreateSecurityDescriptor steps), checked against a key that
// Windows XP itself created under a root key (the "special" test hive):
// - An entry of the parent that does not apply to the child's kind (CONTAINER_INHERIT_ACE for a
//   container, OBJECT_INHERIT_ACE for an object) gives the child an effective entry: flags
//   INHERITED_ACE only, the generic rights of its mask mapped to the specific ones of the
//   object type, CREATOR OWNER replaced by the child's owner and CREATOR GROUP by its group.
// - A container child also receives the entries its own children will inherit, unless the
//   parent entry has NO_PROPAGATE_INHERIT_ACE:
//   - an entry with CONTAINER_INHERIT_ACE whose mask has no generic right and whose SID is not
//     a creator SID is passed on as one entry that is both effective and inheritable: its
//     original flags with INHERIT_ONLY_ACE cleared and INHERITED_ACE set;
//   - otherwise the effective entry above is followed by an inherit-only copy of the parent's
//     entry (unchanged mask and SID, original flags plus INHERIT_ONLY_ACE and INHERITED_ACE);
//   - an entry with only OBJECT_INHERIT_ACE is passed on as that inherit-only copy alone.
// - Entries of types other than allowed and denied are copied with their flags handled as
//   above, their bodies unchanged (their SID and mask are not read).
// - The child's DACL lists the inherited entries in the order of the parent's entries.
// The child gets SE_DACL_PRESENT, plus SE_DACL_AUTO_INHERITED when the parent's DACL has it;
// SE_DACL_PROTECTED is never inherited. When the parent has no DACL, a NULL DACL or no entry
// that reaches the child, InheritFromParent gives an empty inherited DACL (our decision for the
// hive engine: an offline engine has no creator token with a default DACL to fall back on);
// CreateChildDescriptor, for file-system objects, falls back on the creator's default DACL as
// Windows does. A SACL is not inherited (the tool never reads or writes SACLs).
#pragma once

#include <cstdint>

#include "descriptor/acl.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"

namespace tw::security {

constexpr std::uint32_t kGenericRead = 0x80000000u;
constexpr std::uint32_t kGenericWrite = 0x40000000u;
constexpr std::uint32_t kGenericExecute = 0x20000000u;
constexpr std::uint32_t kGenericAll = 0x10000000u;

// The specific rights each generic right stands for on one object type.
struct GenericMapping {
  std::uint32_t read;
  std::uint32_t write;
  std::uint32_t execute;
  std::uint32_t all;
};

// Registry keys: KEY_READ, KEY_WRITE, KEY_EXECUTE, KEY_ALL_ACCESS.
constexpr GenericMapping kRegistryKeyMapping = {0x00020019u, 0x00020006u, 0x00020019u, 0x000F003Fu};
// Files and folders: FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
// FILE_ALL_ACCESS.
constexpr GenericMapping kFileMapping = {0x00120089u, 0x00120116u, 0x001200A0u, 0x001F01FFu};

// `mask` with its generic rights replaced by the specific rights they stand for.
std::uint32_t MapGenericMask(std::uint32_t mask, const GenericMapping& mapping);

// The entries a child receives from `parentDacl` (rules above), as a list of revision 2 sized
// exactly for them (or the parent's revision when that is higher).
Acl InheritedAcl(const Acl& parentDacl, bool isContainer, const Sid& owner, const Sid& group,
                 const GenericMapping& mapping);

// The descriptor of a new child: `owner`, `group`, and the DACL inherited from `parent`.
SecurityDescriptor InheritFromParent(const SecurityDescriptor& parent, bool isContainer,
                                     const Sid& owner, const Sid& group,
                                     const GenericMapping& mapping);

// The DACL of an object that takes its inheritance from its parent again: the entries of `dacl`
// not marked INHERITED_ACE, in their order, followed by those InheritedAcl gives from
// `parentDacl` (none when it is null). What an unprotected DACL write stores, and what a
// parent's new DACL gives each child it propagates to. Fails (ERROR_INVALID_PARAMETER as
// Acl::FromAces reports it) only when the result would pass the 64 KiB limit of a list.
[[nodiscard]] err::Win32Error ReinheritedAcl(const Acl& dacl, const Acl* parentDacl,
                                             bool isContainer, const Sid& owner, const Sid& group,
                                             const GenericMapping& mapping, Acl* result);

// Whether `sd`'s DACL holds an entry that children can inherit (OBJECT_INHERIT_ACE or
// CONTAINER_INHERIT_ACE); a missing or NULL DACL holds none.
bool HasInheritableEntries(const SecurityDescriptor& sd);

// The descriptor Windows gives a new file-system object created without a descriptor of its own
// (CreatePrivateObjectSecurityEx with automatic DACL inheritance, as the file system calls it):
// - when the parent's DACL holds an inheritable entry (HasInheritableEntries): the DACL
//   InheritFromParent computes, even when none of those entries reaches this kind of child (a
//   file under a folder whose entries are all container-inherit gets an empty DACL, as on
//   Windows);
// - otherwise the creator's default DACL `defaultDacl` (the token default DACL), its generic
//   rights mapped, with SE_DACL_PRESENT alone (neither inherited nor protected).
// `parent` is null for an object without a parent. The owner and group are always `owner` and
// `group`; no SACL.
SecurityDescriptor CreateChildDescriptor(const SecurityDescriptor* parent, bool isContainer,
                                         const Sid& owner, const Sid& group, const Acl& defaultDacl,
                                         const GenericMapping& mapping);

}  // namespace tw::security
