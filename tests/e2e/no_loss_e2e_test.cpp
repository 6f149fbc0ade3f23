// Nothing of a profile is lost without a line in the log, where the cause is the tool's own: an
// entry whose path passes the 260-character limit (its folder's loop still ends there), names
// that differ only in case, names whose bytes are not UTF-8 (carried byte for byte), and a
// target file system that fills up. Each test also shows that the source share is unchanged.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/tree_state.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::E2eShare;
using testing::ProcessResult;
using testing::Tree;
using testing::WriteText;

const std::string kMigrated = "1 profiles were migrated from \\\\fs\\profiles\\alice.\r\n";

bool Has(const std::vector<std::string>& tree, const std::string& entry) {
  return std::find(tree.begin(), tree.end(), entry) != tree.end();
}

std::string ReadBytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The names of folder in the order the system lists them, which is the order the tool copies
// them in.
std::vector<std::string> ListingOrder(const fs::path& folder) {
  std::vector<std::string> names;
  DIR* stream = ::opendir(folder.c_str());
  if (stream == nullptr) return names;
  while (const dirent* item = ::readdir(stream)) {
    const std::string name = item->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(stream);
  return names;
}

// Log messages of the folder copy that report a failure (the registry's are left out: the
// test hives lack keys a real one has).
std::vector<std::string> FailureLines(const E2eShare& share) {
  std::vector<std::string> lines;
  for (const std::string& message : share.LogMessages()) {
    const bool registry = message.find("registry") != std::string::npos ||
                          message.find("UsrClass.dat") != std::string::npos;
    if (!registry && (message.find("Fail") != std::string::npos ||
                      message.find("not migrated") != std::string::npos)) {
      lines.push_back(message);
    }
  }
  return lines;
}

class NoLossE2eTest : public ::testing::Test {
 protected:
  E2eShare share_{testing::SuiteTools()};
};

// An entry whose target path would pass 259 characters ends its folder's loop, as Windows' copy
// does, and says so: the folder, the entry's name and ERROR_FILENAME_EXCED_RANGE.
TEST_F(NoLossE2eTest, AnEntryPastThePathLimitIsLoggedAndEndsItsFolderLoop) {
  const fs::path source = share_.AddV1Profile("alice");
  const std::string targetFolder = "\\\\fs\\profiles\\alice.V2\\Other";
  const std::string longName = std::string(260 - targetFolder.size() - 1, 'L');  // 260 with "\"
  for (const std::string name : {"a.txt", "m.txt", "z.txt"})
    WriteText(source / "Other" / name, name);
  WriteText(source / "Other" / longName, "long");
  const testing::TreeState before = testing::CaptureTreeState(source);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_NE(result.output.find(kMigrated), std::string::npos) << result.output;
  EXPECT_EQ(share_.CountLogged("Path too long, the rest of the folder is not migrated "
                               "(0x800700CE): \\\\fs\\profiles\\alice\\Other: " +
                               longName),
            1);
  // What the system lists before the long name is copied; nothing after it.
  const std::vector<std::string> target = Tree(share_.share() / "alice.V2" / "Other");
  bool passed = false;
  for (const std::string& name : ListingOrder(source / "Other")) {
    if (name == longName) {
      passed = true;
      EXPECT_FALSE(Has(target, name));
      continue;
    }
    const std::string entry = name == "Deep" ? "Deep/" : name;
    EXPECT_EQ(Has(target, entry), !passed) << name;
  }
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(source)), "");
}

