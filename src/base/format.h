// The printf-style formatter of the tool, with the Windows wide semantics on every platform:
// "%s" takes a wide string, "%d" "%u" "%x" "%X" "%c" "%p" "%%", flags "-+ #0", width and
// precision, and length letters (h l ll I64 z j t w) that are accepted and ignored, because the
// argument's own type gives its size. A conversion with flags and width but no type letter (as
// at the end of "0x%08" or in "0x%08)") formats its argument as "%X" with those flags; the
// character that ends it stays literal text.
//
// The format of Format() and Log() must be a literal: it is checked against the argument types
// at compile time (a wrong count or a string given to "%d" does not compile). Text that came
// from outside (paths, XML, a finished message) is never used as a format: it is passed as a
// "%s" argument, or written as it stands.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace tw {

namespace format_detail {

enum class ArgKind : std::uint8_t { kInteger, kString, kPointer };

// One argument as the formatter sees it.
struct Arg {
  ArgKind kind = ArgKind::kInteger;
  bool isSigned = false;
  std::uint8_t size = 4;          // bytes of the integer argument
  std::uint64_t bits = 0;         // integer value or pointer, zero- or sign-extended
  const wchar_t* text = nullptr;  // string argument (may be null: printed as "(null)")
  std::size_t length = 0;         // its length in characters
};

template <class T>
constexpr bool kIsWideString = std::is_same_v<T, std::wstring> ||
                               std::is_same_v<T, std::wstring_view> ||
                               std::is_same_v<T, const wchar_t*> || std::is_same_v<T, wchar_t*> ||
                               (std::is_array_v<T> &&
                                std::is_same_v<std::remove_cv_t<std::remove_extent_t<T>>, wchar_t>);

template <class T>
constexpr bool kIsFormatInteger = (std::is_integral_v<T> && !std::is_same_v<T, bool> &&
                                   !std::is_same_v<T, char> && !std::is_same_v<T, char8_t> &&
                                   !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>) ||
                                  std::is_enum_v<T>;

// A value type of the tool that formats as an integer says so with a member FormatValue() that
// returns the integer to print (HResult, Win32Error). Nothing else converts on its own.
template <class T>
concept FormatsAsInteger = std::is_class_v<T> && requires(const T& value) {
  { value.FormatValue() } -> std::integral;
};

template <class T>
consteval ArgKind KindOf() {
  using U = std::remove_cvref_t<T>;
  static_assert(kIsWideString<U> || kIsFormatInteger<U> || FormatsAsInteger<U> ||
                    std::is_pointer_v<U> || std::is_null_pointer_v<U>,
                "format argument must be a wide string, an integer or a pointer");
  if constexpr (kIsWideString<U>) {
    return ArgKind::kString;
  } else if constexpr (kIsFormatInteger<U> || FormatsAsInteger<U>) {
    return ArgKind::kInteger;
  } else {
    return ArgKind::kPointer;
  }
}

// Called only when a format does not fit its arguments; being a non-constexpr function, the
// call makes the compile-time check fail with this name in the message.
void FormatDoesNotMatchArguments();

// Parses the format the way the runtime formatter does and checks each conversion's argument.
template <std::size_t N>
consteval void Check(std::wstring_view format, const std::array<ArgKind, N>& kinds) {
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != L'%') continue;
    ++i;
    if (i < format.size() && format[i] == L'%') continue;
    while (i < format.size() && (format[i] == L'-' || format[i] == L'+' || format[i] == L' ' ||
                                 format[i] == L'#' || format[i] == L'0'))
      ++i;
    while (i < format.size() && format[i] >= L'0' && format[i] <= L'9') ++i;
    if (i < format.size() && format[i] == L'.') {
      ++i;
      while (i < format.size() && format[i] >= L'0' && format[i] <= L'9') ++i;
    }
    while (i < format.size() && (format[i] == L'h' || format[i] == L'l' || format[i] == L'z' ||
                                 format[i] == L'j' || format[i] == L't' || format[i] == L'w'))
      ++i;
    if (i + 2 < format.size() && format[i] == L'I' && format[i + 1] == L'6' &&
        format[i + 2] == L'4')
      i += 3;
    if (i < format.size() && format[i] == L'*') FormatDoesNotMatchArguments();
    if (next >= N) FormatDoesNotMatchArguments();
    const ArgKind kind = kinds[next++];
    const wchar_t type = i < format.size() ? format[i] : L'\0';
    switch (type) {
      case L's':
        if (kind != ArgKind::kString) FormatDoesNotMatchArguments();
        break;
      case L'p':
        if (kind == ArgKind::kString) FormatDoesNotMatchArguments();
        break;
      case L'S':
        FormatDoesNotMatchArguments();  // narrow strings do not exist in the tool
        break;
      default:  // d i u x X o c, or no type letter at all
        if (kind != ArgKind::kInteger) FormatDoesNotMatchArguments();
        if (!(type == L'd' || type == L'i' || type == L'u' || type == L'x' || type == L'X' ||
              type == L'o' || type == L'c'))
          --i;  // no type letter: the character after the width is literal text
        break;
    }
  }
  if (next != N) FormatDoesNotMatchArguments();
}

