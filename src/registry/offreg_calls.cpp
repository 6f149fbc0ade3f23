#include "registry/offreg_calls.h"

#include "base/win32_error.h"

namespace tw::registry {
namespace {

// The two rules in front of every call: the function must be bound and the handle must not be
// -1. Returns kSuccess when the call may be made.
template <class Function>
[[nodiscard]] err::Win32Error Precheck(Function function, OrKey handle) {
  if (function == nullptr) return err::kInvalidFunction;
  if (handle == kNoOrKey) return err::kInvalidHandle;
  return err::kSuccess;
}

// Leaves kNoOrKey in *out unless the call succeeded.
[[nodiscard]] err::Win32Error HandOut(err::Win32Error result, OrKey* out) {
  if (result != err::kSuccess) *out = kNoOrKey;
  return result;
}

}  // namespace

[[nodiscard]] err::Win32Error CallOpenHive(const COffregWrapper& offreg, const wchar_t* path,
                                           OrKey* hive) {
  if (offreg.OROpenHive == nullptr) return HandOut(err::kInvalidFunction, hive);
  return HandOut(err::Win32Error{offreg.OROpenHive(path, hive)}, hive);
}

[[nodiscard]] err::Win32Error CallCloseHive(const COffregWrapper& offreg, OrKey hive) {
  const err::Win32Error pre = Precheck(offreg.ORCloseHive, hive);
  return pre != err::kSuccess ? pre : err::Win32Error{offreg.ORCloseHive(hive)};
}

[[nodiscard]] err::Win32Error CallSaveHive(const COffregWrapper& offreg, OrKey hive,
                                           const wchar_t* path, OrDword major, OrDword minor) {
  const err::Win32Error pre = Precheck(offreg.ORSaveHive, hive);
  return pre != err::kSuccess ? pre : err::Win32Error{offreg.ORSaveHive(hive, path, major, minor)};
}

[[nodiscard]] err::Win32Error CallOpenKey(const COffregWrapper& offreg, OrKey parent,
                                          const wchar_t* name, OrKey* key) {
  const err::Win32Error pre = Precheck(offreg.OROpenKey, parent);
  if (pre != err::kSuccess) return HandOut(pre, key);
  return HandOut(err::Win32Error{offreg.OROpenKey(parent, name, key)}, key);
}

[[nodiscard]] err::Win32Error CallCloseKey(const COffregWrapper& offreg, OrKey key) {
  const err::Win32Error pre = Precheck(offreg.ORCloseKey, key);
  return pre != err::kSuccess ? pre : err::Win32Error{offreg.ORCloseKey(key)};
}

[[nodiscard]] err::Win32Error CallCreateKey(const COffregWrapper& offreg, OrKey parent,
                                            const wchar_t* name, wchar_t* keyClass, OrKey* key) {
  const err::Win32Error pre = Precheck(offreg.ORCreateKey, parent);
  if (pre != err::kSuccess) return HandOut(pre, key);
  return HandOut(
      err::Win32Error{offreg.ORCreateKey(parent, name, keyClass, 0, nullptr, key, nullptr)}, key);
}

[[nodiscard]] err::Win32Error CallQueryInfoKey(const COffregWrapper& offreg, OrKey key,
                                               wchar_t* keyClass, OrDword* classLength,
                                               OrDword* maxSubKeyLength,
                                               OrDword* maxValueNameLength, OrDword* maxValueLength,
                                               OrDword* securityDescriptorSize) {
  const err::Win32Error pre = Precheck(offreg.ORQueryInfoKey, key);
  if (pre != err::kSuccess) return pre;
  return err::Win32Error{offreg.ORQueryInfoKey(key, keyClass, classLength, nullptr, maxSubKeyLength,
                                               nullptr, nullptr, maxValueNameLength, maxValueLength,
                                               securityDescriptorSize, nullptr)};
}

[[nodiscard]] err::Win32Error CallEnumKey(const COffregWrapper& offreg, OrKey key, OrDword index,
                                          wchar_t* name, OrDword* nameLength) {
  const err::Win32Error pre = Precheck(offreg.OREnumKey, key);
  return pre != err::kSuccess ? pre
                              : err::Win32Error{offreg.OREnumKey(key, index, name, nameLength,
                                                                 nullptr, nullptr, nullptr)};
}

[[nodiscard]] err::Win32Error CallEnumValue(const COffregWrapper& offreg, OrKey key, OrDword index,
                                            wchar_t* name, OrDword* nameLength, OrDword* type,
                                            std::uint8_t* data, OrDword* dataLength) {
  const err::Win32Error pre = Precheck(offreg.OREnumValue, key);
  return pre != err::kSuccess ? pre
                              : err::Win32Error{offreg.OREnumValue(key, index, name, nameLength,
                                                                   type, data, dataLength)};
}

[[nodiscard]] err::Win32Error CallGetValue(const COffregWrapper& offreg, OrKey key,
                                           const wchar_t* valueName, OrDword* type, void* data,
                                           OrDword* dataLength) {
  const err::Win32Error pre = Precheck(offreg.ORGetValue, key);
  return pre != err::kSuccess
             ? pre
             : err::Win32Error{offreg.ORGetValue(key, nullptr, valueName, type, data, dataLength)};
}

[[nodiscard]] err::Win32Error CallSetValue(const COffregWrapper& offreg, OrKey key,
                                           const wchar_t* valueName, OrDword type,
                                           const std::uint8_t* data, OrDword dataLength) {
  const err::Win32Error pre = Precheck(offreg.ORSetValue, key);
  return pre != err::kSuccess
             ? pre
             : err::Win32Error{offreg.ORSetValue(key, valueName, type, data, dataLength)};
}

[[nodiscard]] err::Win32Error CallGetKeySecurity(const COffregWrapper& offreg, OrKey key,
                                                 OrDword information, void* descriptor,
                                                 OrDword* size) {
  const err::Win32Error pre = Precheck(offreg.ORGetKeySecurity, key);
  return pre != err::kSuccess
             ? pre
             : err::Win32Error{offreg.ORGetKeySecurity(key, information, descriptor, size)};
}

[[nodiscard]] err::Win32Error CallSetKeySecurity(const COffregWrapper& offreg, OrKey key,
                                                 OrDword information, void* descriptor) {
  const err::Win32Error pre = Precheck(offreg.ORSetKeySecurity, key);
  return pre != err::kSuccess
             ? pre
             : err::Win32Error{offreg.ORSetKeySecurity(key, information, descriptor)};
}

[[nodiscard]] err::Win32Error CallQueryHiveRecovery(const COffregWrapper& offreg, OrKey hive,
                                                    OrDword* state) {
  const err::Win32Error pre = Precheck(offreg.TwQueryHiveRecovery, hive);
  return pre != err::kSuccess ? pre : err::Win32Error{offreg.TwQueryHiveRecovery(hive, state)};
}

}  // namespace tw::registry
