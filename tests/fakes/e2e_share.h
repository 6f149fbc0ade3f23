// Fixtures of the end-to-end tests: a share in a temp folder, mapped as \\fs\profiles (and a
// second share \\fs\targets for target folders), profiles with hives made from .reg text (by the
// project's own engine, or by hivexregedit --merge where a test reads another writer's hive),
// the built binary linked (or copied) beside them so that its log lands there, and readers for what
// a run leaves behind (console, exit status, log with its timestamps masked, trees, hives read back
// with hivexregedit --export).
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"

namespace tw::testing {

// The console banners of a run, and whether text holds part.
inline const std::string kStart = "---------- Starting tarnwick.exe ----------\r\n";
inline const std::string kExit0 = "---------- Exiting tarnwick.exe (return 0) ----------\r\n";
inline const std::string kExit1 = "---------- Exiting tarnwick.exe (return -1) ----------\r\n";
inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Where the suite finds the built program and its inputs.
struct E2eTools {
  std::string binary;          // the built tarnwick
  std::string defaultProfile;  // the built default profile template folder
  std::string testData;        // tests/data
};

// The end-to-end suite's tools, from its compile definitions.
#if defined(TARNWICK_BINARY) && defined(TARNWICK_DEFAULT_PROFILE_DIR) && \
    defined(TARNWICK_TESTDATA_DIR)
inline E2eTools SuiteTools() {
  return {TARNWICK_BINARY, TARNWICK_DEFAULT_PROFILE_DIR, TARNWICK_TESTDATA_DIR};
}
#endif

// One .reg section "[\key]" for `key` (backslash-separated, below the hive root), preceded by the
// sections of every parent key, followed by `values` (lines such as "\"Name\"=\"text\"").
std::string RegSection(const std::string& key, const std::string& values);
// A .reg string value line: "name"="data" with backslashes and quotes escaped.
std::string RegString(const std::string& name, const std::string& data);

// The line hivexregedit --export writes for a REG_SZ value `name` holding the ASCII `data`:
// "name"=hex(1):<UTF-16LE bytes with the terminating zero>.
std::string ExportedString(const std::string& name, const std::string& data);

// The "User Shell Folders" key of a hive.
inline constexpr char kUserShellFolders[] =
    "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";

// Who writes a test hive: the project's own engine (fakes/reg_text_hive.h), or hivexregedit
// --merge where the test is about reading a hive another writer made.
enum class HiveMaker { kEngine, kHivex };

// One file of a profile made by AddProfile: path relative to the profile folder ("/"-separated)
// and content.
using ProfileFiles = std::map<std::string, std::string>;

class E2eShare {
 public:
  static constexpr char kShare[] = "\\\\fs\\profiles";
  static constexpr char kTargets[] = "\\\\fs\\targets";

  explicit E2eShare(const E2eTools& tools);

  const std::filesystem::path& root() const { return temp_.path(); }
  std::filesystem::path share() const { return root() / "share"; }
  std::filesystem::path targets() const { return root() / "targets"; }
  // The profile root of the built-in CreateProfile.
  std::filesystem::path localProfiles() const { return root() / "local"; }

  // A profile folder share()/name with an ntuser.dat made from `reg` and the given files.
  std::filesystem::path AddProfile(const std::string& name, const std::string& reg,
                                   const ProfileFiles& files,
                                   HiveMaker maker = HiveMaker::kEngine) const;
  // A V1 profile: "User Shell Folders" naming Desktop, Personal (My Documents) and Local AppData
  // (Local Settings\Application Data); keys Software\Tw, Console and Environment each with one
  // value holding `name`; files in those folders, in a folder "Other" and at the top.
  std::filesystem::path AddV1Profile(const std::string& name) const;
  // A hive at `file`: the minimal hive of tests/data with `reg` merged in by the project's own
  // engine; the same merged in by hivexregedit.
  void MakeHive(const std::filesystem::path& file, const std::string& reg) const;
  void MakeHiveWithHivex(const std::filesystem::path& file, const std::string& reg) const;

  // Stores a descriptor with owner `sid` (string form) on `path`, as the security adapter keeps
  // it: the folder's current descriptor with its owner replaced.
  void SetOwner(const std::filesystem::path& path, const std::wstring& sid) const;
  // The owner SID (string form) the security adapter reports for `path`.
  std::wstring OwnerOf(const std::filesystem::path& path) const;

  // Runs the copied binary with `args` and the share map, profile root and template settings.
  ProcessResult Run(const std::vector<std::string>& args) const;
  // The same with `folder` as the program's current folder (relative sources such as "*").
  ProcessResult RunIn(const std::filesystem::path& folder,
                      const std::vector<std::string>& args) const;

  // The log file as it stands.
  std::string RawLog() const;
  // The log's messages, each without its timestamp and thread prefix and without the line break
  // the log adds (a message with its own "\r\n" keeps it).
  std::vector<std::string> LogMessages() const;
  // How many log messages equal `message`; how many contain `part`.
  int CountLogged(const std::string& message) const;
  int CountLoggedContaining(const std::string& part) const;
  void ClearLog() const;

  // hivexregedit --export of `key` ("\\" for all) of the hive `file`.
  static std::string ExportHive(const std::filesystem::path& file, const std::string& key = "\\");

  // The share map, profile root and template settings every run gets (environment variables).
  std::map<std::string, std::string> RunEnvironment() const;

 private:
  TempFolder temp_;
  E2eTools tools_;
  std::filesystem::path exe_;
};

// Every file and folder below `folder`, as "/"-separated relative paths, sorted; folders end in
// "/"; symbolic links are listed with "@" appended and not followed.
std::vector<std::string> Tree(const std::filesystem::path& folder);
// Writes `content` to `file`, making its folders.
void WriteText(const std::filesystem::path& file, const std::string& content);
// The same, returning the file's path as a string.
std::string WriteFileAt(const std::filesystem::path& file, const std::string& content);

}  // namespace tw::testing
