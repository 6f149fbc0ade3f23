// The security port over the Linux file server (ARCHITECTURE.md, section 4): owners and DACLs
// are kept by the descriptor store (descriptor_store.h) and read and written through
// object_security.h; every Windows path is mapped with ToNativePath, so UNC paths and
// case-insensitive names work as for the file-system port.
//
// Tokens and privileges do not exist here: the process token is a fixed id, every privilege
// enables (TRUE, error 0) and closing the token does nothing. The current user is
// S-1-22-1-<effective uid>.
#include "ports/security_port.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "descriptor/well_known_sids.h"
#include "os/native_ports.h"
#include "os/posix/errno_win32.h"
#include "os/posix/files/open_file_identity.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/folder_names.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/security/object_security.h"

namespace tw {
namespace {

constexpr TokenHandle kProcessToken = 0x50;
// SHCreateDirectoryExW refuses paths of this many characters or more.
constexpr std::size_t kMaxCreatePathLength = 248;

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

// A fully qualified Windows path: "X:\..." or "\\server\share...".
bool IsFullyQualified(std::wstring_view path) {
  if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) return true;
  return path.size() >= 3 &&
         ((path[0] >= L'A' && path[0] <= L'Z') || (path[0] >= L'a' && path[0] <= L'z')) &&
         path[1] == L':' && IsSeparator(path[2]);
}

// mkdir, then the descriptor when one is given; a descriptor that cannot be stored removes the
// new folder again, as a creation with SECURITY_ATTRIBUTES succeeds or fails as a whole.
[[nodiscard]] err::Win32Error MakeFolder(const std::string& native,
                                         const security::SecurityDescriptor* sd) {
  if (posix::MakeFolderBeneath(native, 0777) != 0) {
    const int errnum = errno;
    if (errnum == EEXIST) return err::kAlreadyExists;
    if (errnum == ENOENT || errnum == ENOTDIR) return err::kPathNotFound;
    return posix::Win32ErrorFromErrno(errnum);
  }
  posix::NoteNameCreated(native);
  if (sd == nullptr) {
    // Without a descriptor the folder inherits; that failing leaves it as mkdir made it.
    static_cast<void>(posix::InheritNewObjectSecurity(native));
    return err::kSuccess;
  }
  const err::Win32Error error = posix::StoreNewObjectSecurity(native, *sd);
  if (error != err::kSuccess && posix::RemoveFolderBeneath(native) == 0)
    posix::NoteNameRemoved(native);
  return error;
}

class PosixSecurityPort final : public SecurityPort {
 public:
  BoolCallResult OpenPrivilegeToken(TokenHandle& token) override {
    token = kProcessToken;
    return {true, err::kSuccess};
  }

  BoolCallResult EnablePrivilege(TokenHandle token, std::wstring_view /*name*/) override {
    if (token != kProcessToken) return {false, err::kInvalidHandle};
    return {true, err::kSuccess};
  }

  void CloseToken(TokenHandle /*token*/) override {}

  std::optional<security::Sid> CurrentUserSid() override {
    return security::UnixUserSid(static_cast<std::uint32_t>(::geteuid()));
  }

  [[nodiscard]] err::Win32Error ReadNamedSecurity(std::wstring_view path,
                                                  security::SecurityDescriptor& sd) override {
    return posix::OnExistingObject(path, [&sd](const std::string& native) {
      security::SecurityDescriptor whole;
      const err::Win32Error error = posix::ReadObjectDescriptor(native, whole);
      if (error == err::kSuccess) sd = OwnerAndDaclOf(std::move(whole));
      return error;
    });
  }

  [[nodiscard]] err::Win32Error ReadOpenedObjectSecurity(
      FileHandle handle, std::wstring_view path, security::SecurityDescriptor& sd) override {
    if (handle == kInvalidFileHandle) return err::kInvalidHandle;
    return ReadNamedSecurity(path, sd);
  }

  [[nodiscard]] err::Win32Error WriteNamedSecurity(std::wstring_view path,
                                                   const SecurityWrite& write) override {
    if (write.RequestsNothing()) return err::kSuccess;
    std::string native;
    err::Win32Error error = err::kSuccess;
    posix::NativeStatus status;
    if (!posix::ToNativePath(path, native, error, &status)) return error;
    return posix::WriteObjectSecurity(native, write, status);
  }

