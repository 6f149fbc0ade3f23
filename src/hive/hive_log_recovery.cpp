#include "hive/hive_log_recovery.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/format.h"
#include "hive/hive_log_replay.h"
#include "hive/regf_layout.h"
#include "hive/regf_log_layout.h"

namespace tw::hive {

namespace {

using detail::Image;
using detail::LogView;
using regf::Get32;
using regf::Get64;

// The largest hive bins data size a base block can announce (whole blocks below 4 GB).
constexpr std::uint64_t kMaxDataSize = 0xFFFFF000u;

// Sequence numbers wrap around: a is not before b when it is at most half the range ahead.
bool NotBefore(std::uint32_t a, std::uint32_t b) {
  return static_cast<std::uint32_t>(a - b) < 0x80000000u;
}

// What the hive file's own base block says.
struct Primary {
  std::span<const std::uint8_t> file;
  bool baseValid = false;
  std::uint32_t secondary = 0;
  std::uint32_t dataSize = 0;
  std::uint64_t timestamp = 0;  // the base block's; the first bin's when the base block is broken
};

Primary DescribePrimary(std::span<const std::uint8_t> file) {
  Primary primary;
  primary.file = file;
  const std::uint8_t* base = file.data();
  primary.baseValid = Get32(base + regf::kBaseChecksum) == regf::BaseBlockChecksum(base);
  if (primary.baseValid) {
    primary.secondary = Get32(base + regf::kBaseSecondarySequence);
    primary.dataSize = Get32(base + regf::kBaseDataSize);
    primary.timestamp = Get64(base + regf::kBaseTimestamp);
  } else if (file.size() >= regf::kBaseBlockSize + regf::kBinHeaderSize &&
             std::memcmp(base + regf::kBaseBlockSize, "hbin", 4) == 0) {
    primary.timestamp = Get64(base + regf::kBaseBlockSize + regf::kBinTimestamp);
  }
  return primary;
}

// The image recovery starts from: the whole file, at least a base block long.
Image StartImage(const Primary& primary, std::uint32_t maxDataSize) {
  Image image;
  image.bytes.assign(primary.file.begin(), primary.file.end());
  if (image.bytes.size() < regf::kBaseBlockSize) image.bytes.resize(regf::kBaseBlockSize, 0);
  image.maxDataSize = maxDataSize;
  image.dataSize = primary.dataSize;
  return image;
}

// The recovered base block: the first sector of the applied log's (the newest copy Windows
// kept), as a primary file's, with the sequence number and size the replay reached, and bit 0 of
// its flags from the last entry applied.
void FinishBaseBlock(Image& image, const LogView& source, std::uint32_t sequence) {
  std::uint8_t* base = image.bytes.data();
  std::memcpy(base, source.bytes.data(), regf::kLogSector);
  regf::Put32(base + regf::kBaseFileType, regf::kFileTypePrimary);
  regf::Put32(base + regf::kBasePrimarySequence, sequence);
  regf::Put32(base + regf::kBaseSecondarySequence, sequence);
  regf::Put32(base + regf::kBaseDataSize, image.dataSize);
  if (image.entryApplied) {
    const std::uint32_t flags = Get32(base + regf::kBaseFlags) & ~regf::kBaseFlagLocked;
    regf::Put32(base + regf::kBaseFlags, flags | image.entryFlags);
  }
  regf::Put32(base + regf::kBaseChecksum, regf::BaseBlockChecksum(base));
}

// New format. True when entries (or, for a broken base block, the log's base block) were
// applied; `notes` gets what was applied and why a log was passed over or stopped.
bool ReplayEntryLogs(const Primary& primary, std::vector<const LogView*> logs, Image& image,
                     std::wstring& notes) {
  // The log with the earlier entries first.
  if (logs.size() == 2 && !NotBefore(logs[1]->sequence, logs[0]->sequence)) {
    std::swap(logs[0], logs[1]);
  }
  // A broken base block: only the newer log counts, and it brings the base block.
  if (!primary.baseValid) logs.erase(logs.begin(), logs.end() - 1);
  std::uint32_t total = 0;
  std::uint32_t last = 0;
  const LogView* source = nullptr;
  for (const LogView* log : logs) {
    if (total > 0 && log->sequence != last + 1) {
      notes += Format(L"%s: does not continue the entries before it; ", log->name);
      break;
    }
    if (primary.baseValid && !NotBefore(log->sequence, primary.secondary)) {
      notes += Format(L"%s: older than the hive; ", log->name);
      continue;
    }
    const detail::EntryReplay replay = detail::ReplayEntries(*log, image);
    if (replay.applied > 0) {
      notes += Format(L"%s: entries %u to %u applied; ", log->name,
                      replay.last - replay.applied + 1, replay.last);
      total += replay.applied;
      last = replay.last;
      source = log;
    } else if (replay.stop.empty()) {
      notes += Format(L"%s: no log entries; ", log->name);
    }
    if (!replay.stop.empty()) notes += Format(L"%s: %s; ", log->name, replay.stop);
  }
  if (total > 0) {
    detail::ReplaceBrokenBins(image);
  } else if (!primary.baseValid && !logs.empty()) {
    // No entry, but the log still gives the hive a valid base block.
    source = logs.back();
    image.dataSize = source->dataSize;
    last = source->sequence;
    notes += Format(L"%s: its base block replaces the hive's; ", source->name);
  }
  if (source == nullptr) return false;
  FinishBaseBlock(image, *source, last);
  return true;
}

// Old format: the newest log that is not older than the hive.
bool ReplayDirtyPageLog(const Primary& primary, const std::vector<const LogView*>& logs,
                        Image& image, std::wstring& notes) {
  const LogView* chosen = nullptr;
  for (const LogView* log : logs) {
    if (log->timestamp < primary.timestamp) {
      notes += Format(L"%s: older than the hive; ", log->name);
    } else if (chosen == nullptr || log->timestamp > chosen->timestamp) {
      chosen = log;
    }
  }
  if (chosen == nullptr) return false;
  const std::wstring stopped = detail::ReplayDirtyPages(*chosen, primary.file, image);
  notes += Format(L"%s: %u dirty pages applied; ", chosen->name, chosen->dirtyPages);
  if (!stopped.empty()) notes += Format(L"%s: %s; ", chosen->name, stopped);
  FinishBaseBlock(image, *chosen, chosen->sequence);
  return true;
}

// The usable logs of one format, the dual logs first and the single log only without them.
std::vector<const LogView*> Candidates(const LogView (&logs)[3], bool entryFormat) {
  std::vector<const LogView*> found;
  for (int pass = 0; pass < 2 && found.empty(); ++pass) {
    for (const LogView& log : logs) {
      const bool single = &log == &logs[0];
      if (single == (pass == 1) && log.usable && log.IsEntryLog() == entryFormat) {
        found.push_back(&log);
      }
    }
  }
  return found;
}

std::wstring Trimmed(std::wstring notes) {
  while (!notes.empty() && (notes.back() == L' ' || notes.back() == L';')) notes.pop_back();
  return notes;
}

}  // namespace

bool IsDirtyHive(std::span<const std::uint8_t> file) {
  if (file.size() < regf::kLogSector || std::memcmp(file.data(), "regf", 4) != 0) return false;
  const std::uint8_t* base = file.data();
  return Get32(base + regf::kBaseChecksum) != regf::BaseBlockChecksum(base) ||
         Get32(base + regf::kBasePrimarySequence) != Get32(base + regf::kBaseSecondarySequence);
}

RecoveryResult RecoverHive(std::span<const std::uint8_t> file, const HiveLogs& logs) {
  RecoveryResult result;
  if (!IsDirtyHive(file)) return result;
  result.state = RecoveryState::kNotRecovered;
  // No log can make the hive larger than all the bytes at hand.
  const std::uint64_t available = std::uint64_t{file.size()} + logs.log.bytes.size() +
                                  logs.log1.bytes.size() + logs.log2.bytes.size();
  const auto maxDataSize = static_cast<std::uint32_t>(
      std::min(kMaxDataSize, available / regf::kBinAlignment * regf::kBinAlignment));
  const LogView views[3] = {detail::InspectLog(L".LOG", logs.log, maxDataSize),
                            detail::InspectLog(L".LOG1", logs.log1, maxDataSize),
                            detail::InspectLog(L".LOG2", logs.log2, maxDataSize)};
  std::wstring notes;
  for (const LogView& view : views) {
    if (view.present && !view.usable) notes += Format(L"%s: %s; ", view.name, view.problem);
  }
  if (!logs.log.present && !logs.log1.present && !logs.log2.present) {
    result.detail = L"no transaction log lies beside it";
    return result;
  }
  const Primary primary = DescribePrimary(file);
  Image image = StartImage(primary, maxDataSize);
  bool applied = false;
  const std::vector<const LogView*> entryLogs = Candidates(views, true);
  if (!entryLogs.empty()) applied = ReplayEntryLogs(primary, entryLogs, image, notes);
  if (!applied) {
    const std::vector<const LogView*> pageLogs = Candidates(views, false);
    if (!pageLogs.empty()) {
      image = StartImage(primary, maxDataSize);
      applied = ReplayDirtyPageLog(primary, pageLogs, image, notes);
    }
  }
  result.detail = Trimmed(std::move(notes));
  if (!applied) return result;
  result.state = RecoveryState::kRecovered;
  result.image = std::move(image.bytes);
  return result;
}

[[nodiscard]] err::Win32Error ReadHiveFile(const std::wstring& path, HiveFile* hive) {
  hive->state = RecoveryState::kClean;
  hive->detail.clear();
  hive->recovered.clear();
  const err::Win32Error read = ReadWholeFile(path, &hive->file);
  if (read != err::kSuccess || !IsDirtyHive(hive->file.View())) return read;
  std::vector<std::uint8_t> bytes[3];
  HiveLogs logs;
  LogBytes* slots[3] = {&logs.log, &logs.log1, &logs.log2};
  const wchar_t* suffixes[3] = {L".LOG", L".LOG1", L".LOG2"};
  for (int i = 0; i < 3; ++i) {
    slots[i]->present = ReadSiblingFile(path, suffixes[i], &bytes[i]) == err::kSuccess;
    slots[i]->bytes = bytes[i];
  }
  RecoveryResult result = RecoverHive(hive->file.View(), logs);
  hive->state = result.state;
  hive->detail = std::move(result.detail);
  if (result.state == RecoveryState::kRecovered) {
    hive->recovered = std::move(result.image);
    hive->file = FileBytes();
  }
  return err::kSuccess;
}

}  // namespace tw::hive
