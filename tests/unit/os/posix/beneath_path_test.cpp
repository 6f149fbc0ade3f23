// The resolution of paths below a share's folder: no symbolic link is ever followed on the way or
// as the last name, ".." never leaves the share, with openat2 and with the per-component
// fallback alike; paths outside every share are used as they stand.
#include "os/posix/paths/beneath_path.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "fakes/temp_folder.h"
#include "fakes/tree_state.h"
#include "os/posix/paths/native_path.h"

namespace tw::posix {
namespace {

namespace fs = std::filesystem;

std::string ReadVia(const std::string& native) {
  const int fd = OpenBeneath(native, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return "errno " + std::to_string(errno);
  char buffer[256];
  const ssize_t got = ::read(fd, buffer, sizeof buffer);
  ::close(fd);
  return got < 0 ? std::string("read failed") : std::string(buffer, static_cast<size_t>(got));
}

// Each test runs with openat2 (where the kernel has it) and with the per-component fallback.
class BeneathPathTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    ForceBeneathFallbackForTesting(GetParam());
    share_ = temp_.path() / "share";
    outside_ = temp_.path() / "outside";
    fs::create_directories(share_ / "a" / "b");
    fs::create_directories(outside_ / "b");
    temp_.WriteFile("share/a/b/file.txt", "inside");
    temp_.WriteFile("share/top.txt", "top");
    temp_.WriteFile("outside/b/file.txt", "canary-outside");
    temp_.WriteFile("outside/file.txt", "canary-outside");
    temp_.WriteFile("outside/SECRET.txt", "canary-outside");
    AddTrustRootForTesting(share_.string());
    outsideBefore_ = testing::CaptureTreeState(outside_);
    shareBefore_ = testing::CaptureTreeState(share_);
  }
  void TearDown() override {
    EXPECT_EQ(testing::DescribeTreeChanges(outsideBefore_, testing::CaptureTreeState(outside_)),
              "");
    AddTrustRootForTesting("");
    ForceBeneathFallbackForTesting(false);
  }

  std::string In(const std::string& relative) const { return (share_ / relative).string(); }

