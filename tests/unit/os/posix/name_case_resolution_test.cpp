// Case resolution of Linux paths: a path that exists as written comes back unchanged (one check
// for the whole path), a missing last name is looked up in its folder (whose listing is kept
// while the folder does not change, or changes only through this process), and every other
// path is resolved component by component.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "fakes/temp_folder.h"
#include "os/posix/files/file_copy.h"
#include "os/posix/files/folder_tree.h"
#include "os/posix/paths/native_path.h"

namespace tw::posix {
namespace {

namespace fs = std::filesystem;

class NameCaseResolutionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    temp_.WriteFile("Profiles/Alice/Documents/letter.txt", "letter");
    fs::create_directory_symlink(temp_.path() / "Profiles" / "Alice", temp_.path() / "link");
  }
  std::string Root() const { return temp_.path().string(); }

  testing::TempFolder temp_;
};

TEST_F(NameCaseResolutionTest, ExistingPathComesBackAsWritten) {
  const std::string exact = Root() + "/Profiles/Alice/Documents/letter.txt";
  EXPECT_EQ(ResolveNameCase(exact), exact);
  EXPECT_EQ(ResolveNameCase(Root() + "/Profiles/Alice/"), Root() + "/Profiles/Alice/");
  EXPECT_EQ(ResolveNameCase(Root() + "/Profiles/./Alice/../Alice"),
            Root() + "/Profiles/./Alice/../Alice");
  EXPECT_EQ(ResolveNameCase(Root() + "/link/Documents"), Root() + "/link/Documents");
}

TEST_F(NameCaseResolutionTest, OtherCaseIsResolvedToTheEntries) {
  EXPECT_EQ(ResolveNameCase(Root() + "/PROFILES/alice/documents/LETTER.TXT"),
            Root() + "/Profiles/Alice/Documents/letter.txt");
  EXPECT_EQ(ResolveNameCase(Root() + "/LINK/documents/"), Root() + "/link/Documents/");
}

TEST_F(NameCaseResolutionTest, EmptyComponentsAreDroppedEvenWhenThePathExists) {
  EXPECT_EQ(ResolveNameCase(Root() + "/Profiles//Alice"), Root() + "/Profiles/Alice");
}

TEST_F(NameCaseResolutionTest, MissingRestIsKeptAsGiven) {
  EXPECT_EQ(ResolveNameCase(Root() + "/profiles/alice/New/SUB"),
            Root() + "/Profiles/Alice/New/SUB");
}

TEST_F(NameCaseResolutionTest, StatusDescribesAnExistingPath) {
  NativeStatus status;
  const std::string exact = Root() + "/Profiles/Alice/Documents/letter.txt";
  EXPECT_EQ(ResolveNameCase(exact, &status), exact);
  EXPECT_TRUE(status.Exists());
  EXPECT_TRUE(S_ISREG(status.info.st_mode));
  EXPECT_EQ(status.info.st_size, 6);
}

