#include "fakes/fake_security_port.h"

namespace tw::testing {

namespace {

constexpr SecurityOp kAllOps[] = {SecurityOp::kReadNamed, SecurityOp::kReadOpened,
                                  SecurityOp::kWriteOwner, SecurityOp::kWriteDacl,
                                  SecurityOp::kCreate};

}  // namespace

void FakeSecurityPort::FailOnAll(const std::wstring& path, err::Win32Error error) {
  for (const SecurityOp op : kAllOps) FailOn(op, path, error);
}

const security::SecurityDescriptor* FakeSecurityPort::Object(std::wstring_view path) const {
  const auto found = objects_.find(path);
  return found == objects_.end() ? nullptr : &found->second;
}

security::SecurityDescriptor FakeSecurityPort::DefaultNewObject() const {
  security::SecurityDescriptor sd;
  sd.owner = userSid;
  sd.SetDacl(security::Acl());
  return sd;
}

int FakeSecurityPort::Calls(SecurityOp op) const {
  const auto found = calls_.find(op);
  return found == calls_.end() ? 0 : found->second;
}

err::Win32Error FakeSecurityPort::Failure(SecurityOp op, std::wstring_view path) const {
  const auto found = failures_.find({op, std::wstring(path)});
  return found == failures_.end() ? err::kSuccess : found->second;
}

err::Win32Error FakeSecurityPort::Enter(SecurityOp op, std::wstring_view path) {
  {
    const std::lock_guard<std::mutex> hold(callsMutex_);  // reads may come from several threads
    ++calls_[op];
  }
  return Failure(op, path);
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

void FakeSecurityPort::CloseToken(TokenHandle token) {
  ++closeTokenCalls_;
  closedToken_ = token;
}

std::optional<security::Sid> FakeSecurityPort::CurrentUserSid() {
  ++userSidCalls_;
  return userSid;
}

err::Win32Error FakeSecurityPort::Read(std::wstring_view path,
                                       security::SecurityDescriptor& sd) const {
  const security::SecurityDescriptor* object = Object(path);
  if (object == nullptr) return err::kFileNotFound;
  sd = OwnerAndDaclOf(*object);
  return err::kSuccess;
}

err::Win32Error FakeSecurityPort::ReadNamedSecurity(std::wstring_view path,
                                                    security::SecurityDescriptor& sd) {
  if (const err::Win32Error error = Enter(SecurityOp::kReadNamed, path)) return error;
  return Read(path, sd);
}

err::Win32Error FakeSecurityPort::ReadOpenedObjectSecurity(FileHandle handle,
                                                           std::wstring_view path,
                                                           security::SecurityDescriptor& sd) {
  if (const err::Win32Error error = Enter(SecurityOp::kReadOpened, path)) return error;
  if (handle == kInvalidFileHandle) return err::kInvalidHandle;
  return Read(path, sd);
}

err::Win32Error FakeSecurityPort::WriteNamedSecurity(std::wstring_view path,
                                                     const SecurityWrite& write) {
  writes_.emplace_back(std::wstring(path), write);
  return Write(path, write);
}

err::Win32Error FakeSecurityPort::WriteOpenedObjectSecurity(FileHandle handle,
                                                            std::wstring_view path,
                                                            const SecurityWrite& write) {
  openedWrites_.push_back({handle, std::wstring(path), write});
  if (handle == kInvalidFileHandle) return err::kInvalidHandle;
  return Write(path, write);
}

err::Win32Error FakeSecurityPort::Write(std::wstring_view path, const SecurityWrite& write) {
  if (write.writeOwner) {
    if (const err::Win32Error error = Enter(SecurityOp::kWriteOwner, path)) return error;
  }
  if (write.writeDacl) {
    if (const err::Win32Error error = Enter(SecurityOp::kWriteDacl, path)) return error;
  }
  if (write.RequestsNothing()) return err::kSuccess;  // nothing asked, nothing touched
  const auto object = objects_.find(path);
  if (object == objects_.end()) return err::kFileNotFound;
  if (write.writeOwner && !write.owner) return err::kInvalidOwner;
  security::SecurityDescriptor& sd = object->second;
  if (write.writeOwner) {
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
    } else if (write.protection == DaclProtection::kUnprotected) {
      sd.control &= static_cast<std::uint16_t>(~security::kSeDaclProtected);
    }
  }
  return err::kSuccess;
}

security::SecurityDescriptor FakeSecurityPort::NewObject(
    const security::SecurityDescriptor* sd) const {
  if (sd == nullptr) return DefaultNewObject();
  security::SecurityDescriptor object = OwnerAndDaclOf(*sd);
  if (!object.owner) object.owner = userSid;
  if (!object.HasDacl()) object.SetDacl(security::Acl());
  return object;
}

err::Win32Error FakeSecurityPort::CreateFolderWithSecurity(std::wstring_view path,
                                                           const security::SecurityDescriptor* sd) {
  if (const err::Win32Error error = Enter(SecurityOp::kCreate, path)) return error;
  if (Object(path) != nullptr) return err::kAlreadyExists;
  objects_[std::wstring(path)] = NewObject(sd);
  created_.emplace_back(path);
  return err::kSuccess;
}

err::Win32Error FakeSecurityPort::CreateFolderPathWithSecurity(
    std::wstring_view path, const security::SecurityDescriptor* sd) {
  return CreateFolderWithSecurity(path, sd);
}

err::Win32Error FakeSecurityPort::CreateFileWithSecurity(std::wstring_view path, bool failIfExists,
                                                         const security::SecurityDescriptor* sd) {
  if (const err::Win32Error error = Enter(SecurityOp::kCreate, path)) return error;
  if (Object(path) != nullptr) return failIfExists ? err::kFileExists : err::kSuccess;
  objects_[std::wstring(path)] = NewObject(sd);
  created_.emplace_back(path);
  return err::kSuccess;
}

}  // namespace tw::testing
