#include "hive/hive_writer.h"

#include <algorithm>
#include <map>
#include <unordered_map>

#include "hive/name_compare.h"
#include "hive/regf_layout.h"
#include "hive/regf_text.h"
#include "hive/security_parts.h"

namespace tw::hive {

namespace {

using regf::Put16;
using regf::Put32;
using regf::Put64;

std::size_t Align8(std::size_t n) { return (n + 7) & ~static_cast<std::size_t>(7); }

// Hands out cells in hive bins, growing one byte buffer: the whole file, whose first
// kBaseBlockSize bytes are left for the base block (cell offsets count from the end of it).
class CellAllocator {
 public:
  explicit CellAllocator(std::uint64_t timestamp)
      : data_(regf::kBaseBlockSize, 0),
        pos_(regf::kBaseBlockSize),
        binEnd_(pos_),
        timestamp_(timestamp) {}

  // Reserves room for `bytes` of hive bins, so that the buffer is never moved while it grows
  // (a move would briefly hold two copies). Memory reserved but not written is not touched.
  void Reserve(std::size_t bytes) { data_.reserve(regf::kBaseBlockSize + bytes); }

  // A new allocated cell with room for `payload` bytes; returns its offset.
  std::uint32_t Allocate(std::size_t payload) {
    const std::size_t size = Align8(payload + 4);
    if (pos_ + size > binEnd_) {
      CloseBin();
      OpenBin(size);
    }
    const auto offset = static_cast<std::uint32_t>(pos_ - regf::kBaseBlockSize);
    Put32(data_.data() + pos_, static_cast<std::uint32_t>(-static_cast<std::int64_t>(size)));
    pos_ += size;
    return offset;
  }

  // The data of the cell at `offset` (valid until the next allocation).
  std::uint8_t* At(std::uint32_t offset) {
    return data_.data() + regf::kBaseBlockSize + offset + 4;
  }

  std::vector<std::uint8_t> Finish() {
    CloseBin();
    return std::move(data_);
  }

 private:
  void CloseBin() {
    if (pos_ < binEnd_) Put32(data_.data() + pos_, static_cast<std::uint32_t>(binEnd_ - pos_));
    pos_ = binEnd_;
  }

  void OpenBin(std::size_t cellSize) {
    const std::size_t needed = regf::kBinHeaderSize + cellSize;
    const std::size_t binSize =
        (needed + regf::kBinAlignment - 1) / regf::kBinAlignment * regf::kBinAlignment;
    const std::size_t start = data_.size();
    data_.resize(start + binSize, 0);
    std::uint8_t* bin = data_.data() + start;
    bin[0] = 'h';
    bin[1] = 'b';
    bin[2] = 'i';
    bin[3] = 'n';
    Put32(bin + regf::kBinOffset, static_cast<std::uint32_t>(start - regf::kBaseBlockSize));
    Put32(bin + regf::kBinSize, static_cast<std::uint32_t>(binSize));
    if (start == regf::kBaseBlockSize) Put64(bin + regf::kBinTimestamp, timestamp_);
    pos_ = start + regf::kBinHeaderSize;
    binEnd_ = start + binSize;
  }

  std::vector<std::uint8_t> data_;
  std::size_t pos_;
  std::size_t binEnd_;
  std::uint64_t timestamp_;
};

struct SecurityCell {
  std::uint32_t offset;
  std::uint32_t references;
};

class Writer {
 public:
  explicit Writer(std::uint64_t now) : cells_(now) {}

  std::vector<std::uint8_t> Run(const Key& root, std::uint32_t* rootOffset) {
    cells_.Reserve(BinsUpperBound(root));
    *rootOffset = WriteKey(root, regf::kNoCell, true);
    LinkSecurityCells();
    return cells_.Finish();
  }

 private:
  static std::size_t CellBound(std::size_t payload) { return Align8(payload + 4); }

