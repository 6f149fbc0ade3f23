// Transaction-log recovery. Windows writes a hive's changes to a transaction log beside it
// before it writes the hive itself; a hive it did not close cleanly (the two sequence numbers of
// its base block differ, or the base block's checksum is wrong) holds stale data, and the newer
// data lies in "<hive>.LOG1" / "<hive>.LOG2" (or the single "<hive>.LOG"). Before such a hive is
// read, its logs are replayed in memory as Windows replays them when it loads the hive; the files
// themselves are never changed. docs/hive-transaction-logs.md describes the two log formats and
// the choices made here; in short:
// - New format (log entries, Windows 8.1 and later): the entries of a log are applied in
//   sequence from the sequence number in the log's base block; an entry with a wrong signature,
//   size, hash, sequence number or page reference ends the replay of that log. With a valid base
//   block in the hive, a log older than the hive's secondary sequence number is passed over, the
//   older log is replayed first and the newer one only when its first entry continues the older
//   one's last; with a broken base block only the newer log is used, and its base block replaces
//   the hive's. Bins the entries leave invalid are replaced by empty bins.
// - Old format (dirty-page bitmap, Windows XP to 8): of the logs whose base block is valid and not
//   older than the hive (its base block's timestamp, or the first bin's when the base block is
//   broken), the newest is applied: its base block replaces the hive's and its dirty pages are
//   written; a dirty page run that leaves a hive bin invalid ends the replay there (that bin and
//   the pages after it keep the hive's bytes).
// - A log whose base block is damaged (signature, checksum, unequal sequence numbers, file type,
//   version, sizes) or that is shorter than its own header says is not used at all.
// A dirty hive with no usable log is read as it stands; the state says so, so that callers can
// tell the administrator.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/win32_error.h"
#include "hive/hive_file.h"

namespace tw::hive {

// What was done to a hive file before it was read. The values are those of the engine's query
// function TwQueryHiveRecovery (offreg_api.h).
enum class RecoveryState : std::uint32_t {
  kClean = 0,         // the base block was clean: nothing beside the hive was looked at
  kRecovered = 1,     // dirty, and brought up to date from its transaction logs
  kNotRecovered = 2,  // dirty, and no log could be applied: read as it stands
};

// The transaction logs beside a hive, as bytes; `present` is false for a log that is missing.
struct LogBytes {
  std::span<const std::uint8_t> bytes;
  bool present = false;
};
struct HiveLogs {
  LogBytes log;   // "<hive>.LOG"
  LogBytes log1;  // "<hive>.LOG1"
  LogBytes log2;  // "<hive>.LOG2"
};

struct RecoveryResult {
  RecoveryState state = RecoveryState::kClean;
  std::vector<std::uint8_t> image;  // the recovered file (kRecovered only)
  std::wstring detail;              // which logs were applied, or why none could be
};

// True when the base block asks for recovery: a file of at least one sector that begins with
// "regf" and whose base block checksum is wrong or whose sequence numbers differ. Reads only the
// first 512 bytes.
bool IsDirtyHive(std::span<const std::uint8_t> file);

// Recovers a hive file from its logs (pure: no file access). A clean file gives kClean and no
// image.
RecoveryResult RecoverHive(std::span<const std::uint8_t> file, const HiveLogs& logs);

// A hive file as the engine reads it: the file, and the recovered image when there is one.
struct HiveFile {
  FileBytes file;
  std::vector<std::uint8_t> recovered;
  RecoveryState state = RecoveryState::kClean;
  std::wstring detail;

  std::span<const std::uint8_t> View() const {
    return state == RecoveryState::kRecovered ? std::span<const std::uint8_t>(recovered)
                                              : file.View();
  }
};

// Reads the hive file (ReadWholeFile's errors); when it is dirty, reads the logs beside it
// (ReadSiblingFile: found without regard to case; a log that cannot be read counts as missing)
// and recovers it. A clean hive costs nothing beyond reading the file.
[[nodiscard]] err::Win32Error ReadHiveFile(const std::wstring& path, HiveFile* hive);

}  // namespace tw::hive
