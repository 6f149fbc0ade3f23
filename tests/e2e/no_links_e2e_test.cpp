// No symbolic link below a share's folder is ever followed by the built binary: not a folder
// swapped for a link while the copy runs, not a linked ntuser.dat, not a linked profile root or a
// linked folder on the way to it. Nothing behind such a link is read or written, and the source
// share is left as it was.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/temp_folder.h"
#include "fakes/tree_state.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::E2eShare;
using testing::ProcessResult;
using testing::RegSection;
using testing::RegString;

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::string Utf16(const std::string& ascii) {
  std::string wide;
  for (const char c : ascii) {
    wide.push_back(c);
    wide.push_back('\0');
  }
  return wide;
}

// The files below folder (links not followed) whose bytes hold marker, as ASCII or UTF-16LE.
std::vector<std::string> FilesHolding(const fs::path& folder, const std::string& marker) {
  std::vector<std::string> found;
  std::error_code ec;
  if (!fs::exists(fs::symlink_status(folder, ec))) return found;
  for (fs::recursive_directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    if (!it->is_regular_file(ec) || it->is_symlink(ec)) continue;
    const std::string bytes = testing::ReadWholeFile(it->path());
    if (Contains(bytes, marker) || Contains(bytes, Utf16(marker))) {
      found.push_back(it->path().string());
    }
  }
  return found;
}

// The share's state without the share's folder itself and without the targets runs make ("*.V2"):
// what must not change.
testing::TreeState WithoutTargets(testing::TreeState state) {
  state.erase(".");
  std::erase_if(state, [](const auto& entry) { return Contains(entry.first, ".V2"); });
  return state;
}

const std::string kMigrated = "1 profiles were migrated";
// ERROR_CANT_RESOLVE_FILENAME as the HRESULT the log shows.
const std::string kLinkRefused = "0x80070781";

class NoLinksE2eTest : public ::testing::Test {
 protected:
  E2eShare share_{testing::SuiteTools()};
};

