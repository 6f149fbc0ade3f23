// The read-ahead walk on Linux: every regular file and folder of the tree, nothing behind a
// link, nothing that is not a file or a folder opened (a pipe would block), a depth limit, and
// an early stop.
#include "os/posix/files/tree_read_ahead.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "fakes/temp_folder.h"
#include "os/native_ports.h"
#include "os/posix/paths/native_path.h"

namespace tw::posix {
namespace {

namespace fs = std::filesystem;

const auto kNeverStop = [] { return false; };

TEST(TreeReadAheadTest, EveryFileAndFolderOfTheTreeAndNothingBehindALink) {
  testing::TempFolder temp;
  temp.WriteFile("p/ntuser.dat", std::string(70000, 'h'));
  temp.WriteFile("p/Documents/a.txt", "a");
  temp.WriteFile("p/Documents/Deep/b.txt", "b");
  fs::create_directory(temp.path() / "p" / "Empty");
  temp.WriteFile("outside/secret1.txt", "s");
  temp.WriteFile("outside/sub/secret2.txt", "s");
  fs::create_directory_symlink(temp.path() / "outside", temp.path() / "p" / "folder-link");
  fs::create_symlink(temp.path() / "outside" / "secret1.txt", temp.path() / "p" / "file-link");
  // A pipe: opening it for reading would wait for a writer.
  ASSERT_EQ(::mkfifo((temp.path() / "p" / "pipe").c_str(), 0600), 0);

  const ReadAheadCounts counts = ReadTreeAhead(temp.Child("p"), kNeverStop);
  EXPECT_EQ(counts.files, 3u);
  EXPECT_EQ(counts.folders, 4u);  // p, Documents, Deep, Empty
}

TEST(TreeReadAheadTest, AStartBehindALinkOrMissingReadsNothing) {
  testing::TempFolder temp;
  temp.WriteFile("outside/secret.txt", "s");
  fs::create_directory_symlink(temp.path() / "outside", temp.path() / "link");
  EXPECT_EQ(ReadTreeAhead(temp.Child("link"), kNeverStop).files, 0u);
  EXPECT_EQ(ReadTreeAhead(temp.Child("link"), kNeverStop).folders, 0u);
  EXPECT_EQ(ReadTreeAhead(temp.Child("missing"), kNeverStop).folders, 0u);
  EXPECT_EQ(ReadTreeAhead(temp.Child("outside/secret.txt"), kNeverStop).files, 0u);
}

TEST(TreeReadAheadTest, NoDeeperThanTheLimit) {
  testing::TempFolder temp;
  std::string path = "p";
  for (int level = 0; level < kReadAheadDepth + 5; ++level) path += "/d";
  temp.WriteFile(path + "/deepest.txt", "x");
  temp.WriteFile("p/top.txt", "x");
  const ReadAheadCounts counts = ReadTreeAhead(temp.Child("p"), kNeverStop);
  EXPECT_EQ(counts.files, 1u);
  EXPECT_EQ(counts.folders, static_cast<std::size_t>(kReadAheadDepth) + 1);
}

TEST(TreeReadAheadTest, StopsOnceAsked) {
  testing::TempFolder temp;
  for (int i = 0; i < 20; ++i) temp.WriteFile("p/f" + std::to_string(i) + ".txt", "x");
  EXPECT_EQ(ReadTreeAhead(temp.Child("p"), [] { return true; }).folders, 0u);
  int asked = 0;
  const ReadAheadCounts counts = ReadTreeAhead(temp.Child("p"), [&asked] { return ++asked > 6; });
  EXPECT_LT(counts.files, 20u);
  EXPECT_GE(counts.files, 1u);
}

TEST(TreeReadAheadTest, ThePortTakesWindowsPathsAndLeavesTheFilesAsTheyWere) {
  testing::TempFolder temp;
  const std::string file = temp.WriteFile("Profiles/Anna.V5/ntuser.dat", "hive");
  struct stat before {};
  ASSERT_EQ(::stat(file.c_str(), &before), 0);
  int asked = 0;
  NativeReadAheadPort().ReadTreeAhead(ToWindowsPath(temp.Child("profiles/anna.v5")),
                                      [&asked] { return ++asked < 0; });
  EXPECT_GE(asked, 1);  // the walk went through the folder's entry
  struct stat after {};
  ASSERT_EQ(::stat(file.c_str(), &after), 0);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_EQ(after.st_size, before.st_size);
  EXPECT_EQ(testing::ReadWholeFile(file), "hive");
}

}  // namespace
}  // namespace tw::posix
