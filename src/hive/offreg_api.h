// The offline-registry functions of the hive engine, with the platform library's signatures
// expressed portably and C linkage, so that the same functions can be exported from a drop-in
// offreg.dll. Each carries the prefix "tw_" so that it never clashes with a platform header;
// EngineFunctions() lists them under their platform names.
//
// Decisions where the platform documents nothing (see also the reader, writer and handle table):
// - Handles: see handle_table.h. NULL, -1, closed and garbage handles give ERROR_INVALID_HANDLE.
//   ORCloseHive closes every handle of the hive; it accepts only a root handle (another key
//   handle gives ERROR_INVALID_PARAMETER). Calls on a deleted key's handle give
//   ERROR_KEY_DELETED (ORCloseKey still closes it).
// - Sub-key paths: components separated by "\"; one trailing "\" is ignored; a leading "\" or an
//   empty component gives ERROR_BAD_PATHNAME. A missing key gives ERROR_FILE_NOT_FOUND.
// - OROpenKey with a NULL name gives the same handle back; with a name that holds no component
//   ("", "\", or a name whose first character is NUL, as a key name read from a damaged hive
//   can be) it gives ERROR_INVALID_PARAMETER, so that a walk over enumerated names never opens
//   the key it stands on again. A key more than kMaxKeyDepth (512) levels below the hive root is
//   never opened or created (ERROR_INVALID_PARAMETER), Windows' own limit of a registry tree.
// - ORCreateKey creates every missing key on the path (at most 32 levels per call, names of at
//   most 255 characters: else ERROR_INVALID_PARAMETER); "" on a non-root handle gives a new
//   handle to the same key (REG_OPENED_EXISTING_KEY). REG_OPTION_VOLATILE and unknown options
//   give ERROR_INVALID_PARAMETER; REG_OPTION_CREATE_LINK on an existing key that is not a link
//   gives ERROR_ALREADY_EXISTS. A new key without a descriptor inherits from its parent
//   (owner and group of the parent, the inheritable part of its DACL: see security_parts.h); a
//   given descriptor must be self-relative (else
//   ERROR_INVALID_SECURITY_DESCR) and is stored as given. The class is stored (not ignored).
// - Times: creating a key sets its time and its parent's; deleting a key sets its parent's;
//   setting or deleting a value sets the key's; security changes leave times alone.
// - ORCreateHive: a root key named "ROOT", no class, the current time, the default descriptor
//   of security_parts.h.
// - ORQueryInfoKey recomputes every maximum from the key's current sub keys and values, in
//   characters (wchar_t units) without terminator, and data in bytes; the descriptor size is that
//   of the whole descriptor (all parts). On ERROR_MORE_DATA for the class every other output is
//   still filled.
// - OREnumKey / OREnumValue: index order is the sub keys' upper-cased name order and the values'
//   stored order. A name buffer too small gives ERROR_MORE_DATA with the needed length (without
//   terminator) in the count and nothing copied. OREnumValue with a data buffer too small copies
//   the name and type, then gives ERROR_MORE_DATA with the needed size.
// - ORGetValue: a missing key or value gives ERROR_FILE_NOT_FOUND. String data without its
//   terminator (REG_SZ, REG_EXPAND_SZ: one zero character; REG_MULTI_SZ: two) gets it appended;
//   the sizes reported (query, ERROR_MORE_DATA, success) count the appended terminator.
// - ORSetValue stores exactly cbData bytes; lpData NULL with cbData > 0 gives
//   ERROR_INVALID_PARAMETER; a value name over 16,383 characters too.
// - ORDeleteValue of a missing value gives ERROR_FILE_NOT_FOUND.
// - ORGetKeySecurity returns a self-relative descriptor with the selected parts only (LABEL
//   selects the SACL); ORSetKeySecurity takes a self-relative descriptor (else
//   ERROR_INVALID_SECURITY_DESCR) and does not propagate to sub keys.
// - ORSaveHive: OS versions as in hive_writer.h; others give ERROR_INVALID_PARAMETER.
// - ORGetVersion reports 1.0.
// - OROpenHive replays the transaction logs of a hive that was not cleanly closed before it
//   reads it (hive_log_recovery.h); the files are never changed. The platform's library has no
//   such step.
//
// Beside the platform's functions, the engine offers one of its own (exported from the drop-in
// offreg.dll as "TwQueryHiveRecovery"; the platform's library does not have it, so callers bind
// it as optional):
// - TwQueryHiveRecovery(hive, &state): for a handle of a hive opened from a file, what was done
//   to the file before it was read: 0 clean, 1 recovered from its transaction logs, 2 not
//   cleanly closed and no log could be applied (read as it stands). A created hive gives 0. Any
//   key handle of the hive may be given; a dead handle gives ERROR_INVALID_HANDLE, a null state
//   pointer ERROR_INVALID_PARAMETER.
#pragma once

#include <cstdint>

