// Little-endian reads and writes on byte buffers, shared by the codec's encoders and parsers.
// Every read is bounds-checked by its caller before it is made; these helpers only assemble bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tw::security::codec_detail {

inline std::uint16_t ReadLe16(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8));
}

inline std::uint32_t ReadLe32(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) | (static_cast<std::uint32_t>(bytes[at + 1]) << 8) |
         (static_cast<std::uint32_t>(bytes[at + 2]) << 16) |
         (static_cast<std::uint32_t>(bytes[at + 3]) << 24);
}

inline void StoreLe16(std::span<std::uint8_t> out, std::size_t at, std::uint16_t value) {
  out[at] = static_cast<std::uint8_t>(value & 0xFF);
  out[at + 1] = static_cast<std::uint8_t>(value >> 8);
}

inline void StoreLe32(std::span<std::uint8_t> out, std::size_t at, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) {
    out[at + i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
  }
}

}  // namespace tw::security::codec_detail
