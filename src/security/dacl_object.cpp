#include "security/dacl_object.h"

#include "base/hresult_error.h"
#include "security/codec/ace_order.h"

namespace tw {

DaclObject DaclObject::FromDescriptor(const security::SecurityDescriptor& sd) {
  DaclObject dacl;
  if (sd.IsNullDacl()) {
    dacl.isNull_ = true;
  } else if (sd.HasDacl() && sd.dacl) {
    dacl.entries_ = sd.dacl->aces();
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
  for (const security::Ace& ace : security::CanonicalOrder(entries_)) {
    error = acl.AddAce(security::kAclRevision, security::kAppendAce,
                       std::span<const security::Ace>(&ace, 1));
    if (error != err::kSuccess) ThrowHResult(HResultFromWin32(error));
  }
  return acl;
}

}  // namespace tw
