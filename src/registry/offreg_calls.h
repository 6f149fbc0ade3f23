// The calling convention of the registry migration over the bound offline-registry functions.
// Each call returns the function's raw Win32 result, typed as err::Win32Error, with two rules of
// our own in front of it:
// - a function that the binding left null is not called, and the call gives ERROR_INVALID_FUNCTION
//   (1, HRESULT 0x80070001);
// - a handle of -1 (kNoOrKey, "no handle") is not passed on, and the call gives
//   ERROR_INVALID_HANDLE (6, HRESULT 0x80070006).
// Callers turn a positive result into an HRESULT with HResultFromWin32. A call that hands back a
// handle leaves kNoOrKey in it whenever it fails, so that every close can simply be skipped for
// -1.
#pragma once

#include <cstdint>

#include "base/win32_error.h"
#include "registry/offreg_wrapper.h"

namespace tw::registry {

// The value -1 (all bits set): no hive or key handle.
inline const OrKey kNoOrKey = reinterpret_cast<OrKey>(~std::uintptr_t{0});

// SECURITY_INFORMATION bits used by the registry walks.
constexpr OrDword kOwnerSecurityInformation = 0x1;
constexpr OrDword kDaclSecurityInformation = 0x4;
constexpr OrDword kUnprotectedDaclSecurityInformation = 0x20000000;

// Value types that hold a string.
constexpr OrDword kRegSz = 1;
constexpr OrDword kRegExpandSz = 2;

[[nodiscard]] err::Win32Error CallOpenHive(const COffregWrapper& offreg, const wchar_t* path,
                                           OrKey* hive);
[[nodiscard]] err::Win32Error CallCloseHive(const COffregWrapper& offreg, OrKey hive);
[[nodiscard]] err::Win32Error CallSaveHive(const COffregWrapper& offreg, OrKey hive,
                                           const wchar_t* path, OrDword major, OrDword minor);
[[nodiscard]] err::Win32Error CallOpenKey(const COffregWrapper& offreg, OrKey parent,
                                          const wchar_t* name, OrKey* key);
[[nodiscard]] err::Win32Error CallCloseKey(const COffregWrapper& offreg, OrKey key);
[[nodiscard]] err::Win32Error CallCreateKey(const COffregWrapper& offreg, OrKey parent,
                                            const wchar_t* name, wchar_t* keyClass, OrKey* key);
[[nodiscard]] err::Win32Error CallQueryInfoKey(const COffregWrapper& offreg, OrKey key,
                                               wchar_t* keyClass, OrDword* classLength,
                                               OrDword* maxSubKeyLength,
                                               OrDword* maxValueNameLength, OrDword* maxValueLength,
                                               OrDword* securityDescriptorSize);
[[nodiscard]] err::Win32Error CallEnumKey(const COffregWrapper& offreg, OrKey key, OrDword index,
                                          wchar_t* name, OrDword* nameLength);
[[nodiscard]] err::Win32Error CallEnumValue(const COffregWrapper& offreg, OrKey key, OrDword index,
                                            wchar_t* name, OrDword* nameLength, OrDword* type,
                                            std::uint8_t* data, OrDword* dataLength);
[[nodiscard]] err::Win32Error CallGetValue(const COffregWrapper& offreg, OrKey key,
                                           const wchar_t* valueName, OrDword* type, void* data,
                                           OrDword* dataLength);
[[nodiscard]] err::Win32Error CallSetValue(const COffregWrapper& offreg, OrKey key,
                                           const wchar_t* valueName, OrDword type,
                                           const std::uint8_t* data, OrDword dataLength);
[[nodiscard]] err::Win32Error CallGetKeySecurity(const COffregWrapper& offreg, OrKey key,
                                                 OrDword information, void* descriptor,
                                                 OrDword* size);
[[nodiscard]] err::Win32Error CallSetKeySecurity(const COffregWrapper& offreg, OrKey key,
                                                 OrDword information, void* descriptor);
// The engine's optional query (not one of the platform's functions): the same two rules.
[[nodiscard]] err::Win32Error CallQueryHiveRecovery(const COffregWrapper& offreg, OrKey hive,
                                                    OrDword* state);

}  // namespace tw::registry
