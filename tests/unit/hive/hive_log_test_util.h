// Helpers of the transaction-log recovery tests: the dirty hives of the forensic corpus copied
// into a temporary folder, and a dump of everything the engine keeps of a hive.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/win32_error.h"
#include "hive/hive_log_recovery.h"
#include "hive/hive_reader.h"
#include "hive_dump.h"
#include "hive_test_util.h"

namespace tw::hive::testing {

inline std::filesystem::path CorpusFile(const std::string& relative) {
  return std::filesystem::path(TARNWICK_TESTDATA_DIR) / "hives" / "yarp" / relative;
}

// Copies corpus files into `folder` under the names given (corpus path, new name).
inline void CopyCorpus(const TempFolder& folder,
                       const std::vector<std::pair<std::string, std::string>>& files) {
  for (const auto& [from, to] : files) {
    std::filesystem::copy_file(CorpusFile(from), folder / to,
                               std::filesystem::copy_options::overwrite_existing);
  }
}

// Every key (path, class, last-write time, flags, security descriptor) and value (name, type,
// data), one per line, in the stored order.
inline void FullDumpKey(const Key& key, const std::string& path, std::string* out) {
  std::vector<std::uint8_t> className;
  AppendUtf16Le(key.className, className);
  *out += "K " + path + " class=" + Hex(className) + " time=" + std::to_string(key.lastWriteTime) +
          " flags=" + std::to_string(key.flags) + "/" + std::to_string(key.extraFlags) +
          " sd=" + (key.security ? Hex(*key.security) : std::string("none")) + "\n";
  for (const Value& value : key.values) {
    *out += "V " + NameHex(value.name) + " " + std::to_string(value.type) + " " + Hex(value.data) +
            "\n";
  }
  for (const auto& child : key.children) {
    FullDumpKey(*child, path + "\\" + NameHex(child->name), out);
  }
}

inline std::string FullDump(const Hive& hive) {
  std::string out = "root " + NameHex(hive.root->name) + "\n";
  FullDumpKey(*hive.root, "", &out);
  return out;
}

// Reads the hive file as OROpenHive does (with its logs) and dumps it; "error N: reason" when it
// cannot be read.
inline std::string ReadAndDump(const std::filesystem::path& path, RecoveryState* state = nullptr,
                               std::wstring* detail = nullptr) {
  HiveFile file;
  const err::Win32Error read = ReadHiveFile(path.wstring(), &file);
  if (state != nullptr) *state = file.state;
  if (detail != nullptr) *detail = file.detail;
  if (read != err::kSuccess) return "read error " + std::to_string(read);
  const ReadResult parsed = ParseHive(file.View());
  if (parsed.error != err::kSuccess) return "error " + std::to_string(parsed.error);
  return FullDump(*parsed.hive);
}

// The file as it stands, without its logs.
inline std::string DumpAsItStands(const std::filesystem::path& path) {
  const ReadResult parsed = ParseHive(ReadBytes(path));
  if (parsed.error != err::kSuccess) return "error " + std::to_string(parsed.error);
  return FullDump(*parsed.hive);
}

inline std::string Narrow(const std::wstring& text) {
  return std::string(text.begin(), text.end());
}

}  // namespace tw::hive::testing
