// Transaction logs built by the tests, in both formats, so that every rule of the replay can be
// driven from two hives the engine wrote: `from` (what the hive file holds) and `to` (what its
// logs bring it to). The layouts follow docs/hive-transaction-logs.md; the new format's hashes
// are the Marvin32 that the tests check against logs Windows wrote.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "hive/regf_layout.h"
#include "hive/regf_log_layout.h"

namespace tw::hive::testing {

using Bytes = std::vector<std::uint8_t>;

inline void FixChecksum(Bytes& file) {
  regf::Put32(file.data() + regf::kBaseChecksum, regf::BaseBlockChecksum(file.data()));
}

inline std::uint32_t DataSize(const Bytes& hive) {
  return regf::Get32(hive.data() + regf::kBaseDataSize);
}

// The hive with the given sequence numbers (not cleanly closed when they differ).
inline Bytes WithSequence(Bytes hive, std::uint32_t primary, std::uint32_t secondary) {
  regf::Put32(hive.data() + regf::kBasePrimarySequence, primary);
  regf::Put32(hive.data() + regf::kBaseSecondarySequence, secondary);
  FixChecksum(hive);
  return hive;
}

// The first sector of `to`'s base block as a log's, with both sequence numbers `sequence`.
inline Bytes LogBaseBlock(const Bytes& to, std::uint32_t fileType, std::uint32_t sequence) {
  Bytes log(to.begin(), to.begin() + regf::kLogSector);
  regf::Put32(log.data() + regf::kBaseFileType, fileType);
  regf::Put32(log.data() + regf::kBasePrimarySequence, sequence);
  regf::Put32(log.data() + regf::kBaseSecondarySequence, sequence);
  FixChecksum(log);
  return log;
}

inline void SetLogTimestamp(Bytes& log, std::uint64_t timestamp) {
  regf::Put64(log.data() + regf::kBaseTimestamp, timestamp);
  FixChecksum(log);
}

// The offsets (in the hive bins data) of the `unit`-byte pages of `to` that differ from `from`
// or lie beyond it.
inline std::vector<std::uint32_t> ChangedPages(const Bytes& from, const Bytes& to,
                                               std::uint32_t unit) {
  std::vector<std::uint32_t> pages;
  for (std::uint32_t at = 0; at < DataSize(to); at += unit) {
    const std::size_t file = regf::kBaseBlockSize + at;
    if (at + unit > DataSize(from) ||
        std::memcmp(from.data() + file, to.data() + file, unit) != 0) {
      pages.push_back(at);
    }
  }
  return pages;
}

// Old format: base block, dirty vector with a bit for each changed 512-byte page, the pages.
inline Bytes OldLog(const Bytes& from, const Bytes& to, std::uint32_t sequence) {
  Bytes log = LogBaseBlock(to, regf::kFileTypeLogOld, sequence);
  const std::uint32_t size = DataSize(to);
  Bytes vector(regf::kLogSector * ((4 + size / 4096 + regf::kLogSector - 1) / regf::kLogSector), 0);
  std::memcpy(vector.data(), "DIRT", 4);
  const std::vector<std::uint32_t> pages = ChangedPages(from, to, 512);
  for (const std::uint32_t at : pages) vector[4 + at / 512 / 8] |= 1 << (at / 512 % 8);
  log.insert(log.end(), vector.begin(), vector.end());
  for (const std::uint32_t at : pages) {
    const auto page = to.begin() + static_cast<std::ptrdiff_t>(regf::kBaseBlockSize + at);
    log.insert(log.end(), page, page + 512);
  }
  return log;
}

// New format: one log entry carrying the given 4096-byte pages of `to`, for a hive bins data
// size of `dataSize`.
inline Bytes LogEntry(const Bytes& to, std::uint32_t sequence, std::uint32_t dataSize,
                      const std::vector<std::uint32_t>& pages, std::uint32_t flags = 0) {
  Bytes entry(regf::kEntryHeader + pages.size() * regf::kEntryPageReference, 0);
  std::memcpy(entry.data(), "HvLE", 4);
  regf::Put32(entry.data() + regf::kEntryFlags, flags);
  regf::Put32(entry.data() + regf::kEntrySequence, sequence);
  regf::Put32(entry.data() + regf::kEntryDataSize, dataSize);
  regf::Put32(entry.data() + regf::kEntryPageCount, static_cast<std::uint32_t>(pages.size()));
  for (std::size_t i = 0; i < pages.size(); ++i) {
    std::uint8_t* reference = entry.data() + regf::kEntryHeader + i * regf::kEntryPageReference;
    regf::Put32(reference, pages[i]);
    regf::Put32(reference + 4, 4096);
    const auto page = to.begin() + static_cast<std::ptrdiff_t>(regf::kBaseBlockSize + pages[i]);
    entry.insert(entry.end(), page, page + 4096);
  }
  entry.resize((entry.size() + 511) / 512 * 512, 0);
  regf::Put32(entry.data() + regf::kEntrySize, static_cast<std::uint32_t>(entry.size()));
  const std::span<const std::uint8_t> all(entry);
  regf::Put64(entry.data() + regf::kEntryDataHash,
              regf::Marvin32(all.subspan(regf::kEntryHeader), regf::kLogEntryHashSeed));
  regf::Put64(entry.data() + regf::kEntryHeaderHash,
              regf::Marvin32(all.first(regf::kEntryHeaderHashed), regf::kLogEntryHashSeed));
  return entry;
}

// New format: the base block and entries from `sequence` on, the changed pages of `to` spread
// over `entries` entries.
inline Bytes NewLog(const Bytes& from, const Bytes& to, std::uint32_t sequence,
                    std::size_t entries) {
  Bytes log = LogBaseBlock(to, regf::kFileTypeLogEntries, sequence);
  const std::vector<std::uint32_t> pages = ChangedPages(from, to, 4096);
  const std::size_t share = (pages.size() + entries - 1) / entries;
  for (std::size_t first = 0; first < pages.size(); first += share) {
    const std::vector<std::uint32_t> part(
        pages.begin() + static_cast<std::ptrdiff_t>(first),
        pages.begin() + static_cast<std::ptrdiff_t>(std::min(pages.size(), first + share)));
    const Bytes entry = LogEntry(to, sequence++, DataSize(to), part);
    log.insert(log.end(), entry.begin(), entry.end());
  }
  return log;
}

}  // namespace tw::hive::testing
