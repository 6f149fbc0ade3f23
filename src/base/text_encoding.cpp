#include "base/text_encoding.h"

#include <array>
#include <type_traits>

// Decisions where Windows leaves a choice:
// - Bytes that are not valid UTF-8 are carried as stand-ins U+DC80..U+DCFF (see the header), so
//   a Linux file name of any bytes comes back byte for byte; U+FFFD is never made up.
// - Other unpaired surrogates survive every conversion: UTF-16LE keeps them as they are, and
//   UTF-8 writes them as the three-byte form of their code point (as WTF-8 does) and reads that
//   form back wherever that gives the same bytes again. A high surrogate followed by a low one is
//   one character everywhere: on Linux the wide text always holds the combined code point.
// - A Linux wide character above U+10FFFF cannot be written in UTF-8 or UTF-16 and becomes
//   U+FFFD there (and '?' in Windows-1252).
// - Windows-1252: the five bytes the code page leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D)
//   map to U+0081, U+008D, U+008F, U+0090, U+009D and back, as Windows converts them. No
//   best-fit mapping is applied: every other character outside the code page (U+0080, U+0100,
//   a surrogate pair, ...) becomes one '?'.

namespace tw {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kStandInBase = 0xDC00;  // stand-in of an undecodable byte b: U+DC00 + b
constexpr char32_t kMaxCodePoint = 0x10FFFF;
constexpr bool kWideIsUtf16 = sizeof(wchar_t) == 2;

bool IsHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }
bool IsStandIn(char32_t c) { return c >= kStandInBase + 0x80 && c <= kStandInBase + 0xFF; }
char32_t Unit(wchar_t c) {
  return static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(c));
}
char32_t Combine(char32_t high, char32_t low) {
  return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

// Walks wide text as code points: a surrogate pair (UTF-16 wchar_t, or two separate Linux
// characters) gives one, an unpaired surrogate gives itself.
template <class Visit>
void ForEachCodePoint(std::wstring_view text, Visit visit) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = Unit(text[i]);
    if (IsHighSurrogate(c) && i + 1 < text.size()) {
      const char32_t next = Unit(text[i + 1]);
      if (IsLowSurrogate(next)) {
        c = Combine(c, next);
        ++i;
      }
    }
    visit(c);
  }
}

// Appends one code point (or an unpaired surrogate) to wide text.
void AppendCodePoint(std::wstring& out, char32_t c) {
  if constexpr (kWideIsUtf16) {
    if (c >= 0x10000) {
      c -= 0x10000;
      out += static_cast<wchar_t>(0xD800 + (c >> 10));
      out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
      return;
    }
  } else {
    // A low surrogate right after a high one completes the pair.
    if (IsLowSurrogate(c) && !out.empty() && IsHighSurrogate(static_cast<char32_t>(out.back()))) {
      out.back() = static_cast<wchar_t>(Combine(static_cast<char32_t>(out.back()), c));
      return;
    }
  }
  out += static_cast<wchar_t>(c);
}

void AppendUtf8(std::string& out, char32_t c) {
  if (c > kMaxCodePoint) c = kReplacement;
  if (IsStandIn(c)) {  // an unpaired stand-in: the undecodable byte it carries
    out += static_cast<char>(c - kStandInBase);
    return;
  }
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void AppendUtf16Unit(std::vector<std::uint8_t>& out, char32_t unit) {
  out.push_back(static_cast<std::uint8_t>(unit & 0xFF));
  out.push_back(static_cast<std::uint8_t>((unit >> 8) & 0xFF));
}

// Windows-1252 bytes 0x80-0x9F.
constexpr std::array<char16_t, 32> kHighControls = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80-87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88-8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90-97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98-9F
};

}  // namespace

void AppendWideAsUtf8(std::string& out, std::wstring_view text) {
  // Paths and names are ASCII almost always: copied byte for byte in one pass, which is undone
  // for the rare text that is not.
  const std::size_t start = out.size();
  out.resize(start + text.size());
  char* bytes = out.data() + start;
  std::uint32_t seen = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<std::uint32_t>(text[i]);
    seen |= c;
    bytes[i] = static_cast<char>(c);
  }
  if (seen < 0x80) return;
  out.resize(start);
  ForEachCodePoint(text, [&out](char32_t c) { AppendUtf8(out, c); });
}

std::string WideToUtf8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  AppendWideAsUtf8(out, text);
  return out;
}

namespace {

// Appends a low surrogate (a stand-in, or a lone low surrogate read in its three-byte form).
// Surrogates the decoder accepted as high ones just before it would pair with it and so would
// not be written back as the same bytes: those become the stand-ins of their three bytes first.
void AppendLowUnit(std::wstring& out, char32_t low) {
  std::size_t highs = 0;
  while (highs < out.size() && IsHighSurrogate(Unit(out[out.size() - 1 - highs]))) ++highs;
  if (highs > 0) {
    const std::wstring taken = out.substr(out.size() - highs);
    out.resize(out.size() - highs);
    for (const wchar_t high : taken) {
      const char32_t unit = Unit(high);
      out += static_cast<wchar_t>(kStandInBase + 0xED);
      out += static_cast<wchar_t>(kStandInBase + (0x80 | ((unit >> 6) & 0x3F)));
      out += static_cast<wchar_t>(kStandInBase + (0x80 | (unit & 0x3F)));
    }
  }
  out += static_cast<wchar_t>(low);
}

void AppendStandIns(std::wstring& out, std::string_view bytes) {
  for (const char byte : bytes) {
    AppendLowUnit(out, kStandInBase + static_cast<std::uint8_t>(byte));
  }
}

}  // namespace

