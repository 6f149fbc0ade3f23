#include "registry/hive_save.h"

#include "base/shell_path.h"
#include "log/log.h"
#include "ports/file_system.h"
#include "ports/security_port.h"
#include "registry/offreg_calls.h"
#include "registry/offreg_handles.h"
#include "security/file_security.h"
#include "security/self_relative_descriptor.h"

namespace tw {

using registry::kNoOrKey;

bool HiveFormatForVersion(std::int32_t targetVersion, HiveFormatVersion& format) {
  switch (targetVersion) {
    case 2:
      format = {6, 1};
      return true;
    case 3:
      format = {6, 2};
      return true;
    case 4:
      format = {6, 3};
      return true;
    case 5:
    case 6:
      format = {10, 0};
      return true;
    default:
      return false;
  }
}

namespace {

// Step 2 of SaveTargetHive: "<folder of the hive>\~mighive.dat".
std::wstring TemporaryHivePath(const std::wstring& hiveFilePath) {
  std::wstring temporaryPath = hiveFilePath;
  PathRemoveFileSpecW(temporaryPath);
  PathAddBackslashW(temporaryPath);
  PathAppendW(temporaryPath, kTemporaryHiveName);
  return temporaryPath;
}

// Steps 3-4 of SaveTargetHive: the hive is saved to the temporary file unless it is -1; a
// failure is logged and the steps go on (the copy then fails and is logged; intended). Then the
// hive is closed and the caller's handle is -1 until the re-open.
void SaveAndCloseHive(const COffregWrapper& offreg, OrKey& hive, const HiveFormatVersion& format,
                      const std::wstring& temporaryPath) {
  if (hive != kNoOrKey) {
    const err::Win32Error saved =
        registry::CallSaveHive(offreg, hive, temporaryPath.c_str(), format.major, format.minor);
    if (saved != err::kSuccess) {
      Log(L"Failed saving hive file (0x%08X): %s", HResultFromWin32(saved), temporaryPath);
    }
  }
  static_cast<void>(registry::CloseHive(offreg, hive));  // not checked
}

// Steps 6-8 of SaveTargetHive: the hive file's attributes are cleared of READONLY and HIDDEN,
// the temporary file is copied over it and deleted, and the attributes are put back. The first
// failure is logged and returned (the temporary file is deleted with it).
[[nodiscard]] err::Win32Error ReplaceHiveFile(FileSystem& files, const std::wstring& temporaryPath,
                                              const std::wstring& hiveFilePath) {
  // 6. Attributes, with READONLY and HIDDEN cleared for the copy.
  std::uint32_t attributes = file_attr::kInvalid;
  files.GetAttributes(hiveFilePath, attributes);
  const err::Win32Error cleared =
      files.SetAttributes(hiveFilePath, attributes & ~(file_attr::kReadOnly | file_attr::kHidden));
  if (cleared != err::kSuccess) {
    Log(L"Failed setting attribute (0x%08X): %s", HResultFromWin32(cleared), hiveFilePath);
    files.DeleteFileAt(temporaryPath);
    return cleared;
  }

  // 7. The saved hive replaces the file.
  const err::Win32Error copied = files.CopyFileTo(temporaryPath, hiveFilePath, false);
  if (copied != err::kSuccess) {
    Log(L"Failed copying %s --> %s (0x%08X)", temporaryPath, hiveFilePath,
        HResultFromWin32(copied));
    files.DeleteFileAt(temporaryPath);
    return copied;
  }

  // 8. The temporary file goes; the attributes come back.
  files.DeleteFileAt(temporaryPath);
  const err::Win32Error restored = files.SetAttributes(hiveFilePath, attributes);
  if (restored != err::kSuccess) {
    Log(L"Failed setting attribute (0x%08X): %s", HResultFromWin32(restored), hiveFilePath);
  }
  return restored;
}

// Step 9 of SaveTargetHive: the new file, opened for writing its security: GENERIC_WRITE |
// WRITE_DAC | WRITE_OWNER, FILE_SHARE_READ, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS |
// FILE_ATTRIBUTE_NORMAL. A failure is logged.
[[nodiscard]] err::Win32Error OpenForSecurityWrite(FileSystem& files,
                                                   const std::wstring& hiveFilePath,
                                                   FileHandle& opened) {
  FileOpenRequest request;
  request.read = false;
  request.write = true;
  request.otherAccess = file_access::kWriteDac | file_access::kWriteOwner;
  request.shareRead = true;
  request.disposition = CreationDisposition::kOpenExisting;
  request.attributes = file_attr::kNormal;
  request.backupSemantics = true;
  opened = kInvalidFileHandle;
  const err::Win32Error openError = files.Open(hiveFilePath, request, opened);
  if (openError != err::kSuccess) {
    Log(L"Failed opening newly created hive (0x%08X): %s", HResultFromWin32(openError),
        hiveFilePath);
  }
  return openError;
}

// Step 10 of SaveTargetHive: the owner, when the saved descriptor has one, set on the open
// handle (SetSecurityInfo). Returns the failure (logged), or success.
[[nodiscard]] err::Win32Error WriteSavedOwner(MigrationContext& context, FileHandle file,
                                              const std::wstring& hiveFilePath,
                                              const security::SecurityDescriptor& kept) {
  if (!kept.owner.has_value()) return err::kSuccess;
  SecurityWrite ownerWrite;
  ownerWrite.writeOwner = true;
  ownerWrite.owner = kept.owner;
  const err::Win32Error ownerError =
      context.security.WriteOpenedObjectSecurity(file, hiveFilePath, ownerWrite);
  if (ownerError != err::kSuccess) {
    Log(L"Failed setting owner SID (0x%08X): %s", HResultFromWin32(ownerError), hiveFilePath);
  }
  return ownerError;
}

// Step 11 of SaveTargetHive: the DACL, on the same handle; one that is present but null, or
// absent, is written as the NULL DACL. Returns the failure (logged), or success.
[[nodiscard]] err::Win32Error WriteSavedDacl(MigrationContext& context, FileHandle file,
                                             const std::wstring& hiveFilePath,
                                             const security::SecurityDescriptor& kept) {
  SecurityWrite daclWrite;
  daclWrite.writeDacl = true;
  if (kept.HasDacl()) daclWrite.dacl = kept.dacl;
  daclWrite.protection = DaclProtection::kKeep;
  const err::Win32Error daclError =
      context.security.WriteOpenedObjectSecurity(file, hiveFilePath, daclWrite);
  if (daclError != err::kSuccess) {
    Log(L"Failed setting DACL (0x%08X): %s", HResultFromWin32(daclError), hiveFilePath);
  }
  return daclError;
}

}  // namespace

[[nodiscard]] err::Win32Error SaveTargetHive(MigrationContext& context, OrKey& hive,
                                             std::int32_t targetVersion,
                                             const std::wstring& hiveFilePath) {
  FileSystem& files = context.files;

  // 1. The format; a version the program never passes is refused before anything is touched.
  HiveFormatVersion format;
  if (!HiveFormatForVersion(targetVersion, format)) return err::kInvalidParameter;

  // 2. "<folder of the hive>\~mighive.dat".
  const std::wstring temporaryPath = TemporaryHivePath(hiveFilePath);

  // 3-4. Save (a failure falls through to the copy, which then fails and is logged: intended);
  // the hive is closed and the caller's handle is -1 until the re-open.
  SaveAndCloseHive(context.offreg, hive, format, temporaryPath);

  // 5. The hive file's owner and DACL, to put back after the copy.
  FileSecurity fileSecurity(files, context.security);
  SelfRelativeDescriptor savedSecurity;
  err::Win32Error readError = err::kSuccess;
  if (!fileSecurity.ReadFileSecurity(hiveFilePath, savedSecurity, readError) &&
      readError != err::kSuccess) {
    Log(L"Failed getting security descriptor (0x%08X): %s", HResultFromWin32(readError),
        hiveFilePath);
    files.DeleteFileAt(temporaryPath);
    return readError;
  }

  // 6-8. Attributes cleared, the saved hive copied over the file, attributes put back.
  const err::Win32Error replaced = ReplaceHiveFile(files, temporaryPath, hiveFilePath);
  if (replaced != err::kSuccess) return replaced;

  // 9. Open the new file for writing its security.
  FileHandle opened = kInvalidFileHandle;
  const err::Win32Error openError = OpenForSecurityWrite(files, hiveFilePath, opened);
  if (openError != err::kSuccess) return openError;
  UniqueFileHandle file(files, opened);

  // 10-11. The saved owner, then the saved DACL, on the open handle; the last failure counts.
  err::Win32Error lastError = err::kSuccess;
  const security::SecurityDescriptor kept = savedSecurity.ToAbsolute();
  const err::Win32Error ownerError = WriteSavedOwner(context, file.get(), hiveFilePath, kept);
  if (ownerError != err::kSuccess) lastError = ownerError;
  const err::Win32Error daclError = WriteSavedDacl(context, file.get(), hiveFilePath, kept);
  if (daclError != err::kSuccess) lastError = daclError;

  // 12. Close, and re-open the saved hive for the caller.
  file.reset();
  if (lastError == err::kSuccess) {
    lastError = registry::CallOpenHive(context.offreg, hiveFilePath.c_str(), &hive);
  }

  // 13. The saved descriptor is freed with its object.
  return lastError;
}

}  // namespace tw
