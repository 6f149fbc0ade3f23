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

// Bytes that are not valid UTF-8 (file names on Linux may hold any bytes) are carried through
// the wide text without loss, as Python's "surrogateescape" does: Utf8ToWide turns each such byte
// b into the lone low surrogate U+DC00 + b (U+DC80..U+DCFF), and WideToUtf8 turns that stand-in
// back into the byte. So every byte string survives Utf8ToWide -> WideToUtf8 exactly, and a name
// read from a folder listing names the same object when it is handed back.

// UTF-8 of text. A lone U+DC80..U+DCFF (not preceded by a high surrogate) is the stand-in of one
// undecodable byte and becomes that byte; any other unpaired surrogate is written as the three
// bytes of its own code point (the generalised UTF-8 of WTF-8), which Utf8ToWide gives back.
std::string WideToUtf8(std::wstring_view text);

// The same, appended to out.
void AppendWideAsUtf8(std::string& out, std::wstring_view text);

// Wide text of UTF-8 bytes. Every byte that is not part of a valid sequence (bad lead byte,
// missing or stray continuation, overlong form, value above U+10FFFF) becomes its stand-in
// U+DC00 + byte, one per byte, never U+FFFD. The three-byte form of a surrogate is accepted and
// gives that surrogate only where WideToUtf8 writes it back the same way: a lone surrogate
// outside U+DC80..U+DCFF that does not pair with what follows; otherwise its bytes are
// undecodable bytes too.
std::wstring Utf8ToWide(std::string_view bytes);

// The byte an undecodable byte's stand-in (U+DC80..U+DCFF) carries, or -1 for any other
// character.
int UndecodableByte(wchar_t c);

// text for people to read (the log): each stand-in of an undecodable byte is shown as "<HH>",
// the byte in two upper-case hexadecimal digits ("caf<E9>.txt"); everything else is unchanged.
// "<" and ">" cannot occur in a Windows file name, so the form stands out in a path.
std::wstring ShowUndecodableBytes(std::wstring_view text);

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
