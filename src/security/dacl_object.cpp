#include "security/dacl_object.h"

#include <utility>

#include "base/hresult_error.h"
#include "descriptor/ace_order.h"

namespace tw {

DaclObject DaclObject::FromDescriptor(const security::SecurityDescriptor& sd) {
  return FromDescriptor(security::SecurityDescriptor(sd));
}

DaclObject DaclObject::FromDescriptor(security::SecurityDescriptor&& sd) {
  DaclObject dacl;
  if (sd.IsNullDacl()) {
    dacl.isNull_ = true;
  } else if (sd.HasDacl() && sd.dacl) {
    dacl.entries_ = std::move(*sd.dacl).aces();
  }
  return dacl;
}

void DaclObject::AddAllowed(const security::Sid& sid, std::uint32_t mask, std::uint8_t flags) {
  isNull_ = false;
  entries_.push_back(security::Ace::Allowed(mask, sid, flags));
}

std::optional<security::Acl> DaclObject::ToAcl() const {
  if (isNull_) return std::nullopt;
  std::size_t size = security::kAclHeaderSize;
  for (const security::Ace& ace : entries_) size += ace.Size();
  security::Acl acl;
  err::Win32Error error = acl.Initialize(static_cast<std::uint32_t>(size), security::kAclRevision);
  if (error != err::kSuccess) ThrowHResult(HResultFromWin32(error));
  // One AddAce call for all the entries: the list is sized for every entry, so each one before
  // the first entry that is not writable fits, that entry fails with ERROR_INVALID_PARAMETER
  // just as it would in a call of its own, and nothing else can fail.
  std::vector<security::Ace> sorted;
  std::span<const security::Ace> ordered = entries_;
  if (!security::IsCanonical(ordered)) {
    sorted = security::CanonicalOrder(entries_);
    ordered = sorted;
  }
  error = acl.AddAce(security::kAclRevision, security::kAppendAce, ordered);
  if (error != err::kSuccess) ThrowHResult(HResultFromWin32(error));
  return acl;
}

}  // namespace tw
