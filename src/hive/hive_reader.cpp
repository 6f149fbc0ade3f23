#include "hive/hive_reader.h"

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/format.h"
#include "hive/name_compare.h"
#include "hive/regf_layout.h"
#include "hive/regf_text.h"

namespace tw::hive {

namespace {

using regf::Get16;
using regf::Get32;
using regf::Get64;

constexpr std::uint64_t kMaxFileSize = 0xFFFFFFFFull;

struct CellRef {
  const std::uint8_t* data = nullptr;  // the cell data, after the size field
  std::size_t size = 0;                // bytes of cell data
};

// A key whose sub key list is still to be read.
struct PendingKey {
  Key* key;
  std::uint32_t listOffset;
  std::uint32_t count;
  std::size_t depth;
};

class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> file) : file_(file) {}

  ReadResult Run() {
    ReadResult result;
    if (!ReadBaseBlock() || !ScanBins()) return Finish(std::move(result));
    auto hive = std::make_unique<Hive>();
    hive->minorVersion = minorVersion_;
    hive->root = ReadTree();
    if (!hive->root) return Finish(std::move(result));
    result.hive = std::move(hive);
    return result;
  }

 private:
  ReadResult Finish(ReadResult result) {
    result.error = error_;
    result.reason = reason_;
    return result;
  }

  bool Fail(std::wstring reason, err::Win32Error code = err::kNotRegistryFile) {
    if (error_ == err::kSuccess) {
      error_ = code;
      reason_ = std::move(reason);
    }
    return false;
  }

  bool ReadBaseBlock() {
    const BaseBlockCheck check = CheckBaseBlock(file_, file_.size());
    if (check.error != err::kSuccess) return Fail(check.reason, check.error);
    minorVersion_ = check.minorVersion;
    data_ = file_.subspan(regf::kBaseBlockSize, check.dataSize);
    rootOffset_ = Get32(file_.data() + regf::kBaseRootCell);
    return true;
  }

  bool ScanBins() {
    const std::size_t size = data_.size();
    allocated_.assign(size / 8, false);
    used_.assign(size / 8, false);
    std::size_t pos = 0;
    while (pos < size) {
      const std::uint8_t* bin = data_.data() + pos;
      if (size - pos < regf::kBinHeaderSize || bin[0] != 'h' || bin[1] != 'b' || bin[2] != 'i' ||
          bin[3] != 'n') {
        return Fail(Format(L"no hive bin at offset 0x%08X", static_cast<std::uint32_t>(pos)));
      }
      const std::uint32_t binSize = Get32(bin + regf::kBinSize);
      if (Get32(bin + regf::kBinOffset) != pos || binSize == 0 ||
          binSize % regf::kBinAlignment != 0 || binSize > size - pos) {
        return Fail(
            Format(L"malformed hive bin at offset 0x%08X", static_cast<std::uint32_t>(pos)));
      }
      const std::size_t end = pos + binSize;
      std::size_t cell = pos + regf::kBinHeaderSize;
      while (cell < end) {
        if (end - cell < 8) return Fail(CellError(L"truncated cell", cell));
        const auto raw = static_cast<std::int32_t>(Get32(data_.data() + cell));
        const std::int64_t cellSize = raw < 0 ? -static_cast<std::int64_t>(raw) : raw;
        if (cellSize < 8 || cellSize % 8 != 0 ||
            static_cast<std::uint64_t>(cellSize) > end - cell) {
          return Fail(CellError(L"cell with an invalid size", cell));
        }
        if (raw < 0) allocated_[cell / 8] = true;
        cell += static_cast<std::size_t>(cellSize);
      }
      pos = end;
    }
    return true;
  }

  static std::wstring CellError(const wchar_t* what, std::size_t offset) {
    return Format(L"%s at offset 0x%08X", what, static_cast<std::uint32_t>(offset));
  }

  // An allocated cell that starts at `offset`; `once` marks it used and refuses a second use.
  bool GetCell(std::uint32_t offset, CellRef* cell, bool once = true) {
    if (offset == regf::kNoCell || offset >= data_.size() || offset % 8 != 0 ||
        !allocated_[offset / 8]) {
      return Fail(CellError(L"reference to no allocated cell", offset));
    }
    if (once) {
      if (used_[offset / 8]) return Fail(CellError(L"cell referenced twice", offset));
      used_[offset / 8] = true;
    }
    const std::uint8_t* p = data_.data() + offset;
    const auto raw = static_cast<std::int32_t>(Get32(p));
    cell->data = p + 4;
    cell->size = static_cast<std::size_t>(-static_cast<std::int64_t>(raw)) - 4;
    return true;
  }

