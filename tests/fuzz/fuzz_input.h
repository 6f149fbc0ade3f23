// The inputs of the hive fuzz target: a hive file alone, or a hive with its transaction logs in
// this container (all numbers little-endian):
//   bytes 0-3    "TWHL"
//   bytes 4-15   three 32-bit lengths: the hive, its .LOG1, its .LOG2 (0xFFFFFFFF: no such file)
//   then the hive, the .LOG1 and the .LOG2, back to back.
// Any input that does not begin with the signature is a hive alone. A length that runs past the
// input is cut to what is left, so that every mutation still gives three parts.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <span>

namespace tw::fuzz {

constexpr std::uint8_t kContainerSignature[4] = {'T', 'W', 'H', 'L'};
constexpr std::size_t kContainerHeaderSize = 16;
constexpr std::uint32_t kNoFile = 0xFFFFFFFF;

struct HiveWithLogs {
  std::span<const std::uint8_t> hive;
  std::optional<std::span<const std::uint8_t>> logs[2];  // .LOG1, .LOG2
};

inline HiveWithLogs SplitInput(std::span<const std::uint8_t> input) {
  HiveWithLogs out;
  if (input.size() < kContainerHeaderSize ||
      !std::equal(std::begin(kContainerSignature), std::end(kContainerSignature), input.begin())) {
    out.hive = input;
    return out;
  }
  const auto length = [&input](std::size_t at) {
    return static_cast<std::uint32_t>(input[at]) | static_cast<std::uint32_t>(input[at + 1]) << 8 |
           static_cast<std::uint32_t>(input[at + 2]) << 16 |
           static_cast<std::uint32_t>(input[at + 3]) << 24;
  };
  std::span<const std::uint8_t> rest = input.subspan(kContainerHeaderSize);
  const auto take = [&rest](std::uint32_t wanted) {
    const std::size_t n = std::min<std::size_t>(wanted, rest.size());
    const std::span<const std::uint8_t> part = rest.first(n);
    rest = rest.subspan(n);
    return part;
  };
  const std::uint32_t hiveLength = length(4);
  out.hive = take(hiveLength == kNoFile ? 0 : hiveLength);
  for (int i = 0; i < 2; ++i) {
    const std::uint32_t logLength = length(8 + 4 * static_cast<std::size_t>(i));
    if (logLength != kNoFile) out.logs[i] = take(logLength);
  }
  return out;
}

}  // namespace tw::fuzz
