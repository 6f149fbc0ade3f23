#include "os/posix/variant_number.h"

namespace tw::posix {

namespace {

bool IsSpace(wchar_t c) { return c == L' ' || (c >= L'\t' && c <= L'\r'); }
bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

}  // namespace

std::optional<std::int32_t> VariantTextToInt32(std::wstring_view text) {
  std::size_t i = 0;
  const std::size_t n = text.size();
  while (i < n && IsSpace(text[i])) ++i;

  bool negative = false;
  if (i < n && (text[i] == L'+' || text[i] == L'-')) {
    negative = text[i] == L'-';
    ++i;
  }

  // Integer part, saturated well above the 32-bit range so that overflow stays detectable.
  constexpr std::uint64_t kSaturated = 0x100000000ull;
  std::uint64_t magnitude = 0;
  bool anyDigit = false;
  while (i < n && IsDigit(text[i])) {
    magnitude = magnitude * 10 + static_cast<std::uint64_t>(text[i] - L'0');
    if (magnitude > kSaturated) magnitude = kSaturated;
    anyDigit = true;
    ++i;
  }

  // Fraction: only its first digit and whether anything non-zero follows matter for rounding.
  int firstFraction = 0;
  bool restNonZero = false;
  if (i < n && text[i] == L'.') {
    ++i;
    bool first = true;
    while (i < n && IsDigit(text[i])) {
      const int digit = text[i] - L'0';
      if (first) {
        firstFraction = digit;
        first = false;
      } else if (digit != 0) {
        restNonZero = true;
      }
      anyDigit = true;
      ++i;
    }
  }

  while (i < n && IsSpace(text[i])) ++i;
  if (!anyDigit || i != n) return std::nullopt;

  const bool roundUp = firstFraction > 5 || (firstFraction == 5 && restNonZero) ||
                       (firstFraction == 5 && !restNonZero && (magnitude & 1u) != 0);
  if (roundUp && magnitude < kSaturated) ++magnitude;

  if (negative) {
    if (magnitude > 0x80000000ull) return std::nullopt;
    return static_cast<std::int32_t>(-static_cast<std::int64_t>(magnitude));
  }
  if (magnitude > 0x7FFFFFFFull) return std::nullopt;
  return static_cast<std::int32_t>(magnitude);
}

}  // namespace tw::posix
