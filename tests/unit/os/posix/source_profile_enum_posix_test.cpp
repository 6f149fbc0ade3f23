// The source enumeration over the real POSIX file system, in temp folders.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fakes/temp_folder.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/paths/share_map.h"
#include "ports/file_system.h"
#include "run/source_profile_enum.h"

namespace tw {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace fs = std::filesystem;

class SourceProfileEnumPosixTest : public ::testing::Test {
 protected:
  SourceProfileEnumPosixTest() : root_(posix::ToWindowsPath(temp_.path().string())) {
    temp_.WriteFile("alice/ntuser.dat", "regf");
    temp_.WriteFile("bob.v2/ntuser.dat", "regf");
    temp_.WriteFile("carol.v5/ntuser.dat", "regf");
    temp_.WriteFile("erin.v5/ntuser.dat", "regf");
    fs::create_directory(temp_.path() / "dave.v5");  // no hive
    temp_.WriteFile("file.v5", "not a folder");
    fs::create_directory_symlink(temp_.path() / "carol.v5", temp_.path() / "link.v5");
    fs::create_directory_symlink(temp_.path() / "alice", temp_.path() / "link");
  }

  std::vector<std::wstring> Enumerate(const std::wstring& source, const wchar_t* suffix) {
    CSourceProfileEnum profiles(ProcessFileSystem(), source);
    std::vector<std::wstring> found;
    std::wstring path;
    if (!profiles.FindFirstProfile(path, suffix)) return found;
    found.push_back(path);
    while (profiles.FindNextProfile(path)) found.push_back(path);
    EXPECT_THAT(path, IsEmpty());
    return found;
  }

  testing::TempFolder temp_;
  std::wstring root_;  // the temp folder in Windows form, "Z:\tmp\..."
};

TEST_F(SourceProfileEnumPosixTest, SingleProfileFolderYieldsItOnce) {
  EXPECT_THAT(Enumerate(root_ + L"\\alice", nullptr), ElementsAre(root_ + L"\\alice"));
}

TEST_F(SourceProfileEnumPosixTest, FolderWithoutHiveAndWithoutWildcardYieldsNothing) {
  EXPECT_THAT(Enumerate(root_ + L"\\dave.v5", nullptr), IsEmpty());
  EXPECT_THAT(Enumerate(root_, nullptr), IsEmpty());
}

TEST_F(SourceProfileEnumPosixTest, V5WildcardSkipsLinksFilesAndFoldersWithoutHive) {
  EXPECT_THAT(Enumerate(root_ + L"\\*.v5", L"V5"),
              UnorderedElementsAre(root_ + L"\\carol.v5", root_ + L"\\erin.v5"));
}

TEST_F(SourceProfileEnumPosixTest, V2WildcardSkipsV2FoldersAndReturnsAParentProfile) {
  EXPECT_THAT(Enumerate(root_ + L"\\*.v2", L"V2"), IsEmpty());
  temp_.WriteFile("ntuser.dat", "regf");
  EXPECT_THAT(Enumerate(root_ + L"\\*.v2", L"V2"), ElementsAre(root_));
}

TEST_F(SourceProfileEnumPosixTest, StarAfterAFolderIsOneFolderInTheDefaultMode) {
  EXPECT_THAT(Enumerate(root_ + L"\\*", nullptr), IsEmpty());
}

// The bare "*" searches the current folder and yields relative paths ("alice"); each is found
// through its relative hive path "alice\ntuser.dat", and alice.V2 never is.
TEST_F(SourceProfileEnumPosixTest, BareStarFindsTheProfilesOfTheCurrentFolderButNoV2) {
  temp_.WriteFile("alice.V2/ntuser.dat", "regf");
  temp_.WriteFile("ALICE.v2/ntuser.dat", "regf");
  const fs::path previous = fs::current_path();
  fs::current_path(temp_.path());
  const std::vector<std::wstring> found = Enumerate(L"*", nullptr);
  fs::current_path(previous);
  EXPECT_THAT(found, UnorderedElementsAre(L"alice", L"carol.v5", L"erin.v5"));
}

// Through a share: names resolve in any case, as the command line lower-cases the source path.
class SourceProfileEnumShareTest : public SourceProfileEnumPosixTest {
 protected:
  void SetUp() override {
    temp_.WriteFile("share/ALICE.V5/NTUSER.DAT", "regf");
    temp_.WriteFile("share/Bob.V5/ntuser.dat", "regf");
    temp_.WriteFile("share/Carol.V2/ntuser.dat", "regf");
    fs::create_directory_symlink(temp_.path() / "share" / "ALICE.V5",
                                 temp_.path() / "share" / "Junction.V5");
    const fs::path map = temp_.path() / "shares.conf";
    std::ofstream(map, std::ios::binary) << "\\\\Srv\\Profiles = " << temp_.Child("share") << "\n";
    posix::UseShareMapFileForTesting(map.string());
  }
  void TearDown() override { posix::UseShareMapFileForTesting(""); }
};

TEST_F(SourceProfileEnumShareTest, WildcardOverAShareYieldsItsProfilesInTheirOwnCase) {
  EXPECT_THAT(Enumerate(L"\\\\srv\\profiles\\*.v5", L"V5"),
              UnorderedElementsAre(L"\\\\srv\\profiles\\ALICE.V5", L"\\\\srv\\profiles\\Bob.V5"));
  EXPECT_THAT(Enumerate(L"\\\\srv\\profiles\\*.v2", L"V2"), IsEmpty());
}

TEST_F(SourceProfileEnumShareTest, SingleProfileOnAShareIsFoundInAnyCase) {
  EXPECT_THAT(Enumerate(L"\\\\srv\\profiles\\alice.v5", nullptr),
              ElementsAre(L"\\\\srv\\profiles\\alice.v5"));
  EXPECT_THAT(Enumerate(L"\\\\nosuch\\profiles\\alice.v5", nullptr), IsEmpty());
}

}  // namespace
}  // namespace tw
