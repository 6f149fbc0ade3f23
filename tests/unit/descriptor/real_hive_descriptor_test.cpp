// The security cells of hives that Windows wrote hold self-relative descriptors that Windows
// made. Parsing them and building them again must give the same bytes; and the descriptor that
// Windows XP gave a key it created under the root key must be what our inheritance computes.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/ace_order.h"
#include "descriptor/inheritance.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/well_known_sids.h"

namespace tw::security {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes ReadHive(const std::string& name) {
  std::ifstream file(std::string(TARNWICK_TESTDATA_DIR) + "/hives/" + name, std::ios::binary);
  EXPECT_TRUE(file.good()) << name;
  return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::uint32_t Le32(const Bytes& bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) | (static_cast<std::uint32_t>(bytes[at + 1]) << 8) |
         (static_cast<std::uint32_t>(bytes[at + 2]) << 16) |
         (static_cast<std::uint32_t>(bytes[at + 3]) << 24);
}

// The descriptors of all allocated "sk" cells, in file order. A minimal walk over the hive
// bins (4 KiB base block, then bins of cells whose size is negative while allocated), written
// here so that these tests do not depend on the hive engine.
std::vector<Bytes> SecurityCellDescriptors(const Bytes& hive) {
  std::vector<Bytes> found;
  std::size_t bin = 4096;
  while (bin + 32 <= hive.size() && hive[bin] == 'h' && hive[bin + 1] == 'b') {
    const std::size_t binSize = Le32(hive, bin + 8);
    if (binSize == 0 || bin + binSize > hive.size()) break;
    std::size_t cell = bin + 32;
    while (cell + 4 <= bin + binSize) {
      const auto size = static_cast<std::int32_t>(Le32(hive, cell));
      const std::size_t length = size < 0
                                     ? static_cast<std::size_t>(-static_cast<std::int64_t>(size))
                                     : static_cast<std::size_t>(size);
      if (length < 8 || cell + length > bin + binSize) break;
      if (size < 0 && hive[cell + 4] == 's' && hive[cell + 5] == 'k') {
        const std::size_t sdSize = Le32(hive, cell + 20);
        if (24 + sdSize <= length) {
          found.emplace_back(hive.begin() + static_cast<std::ptrdiff_t>(cell + 24),
                             hive.begin() + static_cast<std::ptrdiff_t>(cell + 24 + sdSize));
        }
      }
      cell += length;
    }
    bin += binSize;
  }
  return found;
}

TEST(RealHiveDescriptors, RebuildToIdenticalBytes) {
  std::size_t checked = 0;
  for (const char* name :
       {"windows-2003-minimal.hiv", "windows-xp-special.hiv", "rlenvalue-test.hiv"}) {
    for (const Bytes& bytes : SecurityCellDescriptors(ReadHive(name))) {
      SecurityDescriptor sd;
      ASSERT_EQ(ParseSelfRelative(bytes, &sd), err::kSuccess) << name;
      EXPECT_EQ(MakeSelfRelative(sd), bytes) << name;
      ++checked;
    }
  }
  EXPECT_EQ(checked, 4u);  // one root cell per hive, and the key Windows XP created
}

TEST(RealHiveDescriptors, RootDescriptorReadsAsExpected) {
  const std::vector<Bytes> cells = SecurityCellDescriptors(ReadHive("windows-2003-minimal.hiv"));
  ASSERT_EQ(cells.size(), 1u);
  SecurityDescriptor root;
  ASSERT_EQ(ParseSelfRelative(cells[0], &root), err::kSuccess);
  EXPECT_EQ(SelfRelativeControl(cells[0]), 0x9404);  // self-relative, protected, auto, DACL
  EXPECT_EQ(root.control, kSeDaclProtected | kSeDaclAutoInherited | kSeDaclPresent);
  EXPECT_EQ(root.owner, BuiltinAdministratorsSid());
  EXPECT_EQ(root.group, LocalSystemSid());
  EXPECT_FALSE(root.HasSacl());
  ASSERT_TRUE(root.dacl.has_value());
  ASSERT_EQ(root.dacl->aces().size(), 10u);
  EXPECT_EQ(root.dacl->aces()[0], Ace::Allowed(0x00020019, BuiltinUsersSid()));
  EXPECT_EQ(root.dacl->aces()[9],
            Ace::Allowed(kGenericAll, CreatorOwnerSid(), kContainerInheritAce | kInheritOnlyAce));
  EXPECT_TRUE(IsCanonical(*root.dacl));
  // Windows placed the DACL right after the header, then the owner, then the group.
  EXPECT_EQ(Le32(cells[0], 16), 20u);
  EXPECT_EQ(Le32(cells[0], 4), 20u + root.dacl->size());
  EXPECT_EQ(Le32(cells[0], 8), 20u + root.dacl->size() + 16u);
}

TEST(RealHiveDescriptors, WindowsInheritanceMatchesOurs) {
  const std::vector<Bytes> cells = SecurityCellDescriptors(ReadHive("windows-xp-special.hiv"));
  ASSERT_EQ(cells.size(), 2u);
  SecurityDescriptor root;
  SecurityDescriptor child;
  ASSERT_EQ(ParseSelfRelative(cells[0], &root), err::kSuccess);
  ASSERT_EQ(ParseSelfRelative(cells[1], &child), err::kSuccess);
  ASSERT_TRUE(child.owner && child.group);
  EXPECT_EQ(child.owner->ToString(), L"S-1-5-21-1708537768-220523388-1801674531-500");

  const SecurityDescriptor ours =
      InheritFromParent(root, true, *child.owner, *child.group, kRegistryKeyMapping);
  EXPECT_EQ(ours, child);
  EXPECT_EQ(MakeSelfRelative(ours), cells[1]);
}

}  // namespace
}  // namespace tw::security
