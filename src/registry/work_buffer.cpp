#include "registry/work_buffer.h"

#include <cstdlib>
#include <cstring>

#include "base/hresult_error.h"
#include "base/win32_error.h"

namespace tw::registry {

[[nodiscard]] HResult HeapFailureResult() { return HResultFromWin32(err::kNotEnoughMemory); }

WorkBuffer::~WorkBuffer() { Free(); }

bool WorkBuffer::Allocate(std::size_t bytes) {
  Free();
  const std::size_t taken = bytes == 0 ? 1 : bytes;
  void* block = std::calloc(taken, 1);
  if (block == nullptr) return false;
  data_ = static_cast<std::uint8_t*>(block);
  size_ = bytes;
  return true;
}

bool WorkBuffer::Grow(std::size_t bytes) {
  if (bytes <= size_) return true;
  void* block = std::realloc(data_, bytes);
  if (block == nullptr) return false;
  data_ = static_cast<std::uint8_t*>(block);
  std::memset(data_ + size_, 0, bytes - size_);
  size_ = bytes;
  return true;
}

void WorkBuffer::AllocateOrThrow(std::size_t bytes) {
  if (!Allocate(bytes)) ThrowHResult(hr::kOutOfMemory);
}

void WorkBuffer::Free() {
  std::free(data_);
  data_ = nullptr;
  size_ = 0;
}

}  // namespace tw::registry
