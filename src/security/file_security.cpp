#include "security/file_security.h"

#include <optional>
#include <utility>

#include "security/current_user_sid.h"
#include "security/dacl_object.h"

namespace tw {
namespace {

// The result of a security call's non-zero error: 0x80070000 | (e & 0xFFFF), whatever e is.
[[nodiscard]] HResult SecurityCallResult(err::Win32Error error) {
  if (error == err::kSuccess) return hr::kOk;
  return HResult::FromBits(0x80070000u | (error.Code() & 0xFFFFu));
}

// CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
// FILE_FLAG_BACKUP_SEMANTICS, NULL).
FileOpenRequest BackupReadRequest() {
  FileOpenRequest request;
  request.read = true;
  request.write = false;
  request.shareRead = true;
  request.shareWrite = true;
  request.shareDelete = false;
  request.disposition = CreationDisposition::kOpenExisting;
  request.attributes = 0;  // only the flag; OPEN_EXISTING creates nothing
  request.backupSemantics = true;
  return request;
}

}  // namespace

bool FileSecurity::ReadFileSecurity(std::wstring_view path, SelfRelativeDescriptor& sd,
                                    err::Win32Error& lastError) {
  security::SecurityDescriptor read;
  lastError = port_.ReadNamedSecurity(path, read);
  if (lastError != err::kSuccess) return false;
  sd = SelfRelativeDescriptor::FromAbsolute(read);
  return true;
}

[[nodiscard]] HResult FileSecurity::TakeOwnership(std::wstring_view path,
                                                  SelfRelativeDescriptor& savedSd,
                                                  bool grantFullControl) {
  security::SecurityDescriptor read;
  {
    FileHandle handle = kInvalidFileHandle;
    const err::Win32Error openError = fileSystem_.Open(path, BackupReadRequest(), handle);
    if (openError != err::kSuccess) return HResultFromWin32(openError);
    const UniqueFileHandle opened(fileSystem_, handle);
    const err::Win32Error readError = port_.ReadOpenedObjectSecurity(handle, path, read);
    if (readError != err::kSuccess) return SecurityCallResult(readError);
  }
  savedSd = SelfRelativeDescriptor::FromAbsolute(read);

  SecurityWrite owner;
  owner.writeOwner = true;
  owner.owner = currentUserSid.value();
  const err::Win32Error ownerError = port_.WriteNamedSecurity(path, owner);
  if (ownerError != err::kSuccess) return HResultFromWin32(ownerError);

  if (!grantFullControl) return hr::kOk;

  // The DACL `savedSd` keeps is the one just read: it is taken from `read` rather than parsed
  // back out of the block made from it.
  DaclObject dacl = DaclObject::FromDescriptor(std::move(read));
  if (!currentUserSid.IsValid()) return HResultFromWin32(err::kInvalidSid);
  dacl.AddAllowed(currentUserSid.sid(), kFileAllAccess, kFullControlEntryFlags);
  SecurityWrite daclWrite;
  daclWrite.writeDacl = true;
  daclWrite.dacl = dacl.ToAcl();
  daclWrite.protection = DaclProtection::kKeep;
  const err::Win32Error lastError = port_.WriteNamedSecurity(path, daclWrite);
  if (lastError == err::kSuccess) return hr::kOk;
  return HResultFromWin32(lastError);
}

[[nodiscard]] HResult FileSecurity::ApplySecurity(std::wstring_view path,
                                                  const SelfRelativeDescriptor& sd) {
  if (sd.empty()) return hr::kOk;
  security::SecurityDescriptor kept = sd.ToAbsolute();
  const std::uint16_t control = kept.control;

  SecurityWrite write;
  if ((control & security::kSeOwnerDefaulted) == 0) {
    write.writeOwner = true;
    write.owner = kept.owner;
  }
  const bool daclDefaulted =
      (control & security::kSeDaclPresent) != 0 && (control & security::kSeDaclDefaulted) != 0;
  if (!daclDefaulted) {
    write.writeDacl = true;
    write.dacl = DaclObject::FromDescriptor(std::move(kept)).ToAcl();
    write.protection = (control & security::kSeDaclProtected) != 0 ? DaclProtection::kProtected
                                                                   : DaclProtection::kUnprotected;
  }
  if (write.RequestsNothing()) return hr::kOk;
  return SecurityCallResult(port_.WriteNamedSecurity(path, write));
}

}  // namespace tw
