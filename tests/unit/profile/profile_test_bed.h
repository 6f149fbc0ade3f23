// Helpers of the profile migration's tests: a migration context over the fake file system, a
// fake security port whose objects follow the fake file system, the fake network port and the
// fake offline-registry table, with the log captured.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "descriptor/ace.h"
#include "descriptor/acl.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"
#include "fakes/fake_file_system.h"
#include "fakes/fake_network_port.h"
#include "fakes/fake_offreg.h"
#include "fakes/fake_security_port.h"
#include "fakes/log_capture.h"
#include "migration/migration_context.h"
#include "migration/migration_settings.h"
#include "security/current_user_sid.h"

namespace tw::testing {

// The fake security port over a file system (the fake, or the real one over temp folders):
// folders it creates appear in the file system, and an object of the file system that has no
// descriptor yet gets the one a new object receives when it is first read or written.
class LinkedSecurityPort : public FakeSecurityPort {
 public:
  explicit LinkedSecurityPort(FileSystem& files) : files_(files) {}

  err::Win32Error ReadNamedSecurity(std::wstring_view path,
                                    security::SecurityDescriptor& sd) override {
    Adopt(path);
    return FakeSecurityPort::ReadNamedSecurity(path, sd);
  }
  err::Win32Error ReadOpenedObjectSecurity(FileHandle handle, std::wstring_view path,
                                           security::SecurityDescriptor& sd) override {
    Adopt(path);
    return FakeSecurityPort::ReadOpenedObjectSecurity(handle, path, sd);
  }
  err::Win32Error WriteNamedSecurity(std::wstring_view path, const SecurityWrite& write) override {
    Adopt(path);
    return FakeSecurityPort::WriteNamedSecurity(path, write);
  }
  err::Win32Error WriteOpenedObjectSecurity(FileHandle handle, std::wstring_view path,
                                            const SecurityWrite& write) override {
    Adopt(path);
    return FakeSecurityPort::WriteOpenedObjectSecurity(handle, path, write);
  }
  err::Win32Error CreateFolderWithSecurity(std::wstring_view path,
                                           const security::SecurityDescriptor* sd) override {
    if (files_.PathExists(path)) return err::kAlreadyExists;
    const err::Win32Error made = files_.MakeFolder(path);
    if (made != err::kSuccess) return made;
    const err::Win32Error created = FakeSecurityPort::CreateFolderWithSecurity(path, sd);
    if (created == err::kAlreadyExists) {  // a descriptor left by a deleted folder
      SetObject(std::wstring(path), sd != nullptr ? OwnerAndDaclOf(*sd) : DefaultNewObject());
      return err::kSuccess;
    }
    return created;
  }
  err::Win32Error CreateFolderPathWithSecurity(std::wstring_view path,
                                               const security::SecurityDescriptor* sd) override {
    const err::Win32Error made = files_.MakeFolderPath(path);
    if (made != err::kSuccess) return made;
    security::SecurityDescriptor object = sd != nullptr ? OwnerAndDaclOf(*sd) : DefaultNewObject();
    if (!object.owner) object.owner = userSid;
    SetObject(std::wstring(path), object);
    return err::kSuccess;
  }

 private:
  void Adopt(std::wstring_view path) {
    if (Object(path) == nullptr && files_.PathExists(path)) {
      SetObject(std::wstring(path), DefaultNewObject());
    }
  }
  FileSystem& files_;
};

inline security::Sid AnnaSid() { return security::Sid(5, {21, 1, 2, 3, 1001}); }
inline security::Sid AdminSid() { return security::Sid(5, {21, 1, 2, 3, 500}); }

// Owner `owner` and a DACL allowing it full control, inheritable.
inline security::SecurityDescriptor OwnedBy(const security::Sid& owner) {
  security::SecurityDescriptor sd;
  sd.owner = owner;
  security::Acl acl;
  EXPECT_EQ(security::Acl::FromAces(security::kAclRevision,
                                    {security::Ace::Allowed(0x1F01FF, owner, 3)}, &acl),
            err::kSuccess);
  sd.SetDacl(acl);
  return sd;
}

// The share the tests' profiles live on, and the native path its root opens as.
inline constexpr wchar_t kShare[] = L"\\\\srv\\profiles";
inline constexpr wchar_t kShareNative[] = L"\\Device\\Mup\\srv\\profiles";

struct ProfileTestBed {
  ProfileTestBed() {
    currentUserSid.Clear();
    currentUserSid.Set(AdminSid());
    security.userSid = AdminSid();
    network.statuses[kShareNative] = ntstatus::kSuccess;
    files.AddFolder(kShare);
  }
  ~ProfileTestBed() { currentUserSid.Clear(); }

  // Messages logged so far that contain `part`.
  int Count(std::wstring_view part) const {
    int count = 0;
    for (const std::wstring& message : log.messages()) {
      if (message.find(part) != std::wstring::npos) ++count;
    }
    return count;
  }
  bool Logged(std::wstring_view message) const {
    for (const std::wstring& logged : log.messages()) {
      if (logged == message) return true;
    }
    return false;
  }

  MigrationSettings settings;
  FakeFileSystem files;
  LinkedSecurityPort security{files};
  FakeNetworkPort network;
  FakeOffreg fake;
  MigrationContext context{&settings, files, security, fake.offreg(), &network};
  LogCapture log;
};

}  // namespace tw::testing