// Deeper down, the folder whose entry passes the limit is the one that logs it; everything above
// is copied.
TEST_F(NoLossE2eTest, DeeperPathsPastTheLimitAreLogged) {
  const fs::path source = share_.AddV1Profile("alice");
  const std::string a(100, 'a');
  const std::string b(100, 'b');
  const std::string c(100, 'c');
  WriteText(source / "Other" / a / "one.txt", "one");
  WriteText(source / "Other" / a / b / "two.txt", "two");
  WriteText(source / "Other" / a / b / c / "three.txt", "three");
  const testing::TreeState before = testing::CaptureTreeState(source);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  const fs::path target = share_.share() / "alice.V2" / "Other";
  EXPECT_EQ(ReadBytes(target / a / "one.txt"), "one");
  EXPECT_EQ(ReadBytes(target / a / b / "two.txt"), "two");
  EXPECT_FALSE(fs::exists(target / a / b / c));
  EXPECT_EQ(share_.CountLogged("Path too long, the rest of the folder is not migrated "
                               "(0x800700CE): \\\\fs\\profiles\\alice\\Other\\" +
                               a + "\\" + b + ": " + c),
            1);
  EXPECT_EQ(FailureLines(share_).size(), 1u) << ::testing::PrintToString(FailureLines(share_));
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(source)), "");
}

// A top-level folder whose path passes the limit is left out with a log line; the run's current
// folder (where the empty paths of a failed combination would lead) is not touched.
TEST_F(NoLossE2eTest, ATopLevelFolderPastThePathLimitIsLoggedAndLeftOut) {
  const fs::path source = share_.AddV1Profile("alice");
  const std::string targetPath = "\\\\fs\\profiles\\alice.V2";
  const std::string longName(260 - targetPath.size() - 1, 'T');
  WriteText(source / longName / "t.txt", "long");
  const fs::path current = share_.root() / "current";
  WriteText(current / "canary.txt", "canary");
  WriteText(current / "sub" / "inner.txt", "inner");
  const testing::TreeState sourceBefore = testing::CaptureTreeState(source);
  const testing::TreeState currentBefore = testing::CaptureTreeState(current);

  const fs::path previous = fs::current_path();
  fs::current_path(current);
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  fs::current_path(previous);
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(share_.CountLogged("Path too long, the folder is not migrated (0x800700CE): "
                               "\\\\fs\\profiles\\alice: " +
                               longName),
            1);
  EXPECT_FALSE(fs::exists(share_.share() / "alice.V2" / longName));
  EXPECT_EQ(ReadBytes(share_.share() / "alice.V2" / "Other" / "Deep" / "other.txt"), "other alice");
  EXPECT_EQ(testing::DescribeTreeChanges(currentBefore, testing::CaptureTreeState(current)), "");
  EXPECT_EQ(testing::DescribeTreeChanges(sourceBefore, testing::CaptureTreeState(source)), "");
}

// "Readme.txt" and "README.TXT" side by side: the first listed is copied, the second is not
// copied over it and is logged; the same for folders, inside a folder and at the top.
TEST_F(NoLossE2eTest, NamesThatDifferOnlyInCaseAreLoggedAndNeverOverwriteEachOther) {
  const fs::path source = share_.AddV1Profile("alice");
  WriteText(source / "Other" / "Readme.txt", "first readme");
  WriteText(source / "Other" / "README.TXT", "second readme");
  WriteText(source / "Other" / "Sub" / "x.txt", "sub x");
  WriteText(source / "Other" / "SUB" / "x.txt", "SUB x");
  WriteText(source / "Other" / "SUB" / "only.txt", "only in SUB");
  WriteText(source / "Data" / "d.txt", "data");
  WriteText(source / "DATA" / "d.txt", "DATA");
  const testing::TreeState before = testing::CaptureTreeState(source);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_NE(result.output.find(kMigrated), std::string::npos) << result.output;

  const fs::path target = share_.share() / "alice.V2";
  const auto firstOf = [](const fs::path& folder, const std::string& one, const std::string& two) {
    for (const std::string& name : ListingOrder(folder)) {
      if (name == one || name == two) return name;
    }
    return std::string();
  };
  const std::string readme = firstOf(source / "Other", "Readme.txt", "README.TXT");
  const std::string sub = firstOf(source / "Other", "Sub", "SUB");
  const std::string data = firstOf(source, "Data", "DATA");
  const std::string twin = "Name differs from another only in case, not migrated (0x800700B7): ";
  EXPECT_EQ(share_.CountLogged(twin + "\\\\fs\\profiles\\alice\\Other: " +
                               (readme == "Readme.txt" ? "README.TXT" : "Readme.txt")),
            1);
  EXPECT_EQ(share_.CountLogged(twin +
                               "\\\\fs\\profiles\\alice\\Other: " + (sub == "Sub" ? "SUB" : "Sub")),
            1);
  EXPECT_EQ(
      share_.CountLogged(twin + "\\\\fs\\profiles\\alice: " + (data == "Data" ? "DATA" : "Data")),
      1);
  EXPECT_EQ(FailureLines(share_).size(), 3u) << ::testing::PrintToString(FailureLines(share_));

  // Each target holds the first twin, whole, and nothing of the second.
  const std::vector<std::string> other = Tree(target / "Other");
  EXPECT_TRUE(Has(other, readme));
  EXPECT_FALSE(Has(other, readme == "Readme.txt" ? "README.TXT" : "Readme.txt"));
  EXPECT_EQ(ReadBytes(target / "Other" / readme), ReadBytes(source / "Other" / readme));
  EXPECT_EQ(ReadBytes(target / "Other" / sub / "x.txt"),
            ReadBytes(source / "Other" / sub / "x.txt"));
  EXPECT_EQ(fs::exists(target / "Other" / sub / "only.txt"), sub == "SUB");
  EXPECT_EQ(ReadBytes(target / data / "d.txt"), ReadBytes(source / data / "d.txt"));
  EXPECT_FALSE(fs::exists(target / (data == "Data" ? "DATA" : "Data")));
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(source)), "");
}

