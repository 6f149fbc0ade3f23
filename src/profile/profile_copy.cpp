#include "profile/profile_copy.h"

#include <optional>

#include "base/format.h"
#include "base/scope_guard.h"
#include "base/shell_path.h"
#include "base/win32_error.h"
#include "log/log.h"
#include "ports/file_system.h"
#include "profile/case_twins.h"
#include "profile/for_each_entry.h"
#include "security/file_security.h"
#include "security/read_taking_ownership.h"

namespace tw {

FileOpenRequest TargetObjectRequest() {
  FileOpenRequest request;
  request.read = false;
  request.write = false;
  request.shareRead = true;
  request.disposition = CreationDisposition::kOpenExisting;
  request.otherAccess =
      file_access::kFileWriteAttributes | file_access::kWriteDac | file_access::kWriteOwner;
  request.attributes = file_attr::kNormal;
  request.backupSemantics = true;
  return request;
}

namespace {

// Gives `targetItem` the owner handed down, or logs that there is none to give.
void WriteDefaultItemOwner(MigrationContext& context, const std::wstring& targetItem,
                           const std::optional<security::Sid>& owner) {
  err::Win32Error lastError = err::kInvalidOwner;
  if (owner) {
    SecurityWrite write;
    write.writeOwner = true;
    write.owner = owner;
    lastError = context.security.WriteNamedSecurity(targetItem, write);
  }
  if (lastError != err::kSuccess) {
    Log(L"Failed setting object owner (0x%08X): %s", HResultFromWin32(lastError), targetItem);
  }
}

[[nodiscard]] HResult CopyDefaultFolder(MigrationContext& context,
                                        const std::wstring& defaultProfile,
                                        const std::wstring& targetFolder,
                                        std::optional<security::Sid>& owner,
                                        const SelfRelativeDescriptor* ownerSource);

// A folder of the default profile: created, given the entry's attributes and copied by
// recursion; one that cannot be created is not descended into.
void CopyDefaultSubfolder(MigrationContext& context, const FindEntry& entry,
                          const std::wstring& sourceItem, const std::wstring& targetItem,
                          std::optional<security::Sid>& owner) {
  FileSystem& files = context.files;
  const err::Win32Error made = files.MakeFolder(targetItem);
  if (made != err::kSuccess) {
    Log(L"Failed creating folder (0x%08X): %s", HResultFromWin32(made), targetItem);
    return;
  }
  const err::Win32Error attributed = files.SetAttributes(targetItem, entry.attributes);
  if (attributed != err::kSuccess) {
    Log(L"Failed setting folder attributes (0x%08X): %s", HResultFromWin32(attributed), targetItem);
  }
  const HResult copied = CopyDefaultFolder(context, sourceItem, targetItem, owner, nullptr);
  if (copied != hr::kOk) {
    Log(L"Failed copying folder (0x%08X): %s", copied, targetItem);
  }
}

// One entry of the default profile: a folder copied, a file copied unless the target has it,
// then the owner written onto the target item either way.
void CopyDefaultEntry(MigrationContext& context, const std::wstring& defaultProfile,
                      const std::wstring& targetFolder, std::optional<security::Sid>& owner,
                      const FindEntry& entry) {
  FileSystem& files = context.files;
  const std::wstring sourceItem = Format(L"%s\\%s", defaultProfile, entry.name);
  const std::wstring targetItem = Format(L"%s\\%s", targetFolder, entry.name);
  if (IsFolder(entry)) {
    CopyDefaultSubfolder(context, entry, sourceItem, targetItem, owner);
  } else if (!files.PathExists(targetItem)) {
    const err::Win32Error copied = files.CopyFileTo(sourceItem, targetItem, false);
    if (copied != err::kSuccess) {
      Log(L"Failed copying file (0x%08X): %s", HResultFromWin32(copied), targetItem);
    }
  }
  WriteDefaultItemOwner(context, targetItem, owner);
}

// One level of the default profile copy. The top level (ownerSource set) takes the owner from
// the source's descriptor once its search has started; the levels below get it handed down.
[[nodiscard]] HResult CopyDefaultFolder(MigrationContext& context,
                                        const std::wstring& defaultProfile,
                                        const std::wstring& targetFolder,
                                        std::optional<security::Sid>& owner,
                                        const SelfRelativeDescriptor* ownerSource) {
  const std::wstring pattern = !defaultProfile.empty() && defaultProfile.back() == L'\\'
                                   ? Format(L"%s*", defaultProfile)
                                   : Format(L"%s\\*", defaultProfile);
  const auto takeOwner = [&] {
    if (ownerSource == nullptr) return;
    owner = ownerSource->Owner();
    if (!owner) {
      Log(L"Failed getting profile owner (0x%08X): %s", HResultFromWin32(err::kInvalidOwner),
          defaultProfile);
    }
  };
  const err::Win32Error searchError =
      ForEachEntry(context.files, pattern, takeOwner, [&](const FindEntry& entry) {
        CopyDefaultEntry(context, defaultProfile, targetFolder, owner, entry);
        return WalkStep::kNext;
      });
  if (searchError != err::kSuccess) {
    const HResult code = HResultFromWin32(searchError);
    Log(L"Failed enumerating folder(0x%08X): %s", code, pattern);
    return code;
  }
  return hr::kOk;
}

// Copies a source file unless the target has it (false: the item is skipped), or creates a
// missing target folder and copies the source folder into it by recursion.
bool CopyItemContent(FolderMigrator& migrator, const FindEntry& entry,
                     const std::wstring& sourceItem, const std::wstring& targetItem) {
  FileSystem& files = migrator.context().files;
  if (!IsFolder(entry)) {
    if (files.PathExists(targetItem)) return false;
    const err::Win32Error copied = files.CopyFileTo(sourceItem, targetItem, true);
    if (copied != err::kSuccess) {
      Log(L"Failed migrating file (0x%08X): %s", HResultFromWin32(copied), sourceItem);
    }
    return true;
  }
  if (!files.PathExists(targetItem)) {
    const err::Win32Error made = files.MakeFolder(targetItem);
    if (made != err::kSuccess) {
      Log(L"Failed creating folder (0x%08X): %s", HResultFromWin32(made), targetItem);
    }
  }
  const HResult copied = CopyFolder(migrator, sourceItem, targetItem);
  if (copied != hr::kOk) {
    Log(L"Failed migrating folder (0x%08X): %s", copied, sourceItem);
  }
  return true;
}

// Gives the target item the entry's attributes and times. False when the item cannot be opened
// for its times (logged).
bool CopyItemAttributesAndTimes(FileSystem& files, const FindEntry& entry,
                                const std::wstring& targetItem) {
  const err::Win32Error attributed = files.SetAttributes(targetItem, entry.attributes);
  if (attributed != err::kSuccess) {
    Log(L"Failed setting V2 file object attributes (0x%08X): %s", HResultFromWin32(attributed),
        targetItem);
  }
  FileHandle handle = kInvalidFileHandle;
  const err::Win32Error opened = files.Open(targetItem, TargetObjectRequest(), handle);
  if (opened != err::kSuccess) {
    Log(L"Failed to open the target file object (0x%08X): %s", HResultFromWin32(opened),
        targetItem);
    return false;
  }
  const UniqueFileHandle target(files, handle);
  const err::Win32Error timed = files.SetTimes(handle, entry.times);
  if (timed != err::kSuccess) {
    Log(L"Failed setting V2 file object times (0x%08X): %s", HResultFromWin32(timed), targetItem);
  }
  return true;
}

// One entry of CopyFolder. A combined path that does not fit ends the walk.
WalkStep CopyFolderEntry(FolderMigrator& migrator, FileSecurity& fileSecurity, CaseTwins& names,
                         const std::wstring& sourceFolder, const std::wstring& targetFolder,
                         const FindEntry& entry) {
  std::wstring sourceItem;
  std::wstring targetItem;
  if (!PathCombineW(sourceItem, sourceFolder, entry.name) ||
      !PathCombineW(targetItem, targetFolder, entry.name)) {
    // The loop ends here as Windows' copy does; this line says where and why.
    Log(L"Path too long, the rest of the folder is not migrated (0x%08X): %s: %s",
        HResultFromWin32(err::kFilenameExcedRange), sourceFolder, entry.name);
    return WalkStep::kStop;
  }
  if (!names.Add(entry.name)) {
    LogCaseTwin(sourceFolder, entry.name);
    return WalkStep::kNext;
  }

  // The source's security; a source item that cannot be read is not copied.
  SelfRelativeDescriptor itemSecurity;
  const SecurityRead read =
      ReadSecurityTakingOwnership(fileSecurity, sourceItem, migrator.settings().takeOwnership,
                                  itemSecurity, itemSecurity, AfterOwnershipTaken::kUseSaved);
  if (read.code != hr::kOk && !read.ownershipTaken) {
    Log(L"Failed getting security descriptor (0x%08X): %s", read.code, sourceItem);
    return WalkStep::kNext;
  }
  // Gives a source item that was taken over its prior security back, on every way out of it.
  const ScopeGuard restoreSource([&] {
    if (!read.ownershipTaken) return;
    const HResult restored = fileSecurity.ApplySecurity(sourceItem, itemSecurity);
    if (Failed(restored)) {
      Log(L"Failed to set security on object (0x%08X): %s", restored, sourceItem);
    }
  });

  if (!CopyItemContent(migrator, entry, sourceItem, targetItem)) return WalkStep::kNext;
  if (!CopyItemAttributesAndTimes(migrator.context().files, entry, targetItem)) {
    return WalkStep::kNext;
  }
  const HResult secured = fileSecurity.ApplySecurity(targetItem, itemSecurity);
  if (Failed(secured)) {
    Log(L"Failed to set security on object (0x%08X): %s", secured, targetItem);
  }
  return WalkStep::kNext;
}

}  // namespace

[[nodiscard]] HResult CopyDefaultProfile(MigrationContext& context,
                                         const std::wstring& defaultProfile,
                                         const std::wstring& targetFolder,
                                         const SelfRelativeDescriptor& sourceSecurity) {
  std::optional<security::Sid> owner;
  const HResult searched =
      CopyDefaultFolder(context, defaultProfile, targetFolder, owner, &sourceSecurity);
  return searched;
}

[[nodiscard]] HResult CreateTargetFolderPath(FolderMigrator& migrator,
                                             const std::wstring& sourceFolder,
                                             const std::wstring& targetFolder) {
  MigrationContext& context = migrator.context();
  FileSecurity fileSecurity(context.files, context.security);
  SelfRelativeDescriptor sourceSecurity;
  err::Win32Error readError = err::kSuccess;
  fileSecurity.ReadFileSecurity(sourceFolder, sourceSecurity, readError);  // failure: no descriptor

  err::Win32Error made = err::kSuccess;
  if (sourceSecurity.empty()) {
    made = context.security.CreateFolderPathWithSecurity(targetFolder, nullptr);
  } else {
    const security::SecurityDescriptor descriptor = sourceSecurity.ToAbsolute();
    made = context.security.CreateFolderPathWithSecurity(targetFolder, &descriptor);
  }
  if (made != err::kSuccess && made != err::kAlreadyExists) {
    const HResult code = HResultFromWin32(made);
    Log(L"Failed to create target profile path (0x%08X): %s", code, targetFolder);
    return code;
  }

  std::uint32_t attributes = file_attr::kInvalid;
  const err::Win32Error read = context.files.GetAttributes(sourceFolder, attributes);
  if (read != err::kSuccess) {
    Log(L"Failed getting source folder attributes (0x%08X): %s", HResultFromWin32(read),
        sourceFolder);
  } else {
    const err::Win32Error set = context.files.SetAttributes(targetFolder, attributes);
    if (set != err::kSuccess) {
      Log(L"Failed setting target folder attributes (0x%08X): %s", HResultFromWin32(set),
          targetFolder);
    }
  }
  return hr::kOk;
}

[[nodiscard]] HResult CopyFolder(FolderMigrator& migrator, const std::wstring& sourceFolder,
                                 const std::wstring& targetFolder) {
  MigrationContext& context = migrator.context();
  FileSystem& files = context.files;
  FileSecurity fileSecurity(files, context.security);

  std::wstring pattern;
  if (!PathCombineW(pattern, sourceFolder, L"*")) {
    // The search below then fails as on Windows; this line names the cause.
    Log(L"Path too long, the folder's content is not migrated (0x%08X): %s",
        HResultFromWin32(err::kFilenameExcedRange), sourceFolder);
  }
  const auto createTarget = [&] {
    if (!files.PathExists(targetFolder))
      static_cast<void>(CreateTargetFolderPath(
          migrator, sourceFolder, targetFolder));  // it logs its own failure; the copy goes on
  };
  CaseTwins names;
  const err::Win32Error searchError =
      ForEachEntry(files, pattern, createTarget, [&](const FindEntry& entry) {
        return CopyFolderEntry(migrator, fileSecurity, names, sourceFolder, targetFolder, entry);
      });
  if (searchError != err::kSuccess) {
    const HResult code = HResultFromWin32(searchError);
    Log(L"Failed enumerating source folder (0x%08X): %s", code, pattern);
    return code;
  }
  return hr::kOk;
}

}  // namespace tw
