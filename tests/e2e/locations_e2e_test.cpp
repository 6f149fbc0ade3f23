// Special folder locations that a profile's owner wrote into the hive: the built binary uses a
// location only inside its own profile (after "." and ".." are resolved by text) and logs every
// other one; nothing outside the profiles is read, copied or written. Also the bare "*" source in
// the default mode, run from the share's folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/tree_state.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::CaptureTreeState;
using testing::DescribeTreeChanges;
using testing::E2eShare;
using testing::kExit0;
using testing::kExit1;
using testing::kStart;
using testing::ProcessResult;
using testing::RegSection;
using testing::RegString;
using testing::Tree;
using testing::TreeState;

const std::string kOutside = "Folder location outside the profile, not migrated: ";

// The Windows form ("Z:\...") of a Linux path, as the tool sees the server's root.
std::string ZPath(const fs::path& path) {
  std::string text = path.string();
  std::replace(text.begin(), text.end(), '/', '\\');
  return "Z:" + text;
}

// True when some file below `folder` holds exactly `content`.
bool AnyFileHolds(const fs::path& folder, const std::string& content) {
  for (const std::string& entry : Tree(folder)) {
    const fs::path file = folder / entry;
    if (fs::is_regular_file(fs::symlink_status(file)) && testing::ReadWholeFile(file) == content) {
      return true;
    }
  }
  return false;
}

class LocationsE2eTest : public ::testing::Test {
 protected:
  // A profile `name` whose "User Shell Folders" hold `values` (.reg lines) besides a normal
  // "Personal", with files in its own Desktop and My Documents.
  fs::path AddProfileWith(const std::string& name, const std::string& values) const {
    return share_.AddProfile(
        name,
        RegSection(testing::kUserShellFolders,
                   values + RegString("Personal", "%USERPROFILE%\\My Documents")) +
            RegSection("Software\\Tw", RegString("Profile", name)),
        {{"Desktop/desk.txt", "desk " + name}, {"My Documents/doc.txt", "doc " + name}});
  }

  E2eShare share_{testing::SuiteTools()};
};

