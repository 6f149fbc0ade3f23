#include "registry/registry_key_copy.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/hresult_error.h"
#include "base/win32_error.h"
#include "log/log.h"
#include "registry/offreg_calls.h"
#include "registry/work_buffer.h"
#include "security/codec/security_descriptor.h"

namespace tw {

using registry::CallCloseKey;
using registry::CallCreateKey;
using registry::CallEnumKey;
using registry::CallEnumValue;
using registry::CallGetKeySecurity;
using registry::CallOpenKey;
using registry::CallQueryInfoKey;
using registry::CallSetKeySecurity;
using registry::CallSetValue;
using registry::kNoOrKey;
using registry::WorkBuffer;

namespace {

// The class buffer's first size, in characters.
constexpr OrDword kInitialClassLength = 1024;

// Closes an offline key when it goes, unless it is -1.
class KeyCloser {
 public:
  KeyCloser(const COffregWrapper& offreg, OrKey& key) : offreg_(offreg), key_(key) {}
  ~KeyCloser() {
    if (key_ != kNoOrKey) static_cast<void>(CallCloseKey(offreg_, key_));  // not checked
  }
  KeyCloser(const KeyCloser&) = delete;
  KeyCloser& operator=(const KeyCloser&) = delete;

 private:
  const COffregWrapper& offreg_;
  OrKey& key_;
};

// GetSecurityDescriptorControl on a block that ORGetKeySecurity filled: fails with
// ERROR_UNKNOWN_REVISION when the block does not start with a descriptor of revision 1 (the only
// way the platform call fails on a readable block).
err::Win32Error ReadControl(std::span<const std::uint8_t> block, std::uint16_t& control) {
  control = 0;
  const std::optional<std::uint16_t> read = security::SelfRelativeControl(block);
  if (!read.has_value() || block[0] != security::kSecurityDescriptorRevision) {
    return err::kUnknownRevision;
  }
  control = *read;
  return err::kSuccess;
}

}  // namespace

HResult CopyRegistryKey(MigrationContext& context, OrKey sourceParent, OrKey targetParent,
                        const std::wstring& keyName) {
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

  // 2-3. Class, longest names and data, security size; the class buffer is regrown once.
  WorkBuffer classBuffer;
  classBuffer.AllocateOrThrow(kInitialClassLength * sizeof(wchar_t));
  OrDword classLength = kInitialClassLength;
  OrDword maxSubKeyLength = 0;
  OrDword maxValueNameLength = 0;
  OrDword maxValueLength = 0;
  OrDword securitySize = 0;
  err::Win32Error queried =
      CallQueryInfoKey(offreg, sourceKey, classBuffer.chars(), &classLength, &maxSubKeyLength,
                       &maxValueNameLength, &maxValueLength, &securitySize);
  if (queried == err::kMoreData) {
    const OrDword grownLength = classLength + 1;
    if (!classBuffer.Grow(static_cast<std::size_t>(grownLength) * sizeof(wchar_t))) {
      ThrowHResult(hr::kOutOfMemory);
    }
    classLength = grownLength;
    queried =
        CallQueryInfoKey(offreg, sourceKey, classBuffer.chars(), &classLength, &maxSubKeyLength,
                         &maxValueNameLength, &maxValueLength, &securitySize);
  }
  if (queried != err::kSuccess) {
    Log(L"Failed to query key info from source registry key (0x%08X): %s",
        HResultFromWin32(queried), keyName);
    return hr::kOk;
  }

  // 4. Room for the terminators.
  maxSubKeyLength += 1;
  maxValueNameLength += 1;

  HResult result = hr::kOk;

  // 5. An existing target key keeps its class and security.
  const err::Win32Error targetOpened =
      CallOpenKey(offreg, targetParent, keyName.c_str(), &targetKey);
  if (targetOpened != err::kSuccess) {
    // 6. Create it, with the source's class when it has one.
    wchar_t* keyClass = classLength != 0 ? classBuffer.chars() : nullptr;
    const err::Win32Error created =
        CallCreateKey(offreg, targetParent, keyName.c_str(), keyClass, &targetKey);
    if (created != err::kSuccess) {
      Log(L"Failed to open or create target registry key (0x%08X) %d: %s, class: %s",
          HResultFromWin32(created), created, keyName,
          static_cast<const wchar_t*>(classBuffer.chars()));
      return hr::kOk;
    }

    // 7. The new key gets the source key's owner and DACL.
    WorkBuffer security;
    if (!security.Allocate(securitySize)) {
      result = registry::HeapFailureResult();
      Log(L"Failed allocating memory (0x%08X): %s", result, keyName);
    }
    OrDword size = securitySize;
    const err::Win32Error got = CallGetKeySecurity(
        offreg, sourceKey, registry::kOwnerSecurityInformation | registry::kDaclSecurityInformation,
        security.bytes(), &size);
    if (got != err::kSuccess) {
      Log(L"Failed to get security descriptor from registry key (0x%08X): %s",
          HResultFromWin32(got), keyName);
      return result;
    }
    const err::Win32Error set = CallSetKeySecurity(
        offreg, targetKey, registry::kOwnerSecurityInformation | registry::kDaclSecurityInformation,
        security.bytes());
    if (set != err::kSuccess) {
      const HResult hr = HResultFromWin32(set);
      Log(L"Failed setting security descriptor key (0x%08X): %s", hr, keyName);
      return hr;
    }
  }

  // 8. Values: the first value that cannot be written ends the loop (deliberate).
  {
    WorkBuffer name;
    name.AllocateOrThrow(static_cast<std::size_t>(maxValueNameLength) * sizeof(wchar_t));
    WorkBuffer data;
    data.AllocateOrThrow(maxValueLength);
    for (OrDword index = 0;; ++index) {
      OrDword nameLength = maxValueNameLength;
      OrDword dataLength = maxValueLength;
      OrDword type = 0;
      const err::Win32Error enumerated = CallEnumValue(
          offreg, sourceKey, index, name.chars(), &nameLength, &type, data.bytes(), &dataLength);
      if (enumerated == err::kSuccess) {
        const err::Win32Error written =
            CallSetValue(offreg, targetKey, name.chars(), type, data.bytes(), dataLength);
        if (written != err::kSuccess) {
          Log(L"Failed to copy registry value to target hive (0x%08X): %s",
              HResultFromWin32(written), static_cast<const wchar_t*>(name.chars()));
          break;
        }
        continue;
      }
      if (enumerated == err::kNoMoreItems) break;
      Log(L"Failed enumerating value in key (0x%08X): %s", HResultFromWin32(enumerated), keyName);
      break;
    }
  }

  // 9. Sub keys, depth first: the siblings after a sub key that failed are not copied (intended).
  {
    WorkBuffer name;
    name.AllocateOrThrow(static_cast<std::size_t>(maxSubKeyLength) * sizeof(wchar_t));
    for (OrDword index = 0;; ++index) {
      OrDword nameLength = maxSubKeyLength;
      const err::Win32Error enumerated =
          CallEnumKey(offreg, sourceKey, index, name.chars(), &nameLength);
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

  // 10. Buffers are freed and both keys closed on the way out.
  return result;
}

HResult SetKeyTreeSecurity(MigrationContext& context, OrKey key, void* securityDescriptor,
                           bool isRoot) {
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

  // 3. The key's current DACL.
  maxSubKeyLength += 1;
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

    // 4. The new DACL: on the root as it is; below it, unless the key's own DACL is protected.
    if (isRoot) {
      setResult =
          CallSetKeySecurity(offreg, key, registry::kDaclSecurityInformation, securityDescriptor);
      if (setResult != err::kSuccess) {
        Log(L"Failed setting key security (0x%08X)", HResultFromWin32(setResult));
      }
    } else {
      std::uint16_t control = 0;
      const err::Win32Error controlRead =
          ReadControl(std::span<const std::uint8_t>(current.bytes(), current.size()), control);
      if (controlRead != err::kSuccess) {
        // The control word stays 0: the key counts as unprotected and gets the DACL.
        Log(L"Failed getting security descriptor (0x%08X)", HResultFromWin32(controlRead));
      }
      if ((control & security::kSeDaclProtected) == 0) {
        setResult = CallSetKeySecurity(
            offreg, key,
            registry::kUnprotectedDaclSecurityInformation | registry::kDaclSecurityInformation,
            securityDescriptor);
      }
    }
  }
  if (setResult != err::kSuccess) {
    const HResult hr = HResultFromWin32(setResult);
    Log(L"Failed to set key security (0x%08X)", hr);
    return hr;
  }

  // 5. Children, in OREnumKey index order.
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
    const HResult childResult = SetKeyTreeSecurity(context, child, securityDescriptor, false);
    if (childResult != hr::kOk) {
      Log(L"Failed setting key security (0x%08X): %s", childResult,
          static_cast<const wchar_t*>(name.chars()));
    }
    static_cast<void>(CallCloseKey(offreg, child));  // the close's result is not checked
  }
  return hr::kOk;
}

}  // namespace tw
