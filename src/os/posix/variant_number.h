// The conversion of a string to a 32-bit integer as VariantChangeType(VT_I4) does it for a
// VT_BSTR, for the XML adapter on POSIX (MSXML gives attribute values as strings).
//
// Accepted, as the variant conversion accepts them: white space (as iswspace tells) before and
// after the number, one "+" or "-" sign, decimal digits with an optional "." and fraction, at
// least one digit in all; a fraction is rounded to the nearest integer, a half to the even one
// ("1.5" -> 2, "2.5" -> 2, "-0.5" -> 0), as the variant conversion rounds. Not accepted
// (nullopt): an empty or blank text, anything else around or inside the number ("true", "0x10",
// "1 2", "1e3"), and a value outside -2147483648 ... 2147483647 (the variant conversion's
// overflow). The locale-dependent forms of the variant conversion (thousands separators, currency
// signs, "&H" hexadecimal, exponents) are deliberately not accepted: configuration files hold
// plain numbers, and a value they would make convertible is treated as not numeric.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tw::posix {

std::optional<std::int32_t> VariantTextToInt32(std::wstring_view text);

}  // namespace tw::posix
