#include "profile_description.h"

#include <cctype>
#include <cstdlib>
#include <cwctype>

#include "base/text_encoding.h"

namespace tw::tools {
namespace {

constexpr std::uint32_t kRegSz = 1;
constexpr std::uint32_t kRegExpandSz = 2;
constexpr std::uint32_t kRegBinary = 3;
constexpr std::uint32_t kRegDword = 4;
constexpr std::uint32_t kRegMultiSz = 7;
constexpr std::uint32_t kRegQword = 11;

std::wstring_view Trim(std::wstring_view text) {
  while (!text.empty() && (text.front() == L' ' || text.front() == L'\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == L' ' || text.back() == L'\t' || text.back() == L'\r'))
    text.remove_suffix(1);
  return text;
}

// The first word of text and the rest after one blank.
std::wstring_view SplitWord(std::wstring_view& text) {
  const std::size_t blank = text.find(L' ');
  const std::wstring_view word = text.substr(0, blank);
  text = blank == std::wstring_view::npos ? std::wstring_view() : text.substr(blank + 1);
  return word;
}

// A relative "\"-separated path without empty, "." or ".." components.
bool IsRelativePath(std::wstring_view path) {
  if (path.empty()) return false;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = path.find(L'\\', start);
    const std::wstring_view part = path.substr(start, end - start);
    if (part.empty() || part == L"." || part == L".." || part.find(L'/') != std::wstring_view::npos)
      return false;
    if (end == std::wstring_view::npos) return true;
    start = end + 1;
  }
}

bool ParseNumber(std::wstring_view text, std::uint64_t& value) {
  if (text.empty()) return false;
  const std::string narrow = WideToUtf8(text);
  char* end = nullptr;
  const bool hex = narrow.size() > 2 && narrow[0] == '0' && (narrow[1] == 'x' || narrow[1] == 'X');
  if (!hex && !std::isdigit(static_cast<unsigned char>(narrow[0]))) return false;
  value = std::strtoull(narrow.c_str(), &end, hex ? 16 : 10);
  return end != nullptr && *end == '\0';
}

void AppendText(std::vector<std::uint8_t>& data, std::wstring_view text) {
  const std::vector<std::uint8_t> bytes = WideToUtf16Le(text);
  data.insert(data.end(), bytes.begin(), bytes.end());
  data.push_back(0);
  data.push_back(0);
}

void AppendLittleEndian(std::vector<std::uint8_t>& data, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) data.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

bool ParseType(std::wstring_view word, std::uint32_t& type) {
  static const struct {
    const wchar_t* name;
    std::uint32_t type;
  } kTypes[] = {
      {L"REG_SZ", kRegSz},       {L"REG_EXPAND_SZ", kRegExpandSz}, {L"REG_BINARY", kRegBinary},
      {L"REG_DWORD", kRegDword}, {L"REG_MULTI_SZ", kRegMultiSz},   {L"REG_QWORD", kRegQword}};
  for (const auto& known : kTypes) {
    if (word == known.name) {
      type = known.type;
      return true;
    }
  }
  return false;
}

// "<type> <name> = <data>" into value; a message on failure.
std::string ParseValue(std::wstring_view rest, ValueSpec& value) {
  if (!ParseType(SplitWord(rest), value.type)) return "unknown value type";
  std::wstring_view name;
  std::wstring_view data;
  const std::size_t equals = rest.find(L" = ");
  if (equals != std::wstring_view::npos) {
    name = rest.substr(0, equals);
    data = rest.substr(equals + 3);
  } else if (rest.size() >= 2 && rest.substr(rest.size() - 2) == L" =") {
    name = rest.substr(0, rest.size() - 2);
  } else {
    return "a value needs \"<name> = <data>\"";
  }
  if (name.empty()) return "a value needs a name (\"@\" for the default value)";
  value.name = name == L"@" ? std::wstring() : std::wstring(name);
  switch (value.type) {
    case kRegSz:
    case kRegExpandSz:
      AppendText(value.data, data);
      return std::string();
    case kRegMultiSz: {
      while (!data.empty()) {
        const std::size_t bar = data.find(L" | ");
        AppendText(value.data, data.substr(0, bar));
        data = bar == std::wstring_view::npos ? std::wstring_view() : data.substr(bar + 3);
      }
      value.data.push_back(0);
      value.data.push_back(0);
      return std::string();
    }
    case kRegDword:
    case kRegQword: {
      std::uint64_t number = 0;
      if (!ParseNumber(data, number)) return "not a number";
      if (value.type == kRegDword && number > 0xFFFFFFFFu) return "too large for REG_DWORD";
      AppendLittleEndian(value.data, number, value.type == kRegDword ? 4 : 8);
      return std::string();
    }
    default: {  // REG_BINARY
      while (!data.empty()) {
        const std::wstring_view byte = SplitWord(data);
        std::uint64_t number = 0;
        if (byte.size() != 2 || !std::iswxdigit(byte[0]) || !std::iswxdigit(byte[1]) ||
            !ParseNumber(L"0x" + std::wstring(byte), number))
          return "REG_BINARY data must be two-digit hexadecimal bytes";
        value.data.push_back(static_cast<std::uint8_t>(number));
      }
      return std::string();
    }
  }
}

}  // namespace

bool ParseProfileDescription(std::string_view text, ProfileDescription& description,
                             std::string& error) {
  const std::wstring wide = Utf8ToWide(text);
  std::size_t start = 0;
  int lineNumber = 0;
  auto fail = [&](const std::string& what) {
    error = "line " + std::to_string(lineNumber) + ": " + what;
    return false;
  };
  while (start < wide.size()) {
    const std::size_t end = wide.find(L'\n', start);
    std::wstring_view line = Trim(std::wstring_view(wide).substr(
        start, end == std::wstring::npos ? std::wstring::npos : end - start));
    start = end == std::wstring::npos ? wide.size() : end + 1;
    ++lineNumber;
    if (line.empty() || line.front() == L'#') continue;
    const std::wstring_view word = SplitWord(line);
    if (word == L"folder" || word == L"hive") {
      if (!IsRelativePath(line)) return fail("a relative path is expected");
      if (word == L"folder") {
        description.folders.emplace_back(line);
      } else {
        description.hives.push_back({std::wstring(line), {}});
      }
    } else if (word == L"file") {
      // "file <path>" (empty) or "file <path> = <text>"; the path ends at the first " = ".
      const std::size_t equals = line.find(L" = ");
      const std::wstring_view path = line.substr(0, equals);
      if (!IsRelativePath(path)) return fail("a relative path is expected");
      description.files.push_back({std::wstring(path), equals == std::wstring_view::npos
                                                           ? std::string()
                                                           : WideToUtf8(line.substr(equals + 3))});
    } else if (word == L"attributes") {
      const std::size_t blank = line.rfind(L' ');
      std::uint64_t attributes = 0;
      if (blank == std::wstring_view::npos || !IsRelativePath(line.substr(0, blank)) ||
          !ParseNumber(line.substr(blank + 1), attributes) || attributes > 0xFFFFFFFFu)
        return fail("\"attributes <path> <number>\" is expected");
      description.attributes.push_back(
          {std::wstring(line.substr(0, blank)), static_cast<std::uint32_t>(attributes)});
    } else if (word == L"key") {
      if (description.hives.empty()) return fail("a key outside a hive");
      if (!IsRelativePath(line)) return fail("a key path relative to the hive root is expected");
      description.hives.back().keys.push_back({std::wstring(line), {}});
    } else if (word == L"value") {
      if (description.hives.empty() || description.hives.back().keys.empty())
        return fail("a value outside a key");
      ValueSpec value;
      if (const std::string problem = ParseValue(line, value); !problem.empty())
        return fail(problem);
      description.hives.back().keys.back().values.push_back(std::move(value));
    } else {
      return fail("unknown item \"" + WideToUtf8(word) + "\"");
    }
  }
  return true;
}

}  // namespace tw::tools
