// Each migration mode through the built binary: console output, exit status, log lines, the
// resulting trees and the target hives read back with hivexregedit.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::E2eShare;
using testing::ExportedString;
using testing::kExit0;
using testing::kExit1;
using testing::kStart;
using testing::ProcessResult;
using testing::RegSection;
using testing::RegString;
using testing::Tree;

const std::string kMarker = "_qzk_mig_marker_";

bool Has(const std::vector<std::string>& tree, const std::string& entry) {
  return std::find(tree.begin(), tree.end(), entry) != tree.end();
}

std::string Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos ? "" : "missing: " + part;
}

// A V2, V5 or V6 profile: its own "User Shell Folders" (the V2 layout), a Software key and a
// Console key holding `name`, and files in Desktop, AppData\Local and a folder "Other".
fs::path AddLaterProfile(const E2eShare& share, const std::string& folder,
                         const std::string& name) {
  const std::string reg =
      RegSection(testing::kUserShellFolders,
                 RegString("Desktop", "%USERPROFILE%\\Desktop") +
                     RegString("Local AppData", "%USERPROFILE%\\AppData\\Local")) +
      RegSection("Software\\Tw", RegString("Profile", name)) +
      RegSection("Console", RegString("TwConsole", name));
  return share.AddProfile(folder, reg,
                          {{"Desktop/desk.txt", "desk " + name},
                           {"AppData/Local/local.txt", "local " + name},
                           {"Other/other.txt", "other " + name}});
}

class ModesE2eTest : public ::testing::Test {
 protected:
  // What a migrated V1 profile `name` must hold at `target`: its folders copied, its keys in the
  // target hive, no marker, and no temporary profile left.
  void ExpectMigratedV1(const fs::path& target, const std::string& name) {
    const std::vector<std::string> tree = Tree(target);
    EXPECT_TRUE(Has(tree, "Desktop/desk.txt"));
    EXPECT_TRUE(Has(tree, "My Documents/doc.txt"));
    EXPECT_TRUE(Has(tree, "Local Settings/Application Data/local.txt"));
    EXPECT_TRUE(Has(tree, "Other/Deep/other.txt"));
    EXPECT_TRUE(Has(tree, "ntuser.dat"));
    // The default profile's folders come with the copy of the temporary profile.
    EXPECT_TRUE(Has(tree, "AppData/Roaming/"));
    // Files at the top of the profile are not copied; the marker is gone.
    EXPECT_FALSE(Has(tree, "top.txt"));
    EXPECT_FALSE(Has(tree, kMarker));
    EXPECT_EQ(testing::ReadWholeFile(target / "Other" / "Deep" / "other.txt"), "other " + name);
    EXPECT_EQ(testing::ReadWholeFile(target / "Desktop" / "desk.txt"), "desk " + name);
    const std::string hive = E2eShare::ExportHive(target / "ntuser.dat");
    EXPECT_EQ(Contains(hive, ExportedString("Profile", name)), "");
    EXPECT_EQ(Contains(hive, ExportedString("TwConsole", name)), "");
    EXPECT_EQ(Contains(hive, ExportedString("TwEnvironment", name)), "");
    // The template's own keys stay (a key of the default profile the source lacks).
    EXPECT_EQ(Contains(hive, "[\\Software\\Microsoft\\Notepad]"), "");
  }

  void ExpectNoTemporaryProfile() {
    EXPECT_FALSE(fs::exists(share_.localProfiles() / "_tarnwick_"));
  }

  E2eShare share_{testing::SuiteTools()};
};

TEST_F(ModesE2eTest, V1ToV2BesideTheSource) {
  const fs::path source = share_.AddV1Profile("alice");
  const std::vector<std::string> before = Tree(source);
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output,
            kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
  ExpectMigratedV1(share_.share() / "alice.V2", "alice");
  EXPECT_EQ(Tree(source), before);
  ExpectNoTemporaryProfile();
  EXPECT_EQ(share_.CountLogged("1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n"), 1);
  EXPECT_EQ(share_.CountLoggedContaining("Deleted temporary profile: "), 1);
  EXPECT_EQ(share_.CountLogged("Processing folder Desktop"), 1);
  // The log begins with the start banner and ends with the exit banner and the summary, which
  // carries its own line break; the temporary profile is deleted before the end.
  const std::vector<std::string> messages = share_.LogMessages();
  ASSERT_GE(messages.size(), 4u);
  EXPECT_EQ(messages.front(), "---------- Starting tarnwick.exe ----------");
  EXPECT_EQ(messages[messages.size() - 2], "---------- Exiting tarnwick.exe (return 0) ----------");
  EXPECT_EQ(messages.back(), "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n");
  EXPECT_EQ(messages[messages.size() - 3].rfind("Deleted temporary profile: ", 0), 0u);
}

