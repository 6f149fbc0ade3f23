// COffregWrapper: the run-time binding of the offline-registry functions (offreg.dll) and of the
// two user-profile functions of userenv.dll. One process-wide object, g_offreg, loads both
// libraries before the program's entry runs; the run flow refuses to run when functions are
// missing, and the profile and registry migrations call them through the object.
//
// On Windows the two libraries are the system's, loaded by name. On Linux the module port serves
// the hive engine's functions under the offline-registry names and the tool's built-in profile
// functions under the userenv names (platform/posix/module_loader_posix.cpp).
#pragma once

#include <cstdint>

#include "base/hresult.h"
#include "hive/offreg_api.h"
#include "log/reference_count.h"
#include "platform/module_loader.h"

namespace tw {

// The platform's published signatures, expressed portably: DWORD is std::uint32_t, strings are
// wchar_t, ORHKEY is an opaque pointer-sized handle, PSECURITY_DESCRIPTOR is void*, FILETIME the
// two 32-bit halves. TW_OR_CALL is the platform's calling convention (WINAPI).
using OrDword = hive::DWORD;
using OrKey = hive::ORHKEY;
using OrFileTime = hive::FILETIME;

// userenv.dll
// CreateProfile returns the HRESULT as the platform's C function does, a bare 32-bit integer
// (a class type would change how the value is returned); the caller makes it an HResult.
using CreateProfileFunction = std::int32_t(TW_OR_CALL*)(const wchar_t* sid, const wchar_t* userName,
                                                        wchar_t* profilePath,
                                                        OrDword cchProfilePath);  // HRESULT
using DeleteProfileWFunction = std::int32_t(TW_OR_CALL*)(const wchar_t* sid,
                                                         const wchar_t* profilePath,
                                                         const wchar_t* computerName);  // BOOL

// offreg.dll
using OROpenHiveFunction = OrDword(TW_OR_CALL*)(const wchar_t* hivePath, OrKey* result);
using ORCloseHiveFunction = OrDword(TW_OR_CALL*)(OrKey hive);
using ORSaveHiveFunction = OrDword(TW_OR_CALL*)(OrKey hive, const wchar_t* hivePath,
                                                OrDword osMajorVersion, OrDword osMinorVersion);
using OROpenKeyFunction = OrDword(TW_OR_CALL*)(OrKey key, const wchar_t* subKeyName, OrKey* result);
using ORCloseKeyFunction = OrDword(TW_OR_CALL*)(OrKey key);
using ORCreateKeyFunction = OrDword(TW_OR_CALL*)(OrKey key, const wchar_t* subKey,
                                                 wchar_t* keyClass, OrDword options,
                                                 void* securityDescriptor, OrKey* result,
                                                 OrDword* disposition);
using ORQueryInfoKeyFunction = OrDword(TW_OR_CALL*)(
    OrKey key, wchar_t* keyClass, OrDword* classLength, OrDword* subKeys, OrDword* maxSubKeyLength,
    OrDword* maxClassLength, OrDword* values, OrDword* maxValueNameLength, OrDword* maxValueLength,
    OrDword* securityDescriptorSize, OrFileTime* lastWriteTime);
using OREnumKeyFunction = OrDword(TW_OR_CALL*)(OrKey key, OrDword index, wchar_t* name,
                                               OrDword* nameLength, wchar_t* keyClass,
                                               OrDword* classLength, OrFileTime* lastWriteTime);
using ORGetKeySecurityFunction = OrDword(TW_OR_CALL*)(OrKey key, OrDword securityInformation,
                                                      void* securityDescriptor,
                                                      OrDword* securityDescriptorSize);
using ORSetKeySecurityFunction = OrDword(TW_OR_CALL*)(OrKey key, OrDword securityInformation,
                                                      void* securityDescriptor);
using ORGetValueFunction = OrDword(TW_OR_CALL*)(OrKey key, const wchar_t* subKey,
                                                const wchar_t* value, OrDword* type, void* data,
                                                OrDword* dataSize);
using ORSetValueFunction = OrDword(TW_OR_CALL*)(OrKey key, const wchar_t* valueName, OrDword type,
                                                const std::uint8_t* data, OrDword dataSize);
using OREnumValueFunction = OrDword(TW_OR_CALL*)(OrKey key, OrDword index, wchar_t* valueName,
                                                 OrDword* valueNameLength, OrDword* type,
                                                 std::uint8_t* data, OrDword* dataSize);

// Our hive engine's own export (hive/offreg_api.h): what was done to a hive file before it was
// read (0 clean, 1 recovered from its transaction logs, 2 not cleanly closed and read stale).
using TwQueryHiveRecoveryFunction = OrDword(TW_OR_CALL*)(OrKey hive, OrDword* state);

class COffregWrapper : public CReferenceCount {
 public:
  // The process's binding: the libraries of ProcessModuleLoader().
  COffregWrapper();

  // Loads "userenv.dll" and binds CreateProfile and DeleteProfileW; if either is null, logs
  // "Failed getting userenv.dll function pointers". Then loads "offreg.dll" and binds the
  // thirteen offline-registry functions; if any of them except ORSetKeySecurity is null, logs
  // "Failed getting offreg.dll function pointers". A library that does not load leaves its
  // pointers null (and so logs its line). Last, TwQueryHiveRecovery is bound when the library
  // exports it (our engine does, the platform's library does not): its absence logs nothing.
  // Construction never fails. loader must outlive the object.
  explicit COffregWrapper(ModuleLoader& loader);

  // Unloads each library that was loaded.
  ~COffregWrapper() override;

  // True when every offline-registry pointer except ORSetKeySecurity is bound. Leaving
  // ORSetKeySecurity out (here and in the construction's log test) is deliberate.
  bool IsOffregComplete() const;

  // True when CreateProfile and DeleteProfileW are both bound.
  bool IsUserenvBound() const;

  // The specified fields, in their order. Each pointer may be null.
  ModuleHandle userenvModule = kNoModule;
  ModuleHandle offregModule = kNoModule;
  CreateProfileFunction CreateProfile = nullptr;
  DeleteProfileWFunction DeleteProfileW = nullptr;
  OROpenHiveFunction OROpenHive = nullptr;
  ORCloseHiveFunction ORCloseHive = nullptr;
  ORSaveHiveFunction ORSaveHive = nullptr;
  OROpenKeyFunction OROpenKey = nullptr;
  ORCloseKeyFunction ORCloseKey = nullptr;
  ORCreateKeyFunction ORCreateKey = nullptr;
  ORQueryInfoKeyFunction ORQueryInfoKey = nullptr;
  OREnumKeyFunction OREnumKey = nullptr;
  ORGetKeySecurityFunction ORGetKeySecurity = nullptr;
  ORSetKeySecurityFunction ORSetKeySecurity = nullptr;
  ORGetValueFunction ORGetValue = nullptr;
  ORSetValueFunction ORSetValue = nullptr;
  OREnumValueFunction OREnumValue = nullptr;

  // Not one of the specified fields: optional, outside both tests above. Null means the library
  // cannot say whether a hive was recovered, and the migration then says nothing about it.
  TwQueryHiveRecoveryFunction TwQueryHiveRecovery = nullptr;

 private:
  ModuleLoader& loader_;
};

// The process-wide binding, built before the program's entry runs (run/process_globals.cpp,
// after g_log and g_profilePath).
extern COffregWrapper g_offreg;

}  // namespace tw
