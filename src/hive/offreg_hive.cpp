// OROpenHive, ORCreateHive, ORCloseHive, ORSaveHive, ORGetVersion, TwQueryHiveRecovery and the
// function table.
#include <filesystem>

#include "hive/hive_file.h"
#include "hive/hive_log_recovery.h"
#include "hive/hive_reader.h"
#include "hive/hive_writer.h"
#include "hive/offreg_api.h"
#include "hive/offreg_state.h"
#include "hive/security_parts.h"

namespace tw::hive {

using detail::Engine;

using detail::Locked;

namespace {

DWORD RegisterHive(Engine& engine, std::unique_ptr<Hive> hive, PORHKEY result) {
  Hive* raw = hive.get();
  const ORHKEY handle = detail::OpenHandle(engine, raw, raw->root.get(), true);
  if (handle == nullptr) return err::kNotEnoughMemory;
  engine.hives.emplace(raw, std::move(hive));
  *result = handle;
  return err::kSuccess;
}

}  // namespace

extern "C" {

DWORD TW_OR_CALL tw_OROpenHive(PCWSTR lpHivePath, PORHKEY phkResult) {
  if (phkResult == nullptr) return err::kInvalidParameter;
  *phkResult = nullptr;
  if (lpHivePath == nullptr) return err::kInvalidParameter;
  try {
    // The file is read (and recovered from its logs when it is dirty) and parsed outside the
    // lock; only registering the hive takes it.
    HiveFile file;
    const DWORD read = ReadHiveFile(lpHivePath, &file);
    if (read != err::kSuccess) return read;
    ReadResult parsed = ParseHive(file.View());
    if (parsed.error != err::kSuccess) return parsed.error;
    parsed.hive->recovery = static_cast<std::uint32_t>(file.state);
    return Locked(
        [&](Engine& engine) { return RegisterHive(engine, std::move(parsed.hive), phkResult); });
  } catch (const std::bad_alloc&) {
    return err::kNotEnoughMemory;
  }
}

DWORD TW_OR_CALL tw_ORCreateHive(PORHKEY phkResult) {
  if (phkResult == nullptr) return err::kInvalidParameter;
  *phkResult = nullptr;
  return Locked([&](Engine& engine) {
    auto hive = std::make_unique<Hive>();
    hive->root = std::make_unique<Key>();
    hive->root->name = L"ROOT";
    hive->root->lastWriteTime = CurrentFileTime();
    hive->root->security = std::make_shared<const SecurityBytes>(DefaultSecurityDescriptor());
    return RegisterHive(engine, std::move(hive), phkResult);
  });
}

DWORD TW_OR_CALL tw_ORCloseHive(ORHKEY Handle) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = engine.handles.Find(detail::RawHandle(Handle));
    if (entry == nullptr) return err::kInvalidHandle;
    if (!entry->isRoot) return err::kInvalidParameter;
    const Hive* hive = entry->hive;
    engine.handles.RemoveHive(hive);
    engine.hives.erase(hive);
    return err::kSuccess;
  });
}

DWORD TW_OR_CALL tw_ORSaveHive(ORHKEY Handle, PCWSTR lpHivePath, DWORD dwOsMajorVersion,
                               DWORD dwOsMinorVersion) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    if (lpHivePath == nullptr || *lpHivePath == L'\0') return err::kInvalidParameter;
    const std::uint32_t formatMinor = FormatMinorForOsVersion(dwOsMajorVersion, dwOsMinorVersion);
    if (formatMinor == 0) return err::kInvalidParameter;
    const std::wstring path(lpHivePath);
    std::error_code ec;
    if (std::filesystem::exists(std::filesystem::symlink_status(FileSystemPath(path), ec))) {
      return err::kAlreadyExists;  // checked before the work of serialising
    }
    const std::wstring fileName = EnginePath(FileSystemPath(path).filename());
    const std::vector<std::uint8_t> bytes =
        SerializeHive(*entry->key, formatMinor, fileName, CurrentFileTime());
    return WriteNewFile(path, bytes);
  });
}

void TW_OR_CALL tw_ORGetVersion(PDWORD pdwMajorVersion, PDWORD pdwMinorVersion) {
  if (pdwMajorVersion != nullptr) *pdwMajorVersion = 1;
  if (pdwMinorVersion != nullptr) *pdwMinorVersion = 0;
}

DWORD TW_OR_CALL tw_QueryHiveRecovery(ORHKEY Handle, PDWORD pdwState) {
  return Locked([&](Engine& engine) -> DWORD {
    const HandleEntry* entry = engine.handles.Find(detail::RawHandle(Handle));
    if (entry == nullptr) return err::kInvalidHandle;
    if (pdwState == nullptr) return err::kInvalidParameter;
    *pdwState = entry->hive->recovery;
    return err::kSuccess;
  });
}

}  // extern "C"

const OffregFunctions& EngineFunctions() {
  static const OffregFunctions functions;
  return functions;
}

}  // namespace tw::hive
