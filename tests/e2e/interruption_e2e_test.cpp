// Interruption safety of the built binary: the tool is killed (SIGKILL) at several points while
// its target carries the marker "_qzk_mig_marker_" (after the k-th "Processing folder" log line,
// and while the hive is saved through "~mighive.dat"); a rerun rebuilds the target, which then
// equals the target of an uninterrupted run, and the source is unchanged throughout. No recovery is
// needed between the kill and the rerun.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "fakes/e2e_share.h"
#include "os/posix/samba/dos_attrib.h"
#include "os/posix/samba/ntacl_xattr.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::E2eShare;
using testing::ProcessResult;
using testing::RegSection;
using testing::RegString;

constexpr char kOwner[] = "S-1-5-21-1004336348-1177238915-682003330-1201";
constexpr char kMarker[] = "_qzk_mig_marker_";

// What an attribute value means, without the times it carries: the stored descriptor's
// self-relative form, the DOS attributes' hex value; other values as they are.
std::string Meaning(const std::string& name, const std::string& value) {
  const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(value.data()),
                                            value.size());
  if (name == posix::samba::kNtAclAttribute) {
    posix::samba::NtAclBlob blob;
    if (posix::samba::DecodeNtAcl(bytes, blob) != posix::samba::NtAclProblem::kNone) return value;
    const std::vector<std::uint8_t> sd = security::MakeSelfRelative(blob.sd);
    return std::string(sd.begin(), sd.end());
  }
  if (name == posix::samba::kDosAttribAttribute) {
    const std::optional<posix::samba::DosAttrib> read = posix::samba::DecodeDosAttrib(bytes);
    return read ? std::to_string(read->attributes) : value;
  }
  return value;
}

// Every extended attribute of `path` (stored descriptor, attributes, ...), as "name=value;".
std::string Xattrs(const fs::path& path) {
  std::vector<char> names(65536);
  const ssize_t size = llistxattr(path.c_str(), names.data(), names.size());
  if (size <= 0) return "";
  std::map<std::string, std::string> values;
  for (ssize_t at = 0; at < size;) {
    const std::string name(names.data() + at);
    at += static_cast<ssize_t>(name.size()) + 1;
    std::vector<char> value(65536);
    const ssize_t length = lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    values[name] = length < 0
                       ? "?"
                       : Meaning(name, std::string(value.data(), static_cast<std::size_t>(length)));
  }
  std::string text;
  for (const auto& [name, value] : values) text += name + "=" + value + ";";
  return text;
}

// One entry per object below `folder`: its kind, mode bits, extended attributes, and for files
// their content and, for a source (`isSource`), the modification time. A target's hives are
// compared as exported, since their bytes hold save times; a source's byte for byte.
std::map<std::string, std::string> Snapshot(const fs::path& folder, bool isSource) {
  std::map<std::string, std::string> entries;
  entries["."] = Xattrs(folder);
  for (const std::string& relative : testing::Tree(folder)) {
    const fs::path path = folder / relative;
    struct stat info {};
    EXPECT_EQ(lstat(path.c_str(), &info), 0) << path;
    std::string entry = std::to_string(info.st_mode) + "|" + Xattrs(path) + "|";
    if (S_ISREG(info.st_mode)) {
      const std::string name = path.filename().string();
      const bool hive = name == "ntuser.dat" || name == "UsrClass.dat";
      entry += hive && !isSource ? E2eShare::ExportHive(path) : testing::ReadWholeFile(path);
      if (isSource) {
        entry +=
            "|" + std::to_string(info.st_mtim.tv_sec) + "." + std::to_string(info.st_mtim.tv_nsec);
      }
    }
    entries[relative] = entry;
  }
  return entries;
}