template <class T>
Arg MakeArg(const T& value) {
  using U = std::remove_cvref_t<T>;
  Arg arg;
  if constexpr (kIsWideString<U>) {
    arg.kind = ArgKind::kString;
    if constexpr (std::is_same_v<U, std::wstring> || std::is_same_v<U, std::wstring_view>) {
      arg.text = value.data();
      arg.length = value.size();
    } else {
      const wchar_t* p = value;
      arg.text = p;
      arg.length = p ? std::wstring_view(p).size() : 0;
    }
  } else if constexpr (std::is_enum_v<U>) {
    return MakeArg(static_cast<std::underlying_type_t<U>>(value));
  } else if constexpr (FormatsAsInteger<U>) {
    return MakeArg(value.FormatValue());
  } else if constexpr (kIsFormatInteger<U>) {
    arg.kind = ArgKind::kInteger;
    arg.isSigned = std::is_signed_v<U>;
    arg.size = static_cast<std::uint8_t>(sizeof(U));
    arg.bits = std::is_signed_v<U> ? static_cast<std::uint64_t>(static_cast<std::int64_t>(value))
                                   : static_cast<std::uint64_t>(value);
  } else {
    arg.kind = ArgKind::kPointer;
    arg.size = static_cast<std::uint8_t>(sizeof(void*));
    arg.bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(value));
  }
  return arg;
}

}  // namespace format_detail

// A format literal checked against the types of its arguments.
template <class... Args>
class BasicFormatString {
 public:
  template <class S>
  requires std::is_convertible_v<const S&, std::wstring_view>
  consteval BasicFormatString(const S& text) : text_(text) {  // NOLINT: implicit on purpose
    format_detail::Check(text_, std::array<format_detail::ArgKind, sizeof...(Args)>{
                                    format_detail::KindOf<Args>()...});
  }
  constexpr std::wstring_view get() const { return text_; }

 private:
  std::wstring_view text_;
};

template <class... Args>
using FormatString = BasicFormatString<std::type_identity_t<Args>...>;

// How the arguments of "%s" and "%c" conversions are put into the text.
enum class ArgumentText : std::uint8_t {
  kAsGiven,
  // Deliberate deviation from the documented output, for safety: a CR inside an argument is
  // written as the four characters "<CR>" and an LF as "<LF>", so that a path, a name or a value
  // that came from outside can never start a line of its own in the log or on the console.
  // Nothing else changes: "\" stays as it is, as every path holds it; "<" and ">" cannot occur
  // in a Windows file name, so only a name on a Linux share or a registry value can look like an
  // escape, and it still cannot start a line. The line breaks of the format itself are kept.
  kLineBreaksEscaped,
};

// The runtime engine behind Format(). A conversion whose argument is missing or of the wrong
// kind throws HResultError(E_INVALIDARG); the checked Format() never lets that happen.
std::wstring FormatWithArgs(std::wstring_view format, std::span<const format_detail::Arg> args,
                            ArgumentText text = ArgumentText::kAsGiven);

// Text for any use: paths, names, values. Arguments go in as they are.
template <class... Args>
std::wstring Format(FormatString<Args...> format, const Args&... args) {
  const std::array<format_detail::Arg, sizeof...(Args)> packed{format_detail::MakeArg(args)...};
  return FormatWithArgs(format.get(), packed);
}

// The text of a message for the log or the console: as Format(), with the CR and LF inside its
// arguments escaped (ArgumentText::kLineBreaksEscaped). Log() and the run flow's reports build
// every message with it.
template <class... Args>
std::wstring FormatMessageText(FormatString<Args...> format, const Args&... args) {
  const std::array<format_detail::Arg, sizeof...(Args)> packed{format_detail::MakeArg(args)...};
  return FormatWithArgs(format.get(), packed, ArgumentText::kLineBreaksEscaped);
}

}  // namespace tw
