// The run flow's edge cases through the built binary: the version-suffix refusal, the V6
// selection's refusal, a rerun over finished targets and failing profiles among several. (No
// arguments and the help forms are in command_line_e2e_test.cpp.)
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"

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

fs::path AddV5Profile(const E2eShare& share, const std::string& folder, const std::string& name) {
  return share.AddProfile(
      folder,
      RegSection(testing::kUserShellFolders, RegString("Desktop", "%USERPROFILE%\\Desktop")) +
          RegSection("Software\\Tw", RegString("Profile", name)),
      {{"Desktop/desk.txt", "desk " + name}, {"Other/other.txt", "other " + name}});
}

class RunFlowE2eTest : public ::testing::Test {
 protected:
  E2eShare share_{testing::SuiteTools()};
};

TEST_F(RunFlowE2eTest, V2WildcardWithoutModeIsRefused) {
  AddV5Profile(share_, "bob.V2", "bob");
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\*.V2"});
  EXPECT_EQ(result.exitStatus, 255);
  const std::string message =
      "Source profile is V2. /V2toV5 or /V2toV6 option must be specified for V2 to V5 or V2 to V6 "
      "or V5 to V6\r\n---------- Exiting tarnwick.exe (return -1) ----------";
  EXPECT_EQ(result.output, kStart + message + "\r\n");
  EXPECT_EQ(share_.CountLogged(message), 1);
  EXPECT_FALSE(fs::exists(share_.share() / "bob.V5"));
}

// With a mode the check passes and the loop searches with suffix V2; the search never yields a
// .V2 folder, so nothing is migrated, and the suffix loop's summary has no line break of its own.
TEST_F(RunFlowE2eTest, V2WildcardWithModeRunsTheSuffixLoop) {
  AddV5Profile(share_, "bob.V2", "bob");
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\*.V2", "/V2TOV6"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output,
            kStart + kExit0 +
                "The source does not contain any profiles to migrate: \\\\fs\\profiles\\*.v2\r\n");
  EXPECT_EQ(share_.CountLogged(
                "The source does not contain any profiles to migrate: \\\\fs\\profiles\\*.v2"),
            1);
  EXPECT_FALSE(fs::exists(share_.share() / "bob.V6"));
}

TEST_F(RunFlowE2eTest, V6SourceIsRefusedEvenWithTheV6Selection) {
  AddV5Profile(share_, "frank.v6", "frank");
  for (const std::string source :
       {"/s:\\\\fs\\profiles\\frank.v6", "/s:\\\\fs\\profiles\\FRANK.V6"}) {
    const ProcessResult result = share_.Run({source, "/V6TOV6"});
    EXPECT_EQ(result.exitStatus, 255) << source;
    EXPECT_EQ(result.output, kStart +
                                 "Source profile is V6. /V6toV6 option must be specified for V2 to "
                                 "V5 or V2 to V6 or V5 to V6\r\n" +
                                 kExit1)
        << source;
  }
  EXPECT_EQ(Tree(share_.share()),
            (std::vector<std::string>{"frank.v6/", "frank.v6/Desktop/", "frank.v6/Desktop/desk.txt",
                                      "frank.v6/Other/", "frank.v6/Other/other.txt",
                                      "frank.v6/ntuser.dat"}));
}

// A rerun over a finished target: the existing target is a failure with 0x800700B7 (not the
// "already exists" line), the counter stays 0, the default loop's summary carries its own line
// break, and the finished target is left as it was.
TEST_F(RunFlowE2eTest, RerunOverAFinishedTargetFails) {
  share_.AddV1Profile("alice");
  ASSERT_EQ(share_.Run({"/s:\\\\fs\\profiles\\alice"}).exitStatus, 0);
  const std::vector<std::string> finished = Tree(share_.share() / "alice.V2");
  share_.ClearLog();
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 255);
  EXPECT_EQ(result.output,
            kStart + "Failed migrating profile (0x800700B7): \\\\fs\\profiles\\alice\r\n" + kExit1 +
                "The source does not contain any profiles to migrate: \\\\fs\\profiles\\alice\r\n"
                "\r\n");
  EXPECT_EQ(
      share_.CountLogged("The target profile path already exists: \\\\fs\\profiles\\alice.V2"), 1);
  EXPECT_EQ(share_.CountLoggedContaining("Target profile already exists"), 0);
  EXPECT_EQ(share_.CountLoggedContaining("Failed creating profile"), 0);
  EXPECT_EQ(Tree(share_.share() / "alice.V2"), finished);
  EXPECT_FALSE(fs::exists(share_.localProfiles() / "_tarnwick_"));
}

// The same over a *.V5 run whose every profile is finished: one line each, the suffix loop's
// summary.
TEST_F(RunFlowE2eTest, RerunOverEveryFinishedV5Target) {
  AddV5Profile(share_, "carol.V5", "carol");
  AddV5Profile(share_, "dave.V5", "dave");
  ASSERT_EQ(share_.Run({"/s:\\\\fs\\profiles\\*.V5", "/V5TOV6"}).exitStatus, 0);
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\*.V5", "/V5TOV6"});
  EXPECT_EQ(result.exitStatus, 255);
  for (const std::string name : {"carol", "dave"}) {
    EXPECT_TRUE(Contains(result.output, "Migrating profile: \\\\fs\\profiles\\" + name +
                                            ".V5...\r\nFailed migrating profile (0x800700B7): "
                                            "\\\\fs\\profiles\\" +
                                            name + ".V5\r\n"))
        << result.output;
  }
  EXPECT_TRUE(Contains(
      result.output,
      kExit1 + "The source does not contain any profiles to migrate: \\\\fs\\profiles\\*.v5\r\n"));
  EXPECT_EQ(share_.CountLoggedContaining("Failed migrating profile (0x800700B7)"), 2);
}