// A V1 profile large enough that a kill lands inside its folder loop and its hive save: many
// files in several special folders and other folders, and a hive with over a thousand values.
fs::path AddLargeV1Profile(const E2eShare& share, const std::string& name) {
  std::string values;
  for (int i = 0; i < 1200; ++i) {
    values += RegString("Value" + std::to_string(i), "data of value " + std::to_string(i));
  }
  const std::string reg =
      RegSection(
          testing::kUserShellFolders,
          RegString("Desktop", "%USERPROFILE%\\Desktop") +
              RegString("Personal", "%USERPROFILE%\\My Documents") +
              RegString("Favorites", "%USERPROFILE%\\Favorites") +
              RegString("Local AppData", "%USERPROFILE%\\Local Settings\\Application Data")) +
      RegSection("Software\\Tw", RegString("Profile", name)) +
      RegSection("Software\\Tw\\Many", values) + RegSection("Console", RegString("Tw", name)) +
      RegSection("Environment", RegString("TwEnvironment", name));
  testing::ProfileFiles files;
  for (const std::string folder :
       {"Desktop", "My Documents", "Favorites", "Local Settings/Application Data", "Other/Deep",
        "Another", "Third"}) {
    for (int i = 0; i < 60; ++i) {
      files[folder + "/file" + std::to_string(i) + ".txt"] =
          folder + " " + std::to_string(i) + " of " + name;
    }
  }
  files["top.txt"] = "top " + name;
  const fs::path source = share.AddProfile(name, reg, files);
  share.SetOwner(source, std::wstring(kOwner, kOwner + sizeof(kOwner) - 1));
  return source;
}

class InterruptionE2eTest : public ::testing::Test {
 protected:
  void SetUp() override {
    source_ = AddLargeV1Profile(share_, "alice");
    target_ = share_.share() / "alice.V2";
    sourceBefore_ = Snapshot(source_, true);
    // The uninterrupted run, kept aside as the expected target.
    const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
    ASSERT_EQ(result.exitStatus, 0) << result.output;
    ASSERT_FALSE(fs::exists(target_ / kMarker));
    expected_ = Snapshot(target_, false);
    fs::remove_all(target_);
    share_.ClearLog();
  }

  // Starts the binary as E2eShare::Run does, output discarded; returns its process id.
  pid_t Start() const {
    const std::string exe = (share_.root() / "bin" / "tarnwick").string();
    const std::string shares = (share_.root() / "shares.conf").string();
    const std::string local = share_.localProfiles().string();
    const std::string profile = testing::SuiteTools().defaultProfile;
    const pid_t pid = fork();
    if (pid == 0) {
      if (std::freopen("/dev/null", "r", stdin) == nullptr ||
          std::freopen("/dev/null", "w", stdout) == nullptr ||
          std::freopen("/dev/null", "w", stderr) == nullptr) {
        _exit(126);
      }
      setenv("TARNWICK_SHARES", shares.c_str(), 1);
      setenv("TARNWICK_PROFILE_ROOT", local.c_str(), 1);
      setenv("TARNWICK_DEFAULT_PROFILE", profile.c_str(), 1);
      execl(exe.c_str(), exe.c_str(), "/s:\\\\fs\\profiles\\alice", static_cast<char*>(nullptr));
      _exit(127);
    }
    return pid;
  }

