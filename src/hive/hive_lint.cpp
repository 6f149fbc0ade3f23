#include "hive/hive_lint.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "base/format.h"
#include "hive/hive_reader.h"
#include "hive/name_compare.h"
#include "hive/regf_layout.h"
#include "hive/regf_text.h"

namespace tw::hive {

namespace {

using regf::Get16;
using regf::Get32;

class Linter {
 public:
  explicit Linter(std::span<const std::uint8_t> file) : file_(file) {}

  LintReport Run() {
    const ReadResult read = ParseHive(file_);
    if (read.error != 0) {
      report_.problems.push_back(read.reason);
      return std::move(report_);
    }
    const std::uint8_t* base = file_.data();
    if (Get32(base + regf::kBasePrimarySequence) != Get32(base + regf::kBaseSecondarySequence)) {
      report_.problems.push_back(L"the sequence numbers differ");
    }
    data_ = file_.data() + regf::kBaseBlockSize;
    size_ = Get32(base + regf::kBaseDataSize);
    bigData_ = Get32(base + regf::kBaseMinor) > 3;
    CountFreeCells();
    WalkKeys(Get32(base + regf::kBaseRootCell));
    CheckSecurityList();
    for (const NoteKind& note : notes_) {
      report_.notes.push_back(Format(L"%s: %u cells, the first 0x%08X", note.what,
                                     static_cast<unsigned>(note.count), note.first));
    }
    return std::move(report_);
  }

 private:
  const std::uint8_t* Cell(std::uint32_t offset) const { return data_ + offset + 4; }
  std::size_t CellSize(std::uint32_t offset) const {
    return static_cast<std::size_t>(
               -static_cast<std::int64_t>(static_cast<std::int32_t>(Get32(data_ + offset)))) -
           4;
  }

  void Problem(const wchar_t* what, std::uint32_t offset) {
    report_.problems.push_back(Format(L"%s (cell 0x%08X)", what, offset));
  }

  // A harmless habit: counted by kind, the first cell kept.
  void Note(const wchar_t* what, std::uint32_t offset) {
    for (NoteKind& note : notes_) {
      if (note.what == what) {
        ++note.count;
        return;
      }
    }
    notes_.push_back({what, 1, offset});
  }

  // A maximum-length field: smaller than what it bounds is a fault, larger a habit.
  void CheckBound(std::uint32_t stored, std::uint32_t needed, const wchar_t* small,
                  const wchar_t* large, std::uint32_t nk) {
    if (stored < needed) Problem(small, nk);
    if (stored > needed) Note(large, nk);
  }

  void CountFreeCells() {
    std::size_t pos = 0;
    while (pos < size_) {
      const std::size_t end = pos + Get32(data_ + pos + regf::kBinSize);
      for (std::size_t cell = pos + regf::kBinHeaderSize; cell < end;) {
        const auto raw = static_cast<std::int32_t>(Get32(data_ + cell));
        const std::size_t length =
            static_cast<std::size_t>(raw < 0 ? -static_cast<std::int64_t>(raw) : raw);
        if (raw > 0) {
          ++report_.freeCells;
          report_.freeBytes += length;
        } else {
          allocated_.push_back(static_cast<std::uint32_t>(cell));
        }
        cell += length;
      }
      pos = end;
    }
  }

  // The name of a key node as stored, and its length in UTF-16 units.
  std::wstring NodeName(std::uint32_t nk, std::size_t* units) const {
    const std::uint8_t* p = Cell(nk);
    const std::size_t bytes = Get16(p + regf::kNkNameLength);
    const bool compressed = (Get16(p + regf::kNkFlags) & regf::kNkCompressedName) != 0;
    *units = compressed ? bytes : bytes / 2;
    return compressed ? FromLatin1(p + regf::kNkName, bytes)
                      : FromUtf16Le(p + regf::kNkName, bytes);
  }

