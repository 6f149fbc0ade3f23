// The built-in CreateProfile and DeleteProfileW of Linux over real temp folders.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "base/hresult.h"
#include "base/text_encoding.h"
#include "fakes/temp_folder.h"
#include "os/posix/files/file_info.h"
#include "os/posix/paths/computer_name.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/profiles/profile_list.h"
#include "os/posix/profiles/user_profile.h"
#include "ports/last_error.h"
#include "registry/offreg_wrapper.h"

namespace tw::posix {
namespace {

namespace fs = std::filesystem;

constexpr const wchar_t* kSid = L"S-1-5-21-1000-2000-3000-1001";
constexpr const char* kSidText = "S-1-5-21-1000-2000-3000-1001";
constexpr const wchar_t* kOtherSid = L"S-1-5-21-1000-2000-3000-1002";
constexpr const wchar_t* kUser = L"_tarnwick_";
constexpr HResult kInsufficientBuffer = HResultFromWin32(err::kInsufficientBuffer);
constexpr HResult kInvalidSid = HResultFromWin32(err::kInvalidSid);
constexpr HResult kPathNotFound = HResultFromWin32(err::kPathNotFound);

// Sets an environment variable for the life of the object and puts the old value back.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const std::optional<std::string>& value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    Apply(value);
  }
  ~ScopedVariable() { Apply(old_); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  void Apply(const std::optional<std::string>& value) {
    if (value) {
      ::setenv(name_, value->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  const char* name_;
  std::optional<std::string> old_;
};

class UserProfilePosixTest : public ::testing::Test {
 protected:
  void SetUp() override {
    templateFolder_ = temp_.path() / "template";
    root_ = temp_.path() / "profiles";
    temp_.WriteFile("template/ntuser.dat", "user hive");
    temp_.WriteFile("template/AppData/Local/Microsoft/Windows/UsrClass.dat", "classes hive");
    fs::create_directories(templateFolder_ / "Desktop");
    ASSERT_EQ(WriteStoredAttributes((templateFolder_ / "ntuser.dat").string(), 0x22),
              err::kSuccess);
    ASSERT_EQ(WriteStoredAttributes((templateFolder_ / "AppData").string(), 0x2), err::kSuccess);
    settings_.root = Utf8ToWide(root_.string());
    settings_.templateFolder = Utf8ToWide(templateFolder_.string());
    settings_.computerName = L"TESTPC";
  }

  HResult Create(const wchar_t* sid, const wchar_t* user = kUser, std::uint32_t size = 260) {
    buffer_.fill(L'\0');
    return CreateUserProfile(settings_, sid, user, buffer_.data(), size);
  }

  std::wstring Path() const { return std::wstring(buffer_.data()); }
  std::wstring WindowsPathOf(const fs::path& path) const { return ToWindowsPath(path.string()); }

  testing::TempFolder temp_;
  fs::path templateFolder_;
  fs::path root_;
  ProfileSettings settings_;
  std::array<wchar_t, 260> buffer_{};
};

TEST_F(UserProfilePosixTest, CreatesTheProfileFromTheTemplateAndRegistersIt) {
  ASSERT_EQ(Create(kSid), hr::kOk);
  const fs::path folder = root_ / "_tarnwick_";
  EXPECT_EQ(Path(), WindowsPathOf(folder));
  EXPECT_EQ(Path().substr(0, 3), L"Z:\\");
  EXPECT_EQ(testing::ReadWholeFile(folder / "ntuser.dat"), "user hive");
  EXPECT_EQ(testing::ReadWholeFile(folder / "AppData/Local/Microsoft/Windows/UsrClass.dat"),
            "classes hive");
  EXPECT_TRUE(fs::is_directory(folder / "Desktop"));
  std::uint32_t attributes = 0;
  ASSERT_TRUE(ReadStoredAttributes((folder / "ntuser.dat").string(), attributes));
  EXPECT_EQ(attributes, 0x22u);
  ASSERT_TRUE(ReadStoredAttributes((folder / "AppData").string(), attributes));
  EXPECT_EQ(attributes, 0x2u);
  // The registration: one file named by the SID holding the folder.
  EXPECT_EQ(testing::ReadWholeFile(root_ / "[ProfileList]" / kSidText), folder.string() + "\n");
  EXPECT_EQ(
      std::distance(fs::directory_iterator(root_ / "[ProfileList]"), fs::directory_iterator()), 1);
}

TEST_F(UserProfilePosixTest, ProfileRootIsCreatedWithItsParents) {
  root_ = temp_.path() / "a" / "b" / "profiles";
  settings_.root = Utf8ToWide(root_.string());
  ASSERT_EQ(Create(kSid), hr::kOk);
  EXPECT_TRUE(fs::is_directory(root_ / "_tarnwick_"));
}

TEST_F(UserProfilePosixTest, SettingsInWindowsFormAreMapped) {
  settings_.root = WindowsPathOf(root_);
  settings_.templateFolder = WindowsPathOf(templateFolder_);
  ASSERT_EQ(Create(kSid), hr::kOk);
  EXPECT_EQ(Path(), WindowsPathOf(root_ / "_tarnwick_"));
}

TEST_F(UserProfilePosixTest, SidThatHasAProfileGivesAlreadyExistsAndLeavesTheBuffer) {
  ASSERT_EQ(Create(kSid), hr::kOk);
  buffer_.fill(L'x');
  buffer_.back() = L'\0';
  // The SID is found whatever its case.
  EXPECT_EQ(
      CreateUserProfile(settings_, L"s-1-5-21-1000-2000-3000-1001", kUser, buffer_.data(), 260),
      hr::kAlreadyExists);
  EXPECT_EQ(buffer_[0], L'x');
  EXPECT_EQ(std::distance(fs::directory_iterator(root_), fs::directory_iterator()), 2);
}

TEST_F(UserProfilePosixTest, FolderLeftByAnotherSidMakesUniqueNamesInWindowsOrder) {
  fs::create_directories(root_ / "_TARNWICK_");  // any case counts
  ASSERT_EQ(Create(kSid), hr::kOk);
  EXPECT_EQ(Path(), WindowsPathOf(root_ / "_tarnwick_.TESTPC"));
  ASSERT_EQ(Create(kOtherSid), hr::kOk);
  EXPECT_EQ(Path(), WindowsPathOf(root_ / "_tarnwick_.TESTPC.000"));
  ASSERT_EQ(Create(L"S-1-5-21-1000-2000-3000-1003"), hr::kOk);
  EXPECT_EQ(Path(), WindowsPathOf(root_ / "_tarnwick_.TESTPC.001"));
  EXPECT_EQ(testing::ReadWholeFile(root_ / "_tarnwick_.TESTPC.001" / "ntuser.dat"), "user hive");
}

TEST(ProfileFolderCandidate, RunsFromTheNameThroughTheComputerNameToNumbers) {
  EXPECT_EQ(ProfileFolderCandidate(L"ann", L"PC", 0), L"ann");
  EXPECT_EQ(ProfileFolderCandidate(L"ann", L"PC", 1), L"ann.PC");
  EXPECT_EQ(ProfileFolderCandidate(L"ann", L"PC", 2), L"ann.PC.000");
  EXPECT_EQ(ProfileFolderCandidate(L"ann", L"PC", 12), L"ann.PC.010");
  EXPECT_EQ(ProfileFolderCandidate(L"ann", L"PC", 1001), L"ann.PC.999");
  EXPECT_EQ(ProfileFolderCandidate(L"ann", L"PC", 1002), L"");
}

TEST(ComputerName, IsTheUpperCaseHostNameAsNetBiosShowsIt) {
  EXPECT_EQ(ComputerNameFromHostName("fileserver.example.com"), L"FILESERVER");
  EXPECT_EQ(ComputerNameFromHostName("a-very-long-host-name"), L"A-VERY-LONG-HOS");
  EXPECT_EQ(ComputerNameFromHostName(""), L"LOCALHOST");
  const std::wstring own = ComputerName();
  EXPECT_FALSE(own.empty());
  EXPECT_LE(own.size(), 15u);
}

TEST_F(UserProfilePosixTest, BufferTooSmallGivesInsufficientBufferAndCreatesNothing) {
  const std::wstring expected = WindowsPathOf(root_ / "_tarnwick_");
  const auto exact = static_cast<std::uint32_t>(expected.size() + 1);
  EXPECT_EQ(Create(kSid, kUser, exact - 1), kInsufficientBuffer);
  EXPECT_FALSE(fs::exists(root_ / "_tarnwick_"));
  EXPECT_FALSE(fs::exists(root_ / "[ProfileList]" / kSidText));
  ASSERT_EQ(Create(kSid, kUser, exact), hr::kOk);
  EXPECT_EQ(Path(), expected);
}

TEST_F(UserProfilePosixTest, InvalidArgumentsAreRefused) {
  EXPECT_EQ(Create(nullptr), hr::kInvalidArg);
  EXPECT_EQ(Create(kSid, nullptr), hr::kInvalidArg);
  EXPECT_EQ(CreateUserProfile(settings_, kSid, kUser, nullptr, 260), hr::kInvalidArg);
  EXPECT_EQ(Create(kSid, L""), hr::kInvalidArg);
  EXPECT_EQ(Create(kSid, L"a/b"), hr::kInvalidArg);
  EXPECT_EQ(Create(kSid, L"[ProfileList]"), hr::kInvalidArg);
  EXPECT_EQ(Create(kSid, L".."), hr::kInvalidArg);
  EXPECT_EQ(Create(L"S-1-x"), kInvalidSid);
  EXPECT_FALSE(fs::exists(root_));
}

TEST_F(UserProfilePosixTest, MissingTemplateGivesPathNotFoundAndLeavesNothing) {
  settings_.templateFolder = Utf8ToWide((temp_.path() / "no-template").string());
  EXPECT_EQ(Create(kSid), kPathNotFound);
  settings_.templateFolder.clear();
  EXPECT_EQ(Create(kSid), kPathNotFound);
  EXPECT_FALSE(fs::exists(root_ / "_tarnwick_"));
  EXPECT_FALSE(fs::exists(root_ / "[ProfileList]" / kSidText));
}

TEST_F(UserProfilePosixTest, TemplateLinksAreNotCopied) {
  fs::create_directory_symlink("/etc", templateFolder_ / "Application Data");
  ASSERT_EQ(Create(kSid), hr::kOk);
  EXPECT_FALSE(fs::exists(fs::symlink_status(root_ / "_tarnwick_" / "Application Data")));
  EXPECT_TRUE(fs::exists(root_ / "_tarnwick_" / "ntuser.dat"));
}

TEST_F(UserProfilePosixTest, FailedCopyRemovesTheNewFolderAndRegistersNothing) {
  // A template folder chain that fits in a Linux path where it is, but not below a root with a
  // longer path: the copy fails part way with ENAMETOOLONG.
  fs::path deep = templateFolder_;
  for (int i = 0; i < 15; ++i) deep /= std::string(250, 'd');
  fs::create_directories(deep);
  root_ = temp_.path() / std::string(250, 'r') / std::string(60, 'r');
  settings_.root = Utf8ToWide(root_.string());
  std::array<wchar_t, 1024> path{};
  EXPECT_EQ(CreateUserProfile(settings_, kSid, kUser, path.data(), 1024),
            HResultFromWin32(err::kFilenameExcedRange));
  EXPECT_EQ(path[0], L'\0');
  EXPECT_TRUE(fs::is_directory(root_));
  EXPECT_FALSE(fs::exists(root_ / "_tarnwick_"));
  EXPECT_FALSE(fs::exists(root_ / "[ProfileList]" / kSidText));
}

TEST_F(UserProfilePosixTest, DeleteRemovesTheFolderAndTheRegistration) {
  ASSERT_EQ(Create(kSid), hr::kOk);
  const fs::path folder = root_ / "_tarnwick_";
  temp_.WriteFile("profiles/_tarnwick_/Documents/read-only.txt", "x");
  ASSERT_EQ(WriteStoredAttributes((folder / "Documents/read-only.txt").string(), 0x1),
            err::kSuccess);
  EXPECT_EQ(DeleteUserProfile(settings_, kSid, Path().c_str(), nullptr), err::kSuccess);
  EXPECT_FALSE(fs::exists(folder));
  EXPECT_FALSE(fs::exists(root_ / "[ProfileList]" / kSidText));
  // The SID can have a profile again.
  EXPECT_EQ(Create(kSid), hr::kOk);
}

TEST_F(UserProfilePosixTest, DeleteSucceedsWhenTheCallerRemovedTheFolderFirst) {
  ASSERT_EQ(Create(kSid), hr::kOk);
  fs::remove_all(root_ / "_tarnwick_");
  EXPECT_EQ(DeleteUserProfile(settings_, kSid, Path().c_str(), nullptr), err::kSuccess);
  EXPECT_FALSE(fs::exists(root_ / "[ProfileList]" / kSidText));
}

// Two runs at once, one profile each for the same user name: the first run empties its folder
// and then deletes its profile. A second profile made in between must not get the emptied
// folder's name, or the first run's delete would take the second run's profile with it.
TEST_F(UserProfilePosixTest, ANameStillRecordedByAnotherProfileIsNotReused) {
  ASSERT_EQ(Create(kSid), hr::kOk);
  const std::wstring first = Path();
  fs::remove_all(root_ / "_tarnwick_");
  ASSERT_EQ(Create(kOtherSid), hr::kOk);
  const fs::path second = root_ / "_tarnwick_.TESTPC";
  EXPECT_EQ(Path(), WindowsPathOf(second));
  EXPECT_FALSE(fs::exists(root_ / "_tarnwick_"));
  EXPECT_EQ(DeleteUserProfile(settings_, kSid, first.c_str(), nullptr), err::kSuccess);
  EXPECT_EQ(testing::ReadWholeFile(second / "ntuser.dat"), "user hive");
  // Once the first profile's entry is gone, its name is free again.
  ASSERT_EQ(DeleteUserProfile(settings_, kOtherSid, nullptr, nullptr), err::kSuccess);
  ASSERT_EQ(Create(kSid), hr::kOk);
  EXPECT_EQ(Path(), WindowsPathOf(root_ / "_tarnwick_"));
}

TEST_F(UserProfilePosixTest, DeleteWithoutAPathTakesTheRegisteredOne) {
  ASSERT_EQ(Create(kSid), hr::kOk);
  EXPECT_EQ(DeleteUserProfile(settings_, kSid, nullptr, nullptr), err::kSuccess);
  EXPECT_FALSE(fs::exists(root_ / "_tarnwick_"));
}

TEST_F(UserProfilePosixTest, DeleteOfAnUnknownSidIsFileNotFound) {
  EXPECT_EQ(DeleteUserProfile(settings_, kSid, nullptr, nullptr), err::kFileNotFound);
  ASSERT_EQ(Create(kSid), hr::kOk);
  EXPECT_EQ(DeleteUserProfile(settings_, kOtherSid, nullptr, nullptr), err::kFileNotFound);
  EXPECT_TRUE(fs::exists(root_ / "_tarnwick_"));
}

TEST_F(UserProfilePosixTest, DeleteRefusesAnotherPathBadArgumentsAndOtherComputers) {
  ASSERT_EQ(Create(kSid), hr::kOk);
  const std::wstring other = WindowsPathOf(root_ / "someone-else");
  EXPECT_EQ(DeleteUserProfile(settings_, kSid, other.c_str(), nullptr), err::kInvalidParameter);
  EXPECT_EQ(DeleteUserProfile(settings_, nullptr, nullptr, nullptr), err::kInvalidParameter);
  EXPECT_EQ(DeleteUserProfile(settings_, L"S-1-x", nullptr, nullptr), err::kInvalidSid);
  EXPECT_EQ(DeleteUserProfile(settings_, kSid, nullptr, L"OTHERPC"), err::kBadNetPath);
  EXPECT_TRUE(fs::exists(root_ / "_tarnwick_"));
  EXPECT_TRUE(fs::exists(root_ / "[ProfileList]" / kSidText));
  // The path compares ignoring case; this computer may be named, with or without "\\".
  std::wstring upper = Path();
  for (wchar_t& c : upper) c = static_cast<wchar_t>(std::towupper(c));
  EXPECT_EQ(DeleteUserProfile(settings_, kSid, upper.c_str(), L"\\\\testpc"), err::kSuccess);
  EXPECT_FALSE(fs::exists(root_ / "_tarnwick_"));
}

TEST(ProfileList, RegistersEachSidOnceAndLeavesNoTemporaryFiles) {
  testing::TempFolder temp;
  const ProfileList list(temp.path().string());
  std::string folder;
  EXPECT_EQ(list.Find(kSidText, folder), err::kFileNotFound);
  int held = -1;
  ASSERT_EQ(list.Reserve(kSidText, held), err::kSuccess);
  ASSERT_GE(held, 0);
  // Reserved, not yet recorded: not a complete entry.
  EXPECT_EQ(list.Find(kSidText, folder), err::kInvalidData);
  EXPECT_EQ(ProfileList::Record(held, "/x/one"), err::kSuccess);
  int second = -1;
  EXPECT_EQ(list.Reserve(kSidText, second), err::kAlreadyExists);
  EXPECT_EQ(second, -1);
  ASSERT_EQ(list.Find(kSidText, folder), err::kSuccess);
  EXPECT_EQ(folder, "/x/one");
  EXPECT_EQ(std::distance(fs::directory_iterator(temp.path() / kProfileListFolderName),
                          fs::directory_iterator()),
            1);
  EXPECT_EQ(list.Remove(kSidText), err::kSuccess);
  EXPECT_EQ(list.Remove(kSidText), err::kFileNotFound);
  ::close(held);
}

// An entry is abandoned once no descriptor holds it: RemoveAbandoned then takes it with the
// profile folder it names, but only a folder directly under the root.
TEST(ProfileList, RemovesOnlyAbandonedEntriesAndTheirFoldersUnderTheRoot) {
  testing::TempFolder temp;
  const fs::path root = temp.path() / "profiles";
  fs::create_directories(root / "live");
  fs::create_directories(root / "dead" / "Desktop");
  fs::create_directories(temp.path() / "outside");
  const ProfileList list(root.string());
  int live = -1;
  int dead = -1;
  int strange = -1;
  ASSERT_EQ(list.Reserve("S-1-5-21-1-2-3-1001", live), err::kSuccess);
  ASSERT_EQ(ProfileList::Record(live, (root / "live").string()), err::kSuccess);
  ASSERT_EQ(list.Reserve("S-1-5-21-1-2-3-1002", dead), err::kSuccess);
  ASSERT_EQ(ProfileList::Record(dead, (root / "dead").string()), err::kSuccess);
  ASSERT_EQ(list.Reserve("S-1-5-21-1-2-3-1003", strange), err::kSuccess);
  ASSERT_EQ(ProfileList::Record(strange, (temp.path() / "outside").string()), err::kSuccess);
  ::close(dead);
  ::close(strange);
  // A temporary file of an entry whose process died before linking it.
  std::ofstream(root / kProfileListFolderName / "S-1-5-21-1-2-3-1004.77.0.tmp").put('x');

  list.RemoveAbandoned();
  std::string folder;
  EXPECT_EQ(list.Find("S-1-5-21-1-2-3-1001", folder), err::kSuccess);
  EXPECT_TRUE(fs::is_directory(root / "live"));
  EXPECT_EQ(list.Find("S-1-5-21-1-2-3-1002", folder), err::kFileNotFound);
  EXPECT_FALSE(fs::exists(root / "dead"));
  EXPECT_EQ(list.Find("S-1-5-21-1-2-3-1003", folder), err::kFileNotFound);
  EXPECT_TRUE(fs::is_directory(temp.path() / "outside"));
  EXPECT_EQ(std::distance(fs::directory_iterator(root / kProfileListFolderName),
                          fs::directory_iterator()),
            1);
  ::close(live);
  list.RemoveAbandoned();
  EXPECT_FALSE(fs::exists(root / "live"));
  EXPECT_TRUE(fs::is_empty(root / kProfileListFolderName));
}

// A registration lives as long as the process that made it: a process killed while its
// temporary profile exists leaves the registration and the folder behind, and the next
// CreateProfile (for any SID) removes both.
TEST_F(UserProfilePosixTest, ARegistrationOfAKilledProcessIsReclaimedWithItsFolder) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::array<wchar_t, 260> path{};
    if (CreateUserProfile(settings_, kSid, kUser, path.data(), 260) == hr::kOk) ::raise(SIGKILL);
    ::_exit(1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  ASSERT_TRUE(fs::exists(root_ / "_tarnwick_" / "ntuser.dat"));
  ASSERT_TRUE(fs::exists(root_ / "[ProfileList]" / kSidText));

  ASSERT_EQ(Create(kOtherSid), hr::kOk);
  EXPECT_FALSE(fs::exists(root_ / "[ProfileList]" / kSidText));
  // The dead process's folder went first, so its name was free again.
  EXPECT_EQ(Path(), WindowsPathOf(root_ / "_tarnwick_"));
  EXPECT_EQ(testing::ReadWholeFile(root_ / "[ProfileList]" / "S-1-5-21-1000-2000-3000-1002"),
            (root_ / "_tarnwick_").string() + "\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(root_), fs::directory_iterator()), 2);
}

// Two processes creating a profile for one SID at once: exactly one succeeds, the other gets
// ERROR_ALREADY_EXISTS while the first one's profile exists, and the first one's profile is
// whole; once the first process has ended, its profile is taken back by the next creation.
TEST_F(UserProfilePosixTest, TwoProcessesAtOnceForOneSidMakeExactlyOneProfile) {
  for (int round = 0; round < 10; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    int results[2] = {-1, -1};
    int hold[2] = {-1, -1};
    ASSERT_EQ(::pipe(results), 0);
    ASSERT_EQ(::pipe(hold), 0);
    pid_t children[2] = {-1, -1};
    for (pid_t& child : children) {
      child = ::fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
        ::close(results[0]);
        ::close(hold[1]);
        std::array<wchar_t, 260> path{};
        const HResult made = CreateUserProfile(settings_, kSid, kUser, path.data(), 260);
        const char code = made == hr::kOk ? 'k' : made == hr::kAlreadyExists ? 'e' : 'x';
        if (::write(results[1], &code, 1) != 1) ::_exit(2);
        char ignored = 0;
        // Keeps the winner alive until the parent closes the pipe.
        if (code == 'k' && ::read(hold[0], &ignored, 1) < 0) ::_exit(3);
        ::_exit(0);
      }
    }
    ::close(results[1]);
    ::close(hold[0]);
    std::string codes;
    char code = 0;
    while (::read(results[0], &code, 1) == 1) {
      codes.push_back(code);
      if (codes.size() == 2) break;
    }
    std::sort(codes.begin(), codes.end());
    EXPECT_EQ(codes, "ek");
    EXPECT_EQ(testing::ReadWholeFile(root_ / "_tarnwick_" / "ntuser.dat"), "user hive");
    std::string registered;
    EXPECT_EQ(ProfileList(root_.string()).Find(kSidText, registered), err::kSuccess);
    EXPECT_EQ(registered, (root_ / "_tarnwick_").string());
    ::close(hold[1]);  // the winner ends without deleting its profile
    ::close(results[0]);
    for (const pid_t child : children) ::waitpid(child, nullptr, 0);
    ASSERT_EQ(Create(kSid), hr::kOk);
    EXPECT_EQ(Path(), WindowsPathOf(root_ / "_tarnwick_"));
    ASSERT_EQ(DeleteUserProfile(settings_, kSid, Path().c_str(), nullptr), err::kSuccess);
    EXPECT_TRUE(fs::is_empty(root_ / "[ProfileList]"));
    EXPECT_EQ(std::distance(fs::directory_iterator(root_), fs::directory_iterator()), 1);
  }
}

TEST(ProfileSettings, ComeFromTheEnvironmentWithTheDocumentedDefaults) {
  testing::TempFolder temp;
  const bool runAsRoot = ::geteuid() == 0;
  const std::string ownFolder = "tarnwick-" + std::to_string(::geteuid());
  {
    const ScopedVariable root(kProfileRootVariable, std::nullopt);
    const ScopedVariable templateFolder(kDefaultProfileVariable, std::nullopt);
    const ScopedVariable runtime("XDG_RUNTIME_DIR", std::nullopt);
    const ScopedVariable tmpdir("TMPDIR", temp.path().string());
    const ProfileSettings settings = ProcessProfileSettings();
    const std::string folder =
        runAsRoot ? std::string("/run/tarnwick") : (temp.path() / ownFolder).string();
    EXPECT_EQ(settings.privateFolder, Utf8ToWide(folder));
    EXPECT_EQ(settings.root, Utf8ToWide(folder + "/profiles"));
    // Beside the running executable.
    const fs::path exe = fs::read_symlink("/proc/self/exe");
    EXPECT_EQ(settings.templateFolder,
              Utf8ToWide((exe.parent_path() / "default-profile").string()));
    EXPECT_EQ(settings.computerName, ComputerName());
  }
  {
    const ScopedVariable root(kProfileRootVariable, std::nullopt);
    const ScopedVariable runtime("XDG_RUNTIME_DIR", "/run/user/4242/");
    const ScopedVariable tmpdir("TMPDIR", std::nullopt);
    EXPECT_EQ(ProcessProfileSettings().root,
              runAsRoot ? L"/run/tarnwick/profiles" : L"/run/user/4242/tarnwick/profiles");
  }
  if (!runAsRoot) {
    const ScopedVariable root(kProfileRootVariable, std::nullopt);
    const ScopedVariable runtime("XDG_RUNTIME_DIR", std::nullopt);
    const ScopedVariable tmpdir("TMPDIR", std::nullopt);
    EXPECT_EQ(ProcessProfileSettings().root, Utf8ToWide("/tmp/" + ownFolder + "/profiles"));
  }
  {
    const ScopedVariable root(kProfileRootVariable, "/srv/profiles");
    const ScopedVariable templateFolder(kDefaultProfileVariable, "/srv/default");
    EXPECT_EQ(ProcessProfileSettings().root, L"/srv/profiles");
    EXPECT_EQ(ProcessProfileSettings().privateFolder, L"");
    EXPECT_EQ(ProcessProfileSettings().templateFolder, L"/srv/default");
  }
}

TEST_F(UserProfilePosixTest, TheDefaultRootIsMadeInAFolderOnlyItsUserMayWrite) {
  const fs::path folder = temp_.path() / "private";
  settings_.privateFolder = Utf8ToWide(folder.string());
  settings_.root = Utf8ToWide((folder / "profiles").string());
  ASSERT_EQ(Create(kSid), hr::kOk);
  struct stat info {};
  ASSERT_EQ(::lstat(folder.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  EXPECT_EQ(info.st_uid, ::geteuid());
  EXPECT_TRUE(fs::is_directory(folder / "profiles" / "_tarnwick_"));
}

TEST_F(UserProfilePosixTest, ASharedOrLinkedDefaultFolderIsRefused) {
  const fs::path shared = temp_.path() / "shared";
  fs::create_directory(shared);
  ::chmod(shared.c_str(), 0777);
  settings_.privateFolder = Utf8ToWide(shared.string());
  settings_.root = Utf8ToWide((shared / "profiles").string());
  EXPECT_EQ(Create(kSid), hr::kAccessDenied);
  EXPECT_FALSE(fs::exists(shared / "profiles"));

  const fs::path link = temp_.path() / "link";
  fs::create_directory_symlink(temp_.path() / "elsewhere", link);
  fs::create_directory(temp_.path() / "elsewhere");
  ::chmod((temp_.path() / "elsewhere").c_str(), 0700);
  settings_.privateFolder = Utf8ToWide(link.string());
  settings_.root = Utf8ToWide((link / "profiles").string());
  EXPECT_EQ(Create(kSid), hr::kAccessDenied);
  EXPECT_FALSE(fs::exists(temp_.path() / "elsewhere" / "profiles"));
}

TEST_F(UserProfilePosixTest, ProcessBindingServesBothFunctionsOverTheEnvironment) {
  ASSERT_TRUE(g_offreg.IsUserenvBound());
  EXPECT_EQ(g_offreg.CreateProfile, &BuiltInCreateProfile);
  EXPECT_EQ(g_offreg.DeleteProfileW, &BuiltInDeleteProfileW);
  const ScopedVariable root(kProfileRootVariable, root_.string());
  const ScopedVariable templateFolder(kDefaultProfileVariable, templateFolder_.string());

  std::array<wchar_t, 260> path{};
  ASSERT_EQ(HResult{g_offreg.CreateProfile(kSid, kUser, path.data(), 260)}, hr::kOk);
  EXPECT_EQ(std::wstring(path.data()), WindowsPathOf(root_ / "_tarnwick_"));
  EXPECT_EQ(HResult{g_offreg.CreateProfile(kSid, kUser, path.data(), 260)}, hr::kAlreadyExists);
  EXPECT_EQ(g_offreg.DeleteProfileW(kSid, path.data(), nullptr), 1);
  EXPECT_FALSE(fs::exists(root_ / "_tarnwick_"));
  SetThreadLastError(err::kSuccess);
  EXPECT_EQ(g_offreg.DeleteProfileW(kSid, path.data(), nullptr), 0);
  EXPECT_EQ(ThreadLastError(), err::kFileNotFound);
}

}  // namespace
}  // namespace tw::posix