  // An upper bound of the hive bins' size: every cell the tree can need (a security cell for
  // every key, names counted at two UTF-16 units per character), twice over (the tail of a bin
  // left free is smaller than the cell that did not fit), plus a bin header per cell.
  static std::size_t BinsUpperBound(const Key& root) {
    std::size_t cells = 0;
    std::size_t count = 0;
    const auto add = [&](std::size_t payload) {
      cells += CellBound(payload);
      ++count;
    };
    std::vector<const Key*> stack{&root};
    while (!stack.empty()) {
      const Key& key = *stack.back();
      stack.pop_back();
      add(regf::kNkName + 4 * key.name.size());
      add(4 * key.className.size());
      const SecurityBytes& sd = key.security ? *key.security : DefaultSecurityDescriptor();
      add(regf::kSkDescriptor + sd.size());
      add(4 * key.values.size());
      for (const Value& value : key.values) {
        add(regf::kVkName + 4 * value.name.size());
        const std::size_t size = value.data.size();
        if (size > regf::kBigDataSegment) {
          const std::size_t segments = (size + regf::kBigDataSegment - 1) / regf::kBigDataSegment;
          for (std::size_t i = 0; i < segments; ++i) add(regf::kBigDataSegment);
          add(4 * segments);
          add(regf::kDbHeaderSize);
        } else if (size > 4) {
          add(size);
        }
      }
      const std::size_t children = key.children.size();
      const std::size_t leaves = children / regf::kMaxLeafEntries + 1;
      add(4 + 8 * children + 4 * leaves);
      for (std::size_t i = 0; i < leaves; ++i) add(4);
      for (const auto& child : key.children) stack.push_back(child.get());
    }
    return 2 * cells + regf::kBinHeaderSize * count + regf::kBinAlignment;
  }

  // The size of `name` as the file stores it: one byte per character when every character fits
  // ("compressed"), else UTF-16LE, which is encoded into utf16_ for PutStoredName.
  std::size_t StoredNameSize(std::wstring_view name, bool* compressed) {
    *compressed = FitsLatin1(name);
    if (*compressed) return name.size();
    utf16_.clear();
    AppendUtf16Le(name, utf16_);
    return utf16_.size();
  }

  // Writes the name StoredNameSize measured last.
  void PutStoredName(std::wstring_view name, bool compressed, std::uint8_t* out) const {
    if (!compressed) {
      std::copy(utf16_.begin(), utf16_.end(), out);
      return;
    }
    for (const wchar_t c : name) *out++ = static_cast<std::uint8_t>(c);
  }

  // The key's nk cell with its flags, time, parent and name; the counts and offsets of what
  // hangs off it are filled in by WriteKey once those are written.
  std::uint32_t WriteKeyHead(const Key& key, std::uint32_t parent, bool isRoot) {
    bool compressed = false;
    const std::size_t nameSize = StoredNameSize(key.name, &compressed);
    const std::uint32_t offset = cells_.Allocate(regf::kNkName + nameSize);
    std::uint8_t* nk = cells_.At(offset);
    std::fill(nk, nk + regf::kNkName, std::uint8_t{0});
    nk[0] = 'n';
    nk[1] = 'k';
    // Bits the format does not define are not carried into the new file.
    auto flags = static_cast<std::uint16_t>(key.flags & regf::kNkDefinedFlags);
    if (compressed) flags |= regf::kNkCompressedName;
    if (isRoot) flags |= regf::kNkHiveEntry | regf::kNkNoDelete;
    Put16(nk + regf::kNkFlags, flags);
    Put64(nk + regf::kNkLastWrite, key.lastWriteTime);
    Put32(nk + regf::kNkParent, parent);
    Put32(nk + regf::kNkVolatileSubKeyList, regf::kNoCell);
    Put16(nk + regf::kNkNameLength, static_cast<std::uint16_t>(nameSize));
    PutStoredName(key.name, compressed, nk + regf::kNkName);
    return offset;
  }

  // The key's class as a UTF-16LE cell; kNoCell (and a size of 0) when it has none.
  std::uint32_t WriteClass(const Key& key, std::size_t* classSize) {
    *classSize = 0;
    if (key.className.empty()) return regf::kNoCell;
    utf16_.clear();
    AppendUtf16Le(key.className, utf16_);
    *classSize = utf16_.size();
    const std::uint32_t classOffset = cells_.Allocate(*classSize);
    std::copy(utf16_.begin(), utf16_.end(), cells_.At(classOffset));
    return classOffset;
  }

