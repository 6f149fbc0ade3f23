#include "hive/regf_text.h"

namespace tw::hive {

namespace {

constexpr bool kWideIs32 = sizeof(wchar_t) == 4;

// Calls `unit` with each UTF-16 code unit of `text`.
template <class Unit>
void ForEachUtf16Unit(std::wstring_view text, Unit unit) {
  for (const wchar_t ch : text) {
    const auto c = static_cast<std::uint32_t>(ch);
    if (kWideIs32 && c >= 0x10000u && c <= 0x10FFFFu) {
      unit(static_cast<char16_t>(0xD800u + ((c - 0x10000u) >> 10)));
      unit(static_cast<char16_t>(0xDC00u + ((c - 0x10000u) & 0x3FFu)));
    } else {
      unit(static_cast<char16_t>(c));
    }
  }
}

}  // namespace

std::wstring FromUtf16Le(const std::uint8_t* bytes, std::size_t size) {
  std::wstring out;
  const std::size_t units = size / 2;
  out.reserve(units);
  for (std::size_t i = 0; i < units; ++i) {
    std::uint32_t c = static_cast<std::uint32_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    if (kWideIs32 && c >= 0xD800 && c <= 0xDBFF && i + 1 < units) {
      const std::uint32_t low =
          static_cast<std::uint32_t>(bytes[2 * i + 2] | (bytes[2 * i + 3] << 8));
      if (low >= 0xDC00 && low <= 0xDFFF) {
        c = 0x10000u + ((c - 0xD800u) << 10) + (low - 0xDC00u);
        ++i;
      }
    }
    out.push_back(static_cast<wchar_t>(c));
  }
  return out;
}

std::wstring FromLatin1(const std::uint8_t* bytes, std::size_t size) {
  return std::wstring(bytes, bytes + size);  // each byte widened, without clearing first
}

std::u16string ToUtf16(std::wstring_view text) {
  std::u16string out;
  out.reserve(text.size());
  ForEachUtf16Unit(text, [&out](char16_t c) { out.push_back(c); });
  return out;
}

void AppendUtf16Le(std::wstring_view text, std::vector<std::uint8_t>& out) {
  ForEachUtf16Unit(text, [&out](char16_t c) {
    out.push_back(static_cast<std::uint8_t>(c));
    out.push_back(static_cast<std::uint8_t>(c >> 8));
  });
}

bool FitsLatin1(std::wstring_view text) {
  for (const wchar_t c : text) {
    if (static_cast<std::uint32_t>(c) > 0xFF) return false;
  }
  return true;
}

std::size_t Utf16Length(std::wstring_view text) {
  if (!kWideIs32) return text.size();
  std::size_t n = 0;
  for (const wchar_t c : text) {
    const auto code = static_cast<std::uint32_t>(c);
    n += (code >> 16) != 0 ? 2 : 1;
  }
  return n;
}

}  // namespace tw::hive
