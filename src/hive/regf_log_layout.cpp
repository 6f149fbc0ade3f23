#include "hive/regf_log_layout.h"

#include "hive/regf_layout.h"

namespace tw::hive::regf {

namespace {

constexpr std::uint32_t RotateLeft(std::uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

void Mix(std::uint32_t& a, std::uint32_t& b) {
  b ^= a;
  a = RotateLeft(a, 20);
  a += b;
  b = RotateLeft(b, 9);
  b ^= a;
  a = RotateLeft(a, 27);
  a += b;
  b = RotateLeft(b, 19);
}

}  // namespace

std::uint64_t Marvin32(std::span<const std::uint8_t> data, std::uint64_t seed) {
  auto lo = static_cast<std::uint32_t>(seed);
  auto hi = static_cast<std::uint32_t>(seed >> 32);
  std::size_t at = 0;
  for (; data.size() - at >= 4; at += 4) {
    lo += Get32(data.data() + at);
    Mix(lo, hi);
  }
  std::uint32_t last = 0x80;
  for (std::size_t i = data.size(); i > at; --i) last = (last << 8) | data[i - 1];
  lo += last;
  Mix(lo, hi);
  Mix(lo, hi);
  return (static_cast<std::uint64_t>(hi) << 32) | lo;
}

}  // namespace tw::hive::regf
