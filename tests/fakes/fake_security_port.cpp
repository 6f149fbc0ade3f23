#include "fakes/fake_security_port.h"

namespace tw::testing {

const security::SecurityDescriptor* FakeSecurityPort::Object(std::wstring_view path) const {
  const auto found = objects_.find(path);
  return found == objects_.end() ? nullptr : &found->second;
}

BoolCallResult FakeSecurityPort::OpenPrivilegeToken(TokenHandle& token) {
  ++openTokenCalls_;
  if (openTokenError) {
    token = kInvalidTokenHandle;
    return {false, *openTokenError};
  }
  token = kToken;
  return {true, err::kSuccess};
}

BoolCallResult FakeSecurityPort::EnablePrivilege(TokenHandle token, std::wstring_view name) {
  privilegeCalls_.emplace_back(name);
  if (token != kToken) return {false, err::kInvalidHandle};
  if (const auto found = enableErrors.find(name); found != enableErrors.end()) {
    return {false, found->second};
  }
  if (notHeld.contains(name)) return {true, err::kNotAllAssigned};
  return {true, err::kSuccess};
}

void FakeSecurityPort::CloseToken(TokenHandle /*token*/) { ++closeTokenCalls_; }

std::optional<security::Sid> FakeSecurityPort::CurrentUserSid() {
  ++userSidCalls_;
  return userSid;
}

err::Win32Error FakeSecurityPort::ReadNamedSecurity(std::wstring_view path,
                                                    security::SecurityDescriptor& sd) {
  if (const auto found = readErrors.find(path); found != readErrors.end()) return found->second;
  const security::SecurityDescriptor* object = Object(path);
  if (object == nullptr) return err::kFileNotFound;
  sd = *object;
  return err::kSuccess;
}

err::Win32Error FakeSecurityPort::ReadHandleSecurity(FileHandle handle,
                                                     security::SecurityDescriptor& sd) {
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return err::kInvalidHandle;
  return ReadNamedSecurity(found->second, sd);
}

err::Win32Error FakeSecurityPort::WriteNamedSecurity(std::wstring_view path,
                                                     const SecurityWrite& write) {
  writes_.emplace_back(std::wstring(path), write);
  if (const auto found = writeErrors.find(path); found != writeErrors.end()) return found->second;
  if (!write.owner && !write.writeDacl) return err::kSuccess;  // nothing asked, nothing touched
  const auto object = objects_.find(path);
  if (object == objects_.end()) return err::kFileNotFound;
  security::SecurityDescriptor& sd = object->second;
  if (write.owner) {
    sd.owner = write.owner;
    sd.control &= static_cast<std::uint16_t>(~security::kSeOwnerDefaulted);
  }
  if (write.writeDacl) {
    if (write.dacl) {
      sd.SetDacl(*write.dacl);
    } else {
      sd.SetNullDacl();
    }
    sd.control &= static_cast<std::uint16_t>(~security::kSeDaclDefaulted);
    if (write.protection == DaclProtection::kProtected) {
      sd.control |= security::kSeDaclProtected;
    } else {
      sd.control &= static_cast<std::uint16_t>(~security::kSeDaclProtected);
    }
  }
  return err::kSuccess;
}

}  // namespace tw::testing
