#include "log/reference_count.h"

namespace tw {

std::int32_t CReferenceCount::AddRef() {
  return referenceCount_.fetch_add(1, std::memory_order_relaxed) + 1;
}

std::int32_t CReferenceCount::Release() {
  const std::int32_t count = referenceCount_.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (count == 0) delete this;
  return count;
}

}  // namespace tw
