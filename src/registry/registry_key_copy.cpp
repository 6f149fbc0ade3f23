#include "registry/registry_key_copy.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/hresult_error.h"
#include "base/win32_error.h"
#include "descriptor/security_descriptor.h"
#include "log/log.h"
#include "registry/offreg_calls.h"
#include "registry/offreg_handles.h"
#include "registry/work_buffer.h"

namespace tw {

using registry::CallCreateKey;
using registry::CallEnumKey;
using registry::CallEnumValue;
using registry::CallGetKeySecurity;
using registry::CallOpenKey;
using registry::CallQueryInfoKey;
using registry::CallSetKeySecurity;
using registry::CallSetValue;
using registry::KeyCloser;
using registry::kNoOrKey;
using registry::WorkBuffer;

namespace {

// The class buffer's first size, in characters.
constexpr OrDword kInitialClassLength = 1024;

// What ORQueryInfoKey says about a source key: its class (in the buffer, classLength characters
// long), its longest sub key name, value name and value data, and the size of its descriptor.
struct SourceKeyInfo {
  WorkBuffer classBuffer;
  OrDword classLength = kInitialClassLength;
  OrDword maxSubKeyLength = 0;
  OrDword maxValueNameLength = 0;
  OrDword maxValueLength = 0;
  OrDword securitySize = 0;
};

[[nodiscard]] err::Win32Error QueryInfo(const COffregWrapper& offreg, OrKey key,
                                        SourceKeyInfo& info) {
  return CallQueryInfoKey(offreg, key, info.classBuffer.chars(), &info.classLength,
                          &info.maxSubKeyLength, &info.maxValueNameLength, &info.maxValueLength,
                          &info.securitySize);
}

// Steps 2-4 of CopyRegistryKey: the query, with the class buffer regrown once when the class
// does not fit, then room for the terminators. False (logged) when the key cannot be queried.
bool QuerySourceKey(const COffregWrapper& offreg, OrKey sourceKey, const std::wstring& keyName,
                    SourceKeyInfo& info) {
  info.classBuffer.AllocateOrThrow(kInitialClassLength * sizeof(wchar_t));
  err::Win32Error queried = QueryInfo(offreg, sourceKey, info);
  if (queried == err::kMoreData) {
    const OrDword grownLength = info.classLength + 1;
    if (!info.classBuffer.Grow(static_cast<std::size_t>(grownLength) * sizeof(wchar_t))) {
      ThrowHResult(hr::kOutOfMemory);
    }
    info.classLength = grownLength;
    queried = QueryInfo(offreg, sourceKey, info);
  }
  if (queried != err::kSuccess) {
    Log(L"Failed to query key info from source registry key (0x%08X): %s",
        HResultFromWin32(queried), keyName);
    return false;
  }
  info.maxSubKeyLength += 1;
  info.maxValueNameLength += 1;
  return true;
}

// Step 6 of CopyRegistryKey: the target key is created, with the source's class when it has one.
// False (logged) when it cannot be.
bool CreateTargetKey(const COffregWrapper& offreg, OrKey targetParent, const std::wstring& keyName,
                     SourceKeyInfo& info, OrKey& targetKey) {
  wchar_t* keyClass = info.classLength != 0 ? info.classBuffer.chars() : nullptr;
  const err::Win32Error created =
      CallCreateKey(offreg, targetParent, keyName.c_str(), keyClass, &targetKey);
  if (created == err::kSuccess) return true;
  Log(L"Failed to open or create target registry key (0x%08X) %d: %s, class: %s",
      HResultFromWin32(created), created, keyName,
      static_cast<const wchar_t*>(info.classBuffer.chars()));
  return false;
}

// Step 7 of CopyRegistryKey: a new target key gets the source key's owner and DACL. A buffer
// that cannot be allocated sets `result` (logged) and the steps go on. False when the copy ends
// here, returning `result`.
bool CopyNewKeySecurity(const COffregWrapper& offreg, OrKey sourceKey, OrKey targetKey,
                        OrDword securitySize, const std::wstring& keyName, HResult& result) {
  constexpr OrDword kOwnerAndDacl =
      registry::kOwnerSecurityInformation | registry::kDaclSecurityInformation;
  WorkBuffer security;
  if (!security.Allocate(securitySize)) {
    result = registry::HeapFailureResult();
    Log(L"Failed allocating memory (0x%08X): %s", result, keyName);
  }
  OrDword size = securitySize;
  const err::Win32Error got =
      CallGetKeySecurity(offreg, sourceKey, kOwnerAndDacl, security.bytes(), &size);
  if (got != err::kSuccess) {
    Log(L"Failed to get security descriptor from registry key (0x%08X): %s", HResultFromWin32(got),
        keyName);
    return false;
  }
  const err::Win32Error set =
      CallSetKeySecurity(offreg, targetKey, kOwnerAndDacl, security.bytes());
  if (set != err::kSuccess) {
    result = HResultFromWin32(set);
    Log(L"Failed setting security descriptor key (0x%08X): %s", result, keyName);
    return false;
  }
  return true;
}

// Step 8 of CopyRegistryKey: the values; the first value that cannot be written ends the loop
// (deliberate).
void CopyValues(const COffregWrapper& offreg, OrKey sourceKey, OrKey targetKey,
                const SourceKeyInfo& info, const std::wstring& keyName) {
  WorkBuffer name;
  name.AllocateOrThrow(static_cast<std::size_t>(info.maxValueNameLength) * sizeof(wchar_t));
  WorkBuffer data;
  data.AllocateOrThrow(info.maxValueLength);
  for (OrDword index = 0;; ++index) {
    OrDword nameLength = info.maxValueNameLength;
    OrDword dataLength = info.maxValueLength;
    OrDword type = 0;
    const err::Win32Error enumerated = CallEnumValue(offreg, sourceKey, index, name.chars(),
                                                     &nameLength, &type, data.bytes(), &dataLength);
    if (enumerated == err::kSuccess) {
      const err::Win32Error written =
          CallSetValue(offreg, targetKey, name.chars(), type, data.bytes(), dataLength);
      if (written != err::kSuccess) {
        Log(L"Failed to copy registry value to target hive (0x%08X): %s", HResultFromWin32(written),
            static_cast<const wchar_t*>(name.chars()));
        break;
      }
      continue;
    }
    if (enumerated == err::kNoMoreItems) break;
    Log(L"Failed enumerating value in key (0x%08X): %s", HResultFromWin32(enumerated), keyName);
    break;
  }
}

// Step 9 of CopyRegistryKey: the sub keys, depth first; the siblings after a sub key that failed
// are not copied (intended).
void CopySubKeys(MigrationContext& context, OrKey sourceKey, OrKey targetKey,
                 OrDword maxSubKeyLength, const std::wstring& keyName) {
  WorkBuffer name;
  name.AllocateOrThrow(static_cast<std::size_t>(maxSubKeyLength) * sizeof(wchar_t));
  for (OrDword index = 0;; ++index) {
    OrDword nameLength = maxSubKeyLength;
    const err::Win32Error enumerated =
        CallEnumKey(context.offreg, sourceKey, index, name.chars(), &nameLength);
    if (enumerated == err::kSuccess) {
      // The name as the wide C string it is handed on as: up to its first NUL (a damaged hive
      // can hold a name that begins with one; opening it then fails and is logged).
      const std::wstring_view enumeratedName(name.chars(), nameLength);
      const std::wstring subKeyName(enumeratedName.substr(0, enumeratedName.find(L'\0')));
      const HResult copied = CopyRegistryKey(context, sourceKey, targetKey, subKeyName);
      if (copied != hr::kOk) {
        Log(L"Failed to copy registry key to target hive (0x%08X): %s/%s", copied, keyName,
            subKeyName);
        break;
      }
      continue;
    }
    if (enumerated == err::kNoMoreItems) break;
    Log(L"Failed enumerating key (0x%08X): %s", HResultFromWin32(enumerated), keyName);
    break;
  }
}

// GetSecurityDescriptorControl on a block that ORGetKeySecurity filled: fails with
// ERROR_UNKNOWN_REVISION when the block does not start with a descriptor of revision 1 (the only
// way the platform call fails on a readable block).
[[nodiscard]] err::Win32Error ReadControl(std::span<const std::uint8_t> block,
                                          std::uint16_t& control) {
  control = 0;
  const std::optional<std::uint16_t> read = security::SelfRelativeControl(block);
  if (!read.has_value() || block[0] != security::kSecurityDescriptorRevision) {
    return err::kUnknownRevision;
  }
  control = *read;
  return err::kSuccess;
}

// Step 4 of SetKeyTreeSecurity: the new DACL, on the root as it is; below it, unless the key's
// own DACL (in `current`) is protected. Returns the write's result (success when none is made).
[[nodiscard]] err::Win32Error WriteKeyDacl(const COffregWrapper& offreg, OrKey key,
                                           WorkBuffer& current, void* securityDescriptor,
                                           bool isRoot) {
  if (isRoot) {
    const err::Win32Error set =
        CallSetKeySecurity(offreg, key, registry::kDaclSecurityInformation, securityDescriptor);
    if (set != err::kSuccess) {
      Log(L"Failed setting key security (0x%08X)", HResultFromWin32(set));
    }
    return set;
  }
  std::uint16_t control = 0;
  const err::Win32Error controlRead =
      ReadControl(std::span<const std::uint8_t>(current.bytes(), current.size()), control);
  if (controlRead != err::kSuccess) {
    // The control word stays 0: the key counts as unprotected and gets the DACL.
    Log(L"Failed getting security descriptor (0x%08X)", HResultFromWin32(controlRead));
  }
  if ((control & security::kSeDaclProtected) != 0) return err::kSuccess;
  return CallSetKeySecurity(
      offreg, key,
      registry::kUnprotectedDaclSecurityInformation | registry::kDaclSecurityInformation,
      securityDescriptor);
}

// Steps 3-4 of SetKeyTreeSecurity: the key's current DACL is read, then the new one written.
// Returns S_OK, or the failure (logged) of the read or the write.
[[nodiscard]] HResult SetOneKeySecurity(const COffregWrapper& offreg, OrKey key,
                                        OrDword securitySize, void* securityDescriptor,
                                        bool isRoot) {
  err::Win32Error setResult = err::kSuccess;
  {
    WorkBuffer current;
    current.AllocateOrThrow(securitySize);
    OrDword size = securitySize;
    const err::Win32Error got =
        CallGetKeySecurity(offreg, key, registry::kDaclSecurityInformation, current.bytes(), &size);
    if (got != err::kSuccess) {
      const HResult hr = HResultFromWin32(got);
      Log(L"Failed to query key security (0x%08X)", hr);
      return hr;
    }
    setResult = WriteKeyDacl(offreg, key, current, securityDescriptor, isRoot);
  }
  if (setResult != err::kSuccess) {
    const HResult hr = HResultFromWin32(setResult);
    Log(L"Failed to set key security (0x%08X)", hr);
    return hr;
  }
  return hr::kOk;
}

// Step 5 of SetKeyTreeSecurity: the children, in OREnumKey index order, each closed after its
// tree is done. A child that cannot be opened ends the walk.
void SetChildrenSecurity(MigrationContext& context, OrKey key, OrDword maxSubKeyLength,
                         void* securityDescriptor) {
  const COffregWrapper& offreg = context.offreg;
  WorkBuffer name;
  name.AllocateOrThrow(static_cast<std::size_t>(maxSubKeyLength) * sizeof(wchar_t));
  for (OrDword index = 0;; ++index) {
    OrDword length = maxSubKeyLength;
    const err::Win32Error enumerated = CallEnumKey(offreg, key, index, name.chars(), &length);
    if (enumerated == err::kMoreData) {
      Log(L"Failed enumerating key (0x%08X). Need more buffer.", HResultFromWin32(enumerated));
      continue;
    }
    if (enumerated != err::kSuccess) break;
    OrKey child = kNoOrKey;
    const err::Win32Error opened = CallOpenKey(offreg, key, name.chars(), &child);
    if (opened != err::kSuccess) {
      Log(L"Failed to open sub key (0x%08X): %s", HResultFromWin32(opened),
          static_cast<const wchar_t*>(name.chars()));
      break;
    }
    KeyCloser closeChild(offreg, child);
    const HResult childResult = SetKeyTreeSecurity(context, child, securityDescriptor, false);
    if (childResult != hr::kOk) {
      Log(L"Failed setting key security (0x%08X): %s", childResult,
          static_cast<const wchar_t*>(name.chars()));
    }
  }
}

}  // namespace

[[nodiscard]] HResult CopyRegistryKey(MigrationContext& context, OrKey sourceParent,
                                      OrKey targetParent, const std::wstring& keyName) {
  const COffregWrapper& offreg = context.offreg;

  // 1. The source key.
  OrKey sourceKey = kNoOrKey;
  const err::Win32Error opened = CallOpenKey(offreg, sourceParent, keyName.c_str(), &sourceKey);
  if (opened != err::kSuccess) {
    const HResult hr = HResultFromWin32(opened);
    Log(L"Failed to open source registry key (0x%08X), skipping this key: %s", hr, keyName);
    return hr;
  }
  KeyCloser closeSource(offreg, sourceKey);
  OrKey targetKey = kNoOrKey;
  KeyCloser closeTarget(offreg, targetKey);

  // 2-4. Class, longest names and data, security size; room for the terminators.
  SourceKeyInfo info;
  if (!QuerySourceKey(offreg, sourceKey, keyName, info)) return hr::kOk;

  // 5. An existing target key keeps its class and security.
  HResult result = hr::kOk;
  const err::Win32Error targetOpened =
      CallOpenKey(offreg, targetParent, keyName.c_str(), &targetKey);
  if (targetOpened != err::kSuccess) {
    // 6. Create it, with the source's class when it has one.
    if (!CreateTargetKey(offreg, targetParent, keyName, info, targetKey)) return hr::kOk;
    // 7. The new key gets the source key's owner and DACL.
    if (!CopyNewKeySecurity(offreg, sourceKey, targetKey, info.securitySize, keyName, result)) {
      return result;
    }
  }

  // 8. Values: the first value that cannot be written ends the loop (deliberate).
  CopyValues(offreg, sourceKey, targetKey, info, keyName);

  // 9. Sub keys, depth first: the siblings after a sub key that failed are not copied (intended).
  CopySubKeys(context, sourceKey, targetKey, info.maxSubKeyLength, keyName);

  // 10. Buffers are freed and both keys closed on the way out.
  return result;
}

[[nodiscard]] HResult SetKeyTreeSecurity(MigrationContext& context, OrKey key,
                                         void* securityDescriptor, bool isRoot) {
  const COffregWrapper& offreg = context.offreg;

  // 1. The -1 handle and an unbound query.
  if (key == kNoOrKey) {
    Log(L"Failed to query key info (0x%08X)", hr::kHandle);
    return hr::kHandle;
  }
  if (offreg.ORQueryInfoKey == nullptr) {
    Log(L"Failed to query key info (0x%08X)", hr::kNotBound);
    return hr::kNotBound;
  }

  // 2. Longest sub key name and the size of the key's descriptor.
  OrDword maxSubKeyLength = 0;
  OrDword securitySize = 0;
  const err::Win32Error queried = CallQueryInfoKey(offreg, key, nullptr, nullptr, &maxSubKeyLength,
                                                   nullptr, nullptr, &securitySize);
  if (queried != err::kSuccess) {
    const HResult hr = HResultFromWin32(queried);
    Log(L"Failed to query key info (0x%08X)", hr);
    return hr;
  }

  // 3-4. The key's current DACL, then the new one: on the root as it is; below it, unless the
  // key's own DACL is protected.
  maxSubKeyLength += 1;
  const HResult set = SetOneKeySecurity(offreg, key, securitySize, securityDescriptor, isRoot);
  if (set != hr::kOk) return set;

  // 5. Children, in OREnumKey index order.
  SetChildrenSecurity(context, key, maxSubKeyLength, securityDescriptor);
  return hr::kOk;
}

}  // namespace tw
