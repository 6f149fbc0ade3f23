// Names and classes as the hive file stores them: UTF-16LE, or one byte per character (Latin-1)
// when every character fits ("compressed" names).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tw::hive {

// Decodes UTF-16LE bytes (an odd last byte is ignored). Where wchar_t is 32 bits, surrogate
// pairs are combined; a lone surrogate is kept as it is.
std::wstring FromUtf16Le(const std::uint8_t* bytes, std::size_t size);
std::wstring FromLatin1(const std::uint8_t* bytes, std::size_t size);
std::u16string ToUtf16(std::wstring_view text);
// Appends the UTF-16LE form of `text`.
void AppendUtf16Le(std::wstring_view text, std::vector<std::uint8_t>& out);
// True when every character is below 256, so the name can be stored one byte per character.
bool FitsLatin1(std::wstring_view text);
// The length in UTF-16 code units.
std::size_t Utf16Length(std::wstring_view text);

}  // namespace tw::hive