// One profile of a *.V5 run fails before its temporary profile is created (a finished target is
// already there): the others are migrated, the count counts only them, the exit value is -1.
TEST_F(RunFlowE2eTest, OneFailingProfileAmongSeveral) {
  for (const std::string name : {"carol", "dave", "erin"}) {
    AddV5Profile(share_, name + ".V5", name);
  }
  testing::WriteText(share_.share() / "dave.V6" / "mine.txt", "finished before");
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\*.V5", "/V5TOV6"});
  EXPECT_EQ(result.exitStatus, 255);
  EXPECT_TRUE(Contains(result.output,
                       "Failed migrating profile (0x800700B7): \\\\fs\\profiles\\dave.V5\r\n"));
  EXPECT_TRUE(Contains(result.output,
                       kExit1 + "2 profiles were migrated from \\\\fs\\profiles\\*.v5.\r\n"));
  EXPECT_EQ(testing::ReadWholeFile(share_.share() / "dave.V6" / "mine.txt"), "finished before");
  EXPECT_EQ(Tree(share_.share() / "dave.V6"), std::vector<std::string>{"mine.txt"});
  for (const std::string name : {"carol", "erin"}) {
    EXPECT_EQ(testing::ReadWholeFile(share_.share() / (name + ".V6") / "Other" / "other.txt"),
              "other " + name);
  }
  EXPECT_EQ(share_.CountLoggedContaining("Deleted temporary profile: "), 2);
  EXPECT_FALSE(fs::exists(share_.localProfiles() / "_tarnwick_"));
}

// A target that still carries the marker of an interrupted run is deleted and built anew.
TEST_F(RunFlowE2eTest, MarkedTargetIsRebuilt) {
  share_.AddV1Profile("alice");
  testing::WriteText(share_.share() / "alice.V2" / "_qzk_mig_marker_", "");
  testing::WriteText(share_.share() / "alice.V2" / "Half" / "half.txt", "half");
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output,
            kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
  EXPECT_EQ(share_.CountLogged("The target profile contains an interrupted migration, rebuilding "
                               "profile: \\\\fs\\profiles\\alice.V2"),
            1);
  const std::vector<std::string> tree = Tree(share_.share() / "alice.V2");
  EXPECT_TRUE(std::find(tree.begin(), tree.end(), "Other/Deep/other.txt") != tree.end());
  EXPECT_FALSE(std::find(tree.begin(), tree.end(), "Half/") != tree.end());
  EXPECT_FALSE(std::find(tree.begin(), tree.end(), "_qzk_mig_marker_") != tree.end());
}

// A V1 source's classes hive is looked for under "Local Settings\Application Data" in the target
// too, where the new profile has none while the hive step runs (folders come after it): the step
// logs its failure and the profile is migrated all the same.
TEST_F(RunFlowE2eTest, ClassesHiveOfAV1SourceUsesTheV1PathOnBothSides) {
  const fs::path source = share_.AddV1Profile("alice");
  share_.MakeHive(
      source / "Local Settings" / "Application Data" / "Microsoft" / "Windows" / "UsrClass.dat",
      RegSection("Software\\Classes", RegString("Tw", "classes")));
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(share_.CountLogged("Failed to open target registry hive (0x80070003): "
                               "\\\\fs\\profiles\\alice.V2\\Local Settings\\Application "
                               "Data\\Microsoft\\Windows\\UsrClass.dat"),
            1);
  EXPECT_EQ(share_.CountLoggedContaining("Failed to migrate UsrClass.dat security (0x80070003)"),
            1);
}

// A special folder the source redirects to a UNC path is carried into the target's "User Shell
// Folders" and not copied.
TEST_F(RunFlowE2eTest, FolderRedirectedToAUncPathStaysRedirected) {
  share_.AddProfile(
      "alice",
      RegSection(testing::kUserShellFolders, RegString("Desktop", "%USERPROFILE%\\Desktop") +
                                                 RegString("Personal", "\\\\home\\alice\\docs")),
      {{"Desktop/desk.txt", "desk"}, {"Documents/doc.txt", "doc"}});
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0);
  const fs::path target = share_.share() / "alice.V2";
  const std::string hive =
      E2eShare::ExportHive(target / "ntuser.dat", std::string("\\") + testing::kUserShellFolders);
  // The value holds the path with the type found (REG_SZ, as the key copy brought it) and
  // without a terminating zero.
  std::string expected = testing::ExportedString("Personal", "\\\\home\\alice\\docs");
  expected.resize(expected.size() - 6);  // ",00,00": the terminating zero
  EXPECT_TRUE(Contains(hive, expected + "\n")) << hive;
  const std::vector<std::string> tree = Tree(target);
  EXPECT_TRUE(std::find(tree.begin(), tree.end(), "Desktop/desk.txt") != tree.end());
  // "Documents" is no special folder's name in the source: copied by the second pass as it is.
  EXPECT_TRUE(std::find(tree.begin(), tree.end(), "Documents/doc.txt") != tree.end());
  EXPECT_EQ(share_.CountLoggedContaining("\\\\home\\alice\\docs"), 0);
}

}  // namespace
}  // namespace tw