  void CollectList(std::uint32_t list, std::vector<std::uint32_t>* children) {
    const std::uint8_t* p = Cell(list);
    const std::size_t count = Get16(p + 2);
    if (regf::HasSignature(p, "ri")) {
      for (std::size_t i = 0; i < count; ++i) CollectList(Get32(p + 4 + 4 * i), children);
      return;
    }
    const bool hashed = regf::HasSignature(p, "lh");
    const bool hinted = regf::HasSignature(p, "lf");
    const std::size_t stride = hashed || hinted ? 8 : 4;
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint32_t child = Get32(p + 4 + stride * i);
      children->push_back(child);
      std::size_t units = 0;
      const std::wstring name = NodeName(child, &units);
      if (hashed) {
        if (Get32(p + 8 + stride * i) != NameHashOf(name)) Problem(L"wrong lh hash", list);
      }
      if (hinted) {
        std::uint8_t hint[4] = {0, 0, 0, 0};
        const bool latin = FitsLatin1(name);
        for (std::size_t k = 0; k < 4 && k < name.size() && latin; ++k) {
          hint[k] = static_cast<std::uint8_t>(name[k]);
        }
        // Windows writes its own hints for names beyond ASCII; lookups by such names do
        // not rely on them.
        if (!std::equal(hint, hint + 4, p + 8 + stride * i)) {
          const bool ascii =
              std::all_of(name.begin(), name.end(), [](wchar_t c) { return c < 0x80; });
          if (ascii) {
            Problem(L"wrong lf hint", list);
          } else {
            Note(L"lf hint differs for a name beyond ASCII", list);
          }
        }
      }
    }
  }

  void WalkKeys(std::uint32_t root) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> stack{{root, regf::kNoCell}};
    while (!stack.empty()) {
      const auto [nk, parent] = stack.back();
      stack.pop_back();
      const std::uint8_t* p = Cell(nk);
      if (parent != regf::kNoCell && Get32(p + regf::kNkParent) != parent) {
        Problem(L"parent link does not name the parent", nk);
      }
      const std::uint32_t sk = Get32(p + regf::kNkSecurity);
      if (sk != regf::kNoCell) ++references_[sk];

      std::vector<std::uint32_t> children;
      if (Get32(p + regf::kNkSubKeyCount) != 0)
        CollectList(Get32(p + regf::kNkSubKeyList), &children);
      std::uint32_t maxName = 0;
      std::uint32_t maxClass = 0;
      std::wstring previous;
      for (std::size_t i = 0; i < children.size(); ++i) {
        std::size_t units = 0;
        std::wstring name = NodeName(children[i], &units);
        if (i > 0 && CompareNames(previous, name) >= 0) Problem(L"sub keys out of order", nk);
        previous = std::move(name);
        maxName = std::max(maxName, static_cast<std::uint32_t>(units * 2));
        maxClass =
            std::max<std::uint32_t>(maxClass, Get16(Cell(children[i]) + regf::kNkClassLength));
        stack.emplace_back(children[i], nk);
      }
      std::uint32_t maxValueName = 0;
      std::uint32_t maxValueData = 0;
      const std::uint32_t values = Get32(p + regf::kNkValueCount);
      for (std::uint32_t i = 0; i < values; ++i) {
        const std::uint8_t* vk = Cell(Get32(Cell(Get32(p + regf::kNkValueList)) + 4 * i));
        const std::uint32_t bytes = Get16(vk + regf::kVkNameLength);
        const bool compressed = (Get16(vk + regf::kVkFlags) & regf::kVkCompressedName) != 0;
        maxValueName = std::max(maxValueName, compressed ? bytes * 2 : bytes);
        maxValueData = std::max(maxValueData, Get32(vk + regf::kVkDataSize) & ~regf::kVkDataInline);
        CheckBigData(vk);
      }
      CheckBound(Get32(p + regf::kNkMaxSubKeyName) & 0xFFFF, maxName,
                 L"largest sub key name length too small",
                 L"largest sub key name length larger than needed", nk);
      CheckBound(Get32(p + regf::kNkMaxSubKeyClass), maxClass,
                 L"largest sub key class length too small",
                 L"largest sub key class length larger than needed", nk);
      CheckBound(Get32(p + regf::kNkMaxValueName), maxValueName,
                 L"largest value name length too small",
                 L"largest value name length larger than needed", nk);
      CheckBound(Get32(p + regf::kNkMaxValueData), maxValueData,
                 L"largest value data size too small",
                 L"largest value data size larger than needed", nk);
    }
  }