  // Linux has no call that writes the whole stored security through a descriptor, so the write
  // goes through the name, and only while the name still names the object the handle holds (the
  // same device and inode): an object put in its place after the open is never written.
  [[nodiscard]] err::Win32Error WriteOpenedObjectSecurity(FileHandle handle, std::wstring_view path,
                                                          const SecurityWrite& write) override {
    struct stat opened {};
    if (handle == kInvalidFileHandle || !posix::StatOpenFile(handle, opened)) {
      return err::kInvalidHandle;
    }
    if (write.RequestsNothing()) return err::kSuccess;
    std::string native;
    err::Win32Error error = err::kSuccess;
    posix::NativeStatus status;
    if (!posix::ToNativePath(path, native, error, &status)) return err::kAccessDenied;
    struct stat named {};
    if (posix::LstatKnown(native, status, named) != 0 || named.st_dev != opened.st_dev ||
        named.st_ino != opened.st_ino) {
      return err::kAccessDenied;
    }
    return posix::WriteObjectSecurity(native, write, status);
  }

  [[nodiscard]] err::Win32Error CreateFolderWithSecurity(
      std::wstring_view path, const security::SecurityDescriptor* sd) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePathForCreation(path, native, error)) return error;
    return MakeFolder(native, sd);
  }

  // Walks the Linux path from the root and creates each missing folder with the descriptor
  // (every folder the call creates gets it, as SHCreateDirectoryExW hands the same attributes
  // to each creation). A file in place of the last folder gives kFileExists; one on the way
  // kPathNotFound.
  [[nodiscard]] err::Win32Error CreateFolderPathWithSecurity(
      std::wstring_view path, const security::SecurityDescriptor* sd) override {
    if (!IsFullyQualified(path)) return err::kBadPathname;
    if (path.size() >= kMaxCreatePathLength) return err::kFilenameExcedRange;
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return error;
    while (native.size() > 1 && native.back() == '/') native.pop_back();

    bool created = false;
    std::string::size_type next = 0;
    for (;;) {
      const std::string::size_type slash = native.find('/', next + 1);
      const bool last = slash == std::string::npos;
      const std::string prefix = last ? native : native.substr(0, slash);
      next = last ? native.size() : slash;
      if (prefix.empty()) continue;  // the root of a relative mapping never happens; be safe
      struct stat info {};
      if (posix::LstatBeneath(prefix, info) == 0) {
        if (!S_ISDIR(info.st_mode)) return last ? err::kFileExists : err::kPathNotFound;
        if (last) return created ? err::kSuccess : err::kAlreadyExists;
        continue;
      }
      if (errno != ENOENT) return posix::Win32ErrorFromErrno(errno);
      if ((error = MakeFolder(prefix, sd)) != err::kSuccess) return error;
      created = true;
      if (last) return err::kSuccess;
    }
  }

  // O_NOFOLLOW: a symbolic link in the file's place is refused, never written through.
  [[nodiscard]] err::Win32Error CreateFileWithSecurity(
      std::wstring_view path, bool failIfExists, const security::SecurityDescriptor* sd) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return error;
    const int baseFlags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW;
    bool created = true;
    int fd = posix::OpenBeneath(native, baseFlags | O_CREAT | O_EXCL, 0666);
    if (fd < 0 && errno == EEXIST && !failIfExists) {
      created = false;
      fd = posix::OpenBeneath(native, baseFlags | O_TRUNC);
    }
    if (fd < 0) {
      const int errnum = errno;
      if (errnum == EEXIST) return err::kFileExists;
      if (errnum == ELOOP || errnum == EISDIR) return err::kAccessDenied;
      return posix::ObjectPathError(native, errnum);
    }
    ::close(fd);
    if (created) posix::NoteNameCreated(native);
    if (!created) return err::kSuccess;
    if (sd == nullptr) {
      static_cast<void>(posix::InheritNewObjectSecurity(native));
      return err::kSuccess;
    }
    error = posix::StoreNewObjectSecurity(native, *sd);
    if (error != err::kSuccess && posix::UnlinkBeneath(native) == 0) posix::NoteNameRemoved(native);
    return error;
  }
};

}  // namespace

SecurityPort& NativeSecurityPort() {
  static PosixSecurityPort port;
  return port;
}

}  // namespace tw
