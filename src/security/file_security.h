// The three file-object security operations the migration calls: read an object's owner and
// DACL, take ownership of an object while keeping its old security, and write a kept owner and
// DACL back onto an object. None of them logs; each returns a result that the caller turns into
// its own message. Every object is a file or folder (SE_FILE_OBJECT) named by a Windows path.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/hresult.h"
#include "base/win32_error.h"
#include "ports/file_system.h"
#include "ports/security_port.h"
#include "security/self_relative_descriptor.h"

namespace tw {

// FILE_ALL_ACCESS, the right the running user is given while it owns an object.
constexpr std::uint32_t kFileAllAccess = 0x001F01FF;
// OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE, the flags of that entry.
constexpr std::uint8_t kFullControlEntryFlags = 0x03;

class FileSecurity {
 public:
  // Both ports must outlive the object. The running user is `currentUserSid`
  // (security/current_user_sid.h).
  FileSecurity(FileSystem& fileSystem, SecurityPort& port) : fileSystem_(fileSystem), port_(port) {}

  // Reads the owner and DACL of `path` (GetNamedSecurityInfoW, OWNER | DACL) into `sd` as a
  // self-relative copy. On failure returns false with the Win32 error in `lastError` and leaves
  // `sd` as it was. No privilege is touched (the SACL is never asked for).
  bool ReadFileSecurity(std::wstring_view path, SelfRelativeDescriptor& sd,
                        err::Win32Error& lastError);

  // Makes the running user the owner of `path`, keeping the security it had in `savedSd`:
  // 1. opens the object for reading with backup semantics (FILE_SHARE_READ | FILE_SHARE_WRITE,
  //    OPEN_EXISTING); failure: HRESULT_FROM_WIN32 of the open's error;
  // 2. reads owner and DACL through the handle and closes it at once; an error e gives
  //    0x80070000 | (e & 0xFFFF);
  // 3. replaces `savedSd` with a self-relative copy of what was read;
  // 4. writes `currentUserSid` as the owner; an error gives its HRESULT (an empty
  //    `currentUserSid` is written as a null owner and fails there); the owner is not changed
  //    back if a later step fails: the caller restores `savedSd` with ApplySecurity;
  // 5. without `grantFullControl` returns S_OK;
  // 6. builds the kept DACL plus one access-allowed entry for `currentUserSid` with
  //    FILE_ALL_ACCESS and flags 3; a NULL DACL (or none) first becomes an empty one, so the
  //    object is then open to the running user alone, deliberately, until it is restored. An
  //    empty `currentUserSid` refuses the entry (ERROR_INVALID_SID);
  // 7. writes that DACL (DACL_SECURITY_INFORMATION alone: the object keeps its protection) and
  //    returns S_OK when the write succeeds;
  // 8. otherwise returns HRESULT_FROM_WIN32 of the failing step's error.
  [[nodiscard]] HResult TakeOwnership(std::wstring_view path, SelfRelativeDescriptor& savedSd,
                                      bool grantFullControl);

  // Writes the owner and DACL kept in `sd` onto `path`:
  // - an empty `sd` changes nothing and gives S_OK;
  // - the owner is written unless SE_OWNER_DEFAULTED is set (a descriptor without an owner is
  //   written with a null owner);
  // - the DACL is written unless SE_DACL_PRESENT and SE_DACL_DEFAULTED are both set: a NULL DACL
  //   stays NULL, an absent one is written as an empty DACL, with
  //   PROTECTED_DACL_SECURITY_INFORMATION when SE_DACL_PROTECTED is set, else
  //   UNPROTECTED_DACL_SECURITY_INFORMATION (so the object inherits from its parent exactly
  //   when the kept descriptor did);
  // - with nothing to write, S_OK without calling the system;
  // - otherwise 0, or 0x80070000 | (e & 0xFFFF) for the write's error e.
  [[nodiscard]] HResult ApplySecurity(std::wstring_view path, const SelfRelativeDescriptor& sd);

 private:
  FileSystem& fileSystem_;
  SecurityPort& port_;
};

}  // namespace tw