  std::uint32_t WriteKey(const Key& key, std::uint32_t parent, bool isRoot) {
    const std::uint32_t offset = WriteKeyHead(key, parent, isRoot);
    const std::uint32_t security = WriteSecurity(key.security);
    std::size_t classSize = 0;
    const std::uint32_t classOffset = WriteClass(key, &classSize);
    std::uint32_t maxValueName = 0;
    std::uint32_t maxValueData = 0;
    const std::uint32_t valueList = WriteValues(key, &maxValueName, &maxValueData);

    std::vector<std::uint32_t> children;
    children.reserve(key.children.size());
    std::uint32_t maxChildName = 0;
    std::uint32_t maxChildClass = 0;
    for (const auto& child : key.children) {
      children.push_back(WriteKey(*child, offset, false));
      maxChildName = std::max(maxChildName, static_cast<std::uint32_t>(Utf16Length(child->name)));
      maxChildClass =
          std::max(maxChildClass, static_cast<std::uint32_t>(Utf16Length(child->className)));
    }
    const std::uint32_t subKeyList = WriteSubKeyList(key, children);

    std::uint8_t* nk = cells_.At(offset);
    Put32(nk + regf::kNkSubKeyCount, static_cast<std::uint32_t>(children.size()));
    Put32(nk + regf::kNkSubKeyList, subKeyList);
    Put32(nk + regf::kNkValueCount, static_cast<std::uint32_t>(key.values.size()));
    Put32(nk + regf::kNkValueList, valueList);
    Put32(nk + regf::kNkSecurity, security);
    Put32(nk + regf::kNkClass, classOffset);
    Put32(nk + regf::kNkMaxSubKeyName, (std::min<std::uint32_t>(maxChildName * 2, 0xFFFF)) |
                                           (static_cast<std::uint32_t>(key.extraFlags) << 16));
    Put32(nk + regf::kNkMaxSubKeyClass, maxChildClass * 2);
    Put32(nk + regf::kNkMaxValueName, maxValueName * 2);
    Put32(nk + regf::kNkMaxValueData, maxValueData);
    Put16(nk + regf::kNkClassLength, static_cast<std::uint16_t>(classSize));
    return offset;
  }

  std::uint32_t WriteValues(const Key& key, std::uint32_t* maxName, std::uint32_t* maxData) {
    if (key.values.empty()) return regf::kNoCell;
    std::vector<std::uint32_t> offsets;
    offsets.reserve(key.values.size());
    for (const Value& value : key.values) {
      std::size_t nameUnits = 0;
      offsets.push_back(WriteValue(value, &nameUnits));
      *maxName = std::max(*maxName, static_cast<std::uint32_t>(nameUnits));
      *maxData = std::max(*maxData, static_cast<std::uint32_t>(value.data.size()));
    }
    const std::uint32_t list = cells_.Allocate(4 * offsets.size());
    std::uint8_t* p = cells_.At(list);
    for (std::size_t i = 0; i < offsets.size(); ++i) Put32(p + 4 * i, offsets[i]);
    return list;
  }

  // Writes the value with its data; `nameUnits` is the length of its name in UTF-16 units.
  std::uint32_t WriteValue(const Value& value, std::size_t* nameUnits) {
    bool compressed = false;
    const std::size_t nameSize = StoredNameSize(value.name, &compressed);
    *nameUnits = compressed ? value.name.size() : Utf16Length(value.name);
    const auto size = static_cast<std::uint32_t>(value.data.size());
    std::uint32_t sizeField = size;
    std::uint32_t dataField = 0;
    if (size <= 4) {
      sizeField |= regf::kVkDataInline;
      for (std::uint32_t i = 0; i < size; ++i)
        dataField |= static_cast<std::uint32_t>(value.data[i]) << (8 * i);
    } else {
      dataField = WriteData(value.data);
    }
    const std::uint32_t offset = cells_.Allocate(regf::kVkName + nameSize);
    std::uint8_t* vk = cells_.At(offset);
    std::fill(vk, vk + regf::kVkName, std::uint8_t{0});
    vk[0] = 'v';
    vk[1] = 'k';
    Put16(vk + regf::kVkNameLength, static_cast<std::uint16_t>(nameSize));
    Put32(vk + regf::kVkDataSize, sizeField);
    Put32(vk + regf::kVkDataOffset, dataField);
    Put32(vk + regf::kVkType, value.type);
    Put16(vk + regf::kVkFlags, compressed ? regf::kVkCompressedName : std::uint16_t{0});
    PutStoredName(value.name, compressed, vk + regf::kVkName);
    return offset;
  }

