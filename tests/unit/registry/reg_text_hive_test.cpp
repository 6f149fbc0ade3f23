// The test hives made from .reg text by the project's own engine (fakes/reg_text_hive.h), read
// back by independent readers: keys with their parents, every value form the fixtures write,
// new keys with their parent's descriptor, and refused text.
#include "fakes/reg_text_hive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "unit/registry/registry_test_bed.h"

namespace tw::testing {
namespace {

using ::testing::HasSubstr;

const std::filesystem::path kMinimal =
    std::filesystem::path(TARNWICK_TESTDATA_DIR) / "hives" / "windows-2003-minimal.hiv";

TEST(RegTextHive, WritesEveryValueFormAndTheParentsOfEachKey) {
  TempFolder folder;
  const std::filesystem::path file = folder.path() / "made.dat";
  ASSERT_EQ(WriteHiveFromRegText(kMinimal,
                                 "; a comment\n"
                                 "[\\Software\\Vendor\\App]\n"
                                 "\"Name\"=\"a \\\"quoted\\\" C:\\\\path\"\n"
                                 "\"Count\"=dword:000c0001\n"
                                 "\"Blob\"=hex:01,02,ff\n"
                                 "\"Where\"=hex(2):25,00,\\\n"
                                 "  41,00,00,00\n"
                                 "@=\"default\"\n\n"
                                 "[\\Software\\Vendor\\App]\n"
                                 "\"Count\"=dword:00000002\n",
                                 file),
            "");
  const std::string exported = ExportHive(file);
  EXPECT_THAT(exported, HasSubstr("[\\Software]\n"));
  EXPECT_THAT(exported, HasSubstr("[\\Software\\Vendor]\n"));
  EXPECT_THAT(exported, HasSubstr("[\\Software\\Vendor\\App]\n"));
  EXPECT_THAT(exported, HasSubstr("@=hex(1):64,00,65,00,66,00,61,00,75,00,6c,00,74,00,00,00\n"));
  EXPECT_THAT(exported, HasSubstr("\"Blob\"=hex(3):01,02,ff\n"));
  EXPECT_THAT(exported, HasSubstr("\"Count\"=dword:00000002\n"));
  EXPECT_THAT(exported, HasSubstr("\"Where\"=hex(2):25,00,41,00,00,00\n"));
  EXPECT_THAT(exported,
              HasSubstr("\"Name\"=hex(1):61,00,20,00,22,00,71,00,75,00,6f,00,74,00,65,00,64,00,"
                        "22,00,20,00,43,00,3a,00,5c,00,70,00,61,00,74,00,68,00,00,00\n"));
}

TEST(RegTextHive, NewKeysTakeTheirParentsDescriptor) {
  TempFolder folder;
  const std::filesystem::path file = folder.path() / "made.dat";
  ASSERT_EQ(WriteHiveFromRegText(kMinimal, "[\\A\\B]\n", file), "");
  const std::vector<std::string> root = Fields(ReglookupKey(file, "/"));
  const std::vector<std::string> below = Fields(ReglookupKey(file, "/A/B"));
  ASSERT_EQ(root.size(), 9u);
  ASSERT_EQ(below.size(), 9u);
  for (const std::size_t field : {4u, 5u, 7u}) EXPECT_EQ(below[field], root[field]) << field;
}

TEST(RegTextHive, RefusesWhatItDoesNotWrite) {
  TempFolder folder;
  const std::filesystem::path file = folder.path() / "made.dat";
  EXPECT_THAT(WriteHiveFromRegText(kMinimal, "[-\\A]\n", file), HasSubstr("not a key section"));
  EXPECT_THAT(WriteHiveFromRegText(kMinimal, "[\\A]\n\"V\"=-\n", file),
              HasSubstr("value data not understood"));
  EXPECT_THAT(WriteHiveFromRegText(kMinimal, "\"V\"=\"x\"\n", file),
              HasSubstr("a value before any key"));
  EXPECT_THAT(WriteHiveFromRegText(kMinimal, "[\\A]\n\"V\"=\"\xc3\xa9\"\n", file),
              HasSubstr("non-ASCII"));
}

}  // namespace
}  // namespace tw::testing
