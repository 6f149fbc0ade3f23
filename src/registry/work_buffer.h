// WorkBuffer: a zero-filled block of bytes for the registry walks, standing for a block of the
// process heap taken with HEAP_ZERO_MEMORY. Allocation does not throw: Allocate and Grow report
// a refusal, so that a walk can log it where it must. The block is freed when the object goes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/hresult.h"

namespace tw::registry {

// What a refused allocation is reported as: the HRESULT of ERROR_NOT_ENOUGH_MEMORY (8), the
// error the heap leaves when it cannot satisfy a request.
[[nodiscard]] HResult HeapFailureResult();

class WorkBuffer {
 public:
  WorkBuffer() = default;
  ~WorkBuffer();
  WorkBuffer(const WorkBuffer&) = delete;
  WorkBuffer& operator=(const WorkBuffer&) = delete;

  // Replaces the block with a new one of `bytes` zero bytes (at least one byte is taken, as the
  // heap hands out a valid block for a request of 0). False, with no block, when refused.
  bool Allocate(std::size_t bytes);
  // Makes the block `bytes` long, keeping its content and zero-filling what is added. False,
  // with the block unchanged, when refused.
  bool Grow(std::size_t bytes);
  // Allocate, or throw HResultError(E_OUTOFMEMORY) when refused: for buffers whose failure the
  // walks do not report themselves.
  void AllocateOrThrow(std::size_t bytes);

  void Free();

  std::uint8_t* bytes() { return data_; }
  wchar_t* chars() { return reinterpret_cast<wchar_t*>(data_); }
  std::size_t size() const { return size_; }

 private:
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace tw::registry
