#include "registry/offreg_calls.h"

#include "base/win32_error.h"

namespace tw::registry {
namespace {

// The two rules in front of every call: the function must be bound and the handle must not be
// -1. Returns kSuccess when the call may be made.
template <class Function>
OrDword Precheck(Function function, OrKey handle) {
  if (function == nullptr) return err::kInvalidFunction;
  if (handle == kNoOrKey) return err::kInvalidHandle;
  return err::kSuccess;
}

// Leaves kNoOrKey in *out unless the call succeeded.
OrDword HandOut(OrDword result, OrKey* out) {
  if (result != err::kSuccess) *out = kNoOrKey;
  return result;
}

}  // namespace

OrDword CallOpenHive(const COffregWrapper& offreg, const wchar_t* path, OrKey* hive) {
  if (offreg.OROpenHive == nullptr) return HandOut(err::kInvalidFunction, hive);
  return HandOut(offreg.OROpenHive(path, hive), hive);
}

OrDword CallCloseHive(const COffregWrapper& offreg, OrKey hive) {
  const OrDword pre = Precheck(offreg.ORCloseHive, hive);
  return pre != err::kSuccess ? pre : offreg.ORCloseHive(hive);
}

OrDword CallSaveHive(const COffregWrapper& offreg, OrKey hive, const wchar_t* path, OrDword major,
                     OrDword minor) {
  const OrDword pre = Precheck(offreg.ORSaveHive, hive);
  return pre != err::kSuccess ? pre : offreg.ORSaveHive(hive, path, major, minor);
}

OrDword CallOpenKey(const COffregWrapper& offreg, OrKey parent, const wchar_t* name, OrKey* key) {
  const OrDword pre = Precheck(offreg.OROpenKey, parent);
  if (pre != err::kSuccess) return HandOut(pre, key);
  return HandOut(offreg.OROpenKey(parent, name, key), key);
}

OrDword CallCloseKey(const COffregWrapper& offreg, OrKey key) {
  const OrDword pre = Precheck(offreg.ORCloseKey, key);
  return pre != err::kSuccess ? pre : offreg.ORCloseKey(key);
}

OrDword CallCreateKey(const COffregWrapper& offreg, OrKey parent, const wchar_t* name,
                      wchar_t* keyClass, OrKey* key) {
  const OrDword pre = Precheck(offreg.ORCreateKey, parent);
  if (pre != err::kSuccess) return HandOut(pre, key);
  return HandOut(offreg.ORCreateKey(parent, name, keyClass, 0, nullptr, key, nullptr), key);
}

OrDword CallQueryInfoKey(const COffregWrapper& offreg, OrKey key, wchar_t* keyClass,
                         OrDword* classLength, OrDword* maxSubKeyLength,
                         OrDword* maxValueNameLength, OrDword* maxValueLength,
                         OrDword* securityDescriptorSize) {
  const OrDword pre = Precheck(offreg.ORQueryInfoKey, key);
  if (pre != err::kSuccess) return pre;
  return offreg.ORQueryInfoKey(key, keyClass, classLength, nullptr, maxSubKeyLength, nullptr,
                               nullptr, maxValueNameLength, maxValueLength, securityDescriptorSize,
                               nullptr);
}

OrDword CallEnumKey(const COffregWrapper& offreg, OrKey key, OrDword index, wchar_t* name,
                    OrDword* nameLength) {
  const OrDword pre = Precheck(offreg.OREnumKey, key);
  return pre != err::kSuccess
             ? pre
             : offreg.OREnumKey(key, index, name, nameLength, nullptr, nullptr, nullptr);
}

OrDword CallEnumValue(const COffregWrapper& offreg, OrKey key, OrDword index, wchar_t* name,
                      OrDword* nameLength, OrDword* type, std::uint8_t* data, OrDword* dataLength) {
  const OrDword pre = Precheck(offreg.OREnumValue, key);
  return pre != err::kSuccess
             ? pre
             : offreg.OREnumValue(key, index, name, nameLength, type, data, dataLength);
}

OrDword CallGetValue(const COffregWrapper& offreg, OrKey key, const wchar_t* valueName,
                     OrDword* type, void* data, OrDword* dataLength) {
  const OrDword pre = Precheck(offreg.ORGetValue, key);
  return pre != err::kSuccess ? pre
                              : offreg.ORGetValue(key, nullptr, valueName, type, data, dataLength);
}

OrDword CallSetValue(const COffregWrapper& offreg, OrKey key, const wchar_t* valueName,
                     OrDword type, const std::uint8_t* data, OrDword dataLength) {
  const OrDword pre = Precheck(offreg.ORSetValue, key);
  return pre != err::kSuccess ? pre : offreg.ORSetValue(key, valueName, type, data, dataLength);
}

OrDword CallGetKeySecurity(const COffregWrapper& offreg, OrKey key, OrDword information,
                           void* descriptor, OrDword* size) {
  const OrDword pre = Precheck(offreg.ORGetKeySecurity, key);
  return pre != err::kSuccess ? pre : offreg.ORGetKeySecurity(key, information, descriptor, size);
}

OrDword CallSetKeySecurity(const COffregWrapper& offreg, OrKey key, OrDword information,
                           void* descriptor) {
  const OrDword pre = Precheck(offreg.ORSetKeySecurity, key);
  return pre != err::kSuccess ? pre : offreg.ORSetKeySecurity(key, information, descriptor);
}

OrDword CallQueryHiveRecovery(const COffregWrapper& offreg, OrKey hive, OrDword* state) {
  const OrDword pre = Precheck(offreg.TwQueryHiveRecovery, hive);
  return pre != err::kSuccess ? pre : offreg.TwQueryHiveRecovery(hive, state);
}

}  // namespace tw::registry
