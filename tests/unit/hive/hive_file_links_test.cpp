// The engine's file access never follows a symbolic link that stands where a hive file is read,
// and never writes through one that stands where its temporary file goes.
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "hive/hive_file.h"

namespace tw::hive {
namespace {

namespace fs = std::filesystem;

class HiveFileLinksTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "tw-hive-links-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    std::ofstream(folder_ / "other.dat", std::ios::binary) << "OTHER USER'S HIVE";
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string Read(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  fs::path folder_;
};

TEST_F(HiveFileLinksTest, AHiveThatIsALinkIsNotRead) {
  fs::create_symlink(folder_ / "other.dat", folder_ / "ntuser.dat");
  FileBytes bytes;
  EXPECT_EQ(ReadWholeFile((folder_ / "ntuser.dat").wstring(), &bytes), err::kCantResolveFilename);
  std::vector<std::uint8_t> vector;
  EXPECT_EQ(ReadWholeFile((folder_ / "ntuser.dat").wstring(), &vector), err::kCantResolveFilename);
  EXPECT_TRUE(vector.empty());
  // The file itself still reads.
  EXPECT_EQ(ReadWholeFile((folder_ / "other.dat").wstring(), &vector), err::kSuccess);
  EXPECT_EQ(vector.size(), 17u);
}

TEST_F(HiveFileLinksTest, ANamedPipeIsNotWaitedOn) {
  ASSERT_EQ(::mkfifo((folder_ / "fifo.dat").c_str(), 0600), 0);
  FileBytes bytes;
  EXPECT_EQ(ReadWholeFile((folder_ / "fifo.dat").wstring(), &bytes), err::kAccessDenied);
}

TEST_F(HiveFileLinksTest, TheTemporaryFileIsNeverWrittenThroughALink) {
  // The temporary names the writer tries, planted as links to another file.
  const std::vector<std::uint8_t> data = {'n', 'e', 'w'};
  for (int n = 1; n <= 5000; ++n) {  // the writer counts its names process-wide
    const fs::path temp = folder_ / ("target.dat." + std::to_string(n) + ".tmp");
    fs::create_symlink(folder_ / "other.dat", temp);
  }
  const bool refused = WriteNewFile((folder_ / "target.dat").wstring(), data) != err::kSuccess;
  EXPECT_TRUE(refused);
  EXPECT_EQ(Read(folder_ / "other.dat"), "OTHER USER'S HIVE");
  EXPECT_FALSE(fs::exists(fs::symlink_status(folder_ / "target.dat")));
}

}  // namespace
}  // namespace tw::hive
#endif
