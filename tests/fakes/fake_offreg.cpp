#include "fakes/fake_offreg.h"

#include <gtest/gtest.h>

#include <string>

#include "base/text_encoding.h"
#include "base/wide_string.h"
#include "base/win32_error.h"
#include "hive/offreg_api.h"
#include "os/posix/paths/native_path.h"

namespace tw::testing {
namespace {

FakeOffreg* g_active = nullptr;

using F = OffregFunction;
using hive::EngineFunctions;

std::wstring Text(const wchar_t* text) { return text == nullptr ? std::wstring() : text; }

// The engine opens files by their Linux names.
bool MapPath(const wchar_t* path, std::wstring& mapped, OrDword& error) {
  std::string native;
  err::Win32Error failure = err::kSuccess;
  if (!posix::ToNativePath(Text(path), native, failure)) {
    error = failure;
    return false;
  }
  mapped = Utf8ToWide(native);
  return true;
}

OrDword TW_OR_CALL OpenHive(const wchar_t* path, OrKey* result) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = Text(path);
  OrDword code = fake.Check(F::kOpenHive, subject);
  if (code == 0) {
    std::wstring mapped;
    if (MapPath(path, mapped, code)) code = EngineFunctions().OROpenHive(mapped.c_str(), result);
  }
  if (code == 0) fake.Remember(*result, L"");
  fake.Record({F::kOpenHive, subject, 0, 0, L"", code});
  return code;
}

OrDword TW_OR_CALL CloseHive(OrKey hive) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = fake.NameOf(hive);
  OrDword code = fake.Check(F::kCloseHive, subject);
  if (code == 0) code = EngineFunctions().ORCloseHive(hive);
  fake.Record({F::kCloseHive, subject, 0, 0, L"", code});
  return code;
}

OrDword TW_OR_CALL SaveHive(OrKey hive, const wchar_t* path, OrDword major, OrDword minor) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = Text(path);
  OrDword code = fake.Check(F::kSaveHive, subject);
  if (code == 0) {
    std::wstring mapped;
    if (MapPath(path, mapped, code)) {
      code = EngineFunctions().ORSaveHive(hive, mapped.c_str(), major, minor);
    }
  }
  fake.Record({F::kSaveHive, subject, major, minor, L"", code});
  return code;
}

OrDword TW_OR_CALL OpenKey(OrKey key, const wchar_t* name, OrKey* result) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = Text(name);
  OrDword code = fake.Check(F::kOpenKey, subject);
  if (code == 0) code = EngineFunctions().OROpenKey(key, name, result);
  if (code == 0) fake.Remember(*result, subject);
  fake.Record({F::kOpenKey, subject, 0, 0, L"", code});
  return code;
}

OrDword TW_OR_CALL CloseKey(OrKey key) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = fake.NameOf(key);
  OrDword code = fake.Check(F::kCloseKey, subject);
  if (code == 0) code = EngineFunctions().ORCloseKey(key);
  fake.Record({F::kCloseKey, subject, 0, 0, L"", code});
  return code;
}

OrDword TW_OR_CALL CreateKey(OrKey key, const wchar_t* name, wchar_t* keyClass, OrDword options,
                             void* security, OrKey* result, OrDword* disposition) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = Text(name);
  OrDword code = fake.Check(F::kCreateKey, subject);
  if (code == 0) {
    code =
        EngineFunctions().ORCreateKey(key, name, keyClass, options, security, result, disposition);
  }
  if (code == 0) fake.Remember(*result, subject);
  fake.Record({F::kCreateKey, subject, keyClass != nullptr ? 1u : 0u, 0, Text(keyClass), code});
  return code;
}

OrDword TW_OR_CALL QueryInfoKey(OrKey key, wchar_t* keyClass, OrDword* classLength,
                                OrDword* subKeys, OrDword* maxSubKey, OrDword* maxClass,
                                OrDword* values, OrDword* maxValueName, OrDword* maxValue,
                                OrDword* security, OrFileTime* lastWrite) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = fake.NameOf(key);
  const OrDword handedIn = keyClass != nullptr && classLength != nullptr ? *classLength : 0;
  OrDword code = fake.Check(F::kQueryInfoKey, subject);
  if (code == 0) {
    code =
        EngineFunctions().ORQueryInfoKey(key, keyClass, classLength, subKeys, maxSubKey, maxClass,
                                         values, maxValueName, maxValue, security, lastWrite);
  }
  fake.Record({F::kQueryInfoKey, subject, handedIn, 0, L"", code});
  return code;
}

OrDword TW_OR_CALL EnumKey(OrKey key, OrDword index, wchar_t* name, OrDword* nameLength,
                           wchar_t* keyClass, OrDword* classLength, OrFileTime* lastWrite) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = fake.NameOf(key);
  OrDword code = fake.Check(F::kEnumKey, subject);
  if (code == 0) {
    code =
        EngineFunctions().OREnumKey(key, index, name, nameLength, keyClass, classLength, lastWrite);
  }
  fake.Record({F::kEnumKey, subject, index, 0, L"", code});
  return code;
}

OrDword TW_OR_CALL GetKeySecurity(OrKey key, OrDword information, void* descriptor, OrDword* size) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = fake.NameOf(key);
  OrDword code = fake.Check(F::kGetKeySecurity, subject);
  if (code == 0) code = EngineFunctions().ORGetKeySecurity(key, information, descriptor, size);
  fake.Record({F::kGetKeySecurity, subject, information, 0, L"", code});
  return code;
}