TEST_F(ModesE2eTest, V1ToV2UnderAnotherShare) {
  share_.AddV1Profile("alice");
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice", "/t:\\\\fs\\targets"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output,
            kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
  ExpectMigratedV1(share_.targets() / "alice.V2", "alice");
  EXPECT_FALSE(fs::exists(share_.share() / "alice.V2"));
  ExpectNoTemporaryProfile();
}

// A V2 source is named on its own: a *.V2 search never yields a .V2 folder.
TEST_F(ModesE2eTest, V2ToV5AndV2ToV6) {
  AddLaterProfile(share_, "bob.V2", "bob");
  for (const auto& [option, suffix] :
       std::vector<std::pair<std::string, std::string>>{{"/V2TOV5", "V5"}, {"/V2TOV6", "V6"}}) {
    const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\bob.V2", option});
    EXPECT_EQ(result.exitStatus, 0) << option;
    EXPECT_EQ(result.output, kStart + "Migrating profile: \\\\fs\\profiles\\bob.v2...\r\n" +
                                 kExit0 +
                                 "1 profiles were migrated from \\\\fs\\profiles\\bob.v2.\r\n")
        << option;
    const fs::path target = share_.share() / ("bob." + suffix);
    const std::vector<std::string> tree = Tree(target);
    EXPECT_TRUE(Has(tree, "Desktop/desk.txt")) << option;
    EXPECT_TRUE(Has(tree, "AppData/Local/local.txt")) << option;
    EXPECT_TRUE(Has(tree, "Other/other.txt")) << option;
    EXPECT_FALSE(Has(tree, kMarker));
    const std::string hive = E2eShare::ExportHive(target / "ntuser.dat");
    EXPECT_EQ(Contains(hive, ExportedString("Profile", "bob")), "") << option;
    EXPECT_EQ(Contains(hive, ExportedString("TwConsole", "bob")), "") << option;
  }
  EXPECT_EQ(share_.CountLogged("Migrating profile: \\\\fs\\profiles\\bob.v2"), 2);
  // Versions 5 and 6 have no classes-hive step.
  EXPECT_EQ(share_.CountLoggedContaining("UsrClass.dat"), 0);
  ExpectNoTemporaryProfile();
}

TEST_F(ModesE2eTest, V5ToV6OverEveryV5ProfileOfTheShare) {
  AddLaterProfile(share_, "carol.V5", "carol");
  AddLaterProfile(share_, "dave.V5", "dave");
  share_.AddV1Profile("erin");  // not a .V5 folder: not enumerated
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\*.V5", "/V5TOV6"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(Contains(result.output, "Migrating profile: \\\\fs\\profiles\\carol.V5...\r\n"), "");
  EXPECT_EQ(Contains(result.output, "Migrating profile: \\\\fs\\profiles\\dave.V5...\r\n"), "");
  EXPECT_EQ(
      Contains(result.output, kExit0 + "2 profiles were migrated from \\\\fs\\profiles\\*.v5.\r\n"),
      "");
  for (const std::string name : {"carol", "dave"}) {
    const fs::path target = share_.share() / (name + ".V6");
    EXPECT_TRUE(Has(Tree(target), "Desktop/desk.txt")) << name;
    EXPECT_EQ(testing::ReadWholeFile(target / "Other" / "other.txt"), "other " + name);
    EXPECT_EQ(
        Contains(E2eShare::ExportHive(target / "ntuser.dat"), ExportedString("Profile", name)), "");
  }
  EXPECT_FALSE(fs::exists(share_.share() / "erin.V6"));
  EXPECT_FALSE(fs::exists(share_.share() / "erin.V2"));
  ExpectNoTemporaryProfile();
}

TEST_F(ModesE2eTest, V6ToV6SelectionMigratesV1ToV2) {
  share_.AddV1Profile("alice");
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice", "/V6TOV6"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output,
            kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
  ExpectMigratedV1(share_.share() / "alice.V2", "alice");
  EXPECT_FALSE(fs::exists(share_.share() / "alice.V6"));
}

