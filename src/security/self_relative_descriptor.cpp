#include "security/self_relative_descriptor.h"

#include "base/hresult_error.h"
#include "platform/security_port.h"

namespace tw {

SelfRelativeDescriptor SelfRelativeDescriptor::FromAbsolute(
    const security::SecurityDescriptor& sd) {
  // OwnerAndDaclOf decides which control bits belong to the owner and DACL; it is handed the
  // control word alone, and the owner and DACL are then written from `sd` itself, not copied.
  security::SecurityDescriptor controlOnly;
  controlOnly.control = sd.control;
  security::SelfRelativeParts parts;
  parts.control = OwnerAndDaclOf(controlOnly).control;
  if (sd.owner) parts.owner = &*sd.owner;
  if (sd.dacl) parts.dacl = &*sd.dacl;
  SelfRelativeDescriptor copy;
  copy.bytes_ = security::MakeSelfRelative(parts);
  return copy;
}

std::uint16_t SelfRelativeDescriptor::Control() const {
  return security::SelfRelativeControl(bytes_).value_or(0);
}

security::SecurityDescriptor SelfRelativeDescriptor::ToAbsolute() const {
  security::SecurityDescriptor sd;
  if (bytes_.empty()) return sd;
  const err::Win32Error error = security::ParseSelfRelative(bytes_, &sd);
  if (error != err::kSuccess) ThrowHResult(HResultFromWin32(error));
  return sd;
}

std::optional<security::Sid> SelfRelativeDescriptor::Owner() const {
  if (bytes_.empty()) return std::nullopt;
  return ToAbsolute().owner;
}

void SelfRelativeDescriptor::SetOwner(const security::Sid& owner) {
  security::SecurityDescriptor sd = ToAbsolute();
  sd.owner = owner;
  sd.control &= static_cast<std::uint16_t>(~security::kSeOwnerDefaulted);
  bytes_ = security::MakeSelfRelative(sd);
}

}  // namespace tw