// Names whose bytes are not UTF-8 arrive with exactly their bytes (where a replacement
// character would have merged "\xff" and "\xfe" into one name), and the log shows such bytes as
// "<HH>".
TEST_F(NoLossE2eTest, NamesThatAreNotUtf8AreCopiedByteForByte) {
  const fs::path source = share_.AddV1Profile("alice");
  const std::vector<std::string> names = {"\xff", "\xfe",        "\xc3\x28.txt",
                                          "\x80", "caf\xe9.txt", "ok\xc3\xa9.txt"};
  for (const std::string& name : names) WriteText(source / "Other" / name, "content of " + name);
  WriteText(source / "Other" / "dir\xff" / "inner\x80.txt", "inner");
  WriteText(source / "Top\xfe" / "t.txt", "top folder");
  WriteText(source / "Desktop" / "d\xff.txt", "desktop");
  // Two names that only the case of a letter beside an undecodable byte tells apart.
  WriteText(source / "Other" / "A\xff", "upper");
  WriteText(source / "Other" / "a\xff", "lower");
  const testing::TreeState before = testing::CaptureTreeState(source);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_NE(result.output.find(kMigrated), std::string::npos) << result.output;

  const fs::path target = share_.share() / "alice.V2";
  for (const std::string& name : names) {
    EXPECT_EQ(ReadBytes(target / "Other" / name), "content of " + name) << name;
  }
  EXPECT_EQ(ReadBytes(target / "Other" / "dir\xff" / "inner\x80.txt"), "inner");
  EXPECT_EQ(ReadBytes(target / "Top\xfe" / "t.txt"), "top folder");
  EXPECT_EQ(ReadBytes(target / "Desktop" / "d\xff.txt"), "desktop");
  // No name was made up: every target name is one of the source's.
  for (const std::string& entry : Tree(target / "Other")) {
    EXPECT_EQ(entry.find("\xef\xbf\xbd"), std::string::npos) << entry;
  }
  bool upperFirst = false;
  for (const std::string& name : ListingOrder(source / "Other")) {
    if (name == "A\xff" || name == "a\xff") {
      upperFirst = name == "A\xff";
      break;
    }
  }
  EXPECT_EQ(ReadBytes(target / "Other" / (upperFirst ? "A\xff" : "a\xff")),
            upperFirst ? "upper" : "lower");
  EXPECT_EQ(share_.CountLogged("Name differs from another only in case, not migrated (0x800700B7): "
                               "\\\\fs\\profiles\\alice\\Other: " +
                               std::string(upperFirst ? "a<FF>" : "A<FF>")),
            1);
  EXPECT_EQ(FailureLines(share_).size(), 1u) << ::testing::PrintToString(FailureLines(share_));
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(source)), "");
}

