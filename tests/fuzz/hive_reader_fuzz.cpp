// libFuzzer target for the hive reader: no input may crash, hang or read outside itself. Any
// input the reader accepts must be written by the writer into a hive that passes the structural
// lint and reads back to the same tree (names, classes, times, flags, values, descriptors; a key
// without a descriptor is written with the default one). The lint must also survive any input.
// Each input is tried as it is and, when it holds a base block, with its checksum made right, so
// that mutations of the base block's fields get past the checksum.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "hive/hive_lint.h"
#include "hive/hive_reader.h"
#include "hive/hive_writer.h"
#include "hive/regf_layout.h"
#include "hive/security_parts.h"

namespace {

namespace hive = tw::hive;

void Require(bool condition) {
  if (!condition) std::abort();
}

const hive::SecurityBytes& SecurityOf(const hive::Key& key) {
  return key.security ? *key.security : hive::DefaultSecurityDescriptor();
}

void RequireSameTree(const hive::Key& root, const hive::Key& copy) {
  std::vector<std::pair<const hive::Key*, const hive::Key*>> stack{{&root, &copy}};
  while (!stack.empty()) {
    const auto [a, b] = stack.back();
    stack.pop_back();
    Require(a->name == b->name);
    Require(a->className == b->className);
    Require(a->lastWriteTime == b->lastWriteTime);
    Require(a->flags == b->flags);
    Require(a->extraFlags == b->extraFlags);
    Require(SecurityOf(*a) == SecurityOf(*b));
    Require(a->values.size() == b->values.size());
    for (std::size_t i = 0; i < a->values.size(); ++i) {
      Require(a->values[i].name == b->values[i].name);
      Require(a->values[i].type == b->values[i].type);
      Require(a->values[i].data == b->values[i].data);
    }
    Require(a->children.size() == b->children.size());
    for (std::size_t i = 0; i < a->children.size(); ++i) {
      stack.emplace_back(a->children[i].get(), b->children[i].get());
    }
  }
}

void CheckHive(std::span<const std::uint8_t> input) {
  (void)hive::LintHive(input);
  hive::ReadResult read = hive::ParseHive(input);
  if (read.error != tw::err::kSuccess) {
    Require(!read.hive);
    return;
  }
  Require(read.hive && read.hive->root);
  const std::vector<std::uint8_t> written = hive::SerializeHive(*read.hive->root, 5, L"fuzz", 1);
  Require(hive::LintHive(written).problems.empty());
  hive::ReadResult again = hive::ParseHive(written);
  Require(again.error == tw::err::kSuccess);
  RequireSameTree(*read.hive->root, *again.hive->root);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> input(data, size);
  CheckHive(input);
  if (size >= hive::regf::kBaseBlockSize) {
    std::vector<std::uint8_t> fixed(data, data + size);
    hive::regf::Put32(fixed.data() + hive::regf::kBaseChecksum,
                      hive::regf::BaseBlockChecksum(fixed.data()));
    if (fixed != std::vector<std::uint8_t>(data, data + size)) CheckHive(fixed);
  }
  return 0;
}
