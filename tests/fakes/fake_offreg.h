// An offline-registry function table for tests: a COffregWrapper bound, through a fake module
// loader, over the real hive engine, with switches that make any function fail with a chosen
// Win32 error and a record of the calls made. Paths handed to OROpenHive and ORSaveHive are
// Windows-form ("Z:\tmp\x\ntuser.dat", or UNC through the share map) and are mapped to the Linux
// path before the engine sees them, as the file-system port maps its own.
//
// The bound functions are plain C functions, so they reach the object through one process-wide
// pointer: only one FakeOffreg may be alive at a time. The engine's TwQueryHiveRecovery is bound
// as it is (no failure switch, not recorded); set the pointer to null to leave it unbound.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fakes/fake_module_loader.h"
#include "registry/offreg_wrapper.h"

namespace tw::testing {

enum class OffregFunction {
  kOpenHive,
  kCloseHive,
  kSaveHive,
  kOpenKey,
  kCloseKey,
  kCreateKey,
  kQueryInfoKey,
  kEnumKey,
  kGetKeySecurity,
  kSetKeySecurity,
  kGetValue,
  kSetValue,
  kEnumValue,
};

class FakeOffreg {
 public:
  FakeOffreg();
  ~FakeOffreg();
  FakeOffreg(const FakeOffreg&) = delete;
  FakeOffreg& operator=(const FakeOffreg&) = delete;

  // The bound table. Its pointers may be set to null to leave a function unbound.
  COffregWrapper& offreg() { return *offreg_; }

  // Makes `function` return `code` without calling the engine. `subject` picks the calls: empty
  // for every call; else the sub key name (OROpenKey, ORCreateKey), the value name (ORSetValue,
  // ORGetValue), the end of the path (OROpenHive, ORSaveHive), or, for the functions on an open
  // key, the name that key was opened or created with (the hive root's is ""; a key opened by a
  // path has that path). The first `skip` matching calls go through; then `times` calls fail
  // (-1: all of them).
  void Fail(OffregFunction function, std::uint32_t code, std::wstring subject = L"", int skip = 0,
            int times = -1);
  void ClearFailures() { rules_.clear(); }

  // One call made through the table: its subject as above, and for some functions two numbers:
  // ORSaveHive the OS major and minor version; ORSetValue the type and byte count; ORCreateKey
  // whether a class was given (1) and the class itself in `text`; ORQueryInfoKey the class
  // buffer length handed in (0 without a class buffer); OREnumKey and OREnumValue the index.
  struct Call {
    OffregFunction function;
    std::wstring subject;
    std::uint32_t first = 0;
    std::uint32_t second = 0;
    std::wstring text;
    std::uint32_t result = 0;
  };
  const std::vector<Call>& calls() const { return calls_; }
  std::vector<Call> CallsOf(OffregFunction function) const;
  void ClearCalls() { calls_.clear(); }

  // --- used by the bound functions ---
  static FakeOffreg& Active();
  // The failure code for this call, or 0 to let it through.
  std::uint32_t Check(OffregFunction function, const std::wstring& subject);
  void Record(Call call) { calls_.push_back(std::move(call)); }
  // The name a handle was opened with ("" for unknown handles).
  std::wstring NameOf(OrKey key) const;
  void Remember(OrKey key, std::wstring name) { names_[key] = std::move(name); }

 private:
  struct Rule {
    OffregFunction function;
    std::uint32_t code;
    std::wstring subject;
    int skip;
    int times;
  };
  FakeModuleLoader loader_;
  std::unique_ptr<COffregWrapper> offreg_;
  std::vector<Rule> rules_;
  std::vector<Call> calls_;
  std::map<OrKey, std::wstring> names_;
};

}  // namespace tw::testing
