// Field offsets and constants of the regf file format, and little-endian access to them. The
// reader, the writer and the structural lint share these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace tw::hive::regf {

constexpr std::size_t kBaseBlockSize = 4096;
constexpr std::size_t kBinHeaderSize = 32;
constexpr std::size_t kBinAlignment = 4096;
constexpr std::uint32_t kNoCell = 0xFFFFFFFFu;

// Base block.
constexpr std::size_t kBaseSignature = 0;
constexpr std::size_t kBasePrimarySequence = 4;
constexpr std::size_t kBaseSecondarySequence = 8;
constexpr std::size_t kBaseTimestamp = 12;
constexpr std::size_t kBaseMajor = 20;
constexpr std::size_t kBaseMinor = 24;
constexpr std::size_t kBaseFileType = 28;
constexpr std::size_t kBaseFileFormat = 32;
constexpr std::size_t kBaseRootCell = 36;
constexpr std::size_t kBaseDataSize = 40;
constexpr std::size_t kBaseClustering = 44;
constexpr std::size_t kBaseFileName = 48;
constexpr std::size_t kBaseFileNameBytes = 64;
constexpr std::size_t kBaseChecksum = 508;
constexpr std::size_t kBaseOfflineSignature = 176;
constexpr std::size_t kBaseOfflineFlags = 180;
constexpr std::size_t kBaseSerializationTime = 512;

// Hive bin header.
constexpr std::size_t kBinOffset = 4;
constexpr std::size_t kBinSize = 8;
constexpr std::size_t kBinTimestamp = 20;

// Key node (offsets within the cell data, after the cell's size field).
constexpr std::size_t kNkFlags = 2;
constexpr std::size_t kNkLastWrite = 4;
constexpr std::size_t kNkParent = 16;
constexpr std::size_t kNkSubKeyCount = 20;
constexpr std::size_t kNkVolatileSubKeyCount = 24;
constexpr std::size_t kNkSubKeyList = 28;
constexpr std::size_t kNkVolatileSubKeyList = 32;
constexpr std::size_t kNkValueCount = 36;
constexpr std::size_t kNkValueList = 40;
constexpr std::size_t kNkSecurity = 44;
constexpr std::size_t kNkClass = 48;
constexpr std::size_t kNkMaxSubKeyName = 52;
constexpr std::size_t kNkMaxSubKeyClass = 56;
constexpr std::size_t kNkMaxValueName = 60;
constexpr std::size_t kNkMaxValueData = 64;
constexpr std::size_t kNkNameLength = 72;
constexpr std::size_t kNkClassLength = 74;
constexpr std::size_t kNkName = 76;

constexpr std::uint16_t kNkHiveEntry = 0x0004;
constexpr std::uint16_t kNkNoDelete = 0x0008;
constexpr std::uint16_t kNkCompressedName = 0x0020;
// Every flag bit the format defines for the Windows versions we write: volatile, hive exit,
// hive entry, no delete, symbolic link, compressed name, predefined handle and the three
// virtualization bits. The four high bits held user flags on Windows XP only (they live in the
// "largest sub key name" field since Windows Vista).
constexpr std::uint16_t kNkDefinedFlags = 0x03FF;

// Key value.
constexpr std::size_t kVkNameLength = 2;
constexpr std::size_t kVkDataSize = 4;
constexpr std::size_t kVkDataOffset = 8;
constexpr std::size_t kVkType = 12;
constexpr std::size_t kVkFlags = 16;
constexpr std::size_t kVkName = 20;
constexpr std::uint32_t kVkDataInline = 0x80000000u;
constexpr std::uint16_t kVkCompressedName = 0x0001;

// Key security.
constexpr std::size_t kSkFlink = 4;
constexpr std::size_t kSkBlink = 8;
constexpr std::size_t kSkReferenceCount = 12;
constexpr std::size_t kSkDescriptorSize = 16;
constexpr std::size_t kSkDescriptor = 20;

// Big data.
constexpr std::size_t kDbSegmentCount = 2;
constexpr std::size_t kDbSegmentList = 4;
constexpr std::size_t kDbHeaderSize = 8;
constexpr std::size_t kBigDataSegment = 16344;

// Sub key lists: a leaf holds at most this many entries; longer lists go through an index root.
constexpr std::size_t kMaxLeafEntries = 1012;

inline std::uint16_t Get16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t Get32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
inline std::uint64_t Get64(const std::uint8_t* p) {
  return static_cast<std::uint64_t>(Get32(p)) | (static_cast<std::uint64_t>(Get32(p + 4)) << 32);
}
inline void Put16(std::uint8_t* p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v);
  p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void Put32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}
inline void Put64(std::uint8_t* p, std::uint64_t v) {
  Put32(p, static_cast<std::uint32_t>(v));
  Put32(p + 4, static_cast<std::uint32_t>(v >> 32));
}
inline bool HasSignature(const std::uint8_t* p, const char (&sig)[3]) {
  return p[0] == static_cast<std::uint8_t>(sig[0]) && p[1] == static_cast<std::uint8_t>(sig[1]);
}

// XOR-32 of the first 508 bytes of the base block, with the two values that are never used.
std::uint32_t BaseBlockChecksum(const std::uint8_t* baseBlock);

// The hash of an lh entry: over the upper-cased UTF-16 code units, H = 37 * H + c.
std::uint32_t NameHash(std::u16string_view upperUtf16);

}  // namespace tw::hive::regf
