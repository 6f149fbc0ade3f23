#include "hive/hive_lint.h"

#include <algorithm>
#include <map>
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
    CountFreeCells();
    WalkKeys(Get32(base + regf::kBaseRootCell));
    CheckSecurityList();
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
        if (!std::equal(hint, hint + 4, p + 8 + stride * i)) Problem(L"wrong lf hint", list);
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
      }
      if ((Get32(p + regf::kNkMaxSubKeyName) & 0xFFFF) != maxName) {
        Problem(L"wrong largest sub key name length", nk);
      }
      if (Get32(p + regf::kNkMaxSubKeyClass) != maxClass) {
        Problem(L"wrong largest sub key class length", nk);
      }
      if (Get32(p + regf::kNkMaxValueName) != maxValueName) {
        Problem(L"wrong largest value name length", nk);
      }
      if (Get32(p + regf::kNkMaxValueData) != maxValueData) {
        Problem(L"wrong largest value data size", nk);
      }
    }
  }

  bool IsSecurityCell(std::uint32_t offset) const {
    return offset < size_ && offset % 8 == 0 && references_.count(offset) != 0;
  }

  void CheckSecurityList() {
    if (references_.empty()) return;
    for (const auto& [sk, users] : references_) {
      if (Get32(Cell(sk) + regf::kSkReferenceCount) != users) {
        Problem(L"security cell reference count differs from its users", sk);
      }
    }
    // Following the forward links from any cell must visit every cell once and come back; each
    // backward link must name the cell before.
    const std::uint32_t start = references_.begin()->first;
    std::uint32_t at = start;
    for (std::size_t steps = 0; steps < references_.size(); ++steps) {
      const std::uint32_t next = Get32(Cell(at) + regf::kSkFlink);
      if (!IsSecurityCell(next)) return Problem(L"security list leaves the security cells", at);
      if (Get32(Cell(next) + regf::kSkBlink) != at) {
        return Problem(L"security list backward link is wrong", next);
      }
      at = next;
      if (at == start && steps + 1 != references_.size()) {
        return Problem(L"security list does not hold every security cell", start);
      }
    }
    if (at != start) Problem(L"security list is not circular", start);
  }

  std::span<const std::uint8_t> file_;
  const std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
  std::map<std::uint32_t, std::uint32_t> references_;  // security cell -> keys using it
  LintReport report_;
};

}  // namespace

LintReport LintHive(std::span<const std::uint8_t> file) { return Linter(file).Run(); }

}  // namespace tw::hive
