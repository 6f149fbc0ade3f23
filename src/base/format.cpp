#include "base/format.h"

#include "base/hresult_error.h"

namespace tw {

namespace format_detail {
void FormatDoesNotMatchArguments() { ThrowHResult(hr::kInvalidArg); }
}  // namespace format_detail

namespace {

using format_detail::Arg;
using format_detail::ArgKind;

struct Conversion {
  bool left = false;
  bool plus = false;
  bool space = false;
  bool alternate = false;
  bool zero = false;
  std::size_t width = 0;
  bool hasPrecision = false;
  std::size_t precision = 0;
  wchar_t type = L'\0';
};

// The integer as the argument's own type holds it, truncated to its size.
std::uint64_t UnsignedValue(const Arg& arg) {
  if (arg.size >= 8) return arg.bits;
  const std::uint64_t mask = (std::uint64_t{1} << (arg.size * 8u)) - 1u;
  return arg.bits & mask;
}

std::int64_t SignedValue(const Arg& arg) {
  const std::uint64_t value = UnsignedValue(arg);
  if (arg.size >= 8) return static_cast<std::int64_t>(value);
  const std::uint64_t signBit = std::uint64_t{1} << (arg.size * 8u - 1u);
  if ((value & signBit) == 0) return static_cast<std::int64_t>(value);
  return static_cast<std::int64_t>(value | ~((signBit << 1u) - 1u));
}

std::wstring Digits(std::uint64_t value, unsigned base, bool upper) {
  const wchar_t* digits = upper ? L"0123456789ABCDEF" : L"0123456789abcdef";
  std::wstring out;
  do {
    out.insert(out.begin(), digits[value % base]);
    value /= base;
  } while (value != 0);
  return out;
}

void Pad(std::wstring& out, std::wstring_view body, const Conversion& conversion) {
  const std::size_t fill = conversion.width > body.size() ? conversion.width - body.size() : 0;
  if (conversion.left) {
    out.append(body);
    out.append(fill, L' ');
  } else {
    out.append(fill, L' ');
    out.append(body);
  }
}

void FormatInteger(std::wstring& out, const Arg& arg, const Conversion& conversion) {
  std::wstring prefix;
  std::wstring digits;
  switch (conversion.type) {
    case L'd':
    case L'i': {
      const std::int64_t value = SignedValue(arg);
      const std::uint64_t magnitude = value < 0
                                          ? std::uint64_t{0} - static_cast<std::uint64_t>(value)
                                          : static_cast<std::uint64_t>(value);
      digits = Digits(magnitude, 10, false);
      if (value < 0) {
        prefix = L"-";
      } else if (conversion.plus) {
        prefix = L"+";
      } else if (conversion.space) {
        prefix = L" ";
      }
      break;
    }
    case L'u':
      digits = Digits(UnsignedValue(arg), 10, false);
      break;
    case L'o':
      digits = Digits(UnsignedValue(arg), 8, false);
      if (conversion.alternate && digits != L"0") prefix = L"0";
      break;
    case L'x':
    case L'p':
      digits = Digits(UnsignedValue(arg), 16, false);
      if (conversion.alternate && UnsignedValue(arg) != 0) prefix = L"0x";
      break;
    default:  // 'X', and a conversion without a type letter
      digits = Digits(UnsignedValue(arg), 16, true);
      if (conversion.alternate && UnsignedValue(arg) != 0) prefix = L"0X";
      break;
  }
  if (conversion.hasPrecision) {
    if (conversion.precision == 0 && UnsignedValue(arg) == 0) digits.clear();
    if (digits.size() < conversion.precision)
      digits.insert(0, conversion.precision - digits.size(), L'0');
  } else if (conversion.zero && !conversion.left) {
    const std::size_t used = prefix.size() + digits.size();
    if (conversion.width > used) digits.insert(0, conversion.width - used, L'0');
  }
  Pad(out, prefix + digits, conversion);
}

// The argument's text with every CR written as "<CR>" and every LF as "<LF>".
std::wstring EscapeLineBreaks(std::wstring_view text) {
  std::wstring escaped;
  escaped.reserve(text.size());
  for (const wchar_t c : text) {
    if (c == L'\r') {
      escaped.append(L"<CR>");
    } else if (c == L'\n') {
      escaped.append(L"<LF>");
    } else {
      escaped.push_back(c);
    }
  }
  return escaped;
}

bool HoldsLineBreak(std::wstring_view text) {
  return text.find_first_of(L"\r\n") != std::wstring_view::npos;
}

// The precision counts the characters as they are written, escapes included.
void FormatText(std::wstring& out, const Arg& arg, const Conversion& conversion,
                ArgumentText mode) {
  std::wstring_view text = arg.text ? std::wstring_view(arg.text, arg.length) : L"(null)";
  std::wstring escaped;
  if (mode == ArgumentText::kLineBreaksEscaped && HoldsLineBreak(text)) {
    escaped = EscapeLineBreaks(text);
    text = escaped;
  }
  if (conversion.hasPrecision && text.size() > conversion.precision)
    text = text.substr(0, conversion.precision);
  Pad(out, text, conversion);
}

void FormatPointer(std::wstring& out, const Arg& arg, const Conversion& conversion) {
  // Windows prints a pointer as upper-case hex digits, as wide as a pointer.
  std::wstring digits = Digits(UnsignedValue(arg), 16, true);
  const std::size_t wide = static_cast<std::size_t>(arg.size) * 2u;
  if (digits.size() < wide) digits.insert(0, wide - digits.size(), L'0');
  Pad(out, digits, conversion);
}

bool IsIntegerType(wchar_t c) {
  return c == L'd' || c == L'i' || c == L'u' || c == L'x' || c == L'X' || c == L'o' || c == L'c';
}

// The character at `i`, or NUL past the end of the format.
wchar_t CharAt(std::wstring_view format, std::size_t i) {
  return i < format.size() ? format[i] : L'\0';
}

// Reads the flags, width, precision and size prefixes of the conversion whose first character
// (after its '%') is at `i`; `i` is left on the character that ends them: the type letter.
Conversion ParseConversion(std::wstring_view format, std::size_t& i) {
  const auto at = [&](std::size_t k) { return CharAt(format, k); };
  Conversion conversion;
  for (;; ++i) {
    const wchar_t c = at(i);
    if (c == L'-') {
      conversion.left = true;
    } else if (c == L'+') {
      conversion.plus = true;
    } else if (c == L' ') {
      conversion.space = true;
    } else if (c == L'#') {
      conversion.alternate = true;
    } else if (c == L'0') {
      conversion.zero = true;
    } else {
      break;
    }
  }
  while (at(i) >= L'0' && at(i) <= L'9')
    conversion.width = conversion.width * 10 + (at(i++) - L'0');
  if (at(i) == L'.') {
    ++i;
    conversion.hasPrecision = true;
    while (at(i) >= L'0' && at(i) <= L'9')
      conversion.precision = conversion.precision * 10 + (at(i++) - L'0');
  }
  while (at(i) == L'h' || at(i) == L'l' || at(i) == L'z' || at(i) == L'j' || at(i) == L't' ||
         at(i) == L'w')
    ++i;
  if (at(i) == L'I' && at(i + 1) == L'6' && at(i + 2) == L'4') i += 3;
  return conversion;
}

// Formats `arg` by `conversion`, whose type letter is set. Returns false when that letter is no
// conversion at all: the argument is then formatted as "%X" would, and the character is literal
// text that the caller still has to copy.
bool FormatArgument(std::wstring& out, const Arg& arg, Conversion& conversion, ArgumentText mode) {
  if (conversion.type == L's') {
    if (arg.kind != ArgKind::kString) ThrowHResult(hr::kInvalidArg);
    FormatText(out, arg, conversion, mode);
    return true;
  }
  if (conversion.type == L'p') {
    if (arg.kind == ArgKind::kString) ThrowHResult(hr::kInvalidArg);
    FormatPointer(out, arg, conversion);
    return true;
  }
  if (arg.kind != ArgKind::kInteger) ThrowHResult(hr::kInvalidArg);
  if (conversion.type == L'c') {
    const std::wstring character(1, static_cast<wchar_t>(UnsignedValue(arg)));
    Pad(out, mode == ArgumentText::kLineBreaksEscaped ? EscapeLineBreaks(character) : character,
        conversion);
    return true;
  }
  const bool typed = IsIntegerType(conversion.type);
  if (!typed) conversion.type = L'\0';  // no type letter: formatted as "%X" would be
  FormatInteger(out, arg, conversion);
  return typed;
}

}  // namespace

std::wstring FormatWithArgs(std::wstring_view format, std::span<const Arg> args,
                            ArgumentText mode) {
  std::wstring out;
  out.reserve(format.size() + 16 * args.size());
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != L'%') {
      out.push_back(format[i]);
      continue;
    }
    ++i;
    if (CharAt(format, i) == L'%') {
      out.push_back(L'%');
      continue;
    }
    Conversion conversion = ParseConversion(format, i);
    if (next >= args.size() || CharAt(format, i) == L'*' || CharAt(format, i) == L'S') {
      ThrowHResult(hr::kInvalidArg);
    }
    const Arg& arg = args[next++];
    conversion.type = CharAt(format, i);
    // A conversion without a type letter ends before the character that ended it, which is then
    // literal text.
    if (!FormatArgument(out, arg, conversion, mode)) --i;
  }
  if (next != args.size()) ThrowHResult(hr::kInvalidArg);
  return out;
}

}  // namespace tw
