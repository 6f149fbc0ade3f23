// CheckBaseBlock: ParseHive's first checks, on a file's first bytes and its size alone.
#include <gtest/gtest.h>

#include <vector>

#include "hive/hive_reader.h"
#include "hive/regf_layout.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

TEST(CheckBaseBlock, AgreesWithTheReaderOnARealHive) {
  const std::vector<std::uint8_t> file =
      testing::ReadBytes(testing::TestHive("windows-2003-minimal.hiv"));
  const std::vector<std::uint8_t> head(file.begin(), file.begin() + regf::kBaseBlockSize);
  const BaseBlockCheck check = CheckBaseBlock(head, file.size());
  EXPECT_EQ(check.error, err::kSuccess) << check.reason;
  EXPECT_EQ(check.dataSize, file.size() - regf::kBaseBlockSize);
  EXPECT_EQ(ParseHive(file).error, err::kSuccess);
}

TEST(CheckBaseBlock, GivesTheReadersReasons) {
  std::vector<std::uint8_t> file =
      testing::ReadBytes(testing::TestHive("windows-2003-minimal.hiv"));
  EXPECT_EQ(CheckBaseBlock({}, 0).error, err::kBadDb);
  EXPECT_EQ(CheckBaseBlock(file, 0x100000000ull).reason, L"the file is larger than 4 GB");
  const BaseBlockCheck truncated = CheckBaseBlock(file, file.size() - 1);
  EXPECT_EQ(truncated.error, err::kNotRegistryFile);
  EXPECT_EQ(truncated.reason,
            ParseHive(std::vector<std::uint8_t>(file.begin(), file.end() - 1)).reason);
  file[0] = 'x';
  EXPECT_EQ(CheckBaseBlock(file, file.size()).reason, ParseHive(file).reason);
  EXPECT_EQ(CheckBaseBlock(file, file.size()).reason,
            L"the file does not begin with the signature \"regf\"");
}

}  // namespace
}  // namespace tw::hive
