// The bundled sample share (tarnwick-sample-share over tools/sample_share) and the migration
// that tools/demo.sh runs over it: the built programs run as a user runs them, the results read
// with an independent hive reader (python3-hivex) and the file system.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/text_encoding.h"
#include "fakes/e2e_share.h"
#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"
#include "os/posix/security/descriptor_store.h"

namespace tw {
namespace {

using testing::kStart;

namespace fs = std::filesystem;

const std::string kGenerator = TARNWICK_SAMPLE_SHARE_TOOL;
const std::string kTarnwick = TARNWICK_BINARY;
const std::string kPython = "/usr/bin/python3";
const std::string kShellFolders = "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\";

// Prints every value of one key as "name<TAB>type<TAB>text" lines (strings decoded, other data
// in hex), or, with the key "-", the names of the root's sub keys.
const char* const kHivexScript = R"PY(
import sys, hivex
h = hivex.Hivex(sys.argv[1])
if sys.argv[2] == '-':
    for child in h.node_children(h.root()):
        print(h.node_name(child))
    sys.exit(0)
node = h.root()
for part in sys.argv[2].split('\\'):
    node = h.node_get_child(node, part)
    if node is None:
        sys.exit(3)
for v in h.node_values(node):
    t, data = h.value_value(v)
    text = data.decode('utf-16-le').rstrip('\x00') if t in (1, 2) else data.hex()
    print('%s\t%d\t%s' % (h.value_key(v), t, text))
)PY";

struct HiveValue {
  int type = 0;
  std::string text;
};

std::vector<std::string> Lines(const std::string& output) {
  std::vector<std::string> lines;
  std::istringstream stream(output);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::map<std::string, HiveValue> ReadKey(const fs::path& hive, const std::string& key) {
  const testing::ProcessResult result =
      testing::RunProcess(kPython, {"-c", kHivexScript, hive.string(), key});
  EXPECT_EQ(result.exitStatus, 0) << hive << " " << key << ": " << result.errors;
  std::map<std::string, HiveValue> values;
  for (const std::string& line : Lines(result.output)) {
    const std::size_t first = line.find('\t');
    const std::size_t second = line.find('\t', first + 1);
    values[line.substr(0, first)] = {std::stoi(line.substr(first + 1, second - first - 1)),
                                     line.substr(second + 1)};
  }
  return values;
}

std::set<std::string> RootKeys(const fs::path& hive) {
  const testing::ProcessResult result =
      testing::RunProcess(kPython, {"-c", kHivexScript, hive.string(), "-"});
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  const std::vector<std::string> lines = Lines(result.output);
  return std::set<std::string>(lines.begin(), lines.end());
}

std::string OwnerOf(const fs::path& object) {
  std::optional<security::SecurityDescriptor> sd;
  if (posix::LoadStoredDescriptor(object.string(), sd) != err::kSuccess || !sd || !sd->owner)
    return std::string();
  return WideToUtf8(sd->owner->ToString());
}

// Every regular file below `folder`, relative, sorted.
std::vector<std::string> FilesBelow(const fs::path& folder) {
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(fs::relative(entry.path(), folder).string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// The eleven top-level keys of the registry key table.
const std::set<std::string> kTableKeys = {
    "Console",   "Control Panel", "Identities", "Keyboard Layout", "Printers", "Software", "System",
    "AppEvents", "Environment",   "EUDC",       "Network"};

const std::set<std::string> kSpecialFolders = {
    "AppData",  "Cache",       "Cookies",    "Desktop", "Favorites", "History",   "Local AppData",
    "My Music", "My Pictures", "My Video",   "NetHood", "Personal",  "PrintHood", "Programs",
    "Recent",   "SendTo",      "Start Menu", "Startup", "Templates"};

class SampleShare : public ::testing::Test {
 protected:
  void SetUp() override {
    const testing::ProcessResult result = testing::RunProcess(kGenerator, {dir_.string()});
    ASSERT_EQ(result.exitStatus, 0) << result.errors;
    generatorOutput_ = result.output;
  }

  testing::ProcessResult Tarnwick(const std::vector<std::string>& args) const {
    return testing::RunProcess(kTarnwick, args,
                               {{"TARNWICK_SHARES", (dir_ / "shares.conf").string()},
                                {"TARNWICK_PROFILE_ROOT", (dir_ / "profiles").string()}});
  }

  // The runs of tools/demo.sh, each checked for its exit value and console output.
  void MigrateAsTheDemoDoes() const {
    for (const char* user : {"alice", "bob", "carol", "dave"}) {
      const testing::ProcessResult run =
          Tarnwick({std::string("/s:\\\\sample\\profiles\\") + user});
      EXPECT_EQ(run.exitStatus, 0) << user;
      EXPECT_EQ(run.output, kStart + "---------- Exiting tarnwick.exe (return 0) ----------\r\n" +
                                "1 profiles were migrated from \\\\sample\\profiles\\" + user +
                                ".\r\n\r\n");
    }
    const testing::ProcessResult erin = Tarnwick({"/s:\\\\sample\\profiles\\erin.V2", "/V2TOV6"});
    EXPECT_EQ(erin.exitStatus, 0);
    // The command line is lower-cased, so the path is printed in lower case.
    EXPECT_EQ(erin.output, kStart + "Migrating profile: \\\\sample\\profiles\\erin.v2...\r\n" +
                               "---------- Exiting tarnwick.exe (return 0) ----------\r\n" +
                               "1 profiles were migrated from \\\\sample\\profiles\\erin.v2.\r\n");
    const testing::ProcessResult v5 = Tarnwick({"/s:\\\\sample\\profiles\\*.V5", "/V5TOV6"});
    EXPECT_EQ(v5.exitStatus, 0);
    const std::vector<std::string> lines = Lines(v5.output);
    ASSERT_EQ(lines.size(), 5u) << v5.output;
    EXPECT_EQ(lines[0] + "\n", kStart);
    // The file system gives the order; both .V5 profiles are found.
    EXPECT_EQ(std::set<std::string>({lines[1], lines[2]}),
              std::set<std::string>({"Migrating profile: \\\\sample\\profiles\\frank.V5...\r",
                                     "Migrating profile: \\\\sample\\profiles\\grace.V5...\r"}));
    EXPECT_EQ(lines[3], "---------- Exiting tarnwick.exe (return 0) ----------\r");
    EXPECT_EQ(lines[4], "2 profiles were migrated from \\\\sample\\profiles\\*.v5.\r");
  }

  testing::TempFolder temp_;
  fs::path dir_ = temp_.path() / "sample";
  fs::path share_ = dir_ / "share";
  std::string generatorOutput_;
};

TEST_F(SampleShare, WritesTheShareMapForItsShare) {
  EXPECT_EQ(testing::ReadWholeFile(dir_ / "shares.conf"),
            "\\\\sample\\profiles = " + share_.string() + "\n");
  EXPECT_NE(generatorOutput_.find("Share map: " + (dir_ / "shares.conf").string()),
            std::string::npos);
}

TEST_F(SampleShare, HoldsProfilesOfEveryVersionAndTheItemsThatAreNoProfiles) {
  for (const char* profile : {"alice", "bob", "carol", "dave", "erin.V2", "frank.V5", "grace.V5"}) {
    EXPECT_TRUE(fs::is_regular_file(share_ / profile / "ntuser.dat")) << profile;
  }
  EXPECT_TRUE(fs::is_directory(share_ / "notaprofile"));
  EXPECT_FALSE(fs::exists(share_ / "notaprofile" / "ntuser.dat"));
  EXPECT_TRUE(fs::is_regular_file(share_ / "readme.txt"));
  ASSERT_TRUE(fs::is_symlink(share_ / "outside"));
  EXPECT_EQ(fs::read_symlink(share_ / "outside"), dir_ / "outside");
  EXPECT_TRUE(fs::is_regular_file(dir_ / "outside" / "outside.txt"));
}

TEST_F(SampleShare, V1ProfilesHaveTheXpLayout) {
  const fs::path alice = share_ / "alice";
  for (const char* folder :
       {"Application Data", "Local Settings/Application Data", "Local Settings/History",
        "Local Settings/Temporary Internet Files", "Cookies", "Desktop", "Favorites",
        "My Documents/My Music", "My Documents/My Pictures", "My Documents/My Videos", "NetHood",
        "PrintHood", "Recent", "SendTo", "Start Menu/Programs/Startup", "Templates", "Scripts"}) {
    EXPECT_TRUE(fs::is_directory(alice / folder)) << folder;
  }
  EXPECT_TRUE(fs::is_regular_file(
      alice / "Local Settings/Application Data/Microsoft/Windows/UsrClass.dat"));
  EXPECT_EQ(testing::ReadWholeFile(alice / "My Documents/letter.txt"),
            "Dear alice, this is a letter.");
  EXPECT_TRUE(fs::is_regular_file(alice / "My Documents/Projects/2005/Budget/numbers.csv"));
  EXPECT_EQ(testing::ReadWholeFile(alice / "notes.txt"), "notes of alice");
  EXPECT_EQ(
      ReadKey(alice / "Local Settings/Application Data/Microsoft/Windows/UsrClass.dat", ".txt")[""]
          .text,
      "txtfile");
}

TEST_F(SampleShare, V1HivesHoldTheTableKeysAndXpShellFolders) {
  const fs::path hive = share_ / "bob" / "ntuser.dat";
  EXPECT_EQ(RootKeys(hive), kTableKeys);
  const auto user = ReadKey(hive, kShellFolders + "User Shell Folders");
  const auto shell = ReadKey(hive, kShellFolders + "Shell Folders");
  EXPECT_EQ(user.size(), kSpecialFolders.size());
  for (const std::string& name : kSpecialFolders) {
    ASSERT_TRUE(user.count(name)) << name;
    EXPECT_EQ(user.at(name).type, 2) << name;  // REG_EXPAND_SZ
    EXPECT_EQ(user.at(name).text.rfind("%USERPROFILE%\\", 0), 0u) << name;
    ASSERT_TRUE(shell.count(name)) << name;
    EXPECT_EQ(shell.at(name).type, 1) << name;  // REG_SZ
    // The expanded form of the same location, as XP stored it.
    EXPECT_EQ(shell.at(name).text,
              "C:\\Documents and Settings\\bob" + user.at(name).text.substr(13))
        << name;
  }
  EXPECT_EQ(user.at("Local AppData").text, "%USERPROFILE%\\Local Settings\\Application Data");
  EXPECT_EQ(user.at("Personal").text, "%USERPROFILE%\\My Documents");
  EXPECT_EQ(ReadKey(hive, "Software\\Sample\\Editor").at("Owner").text, "bob");
}

TEST_F(SampleShare, DavesDocumentsAreRedirectedToAUncPath) {
  const fs::path hive = share_ / "dave" / "ntuser.dat";
  EXPECT_EQ(ReadKey(hive, kShellFolders + "User Shell Folders").at("Personal").text,
            "\\\\sample\\home\\dave\\docs");
  EXPECT_EQ(ReadKey(hive, kShellFolders + "Shell Folders").at("Personal").text,
            "\\\\sample\\home\\dave\\docs");
  EXPECT_EQ(ReadKey(hive, kShellFolders + "User Shell Folders").at("Desktop").text,
            "%USERPROFILE%\\Desktop");
}

TEST_F(SampleShare, ModernProfilesHaveTheModernLayout) {
  for (const char* profile : {"erin.V2", "frank.V5", "grace.V5"}) {
    const fs::path folder = share_ / profile;
    EXPECT_TRUE(fs::is_directory(folder / "AppData/Roaming")) << profile;
    EXPECT_TRUE(fs::is_regular_file(folder / "AppData/Local/Microsoft/Windows/UsrClass.dat"));
    EXPECT_EQ(
        ReadKey(folder / "ntuser.dat", kShellFolders + "User Shell Folders").at("Personal").text,
        "%USERPROFILE%\\Documents");
  }
  EXPECT_EQ(testing::ReadWholeFile(share_ / "frank.V5/Documents/letter.txt"),
            "Dear frank, this is a letter.");
}

TEST_F(SampleShare, EveryProfileHasItsOwnOwner) {
  std::set<std::string> owners;
  for (const char* profile : {"alice", "bob", "carol", "dave", "erin.V2", "frank.V5", "grace.V5"}) {
    const std::string owner = OwnerOf(share_ / profile);
    EXPECT_EQ(owner.rfind("S-1-5-21-", 0), 0u) << profile << ": " << owner;
    EXPECT_EQ(OwnerOf(share_ / profile / "ntuser.dat"), owner) << profile;
    owners.insert(owner);
  }
  EXPECT_EQ(owners.size(), 7u);
}

TEST_F(SampleShare, RefusesAFolderThatIsNotEmpty) {
  const testing::ProcessResult again = testing::RunProcess(kGenerator, {dir_.string()});
  EXPECT_EQ(again.exitStatus, 1);
  EXPECT_EQ(again.errors, "tarnwick-sample-share: " + dir_.string() +
                              " exists and is not empty; give a new or empty folder\n");
  EXPECT_EQ(again.output, "");
  EXPECT_TRUE(fs::is_regular_file(share_ / "alice" / "ntuser.dat"));
}

TEST_F(SampleShare, TheDemoRunsMigrateEveryProfile) {
  MigrateAsTheDemoDoes();
  for (const char* target :
       {"alice.V2", "bob.V2", "carol.V2", "dave.V2", "erin.V6", "frank.V6", "grace.V6"}) {
    EXPECT_TRUE(fs::is_regular_file(share_ / target / "ntuser.dat")) << target;
    EXPECT_FALSE(fs::exists(share_ / target / "_qzk_mig_marker_")) << target;
  }
  // Nothing else was made: no target for the folder without a hive, the link or the V2 source
  // in the default mode, and no temporary profile is left.
  std::set<std::string> entries;
  for (const auto& entry : fs::directory_iterator(share_))
    entries.insert(entry.path().filename().string());
  EXPECT_EQ(entries, std::set<std::string>({"alice", "alice.V2", "bob", "bob.V2", "carol",
                                            "carol.V2", "dave", "dave.V2", "erin.V2", "erin.V6",
                                            "frank.V5", "frank.V6", "grace.V5", "grace.V6",
                                            "notaprofile", "outside", "readme.txt"}));
  EXPECT_TRUE(fs::is_empty(dir_ / "profiles" / "[ProfileList]"));
}

TEST_F(SampleShare, MigratedV1ProfileKeepsItsFilesHivesAndOwner) {
  MigrateAsTheDemoDoes();
  const fs::path source = share_ / "carol";
  const fs::path target = share_ / "carol.V2";
  // Every file in the folders of the source profile is in the target with the same content (the
  // special folders go where the target's hive puts them; after the key copy that is where the
  // source had them).
  for (const std::string& file : FilesBelow(source)) {
    // Hives are migrated, not copied; top-level files are not copied (checked below).
    if (file.find('/') == std::string::npos || file.find("UsrClass.dat") != std::string::npos)
      continue;
    EXPECT_EQ(testing::ReadWholeFile(target / file), testing::ReadWholeFile(source / file)) << file;
  }
  // The default profile's folders came with the template.
  EXPECT_TRUE(fs::is_directory(target / "AppData/Roaming"));
  EXPECT_TRUE(fs::is_directory(target / "Saved Games"));
  // Top-level files are not copied by the folder migration.
  EXPECT_FALSE(fs::exists(target / "notes.txt"));
  // The table keys came over from the source hive.
  const fs::path hive = target / "ntuser.dat";
  EXPECT_TRUE(std::includes(RootKeys(hive).begin(), RootKeys(hive).end(), kTableKeys.begin(),
                            kTableKeys.end()));
  EXPECT_EQ(ReadKey(hive, "Software\\Sample\\Editor").at("Owner").text, "carol");
  EXPECT_EQ(ReadKey(hive, "Environment").at("PROJECT").text, "carol-project");
  EXPECT_EQ(ReadKey(hive, "Network\\H").at("RemotePath").text, "\\\\sample\\home\\carol");
  EXPECT_EQ(OwnerOf(target), OwnerOf(source));
  EXPECT_EQ(OwnerOf(target / "My Documents" / "letter.txt"), OwnerOf(source));
}

TEST_F(SampleShare, RedirectedDocumentsStayOnTheirUncPath) {
  MigrateAsTheDemoDoes();
  EXPECT_EQ(ReadKey(share_ / "dave.V2" / "ntuser.dat", kShellFolders + "User Shell Folders")
                .at("Personal")
                .text,
            "\\\\sample\\home\\dave\\docs");
}

TEST_F(SampleShare, ModernProfilesAreMigratedToV6) {
  MigrateAsTheDemoDoes();
  for (const char* name : {"erin", "frank", "grace"}) {
    const fs::path target = share_ / (std::string(name) + ".V6");
    EXPECT_EQ(testing::ReadWholeFile(target / "Documents/letter.txt"),
              "Dear " + std::string(name) + ", this is a letter.");
    EXPECT_EQ(ReadKey(target / "ntuser.dat", "Software\\Sample\\Editor").at("Owner").text, name);
  }
  EXPECT_NE(OwnerOf(share_ / "frank.V6"), OwnerOf(share_ / "grace.V6"));
}

TEST_F(SampleShare, NothingOutsideTheShareIsReadThroughTheLink) {
  MigrateAsTheDemoDoes();
  for (const auto& entry : fs::recursive_directory_iterator(share_)) {
    EXPECT_NE(entry.path().filename(), "outside.txt") << entry.path();
  }
  EXPECT_EQ(FilesBelow(dir_ / "outside"), std::vector<std::string>({"outside.txt"}));
}

TEST_F(SampleShare, WildcardRulesOfTheDefaultModeAndV2Searches) {
  // Only the bare "*" is a wildcard in the default mode: "\\sample\profiles\*" is one folder.
  const testing::ProcessResult star = Tarnwick({"/s:\\\\sample\\profiles\\*"});
  EXPECT_EQ(star.exitStatus, 0);
  EXPECT_EQ(star.output, kStart + "---------- Exiting tarnwick.exe (return 0) ----------\r\n" +
                             "The source does not contain any profiles to migrate: "
                             "\\\\sample\\profiles\\*\r\n\r\n");
  // A *.V2 search never yields a .V2 folder.
  const testing::ProcessResult v2 = Tarnwick({"/s:\\\\sample\\profiles\\*.V2", "/V2TOV6"});
  EXPECT_EQ(v2.exitStatus, 0);
  EXPECT_EQ(v2.output, kStart + "---------- Exiting tarnwick.exe (return 0) ----------\r\n" +
                           "The source does not contain any profiles to migrate: "
                           "\\\\sample\\profiles\\*.v2\r\n");
  EXPECT_FALSE(fs::exists(share_ / "erin.V6"));
}

TEST_F(SampleShare, ARerunOverFinishedTargetsFailsEachProfile) {
  MigrateAsTheDemoDoes();
  const testing::ProcessResult again = Tarnwick({"/s:\\\\sample\\profiles\\*.V5", "/V5TOV6"});
  EXPECT_EQ(again.exitStatus, 255);  // -1
  const std::vector<std::string> lines = Lines(again.output);
  ASSERT_EQ(lines.size(), 7u) << again.output;
  std::set<std::string> failures;
  for (std::size_t i = 1; i + 1 < 5; i += 2) {
    EXPECT_EQ(lines[i].rfind("Migrating profile: \\\\sample\\profiles\\", 0), 0u) << lines[i];
    failures.insert(lines[i + 1]);
  }
  EXPECT_EQ(failures,
            std::set<std::string>(
                {"Failed migrating profile (0x800700B7): \\\\sample\\profiles\\frank.V5\r",
                 "Failed migrating profile (0x800700B7): \\\\sample\\profiles\\grace.V5\r"}));
  EXPECT_EQ(lines[5], "---------- Exiting tarnwick.exe (return -1) ----------\r");
  EXPECT_EQ(lines[6],
            "The source does not contain any profiles to migrate: \\\\sample\\profiles\\*.v5\r");
  // The finished targets were not touched.
  EXPECT_EQ(testing::ReadWholeFile(share_ / "frank.V6/Documents/letter.txt"),
            "Dear frank, this is a letter.");
}

// A failed user-profile migration leaves the temporary profile of its owner registered for the
// rest of its run (so that owner's later profiles of the run fail at CreateProfile); once the run
// has ended, the next run's CreateProfile takes it back with its folder, as the README says.
TEST_F(SampleShare, ATemporaryProfileLeftByAFailedRunIsTakenBackByTheNextRun) {
  const fs::path hive = share_ / "grace.V5" / "ntuser.dat";
  const std::string goodHive = testing::ReadWholeFile(hive);
  temp_.WriteFile("sample/share/grace.V5/ntuser.dat", std::string(4096, 'x'));
  const testing::ProcessResult failed = Tarnwick({"/s:\\\\sample\\profiles\\*.V5", "/V5TOV6"});
  EXPECT_EQ(failed.exitStatus, 255);
  EXPECT_NE(failed.output.find("1 profiles were migrated"), std::string::npos) << failed.output;
  EXPECT_TRUE(fs::exists(share_ / "frank.V6"));   // another owner: not affected
  EXPECT_FALSE(fs::exists(share_ / "grace.V6"));  // no partial target
  const fs::path registration = dir_ / "profiles" / "[ProfileList]" / OwnerOf(share_ / "grace.V5");
  ASSERT_TRUE(fs::is_regular_file(registration));
  std::string folder = testing::ReadWholeFile(registration);
  ASSERT_FALSE(folder.empty());
  folder.pop_back();  // the "\n"
  EXPECT_EQ(fs::path(folder).filename(), "_tarnwick_");
  EXPECT_TRUE(fs::is_directory(folder));

  temp_.WriteFile("sample/share/grace.V5/ntuser.dat", goodHive);
  const testing::ProcessResult fixed = Tarnwick({"/s:\\\\sample\\profiles\\grace.V5", "/V5TOV6"});
  EXPECT_EQ(fixed.exitStatus, 0) << fixed.output;
  EXPECT_EQ(testing::ReadWholeFile(share_ / "grace.V6/Documents/letter.txt"),
            "Dear grace, this is a letter.");
  EXPECT_FALSE(fs::exists(registration));
  EXPECT_FALSE(fs::exists(folder));
}

// A share description of the user's own, read from --layouts: placeholders ("set" over
// "default", "{user}" inside them), empty and non-empty files, and the owner.
TEST(SampleShareGenerator, BuildsAShareFromOtherDescriptions) {
  testing::TempFolder temp;
  temp.WriteFile("layouts/share.txt",
                 "share \\\\files\\roaming\n"
                 "default where = %USERPROFILE%\\{user} docs\n"
                 "profile ann.V5 tiny.txt S-1-5-21-1-2-3-500\n"
                 "profile ben tiny.txt S-1-5-21-1-2-3-501\n"
                 "  set where = \\\\files\\home\\{user}\n"
                 "file hello.txt = hi\n");
  temp.WriteFile("layouts/tiny.txt",
                 "file Documents\\{user}.txt = text of {user}\n"
                 "file empty.txt\n"
                 "hive ntuser.dat\n"
                 "  key Software\\Test\n"
                 "    value REG_EXPAND_SZ Where = {where}\n"
                 "    value REG_SZ Braces = {1234-{user}}\n");
  const fs::path dir = temp.path() / "out";
  const testing::ProcessResult result =
      testing::RunProcess(kGenerator, {"--layouts", temp.Child("layouts"), dir.string()});
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
  EXPECT_EQ(testing::ReadWholeFile(dir / "shares.conf"),
            "\\\\files\\roaming = " + (dir / "share").string() + "\n");
  EXPECT_EQ(testing::ReadWholeFile(dir / "share/ann.V5/Documents/ann.txt"), "text of ann");
  EXPECT_TRUE(fs::is_regular_file(dir / "share/ben/empty.txt"));
  EXPECT_EQ(fs::file_size(dir / "share/ben/empty.txt"), 0u);
  EXPECT_EQ(testing::ReadWholeFile(dir / "share/hello.txt"), "hi\n");
  const auto ann = ReadKey(dir / "share/ann.V5/ntuser.dat", "Software\\Test");
  EXPECT_EQ(ann.at("Where").text, "%USERPROFILE%\\ann docs");
  EXPECT_EQ(ann.at("Where").type, 2);
  EXPECT_EQ(ann.at("Braces").text, "{1234-ann}");
  EXPECT_EQ(ReadKey(dir / "share/ben/ntuser.dat", "Software\\Test").at("Where").text,
            "\\\\files\\home\\ben");
  EXPECT_EQ(OwnerOf(dir / "share/ann.V5"), "S-1-5-21-1-2-3-500");
  EXPECT_EQ(OwnerOf(dir / "share/ben/Documents/ben.txt"), "S-1-5-21-1-2-3-501");
}

TEST(SampleShareGenerator, NamesTheMalformedLine) {
  testing::TempFolder temp;
  temp.WriteFile("layouts/share.txt", "share \\\\files\\roaming\nprofile ann tiny.txt\n");
  const testing::ProcessResult result =
      testing::RunProcess(kGenerator, {"--layouts", temp.Child("layouts"), temp.Child("out")});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.errors, "tarnwick-sample-share: " + temp.Child("layouts") +
                               "/share.txt: line 2: \"profile <folder> <layout> <SID>\" is "
                               "expected\n");

  temp.WriteFile("layouts/share.txt", "share \\\\files\\roaming\nprofile ann tiny.txt S-1-1-0\n");
  temp.WriteFile("layouts/tiny.txt", "folder A\nvalue REG_SZ x = y\n");
  const testing::ProcessResult layout =
      testing::RunProcess(kGenerator, {"--layouts", temp.Child("layouts"), temp.Child("out2")});
  EXPECT_EQ(layout.exitStatus, 1);
  EXPECT_EQ(layout.errors,
            "tarnwick-sample-share: tiny.txt (for ann): line 2: a value outside a key\n");
}

TEST(SampleShareGenerator, UsageErrorsExitWithTwo) {
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{}, std::vector<std::string>{"a", "b"},
        std::vector<std::string>{""}}) {
    const testing::ProcessResult result = testing::RunProcess(kGenerator, args);
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors, "usage: tarnwick-sample-share [--layouts FOLDER] DIR\n");
  }
}

}  // namespace
}  // namespace tw
