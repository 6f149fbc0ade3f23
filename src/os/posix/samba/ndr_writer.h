// A little-endian byte builder with the alignment rules of NDR (the encoding of the file
// server's extended attributes): every field is aligned to its own size, counted from the start
// of the whole buffer, and padding bytes are zero.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace tw::posix::samba {

class NdrWriter {
 public:
  void Align(std::size_t boundary) {
    while (bytes_.size() % boundary != 0) bytes_.push_back(0);
  }
  void U16(std::uint16_t value) { Put(value, 2); }
  void U32(std::uint32_t value) { Put(value, 4); }
  void U64(std::uint64_t value) { Put(value, 8); }
  // An NTTIME: eight bytes aligned to four.
  void Time(std::uint64_t value) {
    Align(4);
    for (int i = 0; i < 8; ++i) bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
  void Bytes(std::span<const std::uint8_t> data) {
    bytes_.insert(bytes_.end(), data.begin(), data.end());
  }
  std::size_t size() const { return bytes_.size(); }
  std::vector<std::uint8_t>& bytes() { return bytes_; }

 private:
  void Put(std::uint64_t value, std::size_t width) {
    Align(width);
    for (std::size_t i = 0; i < width; ++i) {
      bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
  }

  std::vector<std::uint8_t> bytes_;
};

}  // namespace tw::posix::samba
