// The default profile template as the build makes it (tarnwick-default-profile over
// tools/default_profile/default_profile.txt), read with independent hive readers (python3-hivex,
// reglookup), and the built-in CreateProfile copying it.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <array>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "base/hresult.h"
#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/profiles/user_profile.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

const fs::path kTemplate = TARNWICK_DEFAULT_PROFILE_DIR;
const std::string kPython = "/usr/bin/python3";
const char* const kShellFolders = "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer";

// Prints every value of one key as "name<TAB>type<TAB>text" lines (strings decoded, other data
// in hex), or, with the key "-", the root's sub keys each with the number of values in its
// subtree.
const char* const kHivexScript = R"PY(
import sys, hivex
h = hivex.Hivex(sys.argv[1])
def text(t, data):
    if t in (1, 2):
        return data.decode('utf-16-le').rstrip('\x00')
    return data.hex()
def count(node):
    return len(h.node_values(node)) + sum(count(c) for c in h.node_children(node))
if sys.argv[2] == '-':
    for child in h.node_children(h.root()):
        print('%s\t%d' % (h.node_name(child), count(child)))
    sys.exit(0)
node = h.root()
for part in sys.argv[2].split('\\'):
    node = h.node_get_child(node, part)
    if node is None:
        sys.exit(3)
for v in h.node_values(node):
    t, data = h.value_value(v)
    print('%s\t%d\t%s' % (h.value_key(v), t, text(t, data)))
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

std::map<std::string, HiveValue> ReadKeyWithHivex(const fs::path& hive, const std::string& key) {
  const testing::ProcessResult result =
      testing::RunProcess(kPython, {"-c", kHivexScript, hive.string(), key});
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  std::map<std::string, HiveValue> values;
  for (const std::string& line : Lines(result.output)) {
    const std::size_t first = line.find('\t');
    const std::size_t second = line.find('\t', first + 1);
    values[line.substr(0, first)] = {std::stoi(line.substr(first + 1, second - first - 1)),
                                     line.substr(second + 1)};
  }
  return values;
}

// The Windows 10 / 11 location of each special folder, relative to the profile.
const std::map<std::string, std::string>& ExpectedLocations() {
  static const std::map<std::string, std::string> locations = {
      {"AppData", "AppData\\Roaming"},
      {"Cache", "AppData\\Local\\Microsoft\\Windows\\INetCache"},
      {"Cookies", "AppData\\Local\\Microsoft\\Windows\\INetCookies"},
      {"Desktop", "Desktop"},
      {"Favorites", "Favorites"},
      {"History", "AppData\\Local\\Microsoft\\Windows\\History"},
      {"Local AppData", "AppData\\Local"},
      {"My Music", "Music"},
      {"My Pictures", "Pictures"},
      {"My Video", "Videos"},
      {"NetHood", "AppData\\Roaming\\Microsoft\\Windows\\Network Shortcuts"},
      {"Personal", "Documents"},
      {"PrintHood", "AppData\\Roaming\\Microsoft\\Windows\\Printer Shortcuts"},
      {"Programs", "AppData\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs"},
      {"Recent", "AppData\\Roaming\\Microsoft\\Windows\\Recent"},
      {"SendTo", "AppData\\Roaming\\Microsoft\\Windows\\SendTo"},
      {"Start Menu", "AppData\\Roaming\\Microsoft\\Windows\\Start Menu"},
      {"Startup", "AppData\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs\\Startup"},
      {"Templates", "AppData\\Roaming\\Microsoft\\Windows\\Templates"}};
  return locations;
}

fs::path Below(const fs::path& folder, std::string relative) {
  for (char& c : relative) {
    if (c == '\\') c = '/';
  }
  return folder / relative;
}

TEST(DefaultProfileTemplate, IsBuiltBesideTheProgram) {
  EXPECT_EQ(kTemplate.parent_path(), fs::path(TARNWICK_BINARY).parent_path());
  EXPECT_EQ(kTemplate.filename(), posix::kTemplateFolderName);
  ASSERT_TRUE(fs::is_regular_file(kTemplate / "ntuser.dat"));
  EXPECT_TRUE(fs::is_regular_file(kTemplate / "AppData/Local/Microsoft/Windows/UsrClass.dat"));
}