  testing::TempFolder temp_;
  fs::path share_;
  fs::path outside_;
  testing::TreeState outsideBefore_;
  testing::TreeState shareBefore_;
};

TEST_P(BeneathPathTest, PlainPathsResolveBelowTheShare) {
  EXPECT_EQ(TrustRootLength(In("a/b/file.txt")), share_.string().size());
  EXPECT_EQ(TrustRootLength(temp_.Child("shared")), std::string::npos);  // a prefix, not a folder
  EXPECT_EQ(ReadVia(In("a/b/file.txt")), "inside");
  EXPECT_EQ(ReadVia(In("top.txt")), "top");
  const BeneathPath at(In("a/b/file.txt"));
  EXPECT_TRUE(at.ok());
  EXPECT_TRUE(at.pinned());
  EXPECT_EQ(std::string(at.name()), "file.txt");
  struct stat info {};
  ASSERT_EQ(LstatBeneath(share_.string(), info), 0);  // the share's folder itself
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_TRUE(IsFolderBeneath(In("a/b")));
  EXPECT_EQ(ResolveNameCase(In("A/B/FILE.TXT")), In("a/b/file.txt"));
}

TEST_P(BeneathPathTest, DotDotIsResolvedTextuallyAndNeverLeavesTheShare) {
  EXPECT_EQ(ReadVia(In("a/../a/./b/file.txt")), "inside");
  // "share/../outside/file.txt" stays at the share's folder: there is no outside/ there.
  EXPECT_EQ(ReadVia(In("../outside/file.txt")), "errno " + std::to_string(ENOENT));
  EXPECT_EQ(ReadVia(In("a/../../../outside/b/file.txt")), "errno " + std::to_string(ENOENT));
  EXPECT_EQ(ReadVia(In("a/b/../../top.txt")), "top");
}

TEST_P(BeneathPathTest, AbsoluteLinkInTheMiddleIsRefused) {
  fs::create_directory_symlink(outside_, share_ / "a" / "abs");
  struct stat info {};
  EXPECT_EQ(LstatBeneath(In("a/abs/file.txt"), info), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(ReadVia(In("a/abs/file.txt")), "errno " + std::to_string(ELOOP));
  EXPECT_EQ(ReadVia(In("a/abs/b/file.txt")), "errno " + std::to_string(ELOOP));
  EXPECT_EQ(OpenFolderListingBeneath(In("a/abs/b")), nullptr);
  EXPECT_EQ(MakeFolderBeneath(In("a/abs/new"), 0777), -1);
  EXPECT_EQ(UnlinkBeneath(In("a/abs/file.txt")), -1);
  char value[64];
  EXPECT_EQ(LgetxattrBeneath(In("a/abs/file.txt"), "user.DOSATTRIB", value, sizeof value), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(LsetxattrBeneath(In("a/abs/file.txt"), "user.test", "x", 1, 0), -1);
  EXPECT_EQ(ChmodBeneath(In("a/abs/file.txt"), 0600), -1);
  EXPECT_FALSE(IsFolderBeneath(In("a/abs/b")));
}

TEST_P(BeneathPathTest, RelativeLinkInTheMiddleIsRefused) {
  fs::create_directory_symlink("../../outside", share_ / "a" / "rel");
  fs::create_directory_symlink("b", share_ / "a" / "within");  // even one that stays inside
  EXPECT_EQ(ReadVia(In("a/rel/file.txt")), "errno " + std::to_string(ELOOP));
  EXPECT_EQ(ReadVia(In("a/within/file.txt")), "errno " + std::to_string(ELOOP));
  // The case-insensitive lookup neither lists nor names anything behind the link.
  EXPECT_EQ(ResolveNameCase(In("a/rel/secret.txt")), In("a/rel/secret.txt"));
}

TEST_P(BeneathPathTest, LinkAsTheLastNameIsNeverFollowed) {
  fs::create_symlink(outside_ / "file.txt", share_ / "a" / "last.txt");
  fs::create_directory_symlink(outside_, share_ / "a" / "lastdir");
  struct stat info {};
  ASSERT_EQ(LstatBeneath(In("a/last.txt"), info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  EXPECT_EQ(ReadVia(In("a/last.txt")), "errno " + std::to_string(ELOOP));
  EXPECT_EQ(OpenFolderListingBeneath(In("a/lastdir")), nullptr);
  EXPECT_FALSE(IsFolderBeneath(In("a/lastdir")));
  EXPECT_EQ(ChmodBeneath(In("a/lastdir"), 0700), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(LsetxattrBeneath(In("a/last.txt"), "user.test", "x", 1, 0), -1);
  // Creating where a link stands writes nothing through it.
  EXPECT_EQ(OpenBeneath(In("a/last.txt"), O_WRONLY | O_CREAT | O_TRUNC, 0666), -1);
  EXPECT_EQ(MakeFolderBeneath(In("a/lastdir"), 0777), -1);
  EXPECT_EQ(UnlinkBeneath(In("a/last.txt")), 0);  // removes the link, not its target
}

TEST_P(BeneathPathTest, FileWhereAFolderIsNeeded) {
  EXPECT_EQ(ReadVia(In("top.txt/x")), "errno " + std::to_string(ENOTDIR));
  EXPECT_EQ(ReadVia(In("missing/x")), "errno " + std::to_string(ENOENT));
}

// A folder cached as open and then swapped for a link by someone else: what is used is still the
// folder that was opened, never what the link names; a removal made here drops the cache.
TEST_P(BeneathPathTest, AFolderSwappedAfterItWasOpenedIsNotFollowed) {
  EXPECT_EQ(ReadVia(In("a/b/file.txt")), "inside");
  fs::rename(share_ / "a" / "b", share_ / "a" / "moved");
  fs::create_directory_symlink(outside_ / "b", share_ / "a" / "b");
  EXPECT_NE(ReadVia(In("a/b/file.txt")), "canary-outside");
  ForgetBeneathFolders();
  EXPECT_EQ(ReadVia(In("a/b/file.txt")), "errno " + std::to_string(ELOOP));
}

TEST_P(BeneathPathTest, LinksAboveTheShareAreTheAdministrators) {
  fs::create_directory_symlink(share_, temp_.path() / "alias");
  AddTrustRootForTesting((temp_.path() / "alias").string());
  EXPECT_EQ(ReadVia((temp_.path() / "alias" / "a" / "b" / "file.txt").string()), "inside");
  // A path in no share is used as it stands, links and all.
  fs::create_directory_symlink(outside_, temp_.path() / "free");
  const BeneathPath free((temp_.path() / "free" / "file.txt").string());
  EXPECT_TRUE(free.ok());
  EXPECT_FALSE(free.pinned());
  EXPECT_EQ(ReadVia((temp_.path() / "free" / "file.txt").string()), "canary-outside");
}

INSTANTIATE_TEST_SUITE_P(Openat2AndFallback, BeneathPathTest, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& param) {
                           return param.param ? std::string("Fallback") : std::string("Openat2");
                         });

}  // namespace
}  // namespace tw::posix