TEST_F(NameCaseResolutionTest, MissingLastNameIsLookedUpInItsFolder) {
  NativeStatus status;
  EXPECT_EQ(ResolveNameCase(Root() + "/Profiles/Alice/Documents/LETTER.TXT", &status),
            Root() + "/Profiles/Alice/Documents/letter.txt");
  EXPECT_FALSE(status.known);  // the name was replaced: the caller looks at the object itself

  const std::string missing = Root() + "/Profiles/Alice/Documents/new.txt";
  EXPECT_EQ(ResolveNameCase(missing, &status), missing);
  EXPECT_TRUE(status.known);
  EXPECT_EQ(status.error, ENOENT);
  struct stat info {};
  EXPECT_EQ(LstatKnown(missing, status, info), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(NameCaseResolutionTest, ToNativePathHandsTheStatusOn) {
  NativeStatus status;
  std::string native;
  err::Win32Error error = err::kSuccess;
  ASSERT_TRUE(
      ToNativePath(ToWindowsPath(Root() + "/profiles/ALICE/documents"), native, error, &status));
  EXPECT_EQ(native, Root() + "/Profiles/Alice/Documents");
  ASSERT_TRUE(
      ToNativePath(ToWindowsPath(Root() + "/Profiles/Alice/Documents"), native, error, &status));
  EXPECT_TRUE(status.Exists());
  EXPECT_TRUE(S_ISDIR(status.info.st_mode));
}

// Other processes' names: the folder's times change, and its listing is read again. The pause
// puts the creation on a later clock tick than the folder's last change, as it would be between
// two processes on a kernel with coarse file times.
TEST_F(NameCaseResolutionTest, NameMadeByAnotherProcessAfterTheFolderWasListedIsFound) {
  const std::string documents = Root() + "/Profiles/Alice/Documents";
  EXPECT_EQ(ResolveNameCase(documents + "/NOTE.TXT"), documents + "/NOTE.TXT");
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::ofstream(documents + "/note.txt") << "n";
  EXPECT_EQ(ResolveNameCase(documents + "/NOTE.TXT"), documents + "/note.txt");
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  fs::remove(documents + "/note.txt");
  EXPECT_EQ(ResolveNameCase(documents + "/NOTE.TXT"), documents + "/NOTE.TXT");
}

TEST_F(NameCaseResolutionTest, NamesThisProcessMakesAndRemovesAreSeenAtOnce) {
  const std::string documents = Root() + "/Profiles/Alice/Documents";
  EXPECT_EQ(ResolveNameCase(documents + "/COPY.TXT"), documents + "/COPY.TXT");  // listed
  ASSERT_EQ(CopyNativeFile(documents + "/letter.txt", documents + "/copy.txt", true),
            err::kSuccess);
  ASSERT_EQ(MakeNativeFolder(documents + "/Sub"), err::kSuccess);
  EXPECT_EQ(ResolveNameCase(documents + "/COPY.TXT"), documents + "/copy.txt");
  EXPECT_EQ(ResolveNameCase(documents + "/sub"), documents + "/Sub");

  ASSERT_EQ(DeleteNativeFile(documents + "/copy.txt"), err::kSuccess);
  ASSERT_EQ(DeleteNativeTree(documents + "/Sub"), err::kSuccess);
  EXPECT_EQ(ResolveNameCase(documents + "/COPY.TXT"), documents + "/COPY.TXT");
  EXPECT_EQ(ResolveNameCase(documents + "/sub"), documents + "/sub");
}

TEST_F(NameCaseResolutionTest, AnotherProcessesNameAfterOneOfOursIsFound) {
  const std::string documents = Root() + "/Profiles/Alice/Documents";
  EXPECT_EQ(ResolveNameCase(documents + "/OTHER.TXT"), documents + "/OTHER.TXT");  // listed
  ASSERT_EQ(CopyNativeFile(documents + "/letter.txt", documents + "/copy.txt", true),
            err::kSuccess);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::ofstream(documents + "/other.txt") << "o";
  EXPECT_EQ(ResolveNameCase(documents + "/OTHER.TXT"), documents + "/other.txt");
  EXPECT_EQ(ResolveNameCase(documents + "/COPY.TXT"), documents + "/copy.txt");
}

TEST_F(NameCaseResolutionTest, FolderReachedThroughALinkIsReadThroughTheLink) {
  EXPECT_EQ(ResolveNameCase(Root() + "/link/NEW.TXT"), Root() + "/link/NEW.TXT");
  std::ofstream(Root() + "/Profiles/Alice/new.txt") << "n";
  EXPECT_EQ(ResolveNameCase(Root() + "/link/NEW.TXT"), Root() + "/link/new.txt");
}

// Calls on existing objects go to the path as written; only a missing name makes them resolve
// case and call once more.
TEST_F(NameCaseResolutionTest, CallsOnExistingObjectsResolveCaseOnlyWhenANameIsMissing) {
  std::vector<std::string> calls;
  const auto stat = [&calls](const std::string& native) {
    calls.push_back(native);
    struct stat info {};
    return ::lstat(native.c_str(), &info) == 0 ? err::kSuccess : err::kFileNotFound;
  };
  const std::string exact = Root() + "/Profiles/Alice/Documents/letter.txt";
  EXPECT_EQ(OnExistingNativePath(exact, stat), err::kSuccess);
  EXPECT_EQ(calls, std::vector<std::string>{exact});

  calls.clear();
  const std::string other = Root() + "/profiles/ALICE/documents/Letter.txt";
  EXPECT_EQ(OnExistingNativePath(other, stat), err::kSuccess);
  EXPECT_EQ(calls, (std::vector<std::string>{other, exact}));

  calls.clear();
  const std::string missing = Root() + "/Profiles/Alice/Documents/gone.txt";
  EXPECT_EQ(OnExistingNativePath(missing, stat), err::kFileNotFound);
  EXPECT_EQ(calls, std::vector<std::string>{missing});

  calls.clear();
  EXPECT_EQ(OnExistingObject(ToWindowsPath(other), stat), err::kSuccess);
  EXPECT_EQ(calls.back(), exact);
}

// A name about to be created is looked up in its folder's listing: an entry of that name in any
// case is the one named, otherwise the name stands as written.
TEST_F(NameCaseResolutionTest, NamesToBeCreatedAreLookedUpInTheirFolder) {
  std::string native;
  err::Win32Error error = err::kSuccess;
  const std::string documents = Root() + "/Profiles/Alice/Documents";
  ASSERT_TRUE(ToNativePathForCreation(ToWindowsPath(documents + "/LETTER.TXT"), native, error));
  EXPECT_EQ(native, documents + "/letter.txt");
  ASSERT_TRUE(ToNativePathForCreation(ToWindowsPath(documents + "/New.txt"), native, error));
  EXPECT_EQ(native, documents + "/New.txt");
  ASSERT_TRUE(
      ToNativePathForCreation(ToWindowsPath(Root() + "/PROFILES/alice/New"), native, error));
  EXPECT_EQ(native, Root() + "/Profiles/Alice/New");
}

}  // namespace
}  // namespace tw::posix

