#include "hive/hive_log_replay.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "base/format.h"
#include "hive/regf_layout.h"
#include "hive/regf_log_layout.h"

namespace tw::hive::detail {

namespace {

using regf::Get32;
using regf::Get64;

constexpr std::size_t kBlock = regf::kBinAlignment;
constexpr std::uint32_t kMaxDataSize = 0xFFFFF000u;  // whole blocks below 4 GB

std::size_t RoundUp(std::size_t value, std::size_t unit) {
  return (value + unit - 1) / unit * unit;
}

bool IsLogFileType(std::uint32_t type) {
  return type == regf::kFileTypeLogOld || type == regf::kFileTypeLogOldest ||
         type == regf::kFileTypeLogEntries;
}

// Why the base block at the start of a log cannot be used, or empty when it can.
std::wstring BaseBlockProblem(std::span<const std::uint8_t> bytes, std::uint32_t maxDataSize) {
  if (bytes.empty()) return L"the file is empty";
  if (bytes.size() < regf::kLogSector) return L"the file is shorter than its base block";
  const std::uint8_t* base = bytes.data();
  if (std::memcmp(base, "regf", 4) != 0) return L"the file does not begin with \"regf\"";
  if (Get32(base + regf::kBaseChecksum) != regf::BaseBlockChecksum(base)) {
    return L"the base block checksum is wrong";
  }
  if (Get32(base + regf::kBasePrimarySequence) != Get32(base + regf::kBaseSecondarySequence)) {
    return L"the sequence numbers of its base block differ";
  }
  const std::uint32_t minor = Get32(base + regf::kBaseMinor);
  if (Get32(base + regf::kBaseMajor) != 1 || minor < 3 || minor > 6) {
    return L"unsupported format version";
  }
  const std::uint32_t type = Get32(base + regf::kBaseFileType);
  if (!IsLogFileType(type)) return Format(L"not a transaction log (file type %u)", type);
  if (Get32(base + regf::kBaseFileFormat) != 1) return L"unsupported file format";
  // The new format's base block only describes the hive; the old format's sizes the image.
  const std::uint32_t dataSize = Get32(base + regf::kBaseDataSize);
  const std::uint32_t limit = type == regf::kFileTypeLogEntries ? kMaxDataSize : maxDataSize;
  if (dataSize == 0 || dataSize % kBlock != 0 || dataSize > limit) {
    return Format(L"invalid hive bins data size 0x%08X", dataSize);
  }
  return {};
}

// Old format: where the dirty pages start, and how many the bitmap announces.
std::size_t DirtyPagesStart(std::uint32_t dataSize) {
  return RoundUp(regf::kDirtyBitmap + dataSize / kBlock, regf::kLogSector);
}
bool IsDirty(const std::uint8_t* bitmap, std::size_t page) {
  return ((bitmap[page / 8] >> (page % 8)) & 1) != 0;
}

// Why the dirty vector and pages of an old-format log cannot be used, or empty.
std::wstring DirtyVectorProblem(LogView& log) {
  const std::size_t bitmapBytes = log.dataSize / kBlock;
  if (log.bytes.size() < regf::kDirtyBitmap + bitmapBytes ||
      std::memcmp(log.bytes.data() + regf::kDirtyVector, "DIRT", 4) != 0) {
    return L"no dirty vector (\"DIRT\") follows its base block";
  }
  const std::uint8_t* bitmap = log.bytes.data() + regf::kDirtyBitmap;
  std::uint32_t pages = 0;
  for (std::size_t i = 0; i < bitmapBytes; ++i)
    pages += static_cast<std::uint32_t>(std::popcount(bitmap[i]));
  log.dirtyPages = pages;
  if (log.bytes.size() < DirtyPagesStart(log.dataSize) + std::size_t{pages} * regf::kDirtyPage) {
    return Format(L"the file is truncated: %u dirty pages announced", pages);
  }
  return {};
}

// A valid bin header at `offset` of the hive bins data of `image`; its size in `*size`.
bool ValidBin(const Image& image, std::uint32_t offset, std::uint32_t* size) {
  if (image.dataSize - offset < kBlock) return false;
  const std::uint8_t* bin = image.bytes.data() + regf::kBaseBlockSize + offset;
  *size = Get32(bin + regf::kBinSize);
  return std::memcmp(bin, "hbin", 4) == 0 && Get32(bin + regf::kBinOffset) == offset &&
         *size >= kBlock && *size % kBlock == 0 && *size <= image.dataSize - offset;
}

// Whether the logs wrote any block of [offset, offset + size) of the hive bins data.
bool AnyWritten(const Image& image, std::uint32_t offset, std::uint32_t size) {
  const std::size_t end =
      std::min<std::size_t>((std::size_t{offset} + size) / kBlock, image.written.size());
  for (std::size_t block = offset / kBlock; block < end; ++block) {
    if (image.written[block]) return true;
  }
  return false;
}

}  // namespace

bool LogView::IsEntryLog() const { return fileType == regf::kFileTypeLogEntries; }

LogView InspectLog(const wchar_t* name, const LogBytes& log, std::uint32_t maxDataSize) {
  LogView view;
  view.name = name;
  view.bytes = log.bytes;
  view.present = log.present;
  if (!log.present) {
    view.problem = L"missing";
    return view;
  }
  view.problem = BaseBlockProblem(log.bytes, maxDataSize);
  if (!view.problem.empty()) return view;
  const std::uint8_t* base = log.bytes.data();
  view.fileType = Get32(base + regf::kBaseFileType);
  view.sequence = Get32(base + regf::kBasePrimarySequence);
  view.dataSize = Get32(base + regf::kBaseDataSize);
  view.timestamp = Get64(base + regf::kBaseTimestamp);
  if (!view.IsEntryLog()) view.problem = DirtyVectorProblem(view);
  view.usable = view.problem.empty();
  return view;
}

void Image::Grow(std::uint32_t newDataSize) {
  const std::size_t needed = regf::kBaseBlockSize + std::size_t{newDataSize};
  if (bytes.size() < needed) bytes.resize(needed, 0);
  if (written.size() < newDataSize / kBlock) written.resize(newDataSize / kBlock, false);
}

void Image::Write(std::uint32_t offset, const std::uint8_t* data, std::uint32_t size) {
  std::memcpy(bytes.data() + regf::kBaseBlockSize + offset, data, size);
  const std::size_t end = RoundUp(std::size_t{offset} + size, kBlock) / kBlock;
  for (std::size_t block = offset / kBlock; block < end && block < written.size(); ++block) {
    written[block] = true;
  }
}

EntryReplay ReplayEntries(const LogView& log, Image& image) {
  EntryReplay replay;
  std::uint32_t expected = log.sequence;
  const std::span<const std::uint8_t> bytes = log.bytes;
  for (std::size_t at = regf::kLogSector;; ++expected) {
    if (bytes.size() - at < regf::kEntryHeader || std::memcmp(bytes.data() + at, "HvLE", 4) != 0) {
      return replay;  // the end of the log
    }
    const std::uint8_t* entry = bytes.data() + at;
    const std::uint32_t size = Get32(entry + regf::kEntrySize);
    const std::uint32_t sequence = Get32(entry + regf::kEntrySequence);
    const std::uint32_t dataSize = Get32(entry + regf::kEntryDataSize);
    const std::uint32_t pages = Get32(entry + regf::kEntryPageCount);
    auto stop = [&](const wchar_t* why) {
      replay.stop = Format(L"entry at 0x%08X: %s", static_cast<std::uint32_t>(at), why);
      return replay;
    };
    if (size < regf::kLogSector || size % regf::kLogSector != 0 || size > bytes.size() - at) {
      return stop(L"invalid size");
    }
    if (sequence != expected) return stop(L"out of sequence");
    if (dataSize == 0 || dataSize % kBlock != 0 || dataSize > image.maxDataSize) {
      return stop(L"invalid hive bins data size");
    }
    const std::uint64_t references =
        regf::kEntryHeader + std::uint64_t{pages} * regf::kEntryPageReference;
    if (pages == 0 || references > size) return stop(L"invalid page count");
    if (regf::Marvin32(bytes.subspan(at, regf::kEntryHeaderHashed), regf::kLogEntryHashSeed) !=
            Get64(entry + regf::kEntryHeaderHash) ||
        regf::Marvin32(bytes.subspan(at + regf::kEntryHeader, size - regf::kEntryHeader),
                       regf::kLogEntryHashSeed) != Get64(entry + regf::kEntryDataHash)) {
      return stop(L"wrong hash");
    }
    std::uint64_t pageBytes = 0;
    for (std::uint32_t i = 0; i < pages; ++i) {
      const std::uint8_t* reference = entry + regf::kEntryHeader + i * regf::kEntryPageReference;
      const std::uint64_t offset = Get32(reference);
      const std::uint64_t length = Get32(reference + 4);
      if (offset + length > dataSize) return stop(L"a page lies outside the hive bins data");
      pageBytes += length;
      if (pageBytes > size - references) return stop(L"its pages run past its end");
    }
    // Whole and authentic: apply it.
    image.Grow(dataSize);
    image.dataSize = dataSize;
    image.entryFlags = Get32(entry + regf::kEntryFlags) & regf::kBaseFlagLocked;
    image.entryApplied = true;
    const std::uint8_t* page = entry + static_cast<std::size_t>(references);
    for (std::uint32_t i = 0; i < pages; ++i) {
      const std::uint8_t* reference = entry + regf::kEntryHeader + i * regf::kEntryPageReference;
      const std::uint32_t length = Get32(reference + 4);
      image.Write(Get32(reference), page, length);
      page += length;
    }
    ++replay.applied;
    replay.last = sequence;
    at += size;
  }
}

// The offset of the first bin at or after `offset` that is not valid (dataSize when all are).
std::uint32_t SkipValidBins(const Image& image, std::uint32_t offset) {
  std::uint32_t size = 0;
  while (offset < image.dataSize && ValidBin(image, offset, &size)) offset += size;
  return offset;
}

void ReplaceBrokenBins(Image& image) {
  for (std::uint32_t offset = SkipValidBins(image, 0); offset < image.dataSize;
       offset = SkipValidBins(image, offset)) {
    if (image.dataSize - offset < kBlock || !AnyWritten(image, offset, kBlock)) return;
    std::uint8_t* bin = image.bytes.data() + regf::kBaseBlockSize + offset;
    std::memset(bin, 0, kBlock);
    std::memcpy(bin, "hbin", 4);
    regf::Put32(bin + regf::kBinOffset, offset);
    regf::Put32(bin + regf::kBinSize, static_cast<std::uint32_t>(kBlock));
    regf::Put32(bin + regf::kBinHeaderSize,
                static_cast<std::uint32_t>(kBlock - regf::kBinHeaderSize));
  }
}

std::wstring ReplayDirtyPages(const LogView& log, std::span<const std::uint8_t> original,
                              Image& image) {
  const std::uint32_t oldDataSize = image.dataSize;
  image.Grow(log.dataSize);
  image.dataSize = log.dataSize;
  const std::uint8_t* bitmap = log.bytes.data() + regf::kDirtyBitmap;
  const std::uint8_t* page = log.bytes.data() + DirtyPagesStart(log.dataSize);
  const std::size_t pageCount = log.dataSize / regf::kDirtyPage;
  for (std::size_t i = 0; i < pageCount; ++i) {
    if (!IsDirty(bitmap, i)) continue;
    image.Write(static_cast<std::uint32_t>(i * regf::kDirtyPage), page,
                static_cast<std::uint32_t>(regf::kDirtyPage));
    page += regf::kDirtyPage;
  }
  // Every bin that a dirty page wrote must be whole: signature, its own offset, a size of whole
  // blocks inside the hive bins data.
  const std::uint32_t offset = SkipValidBins(image, 0);
  if (offset >= image.dataSize || !AnyWritten(image, offset, static_cast<std::uint32_t>(kBlock))) {
    return {};
  }
  // The replay ends at this bin: it and the pages after it keep the hive's own bytes.
  for (std::size_t i = offset / regf::kDirtyPage; i < pageCount; ++i) {
    if (!IsDirty(bitmap, i)) continue;
    std::uint8_t* target = image.bytes.data() + regf::kBaseBlockSize + i * regf::kDirtyPage;
    const std::size_t from = regf::kBaseBlockSize + i * regf::kDirtyPage;
    const std::size_t kept =
        from < original.size() ? std::min(regf::kDirtyPage, original.size() - from) : 0;
    if (kept != 0) std::memcpy(target, original.data() + from, kept);
    std::memset(target + kept, 0, regf::kDirtyPage - kept);
  }
  image.dataSize = std::max(offset, std::min(oldDataSize, log.dataSize));
  return Format(L"the bin at 0x%08X it wrote is invalid; its pages from there on were not applied",
                offset);
}

}  // namespace tw::hive::detail
