#include "fakes/reg_text_hive.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "hive/hive_model.h"
#include "hive/hive_reader.h"
#include "hive/hive_writer.h"

namespace tw::testing {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kRegSz = 1;
constexpr std::uint32_t kRegBinary = 3;
constexpr std::uint32_t kRegDword = 4;

std::wstring Widen(std::string_view ascii) { return std::wstring(ascii.begin(), ascii.end()); }

// Whether a line goes on in the next one: a hex list ending in a backslash.
bool IsContinued(const std::string& line) {
  const std::size_t equals = line.find("\"=hex");
  const std::size_t defaultHex = line.rfind("@=hex", 0);
  return (equals != std::string::npos || defaultHex == 0) && !line.empty() && line.back() == '\\';
}

// The logical lines of the text: continued lines joined (without their leading blanks), line
// ends ("\n" or "\r\n") dropped.
std::vector<std::string> LogicalLines(const std::string& text) {
  std::vector<std::string> lines;
  std::string current;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!current.empty()) line.erase(0, std::min(line.size(), line.find_first_not_of(" \t")));
    current += line;
    if (IsContinued(current)) {
      current.pop_back();
    } else {
      lines.push_back(current);
      current.clear();
    }
    start = end + 1;
  }
  if (!current.empty()) lines.push_back(current);
  return lines;
}