OrDword TW_OR_CALL SetKeySecurity(OrKey key, OrDword information, void* descriptor) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = fake.NameOf(key);
  OrDword code = fake.Check(F::kSetKeySecurity, subject);
  if (code == 0) code = EngineFunctions().ORSetKeySecurity(key, information, descriptor);
  fake.Record({F::kSetKeySecurity, subject, information, 0, L"", code});
  return code;
}

OrDword TW_OR_CALL GetValue(OrKey key, const wchar_t* subKey, const wchar_t* value, OrDword* type,
                            void* data, OrDword* size) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = Text(value);
  OrDword code = fake.Check(F::kGetValue, subject);
  if (code == 0) code = EngineFunctions().ORGetValue(key, subKey, value, type, data, size);
  fake.Record({F::kGetValue, subject, 0, 0, L"", code});
  return code;
}

OrDword TW_OR_CALL SetValue(OrKey key, const wchar_t* name, OrDword type, const std::uint8_t* data,
                            OrDword size) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = Text(name);
  OrDword code = fake.Check(F::kSetValue, subject);
  if (code == 0) code = EngineFunctions().ORSetValue(key, name, type, data, size);
  fake.Record({F::kSetValue, subject, type, size, L"", code});
  return code;
}

OrDword TW_OR_CALL EnumValue(OrKey key, OrDword index, wchar_t* name, OrDword* nameLength,
                             OrDword* type, std::uint8_t* data, OrDword* size) {
  FakeOffreg& fake = FakeOffreg::Active();
  const std::wstring subject = fake.NameOf(key);
  OrDword code = fake.Check(F::kEnumValue, subject);
  if (code == 0)
    code = EngineFunctions().OREnumValue(key, index, name, nameLength, type, data, size);
  fake.Record({F::kEnumValue, subject, index, 0, L"", code});
  return code;
}

// userenv.dll is bound too, so that the binding logs nothing; the registry never calls these.
HResult TW_OR_CALL CreateProfileStub(const wchar_t*, const wchar_t*, wchar_t*, OrDword) {
  return hr::kNotImpl;
}
std::int32_t TW_OR_CALL DeleteProfileStub(const wchar_t*, const wchar_t*, const wchar_t*) {
  return 0;
}

template <class Function>
ModuleFunction Untyped(Function function) {
  return reinterpret_cast<ModuleFunction>(function);
}

}  // namespace

FakeOffreg::FakeOffreg() {
  if (g_active != nullptr) ADD_FAILURE() << "only one FakeOffreg may be alive at a time";
  g_active = this;
  loader_.AddModule(L"userenv.dll", {{"CreateProfile", Untyped(&CreateProfileStub)},
                                     {"DeleteProfileW", Untyped(&DeleteProfileStub)}});
  loader_.AddModule(L"offreg.dll",
                    {{"OROpenHive", Untyped(&OpenHive)},
                     {"ORCloseHive", Untyped(&CloseHive)},
                     {"ORSaveHive", Untyped(&SaveHive)},
                     {"OROpenKey", Untyped(&OpenKey)},
                     {"ORCloseKey", Untyped(&CloseKey)},
                     {"ORCreateKey", Untyped(&CreateKey)},
                     {"ORQueryInfoKey", Untyped(&QueryInfoKey)},
                     {"OREnumKey", Untyped(&EnumKey)},
                     {"ORGetKeySecurity", Untyped(&GetKeySecurity)},
                     {"ORSetKeySecurity", Untyped(&SetKeySecurity)},
                     {"ORGetValue", Untyped(&GetValue)},
                     {"ORSetValue", Untyped(&SetValue)},
                     {"OREnumValue", Untyped(&EnumValue)},
                     {"TwQueryHiveRecovery", Untyped(EngineFunctions().TwQueryHiveRecovery)}});
  offreg_ = std::make_unique<COffregWrapper>(loader_);
}

FakeOffreg::~FakeOffreg() {
  offreg_.reset();
  g_active = nullptr;
}

FakeOffreg& FakeOffreg::Active() { return *g_active; }

void FakeOffreg::Fail(OffregFunction function, std::uint32_t code, std::wstring subject, int skip,
                      int times) {
  rules_.push_back({function, code, std::move(subject), skip, times});
}

std::uint32_t FakeOffreg::Check(OffregFunction function, const std::wstring& subject) {
  const bool isPath = function == F::kOpenHive || function == F::kSaveHive;
  for (Rule& rule : rules_) {
    if (rule.function != function || rule.times == 0) continue;
    if (!rule.subject.empty()) {
      const bool matches = isPath ? EndsWithNoCase(subject, rule.subject) : subject == rule.subject;
      if (!matches) continue;
    }
    if (rule.skip > 0) {
      --rule.skip;
      continue;
    }
    if (rule.times > 0) --rule.times;
    return rule.code;
  }
  return err::kSuccess;
}

std::vector<FakeOffreg::Call> FakeOffreg::CallsOf(OffregFunction function) const {
  std::vector<Call> found;
  for (const Call& call : calls_) {
    if (call.function == function) found.push_back(call);
  }
  return found;
}

std::wstring FakeOffreg::NameOf(OrKey key) const {
  const auto found = names_.find(key);
  return found == names_.end() ? std::wstring() : found->second;
}

}  // namespace tw::testing
