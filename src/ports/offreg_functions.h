// The function types of the two libraries the tool binds at run time (userenv.dll's profile
// functions and offreg.dll's offline-registry functions): what the module port hands out is
// converted back to these. The binding itself is registry/offreg_wrapper.h.
#pragma once

#include <cstdint>

#include "base/hresult.h"
#include "hive/offreg_api.h"

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

}  // namespace tw
