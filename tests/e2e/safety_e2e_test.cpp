// Safety of the built binary: a symbolic link out of the share is never followed, "%" sequences in
// paths and names are printed and logged as they stand, and a corrupt hive in a *.V5 run fails
// only its own profile and (through the temporary profile it leaves) the later profiles of the
// same owner.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/tree_state.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::E2eShare;
using testing::kExit0;
using testing::kExit1;
using testing::kStart;
using testing::ProcessResult;
using testing::RegSection;
using testing::RegString;
using testing::Tree;

bool AnyEntryContains(const std::vector<std::string>& tree, const std::string& part) {
  for (const std::string& entry : tree) {
    if (Contains(entry, part)) return true;
  }
  return false;
}

struct timespec AccessTime(const fs::path& path) {
  struct stat info {};
  EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
  return info.st_atim;
}

class SafetyE2eTest : public ::testing::Test {
 protected:
  E2eShare share_{testing::SuiteTools()};
};

// A profile holding links to a folder outside the share, at its top and inside a special folder:
// nothing outside is read (its access times stay as set, long in the past, which a read would
// move on this file system's relatime rule) or copied.
TEST_F(SafetyE2eTest, LinkOutOfTheShareIsNotFollowed) {
  const fs::path source = share_.AddV1Profile("alice");
  const fs::path outside = share_.root() / "outside";
  testing::WriteText(outside / "secret.txt", "secret");
  testing::WriteText(outside / "inner" / "deep.txt", "deep");
  fs::create_directory_symlink(outside, source / "Linked");
  fs::create_directory_symlink(outside, source / "Desktop" / "linked");
  fs::create_directory_symlink(outside, source / "Other" / "linked");
  // Access times of everything outside: 1 January 2001.
  const struct timespec old[2] = {{978307200, 0}, {0, UTIME_OMIT}};
  for (const fs::path& path :
       {outside, outside / "secret.txt", outside / "inner", outside / "inner" / "deep.txt"}) {
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), old, AT_SYMLINK_NOFOLLOW), 0);
  }
  const std::vector<std::string> outsideBefore = Tree(outside);
  const testing::TreeState outsideState = testing::CaptureTreeState(outside);
  const testing::TreeState sourceState = testing::CaptureTreeState(source);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output,
            kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
  const std::vector<std::string> target = Tree(share_.share() / "alice.V2");
  EXPECT_TRUE(std::find(target.begin(), target.end(), "Other/Deep/other.txt") != target.end());
  EXPECT_FALSE(AnyEntryContains(target, "secret.txt"));
  EXPECT_FALSE(AnyEntryContains(target, "deep.txt"));
  EXPECT_FALSE(AnyEntryContains(target, "inner"));
  for (const std::string& entry : target) {
    EXPECT_FALSE(fs::is_directory(fs::symlink_status(share_.share() / "alice.V2" / entry)) &&
                 Contains(entry, "inked/"))
        << entry;
  }
  EXPECT_EQ(Tree(outside), outsideBefore);
  EXPECT_EQ(testing::DescribeTreeChanges(outsideState, testing::CaptureTreeState(outside)), "");
  EXPECT_EQ(testing::DescribeTreeChanges(sourceState, testing::CaptureTreeState(source)), "");
  for (const fs::path& path : {outside / "secret.txt", outside / "inner" / "deep.txt"}) {
    EXPECT_EQ(AccessTime(path).tv_sec, 978307200) << path;
  }
  EXPECT_EQ(testing::ReadWholeFile(outside / "secret.txt"), "secret");  // after the times
  // The links in the source are still links to the same place.
  EXPECT_EQ(fs::read_symlink(source / "Linked"), outside);
}

// "%s%n%%" in the profile's folder name and in a file name: printed and logged verbatim. The
// special folders of a profile whose path holds a "%" are refused; the other folders are copied.
TEST_F(SafetyE2eTest, PercentSequencesInPathsAndNames) {
  const std::string name = "p%s%n%%";
  const fs::path source = share_.AddV1Profile(name);
  testing::WriteText(source / "Other" / "f%s%n%%.txt", "percent");
  const std::string unc = "\\\\fs\\profiles\\" + name;
  const ProcessResult result = share_.Run({"/s:" + unc});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output, kStart + kExit0 + "1 profiles were migrated from " + unc + ".\r\n\r\n");
  EXPECT_EQ(share_.CountLogged("1 profiles were migrated from " + unc + ".\r\n"), 1);
  for (const std::string folder :
       {"\\Desktop", "\\My Documents", "\\Local Settings\\Application Data"}) {
    EXPECT_EQ(
        share_.CountLogged(
            "Cannot migrate profile folders containing environment variables: " + unc + folder),
        1)
        << folder;
  }
  const fs::path target = share_.share() / (name + ".V2");
  const std::vector<std::string> tree = Tree(target);
  auto has = [&tree](const std::string& entry) {
    return std::find(tree.begin(), tree.end(), entry) != tree.end();
  };
  EXPECT_TRUE(has("Other/f%s%n%%.txt"));
  EXPECT_EQ(testing::ReadWholeFile(target / "Other" / "f%s%n%%.txt"), "percent");
  EXPECT_TRUE(has("Other/Deep/other.txt"));
  EXPECT_TRUE(has("My Documents/doc.txt"));  // a top-level folder: copied by the second pass
  EXPECT_FALSE(has("Desktop/desk.txt"));     // a special folder: refused
  EXPECT_TRUE(Contains(E2eShare::ExportHive(target / "ntuser.dat"),
                       testing::ExportedString("Profile", name)));
}