// A quoted .reg string starting at `at` (the opening quote): its text with \\ and \" undone;
// `at` ends past the closing quote.
std::optional<std::string> QuotedText(const std::string& line, std::size_t& at) {
  if (at >= line.size() || line[at] != '"') return std::nullopt;
  std::string text;
  for (++at; at < line.size(); ++at) {
    if (line[at] == '\\' && at + 1 < line.size()) {
      text.push_back(line[++at]);
    } else if (line[at] == '"') {
      ++at;
      return text;
    } else {
      text.push_back(line[at]);
    }
  }
  return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> HexBytes(std::string_view list) {
  std::vector<std::uint8_t> bytes;
  std::size_t at = 0;
  while (at < list.size()) {
    const std::size_t comma = list.find(',', at);
    const std::string_view item =
        list.substr(at, comma == std::string_view::npos ? list.size() - at : comma - at);
    if (item.empty() || item.size() > 2) return std::nullopt;
    unsigned value = 0;
    for (const char c : item) {
      const auto digit = std::string_view("0123456789abcdef").find(static_cast<char>(c | 0x20));
      if (digit == std::string_view::npos) return std::nullopt;
      value = value * 16 + static_cast<unsigned>(digit);
    }
    bytes.push_back(static_cast<std::uint8_t>(value));
    if (comma == std::string_view::npos) break;
    at = comma + 1;
  }
  return bytes;
}

std::optional<std::uint32_t> HexNumber(std::string_view digits) {
  if (digits.empty() || digits.size() > 8) return std::nullopt;
  std::uint32_t value = 0;
  for (const char c : digits) {
    const auto digit = std::string_view("0123456789abcdef").find(static_cast<char>(c | 0x20));
    if (digit == std::string_view::npos) return std::nullopt;
    value = value * 16 + static_cast<std::uint32_t>(digit);
  }
  return value;
}

// The type and bytes of a value's data as the text after "=" gives them.
std::optional<hive::Value> ValueData(const std::string& line, std::size_t at) {
  hive::Value value;
  const std::string_view rest = std::string_view(line).substr(at);
  if (!rest.empty() && rest.front() == '"') {
    const std::optional<std::string> text = QuotedText(line, at);
    if (!text || at != line.size()) return std::nullopt;
    value.type = kRegSz;
    for (const char c : *text + std::string(1, '\0')) {
      value.data.push_back(static_cast<std::uint8_t>(c));
      value.data.push_back(0);
    }
    return value;
  }
  if (rest.rfind("dword:", 0) == 0) {
    const std::optional<std::uint32_t> number = HexNumber(rest.substr(6));
    if (!number || rest.size() != 14) return std::nullopt;
    value.type = kRegDword;
    for (int shift = 0; shift < 32; shift += 8)
      value.data.push_back(static_cast<std::uint8_t>(*number >> shift));
    return value;
  }
  std::size_t listAt = 0;
  if (rest.rfind("hex:", 0) == 0) {
    value.type = kRegBinary;
    listAt = 4;
  } else if (rest.rfind("hex(", 0) == 0 && rest.find("):") != std::string_view::npos) {
    const std::size_t close = rest.find("):");
    const std::optional<std::uint32_t> type = HexNumber(rest.substr(4, close - 4));
    if (!type) return std::nullopt;
    value.type = *type;
    listAt = close + 2;
  } else {
    return std::nullopt;
  }
  std::optional<std::vector<std::uint8_t>> bytes = HexBytes(rest.substr(listAt));
  if (!bytes) return std::nullopt;
  value.data = std::move(*bytes);
  return value;
}

// The key at `path` ("A\B", "" for the root), made with its missing parents: each new key takes
// its parent's security descriptor and last write time.
hive::Key* MakeKey(hive::Key& root, std::string_view path) {
  hive::Key* key = &root;
  std::size_t at = 0;
  while (at < path.size()) {
    std::size_t end = path.find('\\', at);
    if (end == std::string_view::npos) end = path.size();
    const std::wstring name = Widen(path.substr(at, end - at));
    if (name.empty()) return nullptr;
    hive::Key* child = hive::FindChild(*key, name);
    if (child == nullptr) {
      auto made = std::make_unique<hive::Key>();
      made->name = name;
      made->lastWriteTime = key->lastWriteTime;
      made->security = key->security;
      child = hive::InsertChild(*key, std::move(made));
    }
    key = child;
    at = end + 1;
  }
  return key;
}

// One value line into `key`: a new value is appended, one of the same name replaced.
std::string SetValueFromLine(hive::Key& key, const std::string& line) {
  std::size_t at = 0;
  std::wstring name;
  if (line.rfind("@=", 0) == 0) {
    at = 2;
  } else {
    const std::optional<std::string> quoted = QuotedText(line, at);
    if (!quoted || at >= line.size() || line[at] != '=') return "not a value line: " + line;
    name = Widen(*quoted);
    ++at;
  }
  std::optional<hive::Value> value = ValueData(line, at);
  if (!value) return "value data not understood: " + line;
  if (hive::Value* existing = hive::FindValue(key, name)) {
    existing->type = value->type;
    existing->data = std::move(value->data);
  } else {
    value->name = name;
    key.values.push_back(std::move(*value));
  }
  return "";
}

std::string Merge(hive::Key& root, const std::string& reg) {
  for (const char c : reg) {
    if (static_cast<unsigned char>(c) >= 0x80) return "non-ASCII text is not supported";
  }
  hive::Key* key = nullptr;
  for (const std::string& line : LogicalLines(reg)) {
    if (line.empty() || line.front() == ';') continue;
    if (line.front() == '[') {
      if (line.rfind("[\\", 0) != 0 || line.back() != ']') return "not a key section: " + line;
      key = MakeKey(root, std::string_view(line).substr(2, line.size() - 3));
      if (key == nullptr) return "empty key name in: " + line;
      continue;
    }
    if (key == nullptr) return "a value before any key: " + line;
    if (std::string error = SetValueFromLine(*key, line); !error.empty()) return error;
  }
  return "";
}

}  // namespace

std::string WriteHiveFromRegText(const fs::path& base, const std::string& reg,
                                 const fs::path& file) {
  std::ifstream in(base, std::ios::binary);
  const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                        std::istreambuf_iterator<char>());
  hive::ReadResult read = hive::ParseHive(bytes);
  if (!read.hive) return "cannot read " + base.string();
  if (std::string error = Merge(*read.hive->root, reg); !error.empty()) return error;
  const std::vector<std::uint8_t> written =
      hive::SerializeHive(*read.hive->root, read.hive->minorVersion,
                          Widen(file.filename().string()), hive::CurrentFileTime());
  std::error_code ignored;
  fs::create_directories(file.parent_path(), ignored);
  fs::remove(file, ignored);  // a new file: nothing of an earlier one's security stays
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(written.data()),
            static_cast<std::streamsize>(written.size()));
  out.close();
  if (!out) return "cannot write " + file.string();
  fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write, ignored);
  return "";
}

}  // namespace tw::testing
