#include "batch/log_entries.h"

#include <fstream>
#include <system_error>

namespace tw::batch {
namespace {

bool IsHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }

// When an entry prefix starts at `at`: its length and the thread id; else 0.
std::size_t PrefixAt(std::string_view text, std::size_t at, std::uint32_t& threadId) {
  if (at >= text.size() || text[at] != '[') return 0;
  const std::size_t timeEnd = text.find(']', at + 1);
  // "MM/DD/YY HH:MM:SS" or "Invalid DateTime".
  if (timeEnd == std::string_view::npos || timeEnd - at - 1 > 20) return 0;
  constexpr std::string_view kIdStart = "[0x";
  const std::size_t idAt = timeEnd + 1;
  if (text.substr(idAt, kIdStart.size()) != kIdStart) return 0;
  const std::size_t digitsAt = idAt + kIdStart.size();
  if (text.size() < digitsAt + 10) return 0;
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 8; ++i) {
    const char c = text[digitsAt + i];
    if (!IsHexDigit(c)) return 0;
    value = value * 16 + static_cast<std::uint32_t>(c <= '9' ? c - '0' : c - 'a' + 10);
  }
  if (text[digitsAt + 8] != ']' || text[digitsAt + 9] != ' ') return 0;
  threadId = value;
  return digitsAt + 10 - at;
}

// The offset of the last entry start in `text` (npos when there is none).
std::size_t LastEntryStart(std::string_view text) {
  std::uint32_t ignored = 0;
  for (std::size_t at = text.size(); at-- > 0;) {
    if ((at == 0 || text[at - 1] == '\n') && PrefixAt(text, at, ignored) != 0) return at;
  }
  return std::string_view::npos;
}

std::uint64_t FileSize(const std::filesystem::path& file) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(file, error);
  return error ? 0 : static_cast<std::uint64_t>(size);
}

std::string ReadFrom(const std::filesystem::path& file, std::uint64_t offset) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::string();
  in.seekg(static_cast<std::streamoff>(offset));
  std::string bytes;
  char buffer[65536];
  while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
    bytes.append(buffer, static_cast<std::size_t>(in.gcount()));
  }
  return bytes;
}

}  // namespace

std::vector<LogEntry> ParseLogEntries(std::string_view text) {
  std::vector<LogEntry> entries;
  std::size_t at = 0;
  LogEntry* current = nullptr;
  std::size_t messageStart = 0;
  auto finish = [&](std::size_t end) {
    if (current == nullptr) return;
    std::string_view message = text.substr(messageStart, end - messageStart);
    if (message.size() >= 2 && message.substr(message.size() - 2) == "\r\n") {
      message.remove_suffix(2);
    }
    current->message.assign(message);
  };
  while (at < text.size()) {
    std::uint32_t threadId = 0;
    const std::size_t prefix = PrefixAt(text, at, threadId);
    if (prefix != 0) {
      finish(at);
      entries.push_back(LogEntry{threadId, std::string()});
      current = &entries.back();
      messageStart = at + prefix;
    }
    const std::size_t lineEnd = text.find('\n', at);
    at = lineEnd == std::string_view::npos ? text.size() : lineEnd + 1;
  }
  finish(text.size());
  return entries;
}

LogFollower::LogFollower(std::filesystem::path log, std::filesystem::path rotated)
    : log_(std::move(log)), rotated_(std::move(rotated)), offset_(FileSize(log_)) {}

std::vector<LogEntry> LogFollower::Read() {
  const std::uint64_t size = FileSize(log_);
  if (size < offset_) {
    // Rotated since the last read: the rest of the old file now has the rotated name.
    pending_ += ReadFrom(rotated_, offset_);
    offset_ = 0;
  }
  const std::string added = ReadFrom(log_, offset_);
  offset_ += added.size();
  pending_ += added;
  // Every writer appends whole entries; the last one is complete when it ends in a line break
  // and no further text follows. Keep a possibly cut last entry for the next read.
  std::size_t complete = pending_.size();
  if (!pending_.empty() && pending_.back() != '\n') {
    const std::size_t last = LastEntryStart(pending_);
    complete = last == std::string::npos ? 0 : last;
  }
  std::vector<LogEntry> entries = ParseLogEntries(std::string_view(pending_).substr(0, complete));
  pending_.erase(0, complete);
  return entries;
}

}  // namespace tw::batch
