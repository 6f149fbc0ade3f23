// The Windows case rule of the Basic Multilingual Plane as sorted ranges (see wide_string.h).
#pragma once

#include <cstdint>
#include <span>

namespace tw::case_detail {

// Every stride-th character from first to last maps to itself plus delta.
struct CaseRange {
  std::uint16_t first;
  std::uint16_t last;
  std::uint8_t stride;
  std::int32_t delta;
};

// Sorted by first, not overlapping.
std::span<const CaseRange> UpperCaseRanges();
std::span<const CaseRange> LowerCaseRanges();

}  // namespace tw::case_detail