TEST(DefaultProfileTemplate, HasTheFolderLayoutOfACurrentWindowsProfile) {
  for (const auto& [name, location] : ExpectedLocations()) {
    EXPECT_TRUE(fs::is_directory(Below(kTemplate, location))) << name << ": " << location;
  }
  for (const char* folder : {"AppData/LocalLow", "AppData/Local/Temp", "Downloads", "Links",
                             "Saved Games", "Contacts", "Searches"}) {
    EXPECT_TRUE(fs::is_directory(kTemplate / folder)) << folder;
  }
}

TEST(DefaultProfileTemplate, UserShellFoldersHoldTheNineteenExpandableLocations) {
  const std::map<std::string, HiveValue> values = ReadKeyWithHivex(
      kTemplate / "ntuser.dat", std::string(kShellFolders) + "\\User Shell Folders");
  for (const auto& [name, location] : ExpectedLocations()) {
    const auto found = values.find(name);
    ASSERT_NE(found, values.end()) << name;
    EXPECT_EQ(found->second.type, 2) << name;  // REG_EXPAND_SZ
    EXPECT_EQ(found->second.text, "%USERPROFILE%\\" + location) << name;
  }
  EXPECT_EQ(ExpectedLocations().size(), 19u);
}

TEST(DefaultProfileTemplate, ShellFoldersHoldTheExpandedPathsOfTheDefaultProfile) {
  const std::map<std::string, HiveValue> values =
      ReadKeyWithHivex(kTemplate / "ntuser.dat", std::string(kShellFolders) + "\\Shell Folders");
  for (const auto& [name, location] : ExpectedLocations()) {
    const auto found = values.find(name);
    ASSERT_NE(found, values.end()) << name;
    EXPECT_EQ(found->second.type, 1) << name;  // REG_SZ
    EXPECT_EQ(found->second.text, "C:\\Users\\Default\\" + location) << name;
  }
}

TEST(DefaultProfileTemplate, ReglookupAgreesOnTheValueTypes) {
  const testing::ProcessResult result =
      testing::RunProcess("/usr/bin/reglookup",
                          {"-t", "EXPAND_SZ", "-p",
                           "/Software/Microsoft/Windows/CurrentVersion/Explorer/User Shell Folders",
                           (kTemplate / "ntuser.dat").string()});
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
  for (const auto& [name, location] : ExpectedLocations()) {
    EXPECT_NE(result.output.find("/User Shell Folders/" + name + ",EXPAND_SZ,%25USERPROFILE%25\\" +
                                 location + ","),
              std::string::npos)
        << name;
  }
}

TEST(DefaultProfileTemplate, HasEveryTopLevelKeyOfAUserHiveWithValuesToMerge) {
  const testing::ProcessResult result =
      testing::RunProcess(kPython, {"-c", kHivexScript, (kTemplate / "ntuser.dat").string(), "-"});
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
  std::map<std::string, int> counts;
  for (const std::string& line : Lines(result.output)) {
    const std::size_t tab = line.find('\t');
    counts[line.substr(0, tab)] = std::stoi(line.substr(tab + 1));
  }
  for (const char* key : {"Console", "Control Panel", "Identities", "Keyboard Layout", "Printers",
                          "Software", "System", "AppEvents", "Environment", "EUDC"}) {
    ASSERT_TRUE(counts.count(key)) << key;
    EXPECT_GT(counts[key], 0) << key;
  }
  // A value under Network would be a mapped drive in every profile: the key stays empty.
  ASSERT_TRUE(counts.count("Network"));
  EXPECT_EQ(counts["Network"], 0);
}

TEST(DefaultProfileTemplate, ClassesHiveIsReadable) {
  const std::map<std::string, HiveValue> values =
      ReadKeyWithHivex(kTemplate / "AppData/Local/Microsoft/Windows/UsrClass.dat",
                       "Local Settings\\Software\\Microsoft\\Windows\\Shell");
  ASSERT_TRUE(values.count("BagMRU Size"));
  EXPECT_EQ(values.at("BagMRU Size").type, 4);           // REG_DWORD
  EXPECT_EQ(values.at("BagMRU Size").text, "88130000");  // 5000, little-endian
}