  std::unique_ptr<Key> ReadTree() {
    std::vector<PendingKey> pending;
    auto root = ReadKey(rootOffset_, nullptr, 0, &pending);
    if (!root) return nullptr;
    while (!pending.empty()) {
      const PendingKey item = pending.back();
      pending.pop_back();
      if (!ReadSubKeys(item, &pending)) return nullptr;
    }
    return root;
  }

  std::unique_ptr<Key> ReadKey(std::uint32_t offset, Key* parent, std::size_t depth,
                               std::vector<PendingKey>* pending) {
    CellRef cell;
    if (!GetCell(offset, &cell)) return nullptr;
    const std::uint8_t* nk = cell.data;
    if (cell.size < regf::kNkName || !regf::HasSignature(nk, "nk")) {
      Fail(CellError(L"expected a key node", offset));
      return nullptr;
    }
    const std::size_t nameLength = Get16(nk + regf::kNkNameLength);
    if (regf::kNkName + nameLength > cell.size) {
      Fail(CellError(L"key name runs past its cell", offset));
      return nullptr;
    }
    auto key = std::make_unique<Key>();
    key->parent = parent;
    const std::uint16_t flags = Get16(nk + regf::kNkFlags);
    key->name = (flags & regf::kNkCompressedName) != 0
                    ? FromLatin1(nk + regf::kNkName, nameLength)
                    : FromUtf16Le(nk + regf::kNkName, nameLength);
    // A backslash separates the names of a key path: no key Windows makes holds one. Read as
    // one name, a path opened through it would name another key (a child "a\a" beside "a" is
    // a's own child), so that walks over such a crafted hive would visit keys again and again.
    if (parent != nullptr && key->name.find(L'\\') != std::wstring::npos) {
      Fail(CellError(L"key name holds a backslash", offset));
      return nullptr;
    }
    key->flags = static_cast<std::uint16_t>(
        flags & ~(regf::kNkCompressedName | regf::kNkHiveEntry | regf::kNkNoDelete));
    key->extraFlags = static_cast<std::uint16_t>(Get32(nk + regf::kNkMaxSubKeyName) >> 16);
    key->lastWriteTime = Get64(nk + regf::kNkLastWrite);
    if (!ReadClass(nk, offset, key.get()) || !ReadSecurity(nk, parent, key.get()) ||
        !ReadValues(nk, key.get())) {
      return nullptr;
    }
    const std::uint32_t subKeys = Get32(nk + regf::kNkSubKeyCount);
    if (subKeys != 0) {
      if (depth >= kMaxDepth) {
        Fail(CellError(L"keys nested too deeply", offset));
        return nullptr;
      }
      pending->push_back({key.get(), Get32(nk + regf::kNkSubKeyList), subKeys, depth});
    }
    return key;
  }

  bool ReadClass(const std::uint8_t* nk, std::uint32_t offset, Key* key) {
    const std::size_t length = Get16(nk + regf::kNkClassLength);
    if (length == 0) return true;
    CellRef cell;
    if (!GetCell(Get32(nk + regf::kNkClass), &cell)) return false;
    if (length > cell.size) return Fail(CellError(L"class name runs past its cell", offset));
    key->className = FromUtf16Le(cell.data, length);
    return true;
  }

  bool ReadSecurity(const std::uint8_t* nk, const Key* parent, Key* key) {
    const std::uint32_t offset = Get32(nk + regf::kNkSecurity);
    if (offset == regf::kNoCell && parent != nullptr) {
      key->security = parent->security;  // no cell of its own: share the parent's
      return true;
    }
    const auto known = security_.find(offset);
    if (known != security_.end()) {
      key->security = known->second;
      return true;
    }
    CellRef cell;
    if (!GetCell(offset, &cell, /*once=*/false)) return false;
    if (cell.size < regf::kSkDescriptor || !regf::HasSignature(cell.data, "sk")) {
      return Fail(CellError(L"expected a security cell", offset));
    }
    const std::size_t size = Get32(cell.data + regf::kSkDescriptorSize);
    if (size < 20 || size > cell.size - regf::kSkDescriptor) {
      return Fail(CellError(L"security descriptor runs past its cell", offset));
    }
    const std::uint8_t* sd = cell.data + regf::kSkDescriptor;
    auto shared = std::make_shared<const SecurityBytes>(sd, sd + size);
    security_.emplace(offset, shared);
    key->security = std::move(shared);
    return true;
  }

