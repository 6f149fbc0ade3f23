// The independent hive readers the tests judge hive files with, each run in a process of its own:
// hivex (tests/data/hives/hive_tool.py), libregf (tests/data/hives/regf_dump.py) and reglookup.
// The listings are sorted text, so that two readings of a hive compare line for line; the hivex
// listing has the line format of hive_dump.h, the libregf one adds class lines ("C ...").
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "hive_dump.h"

namespace tw::hive::testing {

inline const std::string kPython = "/usr/bin/python3";
inline const std::string kHiveScripts = std::string(TARNWICK_TESTDATA_DIR) + "/hives/";

// A path quoted for the shell.
inline std::string Quote(const std::filesystem::path& path) {
  std::string out = "'";
  for (const char c : path.string()) {
    if (c == '\'') {
      out += "'\\''";
    } else {
      out += c;
    }
  }
  return out + "'";
}

// Runs a command; its standard output, and whether it exited with 0.
inline std::string RunShell(const std::string& command, bool* ok) {
  int status = 0;
  std::string out = RunCommand(command, &status);
  *ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return out;
}

// Which of the two Python readers import, asked of one Python process (a test process asks
// once): bit 1 hivex, bit 2 pyregf.
inline unsigned PythonReaders() {
  static const unsigned readers = [] {
    bool ok = false;
    const std::string out = RunShell(
        kPython +
            " -c 'import importlib\nfor i, m in enumerate((\"hivex\", \"pyregf\")):\n"
            "    try: importlib.import_module(m); print(i + 1)\n    except ImportError: pass'"
            " 2>/dev/null",
        &ok);
    unsigned found = 0;
    for (const char c : out) {
      if (c == '1' || c == '2') found |= static_cast<unsigned>(c - '0');
    }
    return ok ? found : 0u;
  }();
  return readers;
}
inline bool HaveHivex() { return (PythonReaders() & 1u) != 0; }
inline bool HavePyregf() { return (PythonReaders() & 2u) != 0; }
inline bool HaveReglookup() {
  static const bool have = HaveCommand("command -v reglookup");
  return have;
}

// hivex's listing of a hive ("K path", "V path name type data"); `ok` tells whether it read it.
inline std::string HivexDump(const std::filesystem::path& hive, bool* ok) {
  return RunShell(
      kPython + " " + kHiveScripts + "hive_tool.py dump " + Quote(hive) + " 2>/dev/null", ok);
}

inline std::string HivexDump(const std::filesystem::path& hive) {
  bool ok = false;
  std::string out = HivexDump(hive, &ok);
  EXPECT_TRUE(ok) << "hivex could not read " << hive;
  return out;
}

// libregf's listing: hivex's lines plus "C path class" for every key.
inline std::string RegfDump(const std::filesystem::path& hive, bool* ok) {
  return RunShell(kPython + " " + kHiveScripts + "regf_dump.py " + Quote(hive) + " 2>/dev/null",
                  ok);
}

// Sorts the lines of a text (each ending in a line feed).
inline std::string SortedLines(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    const std::size_t next = end == std::string::npos ? text.size() : end;
    lines.push_back(text.substr(at, next - at));
    at = next + 1;
  }
  std::sort(lines.begin(), lines.end());
  std::string out;
  for (const std::string& line : lines) out += line + "\n";
  return out;
}

// reglookup's rows with security and classes (`reglookup -s`), sorted; its warnings are dropped.
inline std::string ReglookupRows(const std::filesystem::path& hive, bool* ok) {
  return SortedLines(RunShell("reglookup -s " + Quote(hive) + " 2>/dev/null", ok));
}

// Drops the class lines ("C ...") of a libregf listing.
inline std::string WithoutClassLines(const std::string& dump) {
  std::string out;
  std::size_t at = 0;
  while (at < dump.size()) {
    const std::size_t end = dump.find('\n', at);
    const std::size_t next = end == std::string::npos ? dump.size() : end + 1;
    if (dump.compare(at, 2, "C ") != 0) out.append(dump, at, next - at);
    at = next;
  }
  return out;
}

// libregf (20201007) reads resident value data of 1 to 3 bytes from the end of the 4-byte
// field rather than its start (where Windows, hivex, reglookup and we put it; the rest of the
// field is zero). This applies that reading to a listing's value lines, so that what libregf
// reads can be compared with what the value holds.
inline std::string AsLibregfReadsResidentData(const std::string& dump) {
  std::string out;
  std::size_t at = 0;
  while (at < dump.size()) {
    const std::size_t end = dump.find('\n', at);
    std::string line = dump.substr(at, end - at);
    at = end == std::string::npos ? dump.size() : end + 1;
    const std::size_t lastSpace = line.rfind(' ');
    const std::string data = line.substr(lastSpace + 1);
    if (line.rfind("V ", 0) == 0 && data != "-" && data.size() <= 6) {
      const std::string field = data + std::string(8 - data.size(), '0');
      line = line.substr(0, lastSpace + 1) + field.substr(8 - data.size());
    }
    out += line + "\n";
  }
  return out;
}

// The first line where two listings differ, for a readable failure message.
inline std::string FirstDifference(const std::string& a, const std::string& b) {
  std::size_t at = 0;
  while (at < a.size() && at < b.size() && a[at] == b[at]) ++at;
  const std::size_t start = a.rfind('\n', at == 0 ? 0 : at - 1);
  const std::size_t from = start == std::string::npos ? 0 : start + 1;
  const auto line = [from](const std::string& text) {
    const std::string rest = text.substr(std::min(from, text.size()), 300);
    return rest.substr(0, rest.find('\n'));
  };
  return "first difference:\n  " + line(a) + "\n  " + line(b);
}

}  // namespace tw::hive::testing
