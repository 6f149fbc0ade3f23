#include "hive/regf_layout.h"

namespace tw::hive::regf {

std::uint32_t BaseBlockChecksum(const std::uint8_t* baseBlock) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < kBaseChecksum; i += 4) sum ^= Get32(baseBlock + i);
  if (sum == 0xFFFFFFFFu) sum = 0xFFFFFFFEu;
  if (sum == 0) sum = 1;
  return sum;
}

std::uint32_t NameHash(std::u16string_view upperUtf16) {
  std::uint32_t hash = 0;
  for (const char16_t c : upperUtf16) hash = hash * 37u + static_cast<std::uint32_t>(c);
  return hash;
}

}  // namespace tw::hive::regf