// A profile folder whose name is Latin-1 (not UTF-8): found, its hive opened and saved, its
// folders copied, and the target named with the same bytes plus ".V2".
TEST_F(NoLossE2eTest, AProfileWhoseFolderNameIsNotUtf8IsMigrated) {
  const std::string name = "j\xf6rg";
  fs::rename(share_.AddV1Profile("alice"), share_.share() / name);
  const fs::path source = share_.share() / name;
  const testing::TreeState before = testing::CaptureTreeState(source);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\" + name});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  // The console prints the name's own bytes, the log shows the byte that is not UTF-8.
  EXPECT_NE(result.output.find("1 profiles were migrated from \\\\fs\\profiles\\" + name + "."),
            std::string::npos)
      << result.output;
  EXPECT_EQ(share_.CountLogged("1 profiles were migrated from \\\\fs\\profiles\\j<F6>rg.\r\n"), 1);
  const fs::path target = share_.share() / (name + ".V2");
  EXPECT_EQ(ReadBytes(target / "Other" / "Deep" / "other.txt"), "other alice");
  EXPECT_EQ(ReadBytes(target / "Desktop" / "desk.txt"), "desk alice");
  EXPECT_NE(E2eShare::ExportHive(target / "ntuser.dat", "\\Software\\Tw").find("Profile"),
            std::string::npos);
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(source)), "");
}

// A small file system mounted as the target share in a mount namespace of this test process
// (the tool inherits it); unmounted when it goes.
class SmallTargetFileSystem {
 public:
  // Empty when mounting worked, else why it did not.
  std::string Mount(const fs::path& where, std::size_t bytes) {
    if (::unshare(CLONE_NEWNS) != 0) return std::string("unshare: ") + std::strerror(errno);
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      return std::string("private mounts: ") + std::strerror(errno);
    const std::string options = "size=" + std::to_string(bytes) + ",mode=0755";
    if (::mount("tarnwick-test", where.c_str(), "tmpfs", 0, options.c_str()) != 0)
      return std::string("tmpfs: ") + std::strerror(errno);
    where_ = where;
    return "";
  }
  SmallTargetFileSystem() = default;
  SmallTargetFileSystem(const SmallTargetFileSystem&) = delete;
  SmallTargetFileSystem& operator=(const SmallTargetFileSystem&) = delete;
  ~SmallTargetFileSystem() {
    if (!where_.empty()) ::umount2(where_.c_str(), MNT_DETACH);
  }

 private:
  fs::path where_;
};

// Fills the target's file system to leave about `room` bytes free.
void LeaveRoom(const fs::path& folder, std::size_t room) {
  const fs::space_info space = fs::space(folder);
  if (space.available <= room) return;
  std::ofstream filler(folder / "filler", std::ios::binary);
  const std::string block(4096, 'f');
  for (std::uintmax_t left = space.available - room; left >= block.size(); left -= block.size()) {
    filler.write(block.data(), static_cast<std::streamsize>(block.size()));
  }
}