TEST(DefaultProfileGenerator, BuildsTheDescribedFoldersAndValues) {
  testing::TempFolder temp;
  const std::string description =
      temp.WriteFile("profile.txt",
                     "# a small profile\n"
                     "folder Documents\\Sub\n"
                     "hive ntuser.dat\n"
                     "  key Environment\n"
                     "    value REG_EXPAND_SZ TEMP = %USERPROFILE%\\Temp\n"
                     "    value REG_SZ Empty =\n"
                     "    value REG_DWORD Number = 0x10\n"
                     "    value REG_MULTI_SZ List = a | b\n"
                     "    value REG_BINARY Bytes = 01 ff\n"
                     "    value REG_SZ @ = default\n");
  const fs::path output = temp.path() / "out";
  const testing::ProcessResult result =
      testing::RunProcess(TARNWICK_DEFAULT_PROFILE_TOOL, {description, output.string()});
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
  EXPECT_TRUE(fs::is_directory(output / "Documents/Sub"));
  EXPECT_FALSE(fs::exists(temp.path() / "out.new"));
  const std::map<std::string, HiveValue> values =
      ReadKeyWithHivex(output / "ntuser.dat", "Environment");
  ASSERT_EQ(values.size(), 6u);
  EXPECT_EQ(values.at("TEMP").type, 2);
  EXPECT_EQ(values.at("TEMP").text, "%USERPROFILE%\\Temp");
  EXPECT_EQ(values.at("Empty").text, "");
  EXPECT_EQ(values.at("Number").text, "10000000");
  EXPECT_EQ(values.at("List").text, "61000000620000000000");
  EXPECT_EQ(values.at("Bytes").text, "01ff");
  EXPECT_EQ(values.at("").text, "default");
}

TEST(DefaultProfileGenerator, RefusesAMalformedDescriptionWithItsLineNumber) {
  testing::TempFolder temp;
  const std::string description =
      temp.WriteFile("profile.txt", "folder Desktop\nhive ntuser.dat\nvalue REG_SZ x = y\n");
  const fs::path output = temp.path() / "out";
  testing::ProcessResult result =
      testing::RunProcess(TARNWICK_DEFAULT_PROFILE_TOOL, {description, output.string()});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_NE(result.errors.find("line 3: a value outside a key"), std::string::npos)
      << result.errors;
  EXPECT_FALSE(fs::exists(output));
  temp.WriteFile("profile.txt", "folder ..\\outside\n");
  result = testing::RunProcess(TARNWICK_DEFAULT_PROFILE_TOOL, {description, output.string()});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_NE(result.errors.find("line 1: a relative path is expected"), std::string::npos);
  EXPECT_EQ(testing::RunProcess(TARNWICK_DEFAULT_PROFILE_TOOL, {description}).exitStatus, 2);
}

TEST(DefaultProfileTemplate, CreateProfileCopiesTheBuiltTemplate) {
  testing::TempFolder temp;
  ::setenv(posix::kProfileRootVariable, temp.path().string().c_str(), 1);
  ::setenv(posix::kDefaultProfileVariable, kTemplate.string().c_str(), 1);
  std::array<wchar_t, 260> path{};
  const wchar_t* sid = L"S-1-5-21-1-2-3-1001";
  const HResult created{posix::BuiltInCreateProfile(sid, L"_tarnwick_", path.data(), 260)};
  ::unsetenv(posix::kProfileRootVariable);
  ::unsetenv(posix::kDefaultProfileVariable);
  ASSERT_EQ(created, hr::kOk);
  const fs::path profile = temp.path() / "_tarnwick_";
  EXPECT_EQ(std::wstring(path.data()), posix::ToWindowsPath(profile.string()));
  EXPECT_TRUE(fs::is_regular_file(profile / "ntuser.dat"));
  EXPECT_TRUE(fs::is_regular_file(profile / "AppData/Local/Microsoft/Windows/UsrClass.dat"));
  EXPECT_TRUE(
      fs::is_directory(profile / "AppData/Roaming/Microsoft/Windows/Start Menu/Programs/Startup"));
  EXPECT_EQ(testing::ReadWholeFile(profile / "ntuser.dat"),
            testing::ReadWholeFile(kTemplate / "ntuser.dat"));
}

}  // namespace
}  // namespace tw