std::wstring Utf8ToWide(std::string_view bytes) {
  std::wstring out;
  out.reserve(bytes.size());
  std::size_t i = 0;
  const auto byteAt = [&bytes](std::size_t index) {
    return static_cast<std::uint8_t>(bytes[index]);
  };
  while (i < bytes.size()) {
    const std::uint8_t lead = byteAt(i);
    if (lead < 0x80) {
      out += static_cast<wchar_t>(lead);
      ++i;
      continue;
    }
    // Sequence length and the allowed range of the second byte (which excludes overlong forms
    // and values above U+10FFFF; surrogates are allowed here and judged below).
    std::size_t length = 0;
    std::uint8_t low = 0x80;
    std::uint8_t high = 0xBF;
    char32_t value = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
      value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      value = lead & 0x0F;
      if (lead == 0xE0) low = 0xA0;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      value = lead & 0x07;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    } else {
      AppendStandIns(out, bytes.substr(i, 1));
      ++i;
      continue;
    }
    std::size_t used = 1;
    while (used < length && i + used < bytes.size()) {
      const std::uint8_t next = byteAt(i + used);
      const std::uint8_t min = used == 1 ? low : 0x80;
      const std::uint8_t max = used == 1 ? high : 0xBF;
      if (next < min || next > max) break;
      value = (value << 6) | (next & 0x3F);
      ++used;
    }
    const std::string_view sequence = bytes.substr(i, used);
    i += used;
    // A sequence cut short: its bytes (a lead and continuation bytes, none of which can start a
    // sequence) are undecodable each.
    if (used != length || IsStandIn(value)) {
      AppendStandIns(out, sequence);
    } else if (IsLowSurrogate(value)) {
      AppendLowUnit(out, value);
    } else {
      AppendCodePoint(out, value);  // a high surrogate stays lone unless a low one follows
    }
  }
  return out;
}

int UndecodableByte(wchar_t c) {
  const char32_t unit = Unit(c);
  return IsStandIn(unit) ? static_cast<int>(unit - kStandInBase) : -1;
}

std::wstring ShowUndecodableBytes(std::wstring_view text) {
  std::wstring shown;
  bool any = false;
  for (std::size_t i = 0; i < text.size() && !any; ++i) any = UndecodableByte(text[i]) >= 0;
  if (!any) return std::wstring(text);
  constexpr wchar_t kHex[] = L"0123456789ABCDEF";
  shown.reserve(text.size() + 8);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int byte = UndecodableByte(text[i]);
    // A low surrogate right after a high one is half of a pair, not a stand-in.
    if (byte < 0 || (i > 0 && IsHighSurrogate(Unit(text[i - 1])))) {
      shown += text[i];
      continue;
    }
    shown += L'<';
    shown += kHex[byte >> 4];
    shown += kHex[byte & 0xF];
    shown += L'>';
  }
  return shown;
}

std::vector<std::uint8_t> WideToUtf16Le(std::wstring_view text) {
  std::vector<std::uint8_t> out;
  out.reserve(text.size() * 2);
  ForEachCodePoint(text, [&out](char32_t c) {
    if (c > kMaxCodePoint) c = kReplacement;
    if (c >= 0x10000) {
      c -= 0x10000;
      AppendUtf16Unit(out, 0xD800 + (c >> 10));
      AppendUtf16Unit(out, 0xDC00 + (c & 0x3FF));
    } else {
      AppendUtf16Unit(out, c);
    }
  });
  return out;
}

std::wstring Utf16LeToWide(std::span<const std::uint8_t> bytes) {
  std::wstring out;
  out.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    AppendCodePoint(out, static_cast<char32_t>(bytes[i] | (bytes[i + 1] << 8)));
  }
  return out;
}

std::string WideToWindows1252(std::wstring_view text, bool* usedDefault) {
  std::string out;
  out.reserve(text.size());
  bool defaulted = false;
  ForEachCodePoint(text, [&out, &defaulted](char32_t c) {
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) {
      out += static_cast<char>(c);
      return;
    }
    for (std::size_t index = 0; index < kHighControls.size(); ++index) {
      if (kHighControls[index] == c) {
        out += static_cast<char>(0x80 + index);
        return;
      }
    }
    out += '?';
    defaulted = true;
  });
  if (usedDefault != nullptr) *usedDefault = defaulted;
  return out;
}

std::wstring Windows1252ToWide(std::string_view bytes) {
  std::wstring out;
  out.reserve(bytes.size());
  for (const char byte : bytes) {
    const auto value = static_cast<std::uint8_t>(byte);
    if (value >= 0x80 && value <= 0x9F) {
      out += static_cast<wchar_t>(kHighControls[value - 0x80]);
    } else {
      out += static_cast<wchar_t>(value);
    }
  }
  return out;
}

std::size_t Utf16Length(std::wstring_view text) {
  std::size_t length = 0;
  ForEachCodePoint(
      text, [&length](char32_t c) { length += (c >= 0x10000 && c <= kMaxCodePoint) ? 2 : 1; });
  return length;
}

}  // namespace tw
