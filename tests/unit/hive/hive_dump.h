// The model dumped in the line format of tests/data/hives/hive_tool.py ("K path", "V path name
// type data", names as hex of UTF-16LE, sorted), so that our reading and an independent
// reader's can be compared line for line.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "hive/hive_model.h"
#include "hive/regf_text.h"

namespace tw::hive::testing {

inline std::string Hex(const std::vector<std::uint8_t>& bytes) {
  static const char* digits = "0123456789abcdef";
  std::string out;
  for (const std::uint8_t b : bytes) {
    out.push_back(digits[b >> 4]);
    out.push_back(digits[b & 15]);
  }
  return out.empty() ? "-" : out;
}

inline std::string NameHex(std::wstring_view name) {
  std::vector<std::uint8_t> bytes;
  AppendUtf16Le(name, bytes);
  return Hex(bytes);
}

inline void DumpKey(const Key& key, const std::string& path, std::vector<std::string>* lines) {
  const std::string shown = path.empty() ? "-" : path;
  lines->push_back("K " + shown);
  for (const Value& value : key.values) {
    lines->push_back("V " + shown + " " + NameHex(value.name) + " " + std::to_string(value.type) +
                     " " + Hex(value.data));
  }
  for (const auto& child : key.children) {
    const std::string name = NameHex(child->name);
    DumpKey(*child, path.empty() ? name : path + "5c00" + name, lines);
  }
}

inline std::string Dump(const Key& root) {
  std::vector<std::string> lines;
  DumpKey(root, "", &lines);
  std::sort(lines.begin(), lines.end());
  std::string out;
  for (const std::string& line : lines) out += line + "\n";
  return out;
}

// The bytes of a value as reglookup prints them (its VALUE field of a REG_BINARY value): "%XX"
// for a byte it escapes, any other character for itself.
inline std::vector<std::uint8_t> FromReglookupText(std::string_view text) {
  std::vector<std::uint8_t> out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      out.push_back(
          static_cast<std::uint8_t>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16)));
      i += 2;
    } else {
      out.push_back(static_cast<std::uint8_t>(text[i]));
    }
  }
  return out;
}

// Runs a shell command; returns its standard output, and its exit status in `status`.
inline std::string RunCommand(const std::string& command, int* status) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    *status = -1;
    return out;
  }
  char buffer[65536];
  std::size_t n = 0;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  *status = pclose(pipe);
  return out;
}

inline bool HaveCommand(const std::string& check) {
  int status = 0;
  RunCommand(check + " >/dev/null 2>&1", &status);
  return status == 0;
}

}  // namespace tw::hive::testing