  std::uint32_t WriteData(const std::vector<std::uint8_t>& data) {
    if (data.size() <= regf::kBigDataSegment) {
      const std::uint32_t cell = cells_.Allocate(data.size());
      std::copy(data.begin(), data.end(), cells_.At(cell));
      return cell;
    }
    const std::size_t count = (data.size() + regf::kBigDataSegment - 1) / regf::kBigDataSegment;
    std::vector<std::uint32_t> segments;
    segments.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t from = i * regf::kBigDataSegment;
      const std::size_t n = std::min(regf::kBigDataSegment, data.size() - from);
      // Every segment gets a whole segment cell, the last one too (its tail stays zero), as
      // Windows allocates them: readers take a segment's length from its cell.
      const std::uint32_t cell = cells_.Allocate(regf::kBigDataSegment);
      std::copy(data.begin() + static_cast<std::ptrdiff_t>(from),
                data.begin() + static_cast<std::ptrdiff_t>(from + n), cells_.At(cell));
      segments.push_back(cell);
    }
    const std::uint32_t list = cells_.Allocate(4 * count);
    for (std::size_t i = 0; i < count; ++i) Put32(cells_.At(list) + 4 * i, segments[i]);
    const std::uint32_t db = cells_.Allocate(regf::kDbHeaderSize);
    std::uint8_t* p = cells_.At(db);
    p[0] = 'd';
    p[1] = 'b';
    Put16(p + regf::kDbSegmentCount, static_cast<std::uint16_t>(count));
    Put32(p + regf::kDbSegmentList, list);
    return db;
  }

  std::uint32_t WriteLeaf(const Key& key, const std::vector<std::uint32_t>& offsets,
                          std::size_t from, std::size_t count) {
    const std::uint32_t leaf = cells_.Allocate(4 + 8 * count);
    std::uint8_t* p = cells_.At(leaf);
    p[0] = 'l';
    p[1] = 'h';
    Put16(p + 2, static_cast<std::uint16_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
      Put32(p + 4 + 8 * i, offsets[from + i]);
      Put32(p + 8 + 8 * i, NameHashOf(key.children[from + i]->name));
    }
    return leaf;
  }

  std::uint32_t WriteSubKeyList(const Key& key, const std::vector<std::uint32_t>& offsets) {
    if (offsets.empty()) return regf::kNoCell;
    if (offsets.size() <= regf::kMaxLeafEntries) return WriteLeaf(key, offsets, 0, offsets.size());
    std::vector<std::uint32_t> leaves;
    for (std::size_t from = 0; from < offsets.size(); from += regf::kMaxLeafEntries) {
      const std::size_t n = std::min(regf::kMaxLeafEntries, offsets.size() - from);
      leaves.push_back(WriteLeaf(key, offsets, from, n));
    }
    const std::uint32_t root = cells_.Allocate(4 + 4 * leaves.size());
    std::uint8_t* p = cells_.At(root);
    p[0] = 'r';
    p[1] = 'i';
    Put16(p + 2, static_cast<std::uint16_t>(leaves.size()));
    for (std::size_t i = 0; i < leaves.size(); ++i) Put32(p + 4 + 4 * i, leaves[i]);
    return root;
  }