  // Readers take a big data segment's length from its cell (the cell size less 8), so every
  // segment cell, the last one too, must be that large for the bytes it holds.
  void CheckBigData(const std::uint8_t* vk) {
    const std::uint32_t sizeField = Get32(vk + regf::kVkDataSize);
    if (!bigData_ || (sizeField & regf::kVkDataInline) != 0 || sizeField <= regf::kBigDataSegment) {
      return;
    }
    const std::uint32_t db = Get32(vk + regf::kVkDataOffset);
    if (CellSize(db) < regf::kDbHeaderSize || !regf::HasSignature(Cell(db), "db")) return;
    const std::uint8_t* list = Cell(Get32(Cell(db) + regf::kDbSegmentList));
    const std::size_t segments = Get16(Cell(db) + regf::kDbSegmentCount);
    std::size_t left = sizeField;
    for (std::size_t i = 0; i < segments && left > 0; ++i) {
      const std::uint32_t segment = Get32(list + 4 * i);
      const std::size_t holds = std::min(regf::kBigDataSegment, left);
      if (CellSize(segment) < holds + 4)
        Problem(L"big data segment cell too small for readers", segment);
      left -= holds;
    }
  }

  // An allocated cell holding a key security record.
  bool IsSecurityCell(std::uint32_t offset) const {
    return std::binary_search(allocated_.begin(), allocated_.end(), offset) &&
           CellSize(offset) >= regf::kSkDescriptor && regf::HasSignature(Cell(offset), "sk");
  }

  void CheckSecurityList() {
    if (references_.empty()) return;
    for (const auto& [sk, users] : references_) {
      const std::uint32_t count = Get32(Cell(sk) + regf::kSkReferenceCount);
      if (count < users) Problem(L"security cell counted fewer times than keys use it", sk);
      if (count > users) Note(L"security cell counted more times than keys use it", sk);
    }
    // Following the forward links from a cell in use must come back to it through allocated
    // security cells, each backward link naming the cell before, and pass every cell in use.
    // Cells no key uses may be on the list (Windows leaves them).
    const std::uint32_t start = references_.begin()->first;
    std::set<std::uint32_t> visited{start};
    for (std::uint32_t at = start;;) {
      const std::uint32_t next = Get32(Cell(at) + regf::kSkFlink);
      if (!IsSecurityCell(next)) return Problem(L"security list leaves the security cells", at);
      if (Get32(Cell(next) + regf::kSkBlink) != at) {
        return Problem(L"security list backward link is wrong", next);
      }
      if (next == start) break;
      if (!visited.insert(next).second) return Problem(L"security list is not circular", start);
      if (references_.count(next) == 0) Note(L"security cell no key uses on the list", next);
      at = next;
    }
    for (const auto& entry : references_) {
      if (visited.count(entry.first) == 0) {
        return Problem(L"security list does not hold every security cell", entry.first);
      }
    }
  }

  struct NoteKind {
    const wchar_t* what;
    std::size_t count;
    std::uint32_t first;
  };

  std::span<const std::uint8_t> file_;
  const std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
  std::map<std::uint32_t, std::uint32_t> references_;  // security cell -> keys using it
  std::vector<std::uint32_t> allocated_;               // allocated cells, in file order
  std::vector<NoteKind> notes_;
  bool bigData_ = false;  // the format version stores data beyond a segment as big data
  LintReport report_;
};

}  // namespace

LintReport LintHive(std::span<const std::uint8_t> file) { return Linter(file).Run(); }

}  // namespace tw::hive