  bool ReadValues(const std::uint8_t* nk, Key* key) {
    const std::uint32_t count = Get32(nk + regf::kNkValueCount);
    if (count == 0) return true;
    CellRef list;
    if (!GetCell(Get32(nk + regf::kNkValueList), &list)) return false;
    if (count > list.size / 4) return Fail(L"value list shorter than its count");
    key->values.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
      if (!ReadValue(Get32(list.data + 4 * i), key)) return false;
    }
    return true;
  }

  bool ReadValue(std::uint32_t offset, Key* key) {
    CellRef cell;
    if (!GetCell(offset, &cell)) return false;
    const std::uint8_t* vk = cell.data;
    if (cell.size < regf::kVkName || !regf::HasSignature(vk, "vk")) {
      return Fail(CellError(L"expected a value", offset));
    }
    const std::size_t nameLength = Get16(vk + regf::kVkNameLength);
    if (regf::kVkName + nameLength > cell.size) {
      return Fail(CellError(L"value name runs past its cell", offset));
    }
    // Filled in place; a failure discards the whole tree.
    Value& value = key->values.emplace_back();
    const std::uint8_t* name = vk + regf::kVkName;
    if ((Get16(vk + regf::kVkFlags) & regf::kVkCompressedName) != 0) {
      std::copy(name, name + nameLength, value.name.Overwrite(nameLength));  // Latin-1
    } else {
      value.name = FromUtf16Le(name, nameLength);
    }
    value.type = Get32(vk + regf::kVkType);
    const std::uint32_t sizeField = Get32(vk + regf::kVkDataSize);
    const std::uint32_t dataOffset = Get32(vk + regf::kVkDataOffset);
    if ((sizeField & regf::kVkDataInline) != 0) {
      const std::uint32_t size = sizeField & ~regf::kVkDataInline;
      if (size > 4) return Fail(CellError(L"inline value data longer than 4 bytes", offset));
      value.data.assign(vk + regf::kVkDataOffset, vk + regf::kVkDataOffset + size);
    } else if (sizeField != 0 && !ReadData(dataOffset, sizeField, &value.data)) {
      return false;
    }
    return true;
  }

  bool ReadData(std::uint32_t offset, std::uint32_t size, std::vector<std::uint8_t>* out) {
    CellRef cell;
    if (!GetCell(offset, &cell)) return false;
    if (minorVersion_ > 3 && size > regf::kBigDataSegment && cell.size >= regf::kDbHeaderSize &&
        regf::HasSignature(cell.data, "db")) {
      return ReadBigData(offset, cell, size, out);
    }
    if (size > cell.size) return Fail(CellError(L"value data runs past its cell", offset));
    out->assign(cell.data, cell.data + size);
    return true;
  }

  bool ReadBigData(std::uint32_t offset, const CellRef& db, std::uint32_t size,
                   std::vector<std::uint8_t>* out) {
    const std::size_t segments = Get16(db.data + regf::kDbSegmentCount);
    CellRef list;
    if (!GetCell(Get32(db.data + regf::kDbSegmentList), &list)) return false;
    if (segments > list.size / 4 || segments * regf::kBigDataSegment < size) {
      return Fail(CellError(L"big data with a wrong segment count", offset));
    }
    out->reserve(size);
    for (std::size_t i = 0; i < segments && out->size() < size; ++i) {
      CellRef segment;
      if (!GetCell(Get32(list.data + 4 * i), &segment)) return false;
      const std::size_t want = std::min<std::size_t>(regf::kBigDataSegment, size - out->size());
      if (want > segment.size) return Fail(CellError(L"big data segment too short", offset));
      out->insert(out->end(), segment.data, segment.data + want);
    }
    if (out->size() != size) return Fail(CellError(L"big data shorter than its size", offset));
    return true;
  }

  // Collects the key node offsets of a sub key list (a leaf, or an index root of leaves).
  bool ReadSubKeyList(std::uint32_t offset, bool allowRoot, std::vector<std::uint32_t>* out) {
    CellRef cell;
    if (!GetCell(offset, &cell)) return false;
    if (cell.size < 4) return Fail(CellError(L"sub key list too short", offset));
    const std::uint8_t* p = cell.data;
    const std::size_t count = Get16(p + 2);
    if (regf::HasSignature(p, "ri")) {
      if (!allowRoot) return Fail(CellError(L"index root inside an index root", offset));
      if (count > (cell.size - 4) / 4) return Fail(CellError(L"index root too short", offset));
      for (std::size_t i = 0; i < count; ++i) {
        if (!ReadSubKeyList(Get32(p + 4 + 4 * i), false, out)) return false;
      }
      return true;
    }
    std::size_t stride = 0;
    if (regf::HasSignature(p, "li")) stride = 4;
    if (regf::HasSignature(p, "lf") || regf::HasSignature(p, "lh")) stride = 8;
    if (stride == 0) return Fail(CellError(L"expected a sub key list", offset));
    if (count > (cell.size - 4) / stride) return Fail(CellError(L"sub key list too short", offset));
    for (std::size_t i = 0; i < count; ++i) out->push_back(Get32(p + 4 + stride * i));
    return true;
  }

  bool ReadSubKeys(const PendingKey& item, std::vector<PendingKey>* pending) {
    std::vector<std::uint32_t>& offsets = subKeyOffsets_;
    offsets.clear();
    if (!ReadSubKeyList(item.listOffset, true, &offsets)) return false;
    if (offsets.size() != item.count) {
      return Fail(CellError(L"sub key list does not match the key's count", item.listOffset));
    }
    Key& key = *item.key;
    key.children.reserve(offsets.size());
    for (const std::uint32_t offset : offsets) {
      auto child = ReadKey(offset, &key, item.depth + 1, pending);
      if (!child) return false;
      key.children.push_back(std::move(child));
    }
    const auto less = [](const std::unique_ptr<Key>& a, const std::unique_ptr<Key>& b) {
      return CompareNames(a->name, b->name) < 0;
    };
    if (!std::is_sorted(key.children.begin(), key.children.end(), less)) {
      std::stable_sort(key.children.begin(), key.children.end(), less);
    }
    for (std::size_t i = 1; i < key.children.size(); ++i) {
      if (NamesEqual(key.children[i - 1]->name, key.children[i]->name)) {
        return Fail(CellError(L"two sub keys with the same name", item.listOffset));
      }
    }
    return true;
  }

  std::span<const std::uint8_t> file_;
  std::span<const std::uint8_t> data_;
  std::uint32_t minorVersion_ = 0;
  std::uint32_t rootOffset_ = 0;
  std::vector<bool> allocated_;  // per 8-byte unit: an allocated cell starts here
  std::vector<bool> used_;       // per 8-byte unit: that cell was already read
  std::unordered_map<std::uint32_t, SharedSecurity> security_;
  std::vector<std::uint32_t> subKeyOffsets_;  // of the key ReadSubKeys works on
  err::Win32Error error_ = err::kSuccess;
  std::wstring reason_;
};

}  // namespace