  // Runs the tool and kills it with SIGKILL as soon as `reached` holds. True when it was killed
  // before it ended by itself.
  bool KillWhen(const std::function<bool()>& reached) const {
    const pid_t pid = Start();
    EXPECT_GT(pid, 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    bool killed = false;
    int status = 0;
    while (std::chrono::steady_clock::now() < deadline) {
      if (reached()) {
        killed = kill(pid, SIGKILL) == 0;
        break;
      }
      if (waitpid(pid, &status, WNOHANG) == pid) return false;
      // A short pause between looks: the watcher leaves the cores to the run it watches.
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    if (!killed) kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return killed && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  }

  // True once the log holds at least `count` "Processing folder" lines (the log is flushed
  // after every line).
  std::function<bool()> AfterProcessingFolder(int count) const {
    const fs::path log = share_.root() / "bin" / "tarnwick.log";
    return [log, count] {
      const std::string text = testing::ReadWholeFile(log);
      int seen = 0;
      for (std::size_t at = text.find("] Processing folder "); at != std::string::npos;
           at = text.find("] Processing folder ", at + 1)) {
        ++seen;
      }
      return seen >= count;
    };
  }

  // The registration of the temporary profile a kill left behind, if any.
  fs::path Registration() const { return share_.localProfiles() / "[ProfileList]" / kOwner; }

  // What the profile root holds besides the registrations' folder: a temporary profile left
  // behind.
  std::vector<std::string> LeftInProfileRoot() const {
    std::vector<std::string> left;
    for (const fs::directory_entry& entry : fs::directory_iterator(share_.localProfiles())) {
      if (entry.path().filename() != "[ProfileList]") left.push_back(entry.path().filename());
    }
    return left;
  }

  // After a kill with the marker in place: rerun, compare; then remove the finished target for
  // the next case, as a user deleting a finished target would. The rerun needs no recovery: the
  // killed run's lock went with it, and its temporary profile is taken back.
  void RerunAndCompare() {
    ASSERT_TRUE(fs::exists(target_ / kMarker)) << "the kill came after the marker was removed";
    share_.ClearLog();
    const ProcessResult rerun = share_.Run({"/s:\\\\fs\\profiles\\alice"});
    EXPECT_EQ(rerun.exitStatus, 0) << rerun.output;
    EXPECT_EQ(share_.CountLogged(
                  "The target profile contains an interrupted migration, rebuilding profile: "
                  "\\\\fs\\profiles\\alice.V2"),
              1);
    EXPECT_FALSE(fs::exists(target_ / kMarker));
    EXPECT_FALSE(fs::exists(target_ / "~mighive.dat"));
    EXPECT_FALSE(fs::exists(Registration()));
    EXPECT_EQ(LeftInProfileRoot(), std::vector<std::string>{});
    const std::map<std::string, std::string> rebuilt = Snapshot(target_, false);
    EXPECT_EQ(rebuilt.size(), expected_.size());
    for (const auto& [relative, entry] : expected_) {
      const auto found = rebuilt.find(relative);
      if (found == rebuilt.end()) {
        ADD_FAILURE() << "missing in the rebuilt target: " << relative;
      } else {
        EXPECT_TRUE(found->second == entry) << "differs in the rebuilt target: " << relative;
      }
    }
    EXPECT_TRUE(Snapshot(source_, true) == sourceBefore_) << "the source changed";
    fs::remove_all(target_);
  }

  E2eShare share_{testing::SuiteTools()};
  fs::path source_;
  fs::path target_;
  std::map<std::string, std::string> sourceBefore_;
  std::map<std::string, std::string> expected_;
};

TEST_F(InterruptionE2eTest, KilledInTheFolderLoopIsRebuiltByTheNextRun) {
  for (const int k : {1, 3, 6}) {
    SCOPED_TRACE("killed after Processing folder line " + std::to_string(k));
    share_.ClearLog();
    ASSERT_TRUE(KillWhen(AfterProcessingFolder(k)));
    // The kill came after CreateProfile: its temporary profile is still registered.
    EXPECT_TRUE(fs::exists(Registration()));
    RerunAndCompare();
  }
}

TEST_F(InterruptionE2eTest, KilledDuringTheHiveSaveIsRebuiltByTheNextRun) {
  const fs::path temporaryHive = target_ / "~mighive.dat";
  bool caught = false;
  // The save is short: try until a kill lands while "~mighive.dat" is there (on a loaded
  // machine the watcher is not always scheduled within that window).
  for (int attempt = 0; attempt < 40 && !caught; ++attempt) {
    share_.ClearLog();
    const bool killed = KillWhen([&] { return fs::exists(temporaryHive); });
    caught = killed && fs::exists(temporaryHive);
    if (!caught) fs::remove_all(target_);
  }
  ASSERT_TRUE(caught);
  RerunAndCompare();
}

// The temporary profile a kill left behind (registered, its folder in the profile root) blocks
// nothing: the registration died with its run, so the next run's CreateProfile takes it back
// with its folder, and the profile is migrated.
TEST_F(InterruptionE2eTest, ATemporaryProfileLeftByAKillIsTakenBackByTheNextRun) {
  ASSERT_TRUE(KillWhen(AfterProcessingFolder(2)));
  ASSERT_TRUE(fs::exists(target_ / kMarker));
  ASSERT_TRUE(fs::exists(Registration()));
  ASSERT_EQ(LeftInProfileRoot(), std::vector<std::string>{"_tarnwick_"});
  share_.ClearLog();
  const ProcessResult rerun = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(rerun.exitStatus, 0) << rerun.output;
  EXPECT_EQ(share_.CountLogged("Failed creating profile (0x800700B7)"), 0);
  EXPECT_FALSE(fs::exists(Registration()));
  EXPECT_EQ(LeftInProfileRoot(), std::vector<std::string>{});
  EXPECT_TRUE(Snapshot(target_, false) == expected_);
  EXPECT_TRUE(Snapshot(source_, true) == sourceBefore_) << "the source changed";
}

}  // namespace
}  // namespace tw
