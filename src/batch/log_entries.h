// The tool's log as entries: each entry starts with "[<time>][0x<thread id>] " at the start of a
// line and runs up to the next such start (a message may hold its own line breaks), and the
// reading of the entries a batch's runs add to the one log file they share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tw::batch {

struct LogEntry {
  std::uint32_t threadId = 0;
  std::string message;  // without the prefix and without the line break the log adds
};

// The entries of `text`, which starts at an entry's start. Text before the first prefix (a torn
// start) is dropped. An entry's message keeps line breaks of its own but not the final "\r\n".
std::vector<LogEntry> ParseLogEntries(std::string_view text);

// Follows the log file of the runs: remembers its size when built, and each Read returns the
// complete entries added since. A rotation (the file is shorter than where reading stopped) is
// handled by reading the rest of the rotated file first. An entry cut at the end of the file is
// left for the next Read.
class LogFollower {
 public:
  LogFollower(std::filesystem::path log, std::filesystem::path rotated);
  std::vector<LogEntry> Read();

 private:
  std::filesystem::path log_;
  std::filesystem::path rotated_;
  std::uint64_t offset_ = 0;
  std::string pending_;
};

}  // namespace tw::batch