// A corrupt ntuser.dat in one of several V5 profiles. That profile fails with its message and
// leaves no target; its temporary profile stays in place, so a later profile of the same owner
// fails at CreateProfile (the owner already has one), while the profiles of other owners are
// migrated and owned by their owners. The run visits folders in the file system's order, so the
// roles are given by that order: the first is corrupt, the second has the same owner.
TEST_F(SafetyE2eTest, CorruptHiveFailsItsProfileAndLaterOnesOfTheSameOwner) {
  for (const std::string name : {"carol", "dave", "erin", "fred"}) {
    share_.AddProfile(
        name + ".V5",
        RegSection(testing::kUserShellFolders, RegString("Desktop", "%USERPROFILE%\\Desktop")) +
            RegSection("Software\\Tw", RegString("Profile", name)),
        {{"Desktop/desk.txt", "desk " + name}, {"Other/other.txt", "other " + name}});
  }
  std::vector<std::string> order;
  for (const fs::directory_entry& entry : fs::directory_iterator(share_.share())) {
    order.push_back(entry.path().stem().string());
  }
  ASSERT_EQ(order.size(), 4u);
  const std::vector<std::wstring> owners = {L"S-1-5-21-7-8-9-1001", L"S-1-5-21-7-8-9-1001",
                                            L"S-1-5-21-7-8-9-1002", L"S-1-5-21-7-8-9-1003"};
  for (std::size_t i = 0; i < order.size(); ++i) {
    share_.SetOwner(share_.share() / (order[i] + ".V5"), owners[i]);
  }
  const std::string corrupt = order[0];
  const std::string sameOwner = order[1];
  testing::WriteText(share_.share() / (corrupt + ".V5") / "ntuser.dat",
                     std::string(8192, 'x') + "not a hive");
  const std::vector<std::string> corruptBefore = Tree(share_.share() / (corrupt + ".V5"));
  const std::string corruptUnc = "\\\\fs\\profiles\\" + corrupt + ".V5";

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\*.V5", "/V5TOV6"});
  EXPECT_EQ(result.exitStatus, 255);

  // The run took the profiles in that order.
  std::vector<std::string> visited;
  const std::regex migrating(R"(Migrating profile: \\\\fs\\profiles\\(\w+)\.V5\.\.\.)");
  for (auto it = std::sregex_iterator(result.output.begin(), result.output.end(), migrating);
       it != std::sregex_iterator(); ++it) {
    visited.push_back((*it)[1]);
  }
  ASSERT_EQ(visited, order) << result.output;

  // The corrupt profile: its hive cannot be opened; the code is the same in every line.
  const std::regex failed(R"(Migrating profile: [^\r]*\.\.\.\r\nFailed migrating profile \()"
                          R"((0x[0-9A-F]{8})\): )" +
                          std::regex_replace(corruptUnc, std::regex(R"(\\)"), R"(\\)") + "\r\n");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(result.output, match, failed)) << result.output;
  const std::string code = match[1];
  EXPECT_NE(code, "0x800700B7");
  EXPECT_EQ(share_.CountLogged("Failed to open registry hive (" + code + "): " + corruptUnc +
                               "\\ntuser.dat"),
            1);
  EXPECT_EQ(share_.CountLogged("Failed to migrate the user profile (" + code + "): " + corruptUnc),
            1);
  EXPECT_FALSE(fs::exists(share_.share() / (corrupt + ".V6")));
  EXPECT_EQ(Tree(share_.share() / (corrupt + ".V5")), corruptBefore);

  // The later profile of the same owner fails at CreateProfile; its target is deleted again.
  EXPECT_EQ(share_.CountLogged("Failed creating profile (0x800700B7)"), 1);
  EXPECT_TRUE(Contains(result.output, "Migrating profile: \\\\fs\\profiles\\" + sameOwner +
                                          ".V5...\r\nFailed migrating profile (0x800700B7): "
                                          "\\\\fs\\profiles\\" +
                                          sameOwner + ".V5\r\n"));
  EXPECT_FALSE(fs::exists(share_.share() / (sameOwner + ".V6")));

  // The others are migrated and belong to their owners.
  for (std::size_t i = 2; i < order.size(); ++i) {
    const fs::path target = share_.share() / (order[i] + ".V6");
    EXPECT_EQ(testing::ReadWholeFile(target / "Other" / "other.txt"), "other " + order[i]);
    EXPECT_EQ(share_.OwnerOf(target), owners[i]) << order[i];
    // What comes from the default profile gets the source's owner; copied items keep their own.
    EXPECT_EQ(share_.OwnerOf(target / "ntuser.dat"), owners[i]) << order[i];
    EXPECT_EQ(share_.OwnerOf(target / "AppData"), owners[i]) << order[i];
    EXPECT_EQ(share_.OwnerOf(target / "Other" / "other.txt"),
              share_.OwnerOf(share_.share() / (order[i] + ".V5") / "Other" / "other.txt"));
  }
  EXPECT_TRUE(Contains(result.output,
                       kExit1 + "2 profiles were migrated from \\\\fs\\profiles\\*.v5.\r\n"));
  // The failed profile's temporary profile is left for inspection (and recovery).
  EXPECT_TRUE(fs::exists(share_.localProfiles() / "_tarnwick_"));
  EXPECT_EQ(share_.CountLoggedContaining("Deleted temporary profile: "), 2);
  // No marker is left anywhere on the share.
  EXPECT_FALSE(AnyEntryContains(Tree(share_.share()), "_qzk_mig_marker_"));
}

}  // namespace
}  // namespace tw