// A thread swaps a folder of the profile with a link to a folder outside the share (and back),
// as fast as it can, while the binary copies the profile, round after round. The canary file
// outside, named as the file inside, never reaches a target, and nothing outside changes.
TEST_F(NoLinksE2eTest, FolderSwappedForALinkDuringTheCopyIsNeverFollowed) {
  const fs::path source = share_.AddV1Profile("alice");
  const fs::path outside = share_.root() / "outside";
  const std::string canary = "CANARY-8d1f0c55-outside-the-share";
  testing::WriteText(outside / "other.txt", canary);
  // Many files of the same names inside and outside, so that every round gives the swaps many
  // chances to land between the listing of the folder and the opening of a file.
  for (int i = 0; i < 40; ++i) {
    const std::string name = "f" + std::to_string(i) + ".txt";
    testing::WriteText(outside / name, canary);
    testing::WriteText(outside / "Deeper" / name, canary);
    testing::WriteText(source / "Other" / "Deep" / name, "alice " + name);
    testing::WriteText(source / "Other" / "Deep" / "Deeper" / name, "deeper alice " + name);
  }
  const fs::path real = source / "Other" / "Deep";
  const fs::path link = source / "Other" / "DeepLink";
  fs::create_directory_symlink(outside, link);
  struct stat otherInfo {};
  ASSERT_EQ(::lstat((source / "Other").c_str(), &otherInfo), 0);
  const testing::TreeState outsideBefore = testing::CaptureTreeState(outside);
  const testing::TreeState sourceBefore = WithoutTargets(testing::CaptureTreeState(share_.share()));

  std::atomic<bool> stop{false};
  std::atomic<long> swaps{0};
  std::thread swapper([&] {
    while (!stop.load()) {
      // Two exchanges: the folder and the link trade names and trade back.
      for (int i = 0; i < 2; ++i) {
        if (::renameat2(AT_FDCWD, real.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) != 0)
          return;
        ++swaps;
      }
    }
  });

  const fs::path target = share_.share() / "alice.V2";
  int leaks = 0;
  const auto start = std::chrono::steady_clock::now();
  int rounds = 0;
  for (; rounds < 30 && std::chrono::steady_clock::now() - start < std::chrono::seconds(12);
       ++rounds) {
    const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
    static_cast<void>(result);
    for (const std::string& file : FilesHolding(target, canary)) {
      ADD_FAILURE() << "round " << rounds << ": the canary reached " << file;
      ++leaks;
    }
    std::error_code ec;
    fs::remove_all(target, ec);
  }
  stop.store(true);
  swapper.join();
  EXPECT_EQ(swaps.load() % 2, 0);
  EXPECT_GT(swaps.load(), 0);
  EXPECT_GE(rounds, 5);
  std::printf("%d rounds, %ld swaps\n", rounds, swaps.load());
  EXPECT_EQ(leaks, 0);

  // The swaps changed the times of the folder holding them; what the run did not change is
  // compared with those times put back.
  const struct timespec times[2] = {otherInfo.st_atim, otherInfo.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, (source / "Other").c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_EQ(testing::DescribeTreeChanges(outsideBefore, testing::CaptureTreeState(outside)), "");
  EXPECT_EQ(testing::DescribeTreeChanges(sourceBefore,
                                         WithoutTargets(testing::CaptureTreeState(share_.share()))),
            "");
}

// An ntuser.dat that is a link (to another user's hive on the share, or to a hive outside it):
// the profile fails with the logged code, the other hive is never read, nothing changes.
void ExpectLinkedHiveRefused(const E2eShare& share, bool toOutside) {
  share.AddProfile("bob", RegSection("Software\\Tw", RegString("Secret", "BOBSECRETVALUE")),
                   {{"bob.txt", "bob"}});
  const fs::path outside = share.root() / "outside";
  share.MakeHive(outside / "ntuser.dat",
                 RegSection("Software\\Tw", RegString("Secret", "OUTSIDESECRETVALUE")));
  const fs::path alice = share.AddV1Profile("alice");
  fs::remove(alice / "ntuser.dat");
  if (toOutside) {
    fs::create_symlink(outside / "ntuser.dat", alice / "ntuser.dat");
  } else {
    fs::create_symlink("../bob/ntuser.dat", alice / "ntuser.dat");
  }
  const testing::TreeState outsideBefore = testing::CaptureTreeState(outside);
  const testing::TreeState sourceBefore = WithoutTargets(testing::CaptureTreeState(share.share()));

  const ProcessResult result = share.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_FALSE(Contains(result.output, kMigrated)) << result.output;
  EXPECT_NE(result.exitStatus, 0);
  EXPECT_GE(share.CountLoggedContaining(kLinkRefused), 1) << share.RawLog();
  // The target does not stand as a migrated profile with another user's settings.
  EXPECT_FALSE(fs::exists(share.share() / "alice.V2" / "ntuser.dat"));
  EXPECT_EQ(FilesHolding(share.share(), "BOBSECRETVALUE"),
            std::vector<std::string>{(share.share() / "bob" / "ntuser.dat").string()});
  EXPECT_TRUE(FilesHolding(share.share(), "OUTSIDESECRETVALUE").empty());
  EXPECT_EQ(testing::DescribeTreeChanges(outsideBefore, testing::CaptureTreeState(outside)), "");
  EXPECT_EQ(testing::DescribeTreeChanges(sourceBefore,
                                         WithoutTargets(testing::CaptureTreeState(share.share()))),
            "");
}

TEST_F(NoLinksE2eTest, HiveLinkedToAnotherUsersHiveFailsItsProfile) {
  ExpectLinkedHiveRefused(share_, false);
}

TEST_F(NoLinksE2eTest, HiveLinkedOutOfTheShareFailsItsProfile) {
  ExpectLinkedHiveRefused(share_, true);
}

// A profile root given with /s: that is a link (to a profile on the share), and one reached
// through a linked folder on the way (to a folder outside the share): neither is found as a
// profile, nothing outside is read or written.
TEST_F(NoLinksE2eTest, LinkedProfileRootAndLinkedFolderOnTheWay) {
  const fs::path alice = share_.AddV1Profile("alice");
  fs::create_directory_symlink(alice, share_.share() / "alias");
  const fs::path outside = share_.root() / "outdept";
  const fs::path dave = share_.AddV1Profile("dave");
  fs::create_directories(outside);
  fs::rename(dave, outside / "dave");
  fs::create_directory_symlink(outside, share_.share() / "dept");
  const testing::TreeState outsideBefore = testing::CaptureTreeState(outside);
  const testing::TreeState sourceBefore = WithoutTargets(testing::CaptureTreeState(share_.share()));

  for (const std::string path : {"alias", "dept\\dave"}) {
    share_.ClearLog();
    const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\" + path});
    EXPECT_FALSE(Contains(result.output, kMigrated)) << path << "\n" << result.output;
    // The hive behind the link is never found, so the folder is no profile, as one without a
    // hive: the run's own message for that.
    EXPECT_EQ(share_.CountLogged("The source does not contain any profiles to migrate: "
                                 "\\\\fs\\profiles\\" +
                                 path + "\r\n"),
              1)
        << share_.RawLog();
  }
  EXPECT_FALSE(fs::exists(fs::symlink_status(share_.share() / "alias.V2")));
  EXPECT_FALSE(fs::exists(outside / "dave.V2"));
  EXPECT_TRUE(FilesHolding(share_.share(), "other alice").size() == 1);  // alice's own file
  EXPECT_EQ(testing::DescribeTreeChanges(outsideBefore, testing::CaptureTreeState(outside)), "");
  EXPECT_EQ(testing::DescribeTreeChanges(sourceBefore,
                                         WithoutTargets(testing::CaptureTreeState(share_.share()))),
            "");
}

}  // namespace
}  // namespace tw
