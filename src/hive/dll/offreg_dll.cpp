// The exports of offreg.dll: the engine's offline-registry functions under their platform
// names, with the platform's calling convention (TW_OR_CALL: __stdcall on 32-bit Windows, the
// only convention on x64). Only the DLL target compiles this file; offreg.def lists the names
// so that they are exported exactly so, without decoration, and nothing else is exported.
#include "hive/offreg_api.h"

using tw::hive::DWORD;
using tw::hive::FILETIME;
using tw::hive::ORHKEY;
using tw::hive::PBYTE;
using tw::hive::PCWSTR;
using tw::hive::PDWORD;
using tw::hive::PFILETIME;
using tw::hive::PORHKEY;
using tw::hive::PSECURITY_DESCRIPTOR;
using tw::hive::PWSTR;
using tw::hive::SECURITY_INFORMATION;

extern "C" {

DWORD TW_OR_CALL OROpenHive(PCWSTR lpHivePath, PORHKEY phkResult) {
  return tw::hive::tw_OROpenHive(lpHivePath, phkResult);
}

DWORD TW_OR_CALL ORCreateHive(PORHKEY phkResult) { return tw::hive::tw_ORCreateHive(phkResult); }

DWORD TW_OR_CALL ORCloseHive(ORHKEY Handle) { return tw::hive::tw_ORCloseHive(Handle); }

DWORD TW_OR_CALL ORSaveHive(ORHKEY Handle, PCWSTR lpHivePath, DWORD dwOsMajorVersion,
                            DWORD dwOsMinorVersion) {
  return tw::hive::tw_ORSaveHive(Handle, lpHivePath, dwOsMajorVersion, dwOsMinorVersion);
}

DWORD TW_OR_CALL OROpenKey(ORHKEY Handle, PCWSTR lpSubKeyName, PORHKEY phkResult) {
  return tw::hive::tw_OROpenKey(Handle, lpSubKeyName, phkResult);
}

DWORD TW_OR_CALL ORCreateKey(ORHKEY Handle, PCWSTR lpSubKey, PWSTR lpClass, DWORD dwOptions,
                             PSECURITY_DESCRIPTOR pSecurityDescriptor, PORHKEY phkResult,
                             PDWORD pdwDisposition) {
  return tw::hive::tw_ORCreateKey(Handle, lpSubKey, lpClass, dwOptions, pSecurityDescriptor,
                                  phkResult, pdwDisposition);
}

DWORD TW_OR_CALL ORCloseKey(ORHKEY Handle) { return tw::hive::tw_ORCloseKey(Handle); }

DWORD TW_OR_CALL ORDeleteKey(ORHKEY Handle, PCWSTR lpSubKey) {
  return tw::hive::tw_ORDeleteKey(Handle, lpSubKey);
}

DWORD TW_OR_CALL ORQueryInfoKey(ORHKEY Handle, PWSTR lpClass, PDWORD lpcClass, PDWORD lpcSubKeys,
                                PDWORD lpcMaxSubKeyLen, PDWORD lpcMaxClassLen, PDWORD lpcValues,
                                PDWORD lpcMaxValueNameLen, PDWORD lpcMaxValueLen,
                                PDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime) {
  return tw::hive::tw_ORQueryInfoKey(Handle, lpClass, lpcClass, lpcSubKeys, lpcMaxSubKeyLen,
                                     lpcMaxClassLen, lpcValues, lpcMaxValueNameLen, lpcMaxValueLen,
                                     lpcbSecurityDescriptor, lpftLastWriteTime);
}

DWORD TW_OR_CALL OREnumKey(ORHKEY Handle, DWORD dwIndex, PWSTR lpName, PDWORD lpcName,
                           PWSTR lpClass, PDWORD lpcClass, PFILETIME lpftLastWriteTime) {
  return tw::hive::tw_OREnumKey(Handle, dwIndex, lpName, lpcName, lpClass, lpcClass,
                                lpftLastWriteTime);
}

DWORD TW_OR_CALL OREnumValue(ORHKEY Handle, DWORD dwIndex, PWSTR lpValueName, PDWORD lpcValueName,
                             PDWORD lpType, PBYTE lpData, PDWORD lpcbData) {
  return tw::hive::tw_OREnumValue(Handle, dwIndex, lpValueName, lpcValueName, lpType, lpData,
                                  lpcbData);
}

DWORD TW_OR_CALL ORGetValue(ORHKEY Handle, PCWSTR lpSubKey, PCWSTR lpValue, PDWORD pdwType,
                            void* pvData, PDWORD pcbData) {
  return tw::hive::tw_ORGetValue(Handle, lpSubKey, lpValue, pdwType, pvData, pcbData);
}

DWORD TW_OR_CALL ORSetValue(ORHKEY Handle, PCWSTR lpValueName, DWORD dwType,
                            const std::uint8_t* lpData, DWORD cbData) {
  return tw::hive::tw_ORSetValue(Handle, lpValueName, dwType, lpData, cbData);
}

DWORD TW_OR_CALL ORDeleteValue(ORHKEY Handle, PCWSTR lpValueName) {
  return tw::hive::tw_ORDeleteValue(Handle, lpValueName);
}

DWORD TW_OR_CALL ORGetKeySecurity(ORHKEY Handle, SECURITY_INFORMATION SecurityInformation,
                                  PSECURITY_DESCRIPTOR pSecurityDescriptor,
                                  PDWORD lpcbSecurityDescriptor) {
  return tw::hive::tw_ORGetKeySecurity(Handle, SecurityInformation, pSecurityDescriptor,
                                       lpcbSecurityDescriptor);
}

DWORD TW_OR_CALL ORSetKeySecurity(ORHKEY Handle, SECURITY_INFORMATION SecurityInformation,
                                  PSECURITY_DESCRIPTOR pSecurityDescriptor) {
  return tw::hive::tw_ORSetKeySecurity(Handle, SecurityInformation, pSecurityDescriptor);
}

void TW_OR_CALL ORGetVersion(PDWORD pdwMajorVersion, PDWORD pdwMinorVersion) {
  tw::hive::tw_ORGetVersion(pdwMajorVersion, pdwMinorVersion);
}

DWORD TW_OR_CALL TwQueryHiveRecovery(ORHKEY Handle, PDWORD pdwState) {
  return tw::hive::tw_QueryHiveRecovery(Handle, pdwState);
}

}  // extern "C"