  std::uint32_t WriteSecurity(const SharedSecurity& security) {
    const SecurityBytes& bytes = security ? *security : DefaultSecurityDescriptor();
    const auto known = byPointer_.find(&bytes);
    std::size_t index = 0;
    if (known != byPointer_.end()) {
      index = known->second;
    } else {
      const auto same = byContent_.find(bytes);
      if (same != byContent_.end()) {
        index = same->second;
      } else {
        const std::uint32_t offset = cells_.Allocate(regf::kSkDescriptor + bytes.size());
        std::uint8_t* sk = cells_.At(offset);
        std::fill(sk, sk + regf::kSkDescriptor, std::uint8_t{0});
        sk[0] = 's';
        sk[1] = 'k';
        Put32(sk + regf::kSkDescriptorSize, static_cast<std::uint32_t>(bytes.size()));
        std::copy(bytes.begin(), bytes.end(), sk + regf::kSkDescriptor);
        index = security_.size();
        security_.push_back({offset, 0});
        byContent_.emplace(bytes, index);
      }
      byPointer_.emplace(&bytes, index);
      if (security) held_.push_back(security);  // keeps the pointer key valid
    }
    ++security_[index].references;
    return security_[index].offset;
  }

  void LinkSecurityCells() {
    const std::size_t n = security_.size();
    for (std::size_t i = 0; i < n; ++i) {
      std::uint8_t* sk = cells_.At(security_[i].offset);
      Put32(sk + regf::kSkFlink, security_[(i + 1) % n].offset);
      Put32(sk + regf::kSkBlink, security_[(i + n - 1) % n].offset);
      Put32(sk + regf::kSkReferenceCount, security_[i].references);
    }
  }

  CellAllocator cells_;
  std::vector<SecurityCell> security_;
  std::unordered_map<const SecurityBytes*, std::size_t> byPointer_;
  std::map<SecurityBytes, std::size_t> byContent_;
  std::vector<SharedSecurity> held_;
  std::vector<std::uint8_t> utf16_;  // a name or class in UTF-16LE, reused
};

}  // namespace

std::uint32_t FormatMinorForOsVersion(std::uint32_t major, std::uint32_t minor) {
  if (major == 5 && (minor == 1 || minor == 2)) return 5;
  if (major == 6 && minor <= 3) return 5;
  if (major == 10 && minor == 0) return 5;
  return 0;
}

std::vector<std::uint8_t> SerializeHive(const Key& root, std::uint32_t formatMinor,
                                        std::wstring_view fileName, std::uint64_t now) {
  std::uint32_t rootOffset = 0;
  std::vector<std::uint8_t> file = Writer(now).Run(root, &rootOffset);
  const std::size_t binsSize = file.size() - regf::kBaseBlockSize;
  std::uint8_t* base = file.data();
  base[0] = 'r';
  base[1] = 'e';
  base[2] = 'g';
  base[3] = 'f';
  Put32(base + regf::kBasePrimarySequence, 1);
  Put32(base + regf::kBaseSecondarySequence, 1);
  Put64(base + regf::kBaseTimestamp, now);
  Put32(base + regf::kBaseMajor, 1);
  Put32(base + regf::kBaseMinor, formatMinor);
  Put32(base + regf::kBaseFileType, 0);
  Put32(base + regf::kBaseFileFormat, 1);
  Put32(base + regf::kBaseRootCell, rootOffset);
  Put32(base + regf::kBaseDataSize, static_cast<std::uint32_t>(binsSize));
  Put32(base + regf::kBaseClustering, 1);
  std::u16string name = ToUtf16(fileName);
  constexpr std::size_t kMaxNameUnits = regf::kBaseFileNameBytes / 2 - 1;
  if (name.size() > kMaxNameUnits) name = name.substr(name.size() - kMaxNameUnits);
  for (std::size_t i = 0; i < name.size(); ++i) {
    Put16(base + regf::kBaseFileName + 2 * i, static_cast<std::uint16_t>(name[i]));
  }
  base[regf::kBaseOfflineSignature + 0] = 'O';
  base[regf::kBaseOfflineSignature + 1] = 'f';
  base[regf::kBaseOfflineSignature + 2] = 'R';
  base[regf::kBaseOfflineSignature + 3] = 'g';
  Put32(base + regf::kBaseOfflineFlags, 1);
  Put64(base + regf::kBaseSerializationTime, now);
  Put32(base + regf::kBaseChecksum, regf::BaseBlockChecksum(base));
  return file;
}

}  // namespace tw::hive
