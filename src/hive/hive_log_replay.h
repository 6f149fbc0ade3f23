// The replay of one transaction log onto the image of a hive being recovered: what a log's base
// block says, the entries of the new format, the dirty pages of the old one. The choice of logs
// and the base block of the result are hive_log_recovery.cpp's. Internal to hive/.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "hive/hive_log_recovery.h"

namespace tw::hive::detail {

// A transaction log and what its base block says. `usable` is false when the log is missing or
// damaged (`problem` says how); a usable old-format log has its whole dirty vector and every
// dirty page it announces.
struct LogView {
  const wchar_t* name = L"";  // ".LOG1", for messages
  std::span<const std::uint8_t> bytes;
  bool present = false;
  bool usable = false;
  std::wstring problem;
  std::uint32_t fileType = 0;
  std::uint32_t sequence = 0;  // both sequence numbers of its base block (they are equal)
  std::uint32_t dataSize = 0;  // the hive bins data size of its base block
  std::uint64_t timestamp = 0;
  std::uint32_t dirtyPages = 0;  // old format: the pages the bitmap announces

  bool IsEntryLog() const;
};

// Inspects a log. An old-format log whose hive bins data size is above `maxDataSize` (it sizes
// the image) is unusable.
LogView InspectLog(const wchar_t* name, const LogBytes& log, std::uint32_t maxDataSize);

// The hive being recovered: the whole file (at least a base block), the hive bins data size it
// will announce, the flags of the last log entry applied, and which 4096-byte blocks of the hive
// bins data the logs wrote.
struct Image {
  std::vector<std::uint8_t> bytes;
  std::uint32_t dataSize = 0;
  std::uint32_t maxDataSize = 0;  // no log may make the hive bins data larger
  std::uint32_t entryFlags = 0;   // bit 0 of the last entry's flags
  bool entryApplied = false;
  std::vector<bool> written;

  void Grow(std::uint32_t newDataSize);
  void Write(std::uint32_t offset, const std::uint8_t* data, std::uint32_t size);
};

// The result of replaying a log's entries.
struct EntryReplay {
  std::uint32_t applied = 0;
  std::uint32_t last = 0;  // the sequence number of the last entry applied
  std::wstring stop;       // why the replay stopped before the end of the log, or empty
};

// New format: applies the entries of `log` in order from its first, whose sequence number must
// be the log's. Stops at the first entry that is missing, damaged or out of sequence.
EntryReplay ReplayEntries(const LogView& log, Image& image);

// New format: every hive bin that the logs wrote and that is no longer valid becomes an empty
// bin of 4096 bytes, as Windows does; the walk stops at an invalid bin that the logs did not
// write (the reader judges the rest).
void ReplaceBrokenBins(Image& image);

// Old format: writes the dirty pages of `log` (the image then announces the log's hive bins data
// size). The pages are then checked bin by bin: at the first bin that a page wrote and that is
// invalid, the replay ends: the pages from that bin on get back the bytes of `original` (the hive
// file as read). Returns a note when that happened, else an empty text.
std::wstring ReplayDirtyPages(const LogView& log, std::span<const std::uint8_t> original,
                              Image& image);

}  // namespace tw::hive::detail
