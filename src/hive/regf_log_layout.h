// Field offsets and constants of the transaction log files Windows keeps beside a hive
// ("<hive>.LOG", "<hive>.LOG1", "<hive>.LOG2"), and the Marvin32 hash that guards their log
// entries. docs/hive-transaction-logs.md describes both formats and where they come from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tw::hive::regf {

// Every log begins with the first sector of a copy of the hive's base block; sectors are 512
// bytes whatever the disk's (Windows writes it so as of Windows 8).
constexpr std::size_t kLogSector = 512;

// The "File type" field of a base block.
constexpr std::uint32_t kFileTypePrimary = 0;
constexpr std::uint32_t kFileTypeLogOld = 1;      // Windows XP to Windows 8
constexpr std::uint32_t kFileTypeLogOldest = 2;   // Windows 2000
constexpr std::uint32_t kFileTypeLogEntries = 6;  // Windows 8.1 and later

// The base block's "Flags" field; a log entry carries bit 0 (the transaction manager's lock).
constexpr std::size_t kBaseFlags = 144;
constexpr std::uint32_t kBaseFlagLocked = 0x1;

// Old format: the dirty vector ("DIRT" and a bitmap, one bit per 512-byte page of the hive bins
// data) in the second sector, then the dirty pages from the next sector boundary on.
constexpr std::size_t kDirtyVector = kLogSector;
constexpr std::size_t kDirtyBitmap = kDirtyVector + 4;
constexpr std::size_t kDirtyPage = 512;

// New format: log entries from the second sector on, each a multiple of 512 bytes.
constexpr std::size_t kEntrySize = 4;
constexpr std::size_t kEntryFlags = 8;
constexpr std::size_t kEntrySequence = 12;
constexpr std::size_t kEntryDataSize = 16;
constexpr std::size_t kEntryPageCount = 20;
constexpr std::size_t kEntryDataHash = 24;    // Marvin32 of the entry from byte 40 to its end
constexpr std::size_t kEntryHeaderHash = 32;  // Marvin32 of the entry's first 32 bytes
constexpr std::size_t kEntryHeaderHashed = 32;
constexpr std::size_t kEntryHeader = 40;        // then the page references, then the pages
constexpr std::size_t kEntryPageReference = 8;  // offset in the hive bins data, size

// The seed of both hashes of a log entry.
constexpr std::uint64_t kLogEntryHashSeed = 0x82EF4D887A4E55C5ull;

// The 64-bit Marvin32 hash of `data`: two 32-bit lanes started from the seed's low and high
// halves, one mixing round per little-endian 32-bit word, then the last 0-3 bytes padded with
// 0x80 and a zero word; the result is the first lane in the low half.
std::uint64_t Marvin32(std::span<const std::uint8_t> data, std::uint64_t seed);

}  // namespace tw::hive::regf
