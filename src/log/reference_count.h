// CReferenceCount: the shared base of the tool's reference-counted objects (CDebugLog,
// COffregWrapper).
#pragma once

#include <atomic>
#include <cstdint>

namespace tw {

// One 32-bit count that starts at 1 when the object is built. The virtual operations are, in
// slot order: the destructor, AddRef, Release.
class CReferenceCount {
 public:
  CReferenceCount() = default;
  CReferenceCount(const CReferenceCount&) = delete;
  CReferenceCount& operator=(const CReferenceCount&) = delete;
  virtual ~CReferenceCount() = default;

  // Atomically increments the count; returns the new value.
  virtual std::int32_t AddRef();

  // Atomically decrements the count; when it drops from 1 to 0 the object deletes itself
  // through its virtual destructor. Returns the new value. Only an object made with new may
  // reach 0.
  virtual std::int32_t Release();

 private:
  std::atomic<std::int32_t> referenceCount_{1};
};

}  // namespace tw
