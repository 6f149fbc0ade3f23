// The hive migration of one profile: the user hive ntuser.dat is copied key by key from the
// source profile folder into the target profile folder, and the classes hive UsrClass.dat gets
// the source's root DACL and is re-saved, all on hive files through the offline-registry
// functions (no hive is ever loaded into the live registry).
//
// Every hive file is opened with one ownership retry: when OROpenHive is denied access
// (0x80070005) and the take-ownership setting is on, ownership of the file is taken (its prior
// security kept to be restored at the end) and the open is tried once more.
#pragma once

#include <cstdint>
#include <string>

#include "base/hresult.h"
#include "migration/migration_context.h"
#include "registry/offreg_wrapper.h"
#include "security/self_relative_descriptor.h"

namespace tw {

// The hive files, relative to a profile folder. The classes hive's path is chosen by the source
// profile's version alone and joined to both profile folders: the target does not get the
// layout of its own version (intended).
inline constexpr wchar_t kUserHiveName[] = L"ntuser.dat";
inline constexpr wchar_t kClassesHiveV1[] =
    L"Local Settings\\Application Data\\Microsoft\\Windows\\UsrClass.dat";
inline constexpr wchar_t kClassesHiveV2[] = L"AppData\\Local\\Microsoft\\Windows\\UsrClass.dat";

// The classes hive's relative path for a source profile version: kClassesHiveV1 below 2, else
// kClassesHiveV2.
const wchar_t* ClassesHiveRelativePath(std::int32_t sourceVersion);

// OROpenHive(path) with the ownership retry described above; `savedSecurity` receives the file's
// prior security when ownership was taken. Returns the open's HRESULT; `hive` is -1 unless it
// succeeded. An opened hive that was read stale is reported (unrecovered_hive.h).
[[nodiscard]] HResult OpenHiveFile(MigrationContext& context, const std::wstring& path, OrKey& hive,
                                   SelfRelativeDescriptor& savedSecurity);

// Migrates ntuser.dat from sourceProfilePath into targetProfilePath: the registry key table's
// rows that the settings' key mask selects are copied (a negative mask selects "Software"
// only), then, for a target version below 5, the hive DACL and the classes hive follow, and the
// target hive is saved in the target version's format. Fails only when one of the two
// ntuser.dat hives cannot be opened; otherwise S_OK whatever the later steps log.
[[nodiscard]] HResult MigrateRegistryHive(MigrationContext& context,
                                          const std::wstring& sourceProfilePath,
                                          std::int32_t sourceVersion,
                                          const std::wstring& targetProfilePath,
                                          std::int32_t targetVersion);

// Puts the DACL of sourceHive's root key on the whole key tree of targetHive. The versions are
// carried but not used.
[[nodiscard]] HResult MigrateHiveSecurity(MigrationContext& context, OrKey sourceHive,
                                          std::int32_t sourceVersion, OrKey targetHive,
                                          std::int32_t targetVersion);

// The classes hive gets no key copy: only the source root's DACL, then a re-save. Returns the
// failing HRESULT of an open or of MigrateHiveSecurity, else that of a failed save, else S_OK.
[[nodiscard]] HResult MigrateUsrClassHive(MigrationContext& context,
                                          const std::wstring& sourceHivePath,
                                          std::int32_t sourceVersion,
                                          const std::wstring& targetHivePath,
                                          std::int32_t targetVersion);

}  // namespace tw