BaseBlockCheck CheckBaseBlock(std::span<const std::uint8_t> head, std::uint64_t fileSize) {
  BaseBlockCheck check;
  const auto fail = [&check](std::wstring reason, err::Win32Error code = err::kNotRegistryFile) {
    check.error = code;
    check.reason = std::move(reason);
    return check;
  };
  if (fileSize == 0) return fail(L"the file is empty", err::kBadDb);
  if (fileSize > kMaxFileSize) return fail(L"the file is larger than 4 GB", err::kBadDb);
  if (fileSize < regf::kBaseBlockSize || head.size() < regf::kBaseBlockSize)
    return fail(L"the base block is truncated");
  const std::uint8_t* base = head.data();
  if (base[0] != 'r' || base[1] != 'e' || base[2] != 'g' || base[3] != 'f') {
    return fail(L"the file does not begin with the signature \"regf\"");
  }
  if (Get32(base + regf::kBaseChecksum) != regf::BaseBlockChecksum(base)) {
    return fail(L"the base block checksum is wrong");
  }
  const std::uint32_t major = Get32(base + regf::kBaseMajor);
  check.minorVersion = Get32(base + regf::kBaseMinor);
  if (major != 1 || check.minorVersion < 3 || check.minorVersion > 6) {
    return fail(Format(L"unsupported format version %u.%u", major, check.minorVersion));
  }
  if (Get32(base + regf::kBaseFileType) != 0) return fail(L"not a primary hive file");
  check.dataSize = Get32(base + regf::kBaseDataSize);
  if (check.dataSize == 0 || check.dataSize % regf::kBinAlignment != 0) {
    return fail(Format(L"invalid hive bins data size 0x%08X", check.dataSize));
  }
  if (fileSize - regf::kBaseBlockSize < check.dataSize) {
    return fail(
        Format(L"the file is truncated: hive bins data of 0x%08X bytes announced", check.dataSize));
  }
  return check;
}

ReadResult ParseHive(std::span<const std::uint8_t> file) { return Reader(file).Run(); }

}  // namespace tw::hive
