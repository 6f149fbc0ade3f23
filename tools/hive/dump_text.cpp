#include "dump_text.h"

#include <span>
#include <utility>

#include "base/format.h"
#include "descriptor/security_descriptor.h"
#include "hive/regf_text.h"
#include "sddl_text.h"

namespace tw::hive_tool {

namespace {

constexpr std::uint32_t kRegSz = 1;
constexpr std::uint32_t kRegExpandSz = 2;
constexpr std::uint32_t kRegDword = 4;
constexpr std::uint32_t kRegDwordBigEndian = 5;
constexpr std::uint32_t kRegLink = 6;
constexpr std::uint32_t kRegMultiSz = 7;
constexpr std::uint32_t kRegQword = 11;

std::wstring HexData(const std::vector<std::uint8_t>& data) {
  static constexpr wchar_t kDigits[] = L"0123456789abcdef";
  std::wstring out = L"hex:";
  out.reserve(4 + 2 * data.size());
  for (const std::uint8_t b : data) {
    out += kDigits[b >> 4];
    out += kDigits[b & 15];
  }
  return out;
}

// The UTF-16 units of `data` decoded, or false when its length is odd.
bool Utf16Units(const std::vector<std::uint8_t>& data, std::wstring* text) {
  if (data.size() % 2 != 0) return false;
  *text = hive::FromUtf16Le(data.data(), data.size());
  return true;
}

void DumpKey(const hive::Key& key, const std::wstring& path,
             const std::function<void(const std::wstring&)>& line) {
  line(L"key " + QuotedText(path));
  line(L"  class " + QuotedText(key.className));
  line(L"  time " + FileTimeText(key.lastWriteTime));
  security::SecurityDescriptor sd;
  const bool readable =
      key.security && security::ParseSelfRelative(*key.security, &sd) == err::kSuccess;
  if (!key.security) {
    line(L"  owner -");
    line(L"  group -");
    line(L"  dacl -");
  } else if (!readable) {
    line(L"  security unreadable");
  } else {
    line(L"  owner " + (sd.owner ? sd.owner->ToString() : std::wstring(L"-")));
    line(L"  group " + (sd.group ? sd.group->ToString() : std::wstring(L"-")));
    line(L"  dacl " + DaclText(sd));
  }
  for (const hive::Value& value : key.values) {
    line(L"  value " + QuotedText(value.name) + L" " + TypeText(value.type) + L" " +
         DataText(value.type, value.data));
  }
}

}  // namespace

std::wstring QuotedText(std::wstring_view text) {
  std::wstring out = L"\"";
  for (const wchar_t c : text) {
    const auto code = static_cast<std::uint32_t>(c);
    if (c == L'\\' || c == L'"') {
      out += L'\\';
      out += c;
    } else if (code < 0x20 || code == 0x7F) {
      out += Format(L"\\x%02X", code);
    } else if (code >= 0xD800 && code <= 0xDFFF) {
      out += Format(L"\\u%04X", code);  // a lone surrogate: not representable in UTF-8
    } else {
      out += c;
    }
  }
  out += L'"';
  return out;
}

std::wstring TypeText(std::uint32_t type) {
  static constexpr const wchar_t* kNames[] = {L"REG_NONE",
                                              L"REG_SZ",
                                              L"REG_EXPAND_SZ",
                                              L"REG_BINARY",
                                              L"REG_DWORD",
                                              L"REG_DWORD_BIG_ENDIAN",
                                              L"REG_LINK",
                                              L"REG_MULTI_SZ",
                                              L"REG_RESOURCE_LIST",
                                              L"REG_FULL_RESOURCE_DESCRIPTOR",
                                              L"REG_RESOURCE_REQUIREMENTS_LIST",
                                              L"REG_QWORD"};
  if (type < std::size(kNames)) return kNames[type];
  return Format(L"0x%08X", type);
}

std::wstring DataText(std::uint32_t type, const std::vector<std::uint8_t>& data) {
  std::wstring text;
  switch (type) {
    case kRegSz:
    case kRegExpandSz:
    case kRegLink:
      // One terminator at the end and no other NUL: the text; anything else as bytes.
      if (Utf16Units(data, &text) && !text.empty() && text.back() == L'\0' &&
          text.find(L'\0') == text.size() - 1) {
        text.pop_back();
        return QuotedText(text);
      }
      return HexData(data);
    case kRegMultiSz: {
      // Strings each ended by a NUL, then one more NUL; an empty list is one NUL (or two).
      if (!Utf16Units(data, &text) || text.empty() || text.back() != L'\0') return HexData(data);
      text.pop_back();
      if (!text.empty() && text.back() != L'\0') return HexData(data);
      std::wstring out = L"[";
      std::size_t start = 0;
      bool first = true;
      while (start < text.size()) {
        const std::size_t end = text.find(L'\0', start);
        if (end == start) return HexData(data);  // an empty string inside the list
        if (!first) out += L", ";
        out += QuotedText(std::wstring_view(text).substr(start, end - start));
        first = false;
        start = end + 1;
      }
      return out + L"]";
    }
    case kRegDword:
    case kRegDwordBigEndian: {
      if (data.size() != 4) return HexData(data);
      const bool big = type == kRegDwordBigEndian;
      std::uint32_t v = 0;
      for (std::size_t i = 0; i < 4; ++i) v |= std::uint32_t{data[big ? 3 - i : i]} << (8 * i);
      return Format(L"0x%08X", v);
    }
    case kRegQword: {
      if (data.size() != 8) return HexData(data);
      std::uint32_t low = 0;
      std::uint32_t high = 0;
      for (std::size_t i = 0; i < 4; ++i) {
        low |= std::uint32_t{data[i]} << (8 * i);
        high |= std::uint32_t{data[4 + i]} << (8 * i);
      }
      return Format(L"0x%08X%08X", high, low);
    }
    default:
      return HexData(data);
  }
}

std::wstring FileTimeText(std::uint64_t fileTime) {
  constexpr std::uint64_t kTicksPerSecond = 10000000;
  const std::uint64_t ticks = fileTime % kTicksPerSecond;
  const std::uint64_t seconds = fileTime / kTicksPerSecond;
  const std::uint64_t secondOfDay = seconds % 86400;
  // Days since 1601-01-01 to a civil date (proleptic Gregorian; 1601 starts a 400-year cycle).
  std::uint64_t days = seconds / 86400;
  const std::uint64_t cycles = days / 146097;
  days %= 146097;
  std::uint64_t centuries = days / 36524;
  if (centuries == 4) centuries = 3;
  days -= centuries * 36524;
  const std::uint64_t quads = days / 1461;
  days %= 1461;
  std::uint64_t years = days / 365;
  if (years == 4) years = 3;
  days -= years * 365;
  const std::uint64_t year = 1601 + cycles * 400 + centuries * 100 + quads * 4 + years;
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  const unsigned monthDays[] = {31, leap ? 29u : 28u, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  unsigned month = 0;
  while (days >= monthDays[month]) days -= monthDays[month++];
  return Format(L"%04u-%02u-%02u %02u:%02u:%02u.%07u", static_cast<unsigned>(year), month + 1,
                static_cast<unsigned>(days + 1), static_cast<unsigned>(secondOfDay / 3600),
                static_cast<unsigned>(secondOfDay / 60 % 60),
                static_cast<unsigned>(secondOfDay % 60), static_cast<unsigned>(ticks));
}

void DumpHive(const hive::Key& root, const std::function<void(const std::wstring&)>& line) {
  line(L"hive " + QuotedText(root.name));
  // Depth first with an explicit stack: hives may nest deeper than the call stack allows.
  std::vector<std::pair<const hive::Key*, std::wstring>> stack;
  stack.emplace_back(&root, L"\\");
  while (!stack.empty()) {
    auto [key, path] = std::move(stack.back());
    stack.pop_back();
    DumpKey(*key, path, line);
    const std::wstring prefix = path == L"\\" ? path : path + L"\\";
    for (auto it = key->children.rbegin(); it != key->children.rend(); ++it) {
      stack.emplace_back(it->get(), prefix + (*it)->name);
    }
  }
}

}  // namespace tw::hive_tool