// A Z: path to a server folder outside every share: not read, not copied, nothing written onto
// it; the other folders are migrated as usual.
TEST_F(LocationsE2eTest, AZPathToAServerFolderOutsideTheShareIsNotMigrated) {
  const fs::path other = share_.root() / "srv" / "other";
  testing::WriteText(other / "server.txt", "server data");
  testing::WriteText(other / "inner" / "deep.txt", "deep server data");
  const std::string value = ZPath(other);
  const fs::path source = AddProfileWith("alice", RegString("Desktop", value));
  const TreeState otherBefore = CaptureTreeState(share_.root() / "srv");
  const TreeState sourceBefore = CaptureTreeState(source);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(result.output,
            kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
  EXPECT_EQ(share_.CountLogged(kOutside + "Desktop: " + value), 1);

  EXPECT_EQ(DescribeTreeChanges(otherBefore, CaptureTreeState(share_.root() / "srv")), "");
  EXPECT_EQ(DescribeTreeChanges(sourceBefore, CaptureTreeState(source)), "");
  const fs::path target = share_.share() / "alice.V2";
  EXPECT_FALSE(AnyFileHolds(target, "server data"));
  EXPECT_FALSE(AnyFileHolds(target, "deep server data"));
  EXPECT_EQ(testing::ReadWholeFile(target / "My Documents" / "doc.txt"), "doc alice");
}

// "%USERPROFILE%\..\bob\Desktop" with a target folder: bob's Desktop is neither read nor copied,
// and nothing appears beside the target (where the same value, expanded for the target, points).
TEST_F(LocationsE2eTest, ADotDotIntoAnotherUsersDesktopWithATargetFolder) {
  const std::string value = "%USERPROFILE%\\..\\bob\\Desktop";
  const fs::path alice = AddProfileWith("alice", RegString("Desktop", value));
  const fs::path bob = share_.AddV1Profile("bob");
  const TreeState aliceBefore = CaptureTreeState(alice);
  const TreeState bobBefore = CaptureTreeState(bob);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice", "/t:\\\\fs\\targets"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(result.output,
            kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
  EXPECT_EQ(share_.CountLogged(kOutside + "Desktop: " + value), 1);

  EXPECT_EQ(DescribeTreeChanges(bobBefore, CaptureTreeState(bob)), "");
  EXPECT_EQ(DescribeTreeChanges(aliceBefore, CaptureTreeState(alice)), "");
  // Only alice.V2 in the target folder, and nothing of bob's in it.
  std::vector<std::string> top;
  for (const fs::directory_entry& entry : fs::directory_iterator(share_.targets())) {
    top.push_back(entry.path().filename().string());
  }
  EXPECT_EQ(top, std::vector<std::string>{"alice.V2"});
  const fs::path target = share_.targets() / "alice.V2";
  EXPECT_FALSE(AnyFileHolds(target, "desk bob"));
  EXPECT_EQ(testing::ReadWholeFile(target / "My Documents" / "doc.txt"), "doc alice");
  EXPECT_FALSE(fs::exists(share_.share() / "alice.V2"));
}

// Values that climb out of the profile: "..\.." relative to the current folder (the run is made
// from inside the profile, where it would name the test's whole temp folder), "%USERPROFILE%\..
// \.." (above the share's root) and a ".." that leaves the profile and comes back.
TEST_F(LocationsE2eTest, ClimbingValuesAreNotMigrated) {
  const std::string back = "%USERPROFILE%\\Desktop\\..\\..\\alice\\Desktop";
  const fs::path alice =
      AddProfileWith("alice", RegString("Desktop", back) + RegString("AppData", "..\\..") +
                                  RegString("Favorites", "%USERPROFILE%\\..\\.."));
  const fs::path bob = share_.AddV1Profile("bob");
  testing::WriteText(share_.root() / "outside" / "outside.txt", "outside data");
  const TreeState aliceBefore = CaptureTreeState(alice);
  const TreeState bobBefore = CaptureTreeState(bob);
  const TreeState outsideBefore = CaptureTreeState(share_.root() / "outside");

  const ProcessResult result = share_.RunIn(alice, {"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(share_.CountLogged(kOutside + "Desktop: " + back), 1);
  EXPECT_EQ(share_.CountLogged(kOutside + "AppData: ..\\.."), 1);
  EXPECT_EQ(share_.CountLogged(kOutside + "Favorites: %USERPROFILE%\\..\\.."), 1);

  EXPECT_EQ(DescribeTreeChanges(aliceBefore, CaptureTreeState(alice)), "");
  EXPECT_EQ(DescribeTreeChanges(bobBefore, CaptureTreeState(bob)), "");
  EXPECT_EQ(DescribeTreeChanges(outsideBefore, CaptureTreeState(share_.root() / "outside")), "");
  const fs::path target = share_.share() / "alice.V2";
  EXPECT_FALSE(AnyFileHolds(target, "outside data"));
  EXPECT_FALSE(AnyFileHolds(target, "desk bob"));
  EXPECT_FALSE(AnyFileHolds(target, "desk alice"));  // its Desktop row was refused
  for (const std::string& entry : Tree(target)) {
    EXPECT_EQ(entry.find("shares.conf"), std::string::npos) << entry;
    EXPECT_EQ(entry.find("alice/"), std::string::npos) << entry;
  }
  EXPECT_EQ(testing::ReadWholeFile(target / "My Documents" / "doc.txt"), "doc alice");
}

// The bare "*" in the default mode, run from the share's folder: each profile of the current
// folder is found (through its relative "name\ntuser.dat") and then fails in the target naming,
// its path having no backslash; alice.V2 is never taken; nothing changes on the share.
TEST_F(LocationsE2eTest, TheBareStarFindsEachProfileAndFailsItInTheTargetNaming) {
  share_.AddV1Profile("alice");
  share_.AddV1Profile("bob");
  share_.AddV1Profile("alice.V2");
  const TreeState before = CaptureTreeState(share_.share());

  const ProcessResult result = share_.RunIn(share_.share(), {"/s:*"});
  EXPECT_EQ(result.exitStatus, 255);
  const std::string alice = "Failed migrating profile (0x80004005): alice\r\n";
  const std::string bob = "Failed migrating profile (0x80004005): bob\r\n";
  const std::string summary = "The source does not contain any profiles to migrate: *\r\n\r\n";
  EXPECT_TRUE(result.output == kStart + alice + bob + kExit1 + summary ||
              result.output == kStart + bob + alice + kExit1 + summary)
      << result.output;
  EXPECT_EQ(share_.CountLogged("Failed to get target path (0x80004005)"), 2);
  EXPECT_EQ(share_.CountLoggedContaining("alice.V2"), 0);
  EXPECT_EQ(DescribeTreeChanges(before, CaptureTreeState(share_.share())), "");
}

}  // namespace
}  // namespace tw

namespace tw {
namespace {

// A Linux folder name holding backslashes, at the top of a profile and deeper: joined to its
// folder it would name another user's profile ("..\bob", "..\..\bob"). Such names are not listed
// by the search, so bob's profile is neither read into the target nor written to.
TEST_F(LocationsE2eTest, NamesWithBackslashesDoNotLeadIntoAnotherProfile) {
  const fs::path alice = share_.AddV1Profile("alice");
  const fs::path bob = share_.AddV1Profile("bob");
  testing::WriteText(alice / "..\\bob" / "a.txt", "a");
  testing::WriteText(alice / "Other" / "..\\..\\bob" / "b.txt", "b");
  const TreeState aliceBefore = CaptureTreeState(alice);
  const TreeState bobBefore = CaptureTreeState(bob);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(DescribeTreeChanges(bobBefore, CaptureTreeState(bob)), "");
  EXPECT_EQ(DescribeTreeChanges(aliceBefore, CaptureTreeState(alice)), "");
  const fs::path target = share_.share() / "alice.V2";
  EXPECT_FALSE(AnyFileHolds(target, "desk bob"));
  EXPECT_FALSE(AnyFileHolds(target, "top bob"));
  EXPECT_EQ(testing::ReadWholeFile(target / "Other" / "Deep" / "other.txt"), "other alice");
}

}  // namespace
}  // namespace tw
