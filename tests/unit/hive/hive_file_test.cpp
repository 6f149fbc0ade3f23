// The engine's file access with names whose bytes are not UTF-8 (Linux): carried through the wide
// paths as stand-ins and handed to the system with their exact bytes.
#include "hive/hive_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <type_traits>
#include <vector>

#include "base/text_encoding.h"
#include "base/win32_error.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

constexpr bool kBytePaths = std::is_same_v<std::filesystem::path::value_type, char>;

TEST(HiveFilePaths, NamesThatAreNotUtf8KeepTheirBytes) {
  if constexpr (!kBytePaths) GTEST_SKIP() << "skipped: the system's paths are not bytes";
  const std::string native = "/tmp/j\xf6rg/\xff\xfe\xc3\x28/ntuser.dat";
  const std::wstring wide = Utf8ToWide(native);
  EXPECT_EQ(FileSystemPath(wide).string(), native);
  EXPECT_EQ(EnginePath(std::filesystem::path(native)), wide);
}

TEST(HiveFilePaths, FilesAreWrittenAndReadUnderSuchNames) {
  if constexpr (!kBytePaths) GTEST_SKIP() << "skipped: the system's paths are not bytes";
  const testing::TempFolder folder;
  const std::filesystem::path profile = folder / "j\xf6rg";
  std::filesystem::create_directories(profile);
  const std::wstring hive = Utf8ToWide((profile / "ntuser\xff.dat").string());
  const std::vector<std::uint8_t> bytes = {1, 2, 3, 4};
  ASSERT_EQ(WriteNewFile(hive, bytes), err::kSuccess);
  EXPECT_TRUE(std::filesystem::exists(profile / "ntuser\xff.dat"));
  std::vector<std::uint8_t> read;
  ASSERT_EQ(ReadWholeFile(hive, &read), err::kSuccess);
  EXPECT_EQ(read, bytes);
  // A log beside it, found in another case.
  std::ofstream(profile / "NTUSER\xff.DAT.log1", std::ios::binary) << "log";
  std::vector<std::uint8_t> log;
  ASSERT_EQ(ReadSiblingFile(hive, L".LOG1", &log), err::kSuccess);
  EXPECT_EQ(std::string(log.begin(), log.end()), "log");
}

}  // namespace
}  // namespace tw::hive
