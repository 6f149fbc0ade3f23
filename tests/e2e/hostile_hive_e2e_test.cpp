// Hostile hives through the built binary: a key whose name begins with a NUL character and a key
// tree deeper than Windows' 512 levels. Each run ends with its summary, logs the failure of the
// sub key as the key copy does for a sub key that cannot be opened, leaves no marker and no
// temporary profile behind, and changes nothing in the source profile.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"
#include "fakes/tree_state.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::E2eShare;
using testing::kExit0;
using testing::kStart;
using testing::ProcessResult;
using testing::RegSection;
using testing::RegString;
using testing::Tree;

// The independent readers' verdict on a hive: reglookup and regfinfo both read it through.
void ExpectIndependentReadersParse(const fs::path& hive) {
  const ProcessResult looked = testing::RunProcess("/usr/bin/reglookup", {hive.string()});
  EXPECT_EQ(looked.exitStatus, 0) << looked.errors;
  EXPECT_TRUE(Contains(looked.output, "/Software/Tw/Later")) << looked.output;
  const ProcessResult info = testing::RunProcess("/usr/bin/regfinfo", {hive.string()});
  EXPECT_EQ(info.exitStatus, 0) << info.output << info.errors;
}

class HostileHiveE2eTest : public ::testing::Test {
 protected:
  // The run over alice: it ends with its summary and migrates the profile; no marker and no
  // temporary profile (folder or registration) stay; the source profile is as it was.
  void RunAndExpectMigrated(const fs::path& source) {
    const testing::TreeState before = testing::CaptureTreeState(source);
    const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
    EXPECT_EQ(result.exitStatus, 0) << result.output;
    EXPECT_EQ(result.output,
              kStart + kExit0 + "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n\r\n");
    EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(source)), "");
    const std::vector<std::string> tree = Tree(share_.share());
    EXPECT_TRUE(std::none_of(tree.begin(), tree.end(), [](const std::string& entry) {
      return Contains(entry, "_qzk_mig_marker_");
    }));
    EXPECT_TRUE(fs::exists(share_.share() / "alice.V2" / "ntuser.dat"));
    EXPECT_FALSE(fs::exists(share_.localProfiles() / "_tarnwick_"));
    EXPECT_FALSE(fs::exists(share_.localProfiles() / "[ProfileList]" / "alice"));
    if (fs::exists(share_.localProfiles() / "[ProfileList]")) {
      EXPECT_TRUE(fs::is_empty(share_.localProfiles() / "[ProfileList]"));
    }
  }

  E2eShare share_{testing::SuiteTools()};
};

// A sub key whose name begins with NUL: opening it by name is refused (0x80070057), the copy
// logs that sub key and, as for any sub key that cannot be opened, ends the loop over its
// siblings; the values before it and the other top-level keys are copied.
TEST_F(HostileHiveE2eTest, AKeyNameBeginningWithNulFailsThatSubKeyAndTheRunGoesOn) {
  const fs::path source = share_.AddProfile(
      "alice",
      RegSection(testing::kUserShellFolders, RegString("Desktop", "%USERPROFILE%\\Desktop")) +
          RegSection("Software\\Tw", RegString("Profile", "alice")) +
          RegSection("Software\\Tw\\!nulkey", RegString("Inner", "inner")) +
          RegSection("Software\\Tw\\Later", RegString("After", "after")) +
          RegSection("Console", RegString("TwConsole", "alice")),
      {{"Desktop/desk.txt", "desk"}});
  // "!" sorts before every letter, so the sub key lists stay in order with NUL in its place.
  ASSERT_TRUE(
      testing::ReplaceUniqueBytes(source / "ntuser.dat", "!nulkey", std::string("\0nulkey", 7)));
  ExpectIndependentReadersParse(source / "ntuser.dat");

  RunAndExpectMigrated(source);
  // The name is logged as the C string it is, up to its NUL.
  EXPECT_EQ(
      share_.CountLogged("Failed to open source registry key (0x80070057), skipping this key: "),
      1);
  EXPECT_EQ(share_.CountLogged("Failed to copy registry key to target hive (0x80070057): Tw/"), 1);
  const std::string exported = E2eShare::ExportHive(share_.share() / "alice.V2" / "ntuser.dat");
  EXPECT_TRUE(Contains(exported, "[\\Software\\Tw]")) << exported;
  EXPECT_TRUE(Contains(exported, testing::ExportedString("Profile", "alice"))) << exported;
  EXPECT_TRUE(Contains(exported, testing::ExportedString("TwConsole", "alice"))) << exported;
  EXPECT_FALSE(Contains(exported, "nulkey")) << exported;
  EXPECT_FALSE(Contains(exported, "Inner")) << exported;
  EXPECT_FALSE(Contains(exported, "[\\Software\\Tw\\Later]")) << exported;
}

// The section name of the key Software\Deep followed by `levels` keys "d".
std::string DeepKey(int levels) {
  std::string key = "Software\\Deep";
  for (int i = 0; i < levels; ++i) key += "\\d";
  return key;
}

// A key chain 602 levels deep: the copy goes down to level 512 (Software is level 1) and fails
// the key below it as a sub key that cannot be opened; the stack never overflows.
TEST_F(HostileHiveE2eTest, AKeyTreeDeeperThan512LevelsIsCopiedDownTo512) {
  const fs::path source = share_.AddProfile(
      "alice",
      RegSection(testing::kUserShellFolders, RegString("Desktop", "%USERPROFILE%\\Desktop")) +
          RegSection(DeepKey(600), RegString("Bottom", "bottom")) +
          RegSection("Software\\Tw", RegString("Profile", "alice")),
      {{"Desktop/desk.txt", "desk"}});
  const std::string sourceExport = E2eShare::ExportHive(source / "ntuser.dat");
  ASSERT_TRUE(Contains(sourceExport, "[\\" + DeepKey(600) + "]"));

  RunAndExpectMigrated(source);
  EXPECT_EQ(
      share_.CountLogged("Failed to open source registry key (0x80070057), skipping this key: d"),
      1);
  EXPECT_EQ(share_.CountLogged("Failed to copy registry key to target hive (0x80070057): d/d"), 1);
  const std::string exported = E2eShare::ExportHive(share_.share() / "alice.V2" / "ntuser.dat");
  EXPECT_TRUE(Contains(exported, "[\\" + DeepKey(510) + "]"));
  EXPECT_FALSE(Contains(exported, "[\\" + DeepKey(511) + "]"));
  EXPECT_FALSE(Contains(exported, "Bottom"));
  EXPECT_TRUE(Contains(exported, testing::ExportedString("Profile", "alice")));
}

}  // namespace
}  // namespace tw