// The target share fills up while the folders are copied: each file that does not fit is
// logged with ERROR_DISK_FULL and leaves nothing behind, and the profile succeeds as the
// documented flow says for item failures (its hive was saved).
TEST_F(NoLossE2eTest, AFullTargetFileSystemLogsEachItemWithDiskFull) {
  SmallTargetFileSystem small;
  const std::string refused = small.Mount(share_.targets(), 8u << 20);
  if (!refused.empty())
    GTEST_SKIP() << "skipped: mounting a small file system was refused (" << refused << ")";
  const fs::path source = share_.AddV1Profile("alice");
  WriteText(source / "Other" / "big.bin", std::string(3u << 20, 'b'));
  WriteText(source / "Other" / "huge.bin", std::string(4u << 20, 'h'));
  const testing::TreeState before = testing::CaptureTreeState(share_.share());
  LeaveRoom(share_.targets(), 2u << 20);  // room for the profile and its hive, not the files

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice", "/t:\\\\fs\\targets"});
  EXPECT_TRUE(result.exitStatus == 0 || result.exitStatus == 255) << result.output;
  const std::string full = "Failed migrating file (0x80070070): \\\\fs\\profiles\\alice\\Other\\";
  EXPECT_EQ(share_.CountLogged(full + "big.bin"), 1) << share_.RawLog();
  EXPECT_EQ(share_.CountLogged(full + "huge.bin"), 1);
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_NE(result.output.find("1 profiles were migrated from \\\\fs\\profiles\\alice."),
            std::string::npos)
      << result.output;
  const fs::path target = share_.targets() / "alice.V2";
  EXPECT_FALSE(fs::exists(target / "Other" / "big.bin"));
  EXPECT_FALSE(fs::exists(target / "Other" / "huge.bin"));
  EXPECT_EQ(ReadBytes(target / "Other" / "Deep" / "other.txt"), "other alice");
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(share_.share())), "");
}

// Room for the default profile's copy but not for the migrated hive: the save is logged with
// ERROR_DISK_FULL and, as the documented flow goes on after a failed save, the hive file keeps
// what it held (the default profile's) and no temporary file is left behind.
TEST_F(NoLossE2eTest, AHiveSaveThatDoesNotFitIsLoggedWithDiskFull) {
  SmallTargetFileSystem small;
  const std::string refused = small.Mount(share_.targets(), 4u << 20);
  if (!refused.empty()) {
    GTEST_SKIP() << "skipped: mounting a small file system was refused (" << refused << ")";
  }
  share_.AddV1Profile("alice");
  const testing::TreeState before = testing::CaptureTreeState(share_.share());
  LeaveRoom(share_.targets(), 36u << 10);  // the default hive (20 KiB) fits once, not twice

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice", "/t:\\\\fs\\targets"});
  EXPECT_NE(share_.CountLoggedContaining(
                "Failed saving hive file (0x80070070): \\\\fs\\targets\\alice.V2\\~mighive.dat"),
            0)
      << share_.RawLog();
  const fs::path target = share_.targets() / "alice.V2";
  for (const std::string& entry : Tree(target)) {
    EXPECT_EQ(entry.find(".tmp"), std::string::npos) << entry;
    EXPECT_EQ(entry.find("~mighive"), std::string::npos) << entry;
  }
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(share_.share())), "");
}

// A target file system too full for the profile's hive: the copy that does not fit is logged with
// ERROR_DISK_FULL, the profile fails as the documented flow says for a hive that cannot be
// opened, the run says so, and the half-built target is removed; no crash.
TEST_F(NoLossE2eTest, ATargetTooFullForTheHiveFailsTheProfile) {
  SmallTargetFileSystem small;
  const std::string refused = small.Mount(share_.targets(), 4u << 20);
  if (!refused.empty()) {
    GTEST_SKIP() << "skipped: mounting a small file system was refused (" << refused << ")";
  }
  share_.AddV1Profile("alice");
  const testing::TreeState before = testing::CaptureTreeState(share_.share());
  LeaveRoom(share_.targets(), 16u << 10);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice", "/t:\\\\fs\\targets"});
  EXPECT_EQ(result.exitStatus, 255) << result.output;
  EXPECT_EQ(result.output.find("profiles were migrated"), std::string::npos) << result.output;
  EXPECT_NE(
      result.output.find("Failed migrating profile (0x80070002): \\\\fs\\profiles\\alice\r\n"),
      std::string::npos)
      << result.output;
  EXPECT_EQ(
      share_.CountLogged("Failed copying file (0x80070070): \\\\fs\\targets\\alice.V2\\ntuser.dat"),
      1)
      << share_.RawLog();
  EXPECT_FALSE(fs::exists(share_.targets() / "alice.V2"));
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(share_.share())), "");
}

}  // namespace
}  // namespace tw
