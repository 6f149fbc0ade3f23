#include "security/self_relative_descriptor.h"

#include "base/hresult_error.h"
#include "ports/security_port.h"

namespace tw {

SelfRelativeDescriptor SelfRelativeDescriptor::FromAbsolute(
    const security::SecurityDescriptor& sd) {
  // The owner and DACL part (see OwnerAndDaclOf), written from `sd`'s own parts, not copied.
  security::SelfRelativeParts parts;
  parts.control = static_cast<std::uint16_t>(sd.control & kOwnerAndDaclControlBits);
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