namespace tw::hive {

#if defined(_WIN32) && !defined(_WIN64)
#define TW_OR_CALL __stdcall
#else
#define TW_OR_CALL
#endif

using DWORD = std::uint32_t;
using PDWORD = std::uint32_t*;
using PCWSTR = const wchar_t*;
using PWSTR = wchar_t*;
using PBYTE = std::uint8_t*;
using SECURITY_INFORMATION = std::uint32_t;
using PSECURITY_DESCRIPTOR = void*;
struct OrKeyOpaque;
using ORHKEY = OrKeyOpaque*;
using PORHKEY = ORHKEY*;
struct FILETIME {
  std::uint32_t dwLowDateTime;
  std::uint32_t dwHighDateTime;
};
using PFILETIME = FILETIME*;

// Option and disposition values of ORCreateKey.
constexpr DWORD kRegOptionNonVolatile = 0x0;
constexpr DWORD kRegOptionVolatile = 0x1;
constexpr DWORD kRegOptionCreateLink = 0x2;
constexpr DWORD kRegCreatedNewKey = 1;
constexpr DWORD kRegOpenedExistingKey = 2;

extern "C" {

DWORD TW_OR_CALL tw_OROpenHive(PCWSTR lpHivePath, PORHKEY phkResult);
DWORD TW_OR_CALL tw_ORCreateHive(PORHKEY phkResult);
DWORD TW_OR_CALL tw_ORCloseHive(ORHKEY Handle);
DWORD TW_OR_CALL tw_ORSaveHive(ORHKEY Handle, PCWSTR lpHivePath, DWORD dwOsMajorVersion,
                               DWORD dwOsMinorVersion);
DWORD TW_OR_CALL tw_OROpenKey(ORHKEY Handle, PCWSTR lpSubKeyName, PORHKEY phkResult);
DWORD TW_OR_CALL tw_ORCreateKey(ORHKEY Handle, PCWSTR lpSubKey, PWSTR lpClass, DWORD dwOptions,
                                PSECURITY_DESCRIPTOR pSecurityDescriptor, PORHKEY phkResult,
                                PDWORD pdwDisposition);
DWORD TW_OR_CALL tw_ORCloseKey(ORHKEY Handle);
DWORD TW_OR_CALL tw_ORDeleteKey(ORHKEY Handle, PCWSTR lpSubKey);
DWORD TW_OR_CALL tw_ORQueryInfoKey(ORHKEY Handle, PWSTR lpClass, PDWORD lpcClass, PDWORD lpcSubKeys,
                                   PDWORD lpcMaxSubKeyLen, PDWORD lpcMaxClassLen, PDWORD lpcValues,
                                   PDWORD lpcMaxValueNameLen, PDWORD lpcMaxValueLen,
                                   PDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime);
DWORD TW_OR_CALL tw_OREnumKey(ORHKEY Handle, DWORD dwIndex, PWSTR lpName, PDWORD lpcName,
                              PWSTR lpClass, PDWORD lpcClass, PFILETIME lpftLastWriteTime);
DWORD TW_OR_CALL tw_OREnumValue(ORHKEY Handle, DWORD dwIndex, PWSTR lpValueName,
                                PDWORD lpcValueName, PDWORD lpType, PBYTE lpData, PDWORD lpcbData);
DWORD TW_OR_CALL tw_ORGetValue(ORHKEY Handle, PCWSTR lpSubKey, PCWSTR lpValue, PDWORD pdwType,
                               void* pvData, PDWORD pcbData);
DWORD TW_OR_CALL tw_ORSetValue(ORHKEY Handle, PCWSTR lpValueName, DWORD dwType,
                               const std::uint8_t* lpData, DWORD cbData);
DWORD TW_OR_CALL tw_ORDeleteValue(ORHKEY Handle, PCWSTR lpValueName);
DWORD TW_OR_CALL tw_ORGetKeySecurity(ORHKEY Handle, SECURITY_INFORMATION SecurityInformation,
                                     PSECURITY_DESCRIPTOR pSecurityDescriptor,
                                     PDWORD lpcbSecurityDescriptor);
DWORD TW_OR_CALL tw_ORSetKeySecurity(ORHKEY Handle, SECURITY_INFORMATION SecurityInformation,
                                     PSECURITY_DESCRIPTOR pSecurityDescriptor);
void TW_OR_CALL tw_ORGetVersion(PDWORD pdwMajorVersion, PDWORD pdwMinorVersion);
DWORD TW_OR_CALL tw_QueryHiveRecovery(ORHKEY Handle, PDWORD pdwState);

}  // extern "C"

// The functions under their platform names, as typed pointers (what the core binds on Linux).
struct OffregFunctions {
  decltype(&tw_OROpenHive) OROpenHive = &tw_OROpenHive;
  decltype(&tw_ORCreateHive) ORCreateHive = &tw_ORCreateHive;
  decltype(&tw_ORCloseHive) ORCloseHive = &tw_ORCloseHive;
  decltype(&tw_ORSaveHive) ORSaveHive = &tw_ORSaveHive;
  decltype(&tw_OROpenKey) OROpenKey = &tw_OROpenKey;
  decltype(&tw_ORCreateKey) ORCreateKey = &tw_ORCreateKey;
  decltype(&tw_ORCloseKey) ORCloseKey = &tw_ORCloseKey;
  decltype(&tw_ORDeleteKey) ORDeleteKey = &tw_ORDeleteKey;
  decltype(&tw_ORQueryInfoKey) ORQueryInfoKey = &tw_ORQueryInfoKey;
  decltype(&tw_OREnumKey) OREnumKey = &tw_OREnumKey;
  decltype(&tw_OREnumValue) OREnumValue = &tw_OREnumValue;
  decltype(&tw_ORGetValue) ORGetValue = &tw_ORGetValue;
  decltype(&tw_ORSetValue) ORSetValue = &tw_ORSetValue;
  decltype(&tw_ORDeleteValue) ORDeleteValue = &tw_ORDeleteValue;
  decltype(&tw_ORGetKeySecurity) ORGetKeySecurity = &tw_ORGetKeySecurity;
  decltype(&tw_ORSetKeySecurity) ORSetKeySecurity = &tw_ORSetKeySecurity;
  decltype(&tw_ORGetVersion) ORGetVersion = &tw_ORGetVersion;
  decltype(&tw_QueryHiveRecovery) TwQueryHiveRecovery = &tw_QueryHiveRecovery;
};

const OffregFunctions& EngineFunctions();

}  // namespace tw::hive