namespace tw::posix {
namespace {

// A path handed over in another case (the command line lower-cases it) resolves to the entries
// every time, through the remembered resolution after the first; the memo never overrides what
// exists as written, and what it found being gone sends the path through the walk again.
class RememberedCaseTest : public ::testing::Test {
 protected:
  void SetUp() override { temp_.WriteFile("Profiles/Anna.V5/Documents/letter.txt", "letter"); }
  std::string Root() const { return temp_.path().string(); }
  testing::TempFolder temp_;
};

TEST_F(RememberedCaseTest, TheSameAnswerEveryTime) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(ResolveNameCase(Root() + "/profiles/anna.v5/documents/letter.txt"),
              Root() + "/Profiles/Anna.V5/Documents/letter.txt");
    EXPECT_EQ(ResolveNameCase(Root() + "/profiles/anna.v5/Documents/new.txt"),
              Root() + "/Profiles/Anna.V5/Documents/new.txt");
    EXPECT_EQ(ResolveNameCase(Root() + "/profiles/anna.v5/missing/new.txt"),
              Root() + "/Profiles/Anna.V5/missing/new.txt");
  }
}

TEST_F(RememberedCaseTest, WhatExistsAsWrittenWins) {
  EXPECT_EQ(ResolveNameCase(Root() + "/profiles/anna.v5/Documents/letter.txt"),
            Root() + "/Profiles/Anna.V5/Documents/letter.txt");
  // A folder of exactly the asked name appears (Linux keeps both).
  fs::create_directories(temp_.path() / "profiles" / "anna.v5");
  EXPECT_EQ(ResolveNameCase(Root() + "/profiles/anna.v5/Documents/letter.txt"),
            Root() + "/profiles/anna.v5/Documents/letter.txt");
  EXPECT_EQ(ResolveNameCase(Root() + "/profiles/anna.v5/Documents/other.txt"),
            Root() + "/profiles/anna.v5/Documents/other.txt");
}

TEST_F(RememberedCaseTest, AFoundFolderThatWentIsLookedForAgain) {
  EXPECT_EQ(ResolveNameCase(Root() + "/profiles/anna.v5/Documents/letter.txt"),
            Root() + "/Profiles/Anna.V5/Documents/letter.txt");
  fs::rename(temp_.path() / "Profiles" / "Anna.V5", temp_.path() / "Profiles" / "ANNA.v5");
  EXPECT_EQ(ResolveNameCase(Root() + "/profiles/anna.v5/Documents/letter.txt"),
            Root() + "/Profiles/ANNA.v5/Documents/letter.txt");
  fs::rename(temp_.path() / "Profiles", temp_.path() / "PROFILES");
  EXPECT_EQ(ResolveNameCase(Root() + "/profiles/anna.v5/Documents/new.txt"),
            Root() + "/PROFILES/ANNA.v5/Documents/new.txt");
}

}  // namespace
}  // namespace tw::posix
