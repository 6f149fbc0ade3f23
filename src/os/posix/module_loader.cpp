// The module port on Linux: there are no system libraries to load, so the two libraries the
// tool binds are served from built-in tables.
//   "offreg.dll"  the hive engine's functions (hive/offreg_api.h), always complete, and its own
//                 TwQueryHiveRecovery;
//   "userenv.dll" the built-in CreateProfile and DeleteProfileW (user_profile_posix.h).
// The core hands the offline-registry functions Windows-form paths ("\\server\share\x",
// "Z:\tmp\x"), as it does every port; OROpenHive and ORSaveHive are therefore served by shims that
// map the path to the Linux path behind it (native_path.h) and then call the engine. A path that
// cannot be mapped gives the mapping's error (kPathNotFound, kBadNetPath, kBadNetName, ...).
// Module names compare case-insensitively (as LoadLibraryW's do); any other name fails to load.
// Unload does nothing: the tables live as long as the process.
#include "ports/module_loader.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "base/text_encoding.h"
#include "base/wide_string.h"
#include "hive/offreg_api.h"
#include "os/native_ports.h"
#include "os/posix/files/file_info.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/profiles/user_profile.h"
#include "os/posix/security/object_security.h"
#include "ports/offreg_functions.h"

namespace tw {
namespace {

// The wrapper's pointer types are exactly the engine's, so the round trip through
// ModuleFunction gives back the engine's own functions.
static_assert(std::is_same_v<OROpenHiveFunction, decltype(&hive::tw_OROpenHive)>);
static_assert(std::is_same_v<ORCloseHiveFunction, decltype(&hive::tw_ORCloseHive)>);
static_assert(std::is_same_v<ORSaveHiveFunction, decltype(&hive::tw_ORSaveHive)>);
static_assert(std::is_same_v<OROpenKeyFunction, decltype(&hive::tw_OROpenKey)>);
static_assert(std::is_same_v<ORCloseKeyFunction, decltype(&hive::tw_ORCloseKey)>);
static_assert(std::is_same_v<ORCreateKeyFunction, decltype(&hive::tw_ORCreateKey)>);
static_assert(std::is_same_v<ORQueryInfoKeyFunction, decltype(&hive::tw_ORQueryInfoKey)>);
static_assert(std::is_same_v<OREnumKeyFunction, decltype(&hive::tw_OREnumKey)>);
static_assert(std::is_same_v<ORGetKeySecurityFunction, decltype(&hive::tw_ORGetKeySecurity)>);
static_assert(std::is_same_v<ORSetKeySecurityFunction, decltype(&hive::tw_ORSetKeySecurity)>);
static_assert(std::is_same_v<ORGetValueFunction, decltype(&hive::tw_ORGetValue)>);
static_assert(std::is_same_v<ORSetValueFunction, decltype(&hive::tw_ORSetValue)>);
static_assert(std::is_same_v<OREnumValueFunction, decltype(&hive::tw_OREnumValue)>);
static_assert(std::is_same_v<TwQueryHiveRecoveryFunction, decltype(&hive::tw_QueryHiveRecovery)>);
static_assert(std::is_same_v<CreateProfileFunction, decltype(&posix::BuiltInCreateProfile)>);
static_assert(std::is_same_v<DeleteProfileWFunction, decltype(&posix::BuiltInDeleteProfileW)>);

// The engine's path for a Windows-form path (and the Linux path it stands for), or the error of
// the mapping. The hive's folder is opened beneath its share (beneath_path.h) and kept open in
// `at` while the engine uses the path, which names the file relative to that open folder: no
// link on the way is followed, and the engine never follows the hive file itself if it is a link.
hive::DWORD MapHivePath(const wchar_t* path, std::optional<posix::BeneathPath>& at,
                        std::wstring& mapped, std::string& native) {
  if (path == nullptr) return err::kInvalidParameter;
  err::Win32Error error = err::kSuccess;
  if (!posix::ToNativePath(path, native, error)) return error;
  at.emplace(native);
  // A link where a folder is needed: ERROR_CANT_RESOLVE_FILENAME, as for the file itself.
  if (!at->ok()) {
    errno = at->errnum();
    return posix::PathError(native);
  }
  mapped = Utf8ToWide(at->path());
  return err::kSuccess;
}

hive::DWORD TW_OR_CALL OpenHiveAtWindowsPath(const wchar_t* hivePath, OrKey* result) {
  if (result == nullptr) return err::kInvalidParameter;
  *result = nullptr;
  std::optional<posix::BeneathPath> at;
  std::wstring mapped;
  std::string native;
  const hive::DWORD error = MapHivePath(hivePath, at, mapped, native);
  if (error != err::kSuccess) return error;
  return hive::EngineFunctions().OROpenHive(mapped.c_str(), result);
}

hive::DWORD TW_OR_CALL SaveHiveAtWindowsPath(OrKey hive, const wchar_t* hivePath,
                                             hive::DWORD osMajorVersion,
                                             hive::DWORD osMinorVersion) {
  std::optional<posix::BeneathPath> at;
  std::wstring mapped;
  std::string native;
  hive::DWORD error = MapHivePath(hivePath, at, mapped, native);
  if (error != err::kSuccess) return error;
  error = hive::EngineFunctions().ORSaveHive(hive, mapped.c_str(), osMajorVersion, osMinorVersion);
  // The new hive file inherits from its folder, as a file the saving call creates; that failing
  // leaves it as the engine wrote it.
  if (error == err::kSuccess) static_cast<void>(posix::InheritNewObjectSecurity(native));
  return error;
}

struct BuiltInFunction {
  const char* name;
  ModuleFunction function;
};

struct BuiltInModule {
  const wchar_t* name;
  std::vector<BuiltInFunction> functions;
};

template <class Function>
BuiltInFunction Export(const char* name, Function function) {
  return {name, reinterpret_cast<ModuleFunction>(function)};
}

std::vector<BuiltInModule> MakeModules() {
  const hive::OffregFunctions& engine = hive::EngineFunctions();
  std::vector<BuiltInModule> modules;
  modules.push_back({L"userenv.dll",
                     {Export("CreateProfile", &posix::BuiltInCreateProfile),
                      Export("DeleteProfileW", &posix::BuiltInDeleteProfileW)}});
  modules.push_back(
      {L"offreg.dll",
       {Export("OROpenHive", &OpenHiveAtWindowsPath), Export("ORCreateHive", engine.ORCreateHive),
        Export("ORCloseHive", engine.ORCloseHive), Export("ORSaveHive", &SaveHiveAtWindowsPath),
        Export("OROpenKey", engine.OROpenKey), Export("ORCreateKey", engine.ORCreateKey),
        Export("ORCloseKey", engine.ORCloseKey), Export("ORDeleteKey", engine.ORDeleteKey),
        Export("ORQueryInfoKey", engine.ORQueryInfoKey), Export("OREnumKey", engine.OREnumKey),
        Export("OREnumValue", engine.OREnumValue), Export("ORGetValue", engine.ORGetValue),
        Export("ORSetValue", engine.ORSetValue), Export("ORDeleteValue", engine.ORDeleteValue),
        Export("ORGetKeySecurity", engine.ORGetKeySecurity),
        Export("ORSetKeySecurity", engine.ORSetKeySecurity),
        Export("ORGetVersion", engine.ORGetVersion),
        Export("TwQueryHiveRecovery", engine.TwQueryHiveRecovery)}});
  return modules;
}

class BuiltInModuleLoader final : public ModuleLoader {
 public:
  BuiltInModuleLoader() : modules_(MakeModules()) {}

  // The handle of a module is its position in the table plus one. The modules are built in, so
  // there is no folder to search.
  ModuleHandle Load(std::wstring_view name, ModuleSearch /*search*/) override {
    for (std::size_t i = 0; i < modules_.size(); ++i) {
      if (EqualsNoCase(name, modules_[i].name)) return static_cast<ModuleHandle>(i + 1);
    }
    return kNoModule;
  }

  ModuleFunction FindFunction(ModuleHandle module, const char* name) override {
    if (module == kNoModule || module > modules_.size()) return nullptr;
    for (const BuiltInFunction& function : modules_[module - 1].functions) {
      if (std::strcmp(function.name, name) == 0) return function.function;
    }
    return nullptr;
  }

  void Unload(ModuleHandle /*module*/) override {}

 private:
  const std::vector<BuiltInModule> modules_;
};

}  // namespace

ModuleLoader& NativeModuleLoader() {
  static BuiltInModuleLoader loader;
  return loader;
}

}  // namespace tw
