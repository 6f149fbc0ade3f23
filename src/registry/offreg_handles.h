// Closers of offline-registry handles: each closes the handle it watches when it goes (at the end
// of its scope, or while an exception passes), unless the handle is -1.
//
// A closer watches a handle variable rather than holding a copy of the handle: the calls that
// hand a handle out (CallOpenHive, CallOpenKey, CallCreateKey, SaveTargetHive's re-open) write
// into that variable, and the closer closes whatever it holds at the end. Where a close must come
// at a given point among other calls (before a file's security is put back, before a log line),
// Close() closes it there: the handle becomes -1 and the closer has nothing left to do.
#pragma once

#include "base/win32_error.h"
#include "registry/offreg_calls.h"
#include "registry/offreg_wrapper.h"

namespace tw::registry {

// Closes `handle` with `close` unless it is -1, and makes it -1. Returns the close's result, or
// success when there was nothing to close.
template <err::Win32Error (*close)(const COffregWrapper&, OrKey)>
[[nodiscard]] err::Win32Error CloseUnlessNone(const COffregWrapper& offreg, OrKey& handle) {
  if (handle == kNoOrKey) return err::kSuccess;
  const err::Win32Error closed = close(offreg, handle);
  handle = kNoOrKey;
  return closed;
}

[[nodiscard]] inline err::Win32Error CloseHive(const COffregWrapper& offreg, OrKey& hive) {
  return CloseUnlessNone<CallCloseHive>(offreg, hive);
}

[[nodiscard]] inline err::Win32Error CloseKey(const COffregWrapper& offreg, OrKey& key) {
  return CloseUnlessNone<CallCloseKey>(offreg, key);
}

template <err::Win32Error (*close)(const COffregWrapper&, OrKey)>
class OffregCloser {
 public:
  OffregCloser(const COffregWrapper& offreg, OrKey& handle) : offreg_(offreg), handle_(handle) {}
  ~OffregCloser() { static_cast<void>(Close()); }
  OffregCloser(const OffregCloser&) = delete;
  OffregCloser& operator=(const OffregCloser&) = delete;

  // Closes the handle now (unless it is -1) and makes it -1; returns the close's result, or
  // success when there was nothing to close.
  [[nodiscard]] err::Win32Error Close() { return CloseUnlessNone<close>(offreg_, handle_); }

 private:
  const COffregWrapper& offreg_;
  OrKey& handle_;
};

// Closes an offline key (ORCloseKey) when it goes.
using KeyCloser = OffregCloser<CallCloseKey>;
// Closes an offline hive (ORCloseHive) when it goes.
using HiveCloser = OffregCloser<CallCloseHive>;

}  // namespace tw::registry
