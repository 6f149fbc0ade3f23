#include "base/text_encoding.h"

namespace tw {

std::string WideToUtf8(std::wstring_view text) {
  std::string out;
  for (wchar_t c : text) out += static_cast<char>(c < 0x80 ? c : L'?');
  return out;
}

std::wstring Utf8ToWide(std::string_view bytes) {
  std::wstring out;
  for (char c : bytes) out += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return out;
}

std::vector<std::uint8_t> WideToUtf16Le(std::wstring_view text) {
  std::vector<std::uint8_t> out;
  for (wchar_t c : text) {
    out.push_back(static_cast<std::uint8_t>(c & 0xFF));
    out.push_back(static_cast<std::uint8_t>((c >> 8) & 0xFF));
  }
  return out;
}

std::wstring Utf16LeToWide(std::span<const std::uint8_t> bytes) {
  std::wstring out;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    out += static_cast<wchar_t>(bytes[i] | (bytes[i + 1] << 8));
  }
  return out;
}

std::string WideToWindows1252(std::wstring_view text, bool* usedDefault) {
  if (usedDefault != nullptr) *usedDefault = false;
  return WideToUtf8(text);
}

std::wstring Windows1252ToWide(std::string_view bytes) { return Utf8ToWide(bytes); }

}  // namespace tw
