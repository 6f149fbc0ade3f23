// Conversions between the tool's wide text and the byte encodings it meets at its edges: UTF-16LE
// in hive files and Win32 calls, UTF-8 for POSIX paths and the console, Windows-1252 for the log
// file. wchar_t holds UTF-16 code units on Windows and UTF-32 code points on Linux; every function
// works with both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tw {

// UTF-8 of text. An unpaired surrogate is written as the three bytes of its own code point (the
// generalised UTF-8 of WTF-8), so Utf8ToWide gives it back unchanged.
std::string WideToUtf8(std::wstring_view text);

// The same, appended to out.
void AppendWideAsUtf8(std::string& out, std::wstring_view text);

// Wide text of UTF-8 bytes. Each invalid sequence (bad lead byte, missing or stray continuation,
// overlong form, value above U+10FFFF) becomes one U+FFFD per maximal bad subpart; the three-byte
// form of a surrogate is accepted and gives that surrogate.
std::wstring Utf8ToWide(std::string_view bytes);

// UTF-16LE bytes of text, no byte-order mark and no terminator.
std::vector<std::uint8_t> WideToUtf16Le(std::wstring_view text);

// Wide text of UTF-16LE bytes; an odd trailing byte is ignored. Surrogate pairs are combined on
// Linux; unpaired surrogates are kept as they are, so that any registry name survives
// UTF-16LE -> wide -> UTF-16LE exactly.
std::wstring Utf16LeToWide(std::span<const std::uint8_t> bytes);

// Windows-1252 (the ANSI code page of an English-language Windows) bytes of text. Characters the
// code page lacks become the default character '?', and *usedDefault (when given) tells whether
// that happened.
std::string WideToWindows1252(std::wstring_view text, bool* usedDefault = nullptr);

// Wide text of Windows-1252 bytes.
std::wstring Windows1252ToWide(std::string_view bytes);

// Length of text in UTF-16 code units (what Windows' wcslen gives): a character above U+FFFF
// counts two, every other character one.
std::size_t Utf16Length(std::wstring_view text);

}  // namespace tw
