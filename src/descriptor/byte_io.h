// Little-endian reads and writes on byte buffers, shared by the codec's encoders and parsers.
// Every read is bounds-checked by its caller before it is made; these helpers only assemble bytes.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace tw::security::codec_detail {

// On a little-endian machine (every one we build for) a field is one unaligned load or store;
// the byte-by-byte form stays for any other.
constexpr bool kNativeLittleEndian = std::endian::native == std::endian::little;

inline std::uint16_t ReadLe16(std::span<const std::uint8_t> bytes, std::size_t at) {
  if constexpr (kNativeLittleEndian) {
    std::uint16_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
  } else {
    return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8));
  }
}

inline std::uint32_t ReadLe32(std::span<const std::uint8_t> bytes, std::size_t at) {
  if constexpr (kNativeLittleEndian) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
  } else {
    return static_cast<std::uint32_t>(bytes[at]) |
           (static_cast<std::uint32_t>(bytes[at + 1]) << 8) |
           (static_cast<std::uint32_t>(bytes[at + 2]) << 16) |
           (static_cast<std::uint32_t>(bytes[at + 3]) << 24);
  }
}

inline void StoreLe16(std::span<std::uint8_t> out, std::size_t at, std::uint16_t value) {
  if constexpr (kNativeLittleEndian) {
    std::memcpy(out.data() + at, &value, sizeof value);
  } else {
    out[at] = static_cast<std::uint8_t>(value & 0xFF);
    out[at + 1] = static_cast<std::uint8_t>(value >> 8);
  }
}

inline void StoreLe32(std::span<std::uint8_t> out, std::size_t at, std::uint32_t value) {
  if constexpr (kNativeLittleEndian) {
    std::memcpy(out.data() + at, &value, sizeof value);
  } else {
    for (std::size_t i = 0; i < 4; ++i) {
      out[at + i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
    }
  }
}

}  // namespace tw::security::codec_detail