TEST_F(ModesE2eTest, RegistryOffCopiesOnlySoftware) {
  share_.AddV1Profile("alice");
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice", "/r-"});
  EXPECT_EQ(result.exitStatus, 0);
  const fs::path target = share_.share() / "alice.V2";
  const std::string hive = E2eShare::ExportHive(target / "ntuser.dat");
  EXPECT_EQ(Contains(hive, ExportedString("Profile", "alice")), "");
  EXPECT_EQ(hive.find("TwConsole"), std::string::npos);
  EXPECT_EQ(hive.find("TwEnvironment"), std::string::npos);
  EXPECT_EQ(Contains(hive, "[\\Console]"), "");  // the template's own Console key stays
  EXPECT_TRUE(Has(Tree(target), "Other/Deep/other.txt"));
}

TEST_F(ModesE2eTest, FilesOffCopiesNoFolderButMigratesTheHive) {
  share_.AddV1Profile("alice");
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice", "/f-"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output,
            kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
  const fs::path target = share_.share() / "alice.V2";
  const std::vector<std::string> tree = Tree(target);
  EXPECT_FALSE(Has(tree, "Desktop/desk.txt"));
  EXPECT_FALSE(Has(tree, "My Documents/"));
  EXPECT_FALSE(Has(tree, "Local Settings/"));
  EXPECT_FALSE(Has(tree, "Other/"));
  EXPECT_TRUE(Has(tree, "Desktop/"));  // from the default profile
  const std::string hive = E2eShare::ExportHive(target / "ntuser.dat");
  EXPECT_EQ(Contains(hive, ExportedString("Profile", "alice")), "");
  EXPECT_EQ(Contains(hive, ExportedString("TwConsole", "alice")), "");
  EXPECT_EQ(share_.CountLoggedContaining("Processing folder"), 0);
  ExpectNoTemporaryProfile();
}

TEST_F(ModesE2eTest, ConfigurationFileFilters) {
  share_.AddV1Profile("alice");
  const std::string config = testing::WriteFileAt(
      share_.root() / "cfg.xml",
      "<migration><source><profilepath>\\\\fs\\profiles\\alice</profilepath></source>"
      "<migration><profile><includefolders>Desktop</includefolders></profile>"
      "<registry><includekeys>Console, Environment</includekeys>"
      "<excludekeys>Environment</excludekeys></registry></migration></migration>");
  const ProcessResult result = share_.Run({config});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output,
            kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
  // Folder filters compare with the folders' locations, which are empty while the file is read:
  // "Desktop" matches nothing and the include list leaves no special folder selected.
  EXPECT_EQ(share_.CountLogged("Invalid folder filter found in the configuration file: Desktop"),
            1);
  EXPECT_EQ(share_.CountLogged("Processing folder Desktop"), 1);
  EXPECT_EQ(share_.CountLoggedContaining("Skipped processing folder"), 19);
  const fs::path target = share_.share() / "alice.V2";
  const std::vector<std::string> tree = Tree(target);
  EXPECT_FALSE(Has(tree, "Desktop/desk.txt"));
  EXPECT_TRUE(Has(tree, "Other/Deep/other.txt"));  // not a special folder: copied
  EXPECT_TRUE(Has(tree, "My Documents/doc.txt"));  // the same
  const std::string hive = E2eShare::ExportHive(target / "ntuser.dat");
  EXPECT_EQ(Contains(hive, ExportedString("TwConsole", "alice")), "");
  EXPECT_EQ(hive.find("TwEnvironment"), std::string::npos);
  EXPECT_EQ(hive.find(ExportedString("Profile", "alice")), std::string::npos);
}

// The configuration's mode wins over a mode option of the command line.
TEST_F(ModesE2eTest, ConfigurationFileMode) {
  AddLaterProfile(share_, "bob.V2", "bob");
  const std::string config =
      testing::WriteFileAt(share_.root() / "mode.xml",
                           "<m><source><profilepath>\\\\fs\\profiles\\bob.V2</profilepath>"
                           "<migv2tov6>TRUE</migv2tov6></source>"
                           "<target><profilepath>\\\\fs\\targets</profilepath></target></m>");
  const ProcessResult result = share_.Run({"/V2TOV5", config});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output, kStart + "Migrating profile: \\\\fs\\profiles\\bob.V2...\r\n" + kExit0 +
                               "1 profiles were migrated from \\\\fs\\profiles\\bob.V2.\r\n");
  EXPECT_TRUE(Has(Tree(share_.targets() / "bob.V6"), "Other/other.txt"));
  EXPECT_FALSE(fs::exists(share_.targets() / "bob.V5"));
}

}  // namespace
}  // namespace tw
