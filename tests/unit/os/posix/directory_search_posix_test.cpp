// The directory search of the POSIX adapter on real folders.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fakes/sized_file.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"

namespace tw {
namespace {

using testing::ScratchFolder;

class PosixSearchTest : public ::testing::Test {
 protected:
  std::wstring Win(const std::string& name) const {
    return posix::ToWindowsPath((folder.path() / name).string());
  }
  void MakeFile(const std::string& name, const std::string& content = "x") const {
    std::ofstream(folder.path() / name, std::ios::binary) << content;
  }
  // Every entry of pattern, or the error of the first call.
  err::Win32Error Search(std::wstring_view pattern, std::vector<FindEntry>& found) {
    found.clear();
    SearchHandle search = kInvalidSearchHandle;
    FindEntry entry;
    const err::Win32Error error = files.FindFirstEntry(pattern, search, entry);
    if (error != err::kSuccess) {
      EXPECT_EQ(search, kInvalidSearchHandle);
      return error;
    }
    UniqueSearchHandle owner(files, search);
    do {
      found.push_back(entry);
    } while (files.FindNextEntry(search, entry) == err::kSuccess);
    EXPECT_EQ(files.FindNextEntry(search, entry), err::kNoMoreFiles);
    return err::kSuccess;
  }
  static std::vector<std::wstring> Names(const std::vector<FindEntry>& entries) {
    std::vector<std::wstring> names;
    for (const FindEntry& entry : entries) names.push_back(entry.name);
    return names;
  }
  static std::vector<std::wstring> Sorted(std::vector<std::wstring> names) {
    std::sort(names.begin(), names.end());
    return names;
  }

  ScratchFolder folder;
  FileSystem& files = ProcessFileSystem();
};

TEST_F(PosixSearchTest, StarListsDotEntriesFirstThenEveryEntry) {
  std::filesystem::create_directory(folder.path() / "Alice");
  MakeFile("notes.txt", "hello");
  std::vector<FindEntry> found;
  ASSERT_EQ(Search(Win("*"), found), err::kSuccess);
  ASSERT_EQ(found.size(), 4u);
  EXPECT_EQ(found[0].name, L".");
  EXPECT_EQ(found[1].name, L"..");
  EXPECT_NE(found[0].attributes & file_attr::kDirectory, 0u);
  EXPECT_NE(found[1].attributes & file_attr::kDirectory, 0u);
  const std::vector<std::wstring> names = Names(found);
  const std::vector<std::wstring> rest(names.begin() + 2, names.end());
  EXPECT_EQ(Sorted(rest), (std::vector<std::wstring>{L"Alice", L"notes.txt"}));
  for (const FindEntry& entry : found) {
    if (entry.name == L"Alice") {
      EXPECT_EQ(entry.attributes, file_attr::kDirectory);
      EXPECT_EQ(entry.size, 0u);
    }
    if (entry.name == L"notes.txt") {
      EXPECT_EQ(entry.attributes, file_attr::kArchive);
      EXPECT_EQ(entry.size, 5u);
      EXPECT_GT(entry.times.lastWrite, 116444736000000000u);  // after 1970
      EXPECT_NE(entry.times.creation, 0u);
    }
  }
}

TEST_F(PosixSearchTest, NamesThatAreNoPlainWindowsNamesAreNotListed) {
  // Joined to their folder by the Windows path functions, "..\\bob" would name the folder beside
  // it and "Z:" the server's root: a copy would leave the folder it lists.
  for (const char* name : {"..\\bob", "a\\b", "Z:", "z:tmp", "\\"}) {
    std::filesystem::create_directory(folder.path() / name);
  }
  MakeFile("10:30 notes.txt");
  MakeFile("a:b");  // a drive-relative path to the Windows path functions
  MakeFile("ab:c");
  MakeFile("plain");
  std::vector<FindEntry> found;
  ASSERT_EQ(Search(Win("*"), found), err::kSuccess);
  EXPECT_EQ(Sorted(Names(found)),
            (std::vector<std::wstring>{L".", L"..", L"10:30 notes.txt", L"ab:c", L"plain"}));
}

TEST_F(PosixSearchTest, EntriesComeInTheOrderTheFileSystemGives) {
  for (const char* name : {"b", "a", "c", "e", "d"}) MakeFile(name);
  std::vector<std::wstring> expected;
  for (const auto& item : std::filesystem::directory_iterator(folder.path()))
    expected.push_back(item.path().filename().wstring());
  std::vector<FindEntry> found;
  ASSERT_EQ(Search(Win("?"), found), err::kSuccess);
  EXPECT_EQ(Names(found), expected);  // directory_iterator also reads in readdir order
}

TEST_F(PosixSearchTest, SuffixPatternIgnoresCaseAndSkipsDotEntries) {
  std::filesystem::create_directory(folder.path() / "bob.V2");
  std::filesystem::create_directory(folder.path() / "carol.v2");
  std::filesystem::create_directory(folder.path() / "dave.V5");
  std::filesystem::create_directory(folder.path() / "alice");
  std::vector<FindEntry> found;
  ASSERT_EQ(Search(Win("*.V2"), found), err::kSuccess);
  EXPECT_EQ(Sorted(Names(found)), (std::vector<std::wstring>{L"bob.V2", L"carol.v2"}));
}

TEST_F(PosixSearchTest, QuestionMarkMatchesSingleCharacterNames) {
  MakeFile("a");
  MakeFile("B");
  MakeFile("ab");
  std::vector<FindEntry> found;
  ASSERT_EQ(Search(Win("?"), found), err::kSuccess);
  EXPECT_EQ(Sorted(Names(found)), (std::vector<std::wstring>{L"B", L"a"}));
}

TEST_F(PosixSearchTest, NameWithoutWildcardFindsTheEntryInItsOwnCase) {
  MakeFile("NTUSER.DAT");
  std::vector<FindEntry> found;
  ASSERT_EQ(Search(Win("ntuser.dat"), found), err::kSuccess);
  EXPECT_EQ(Names(found), (std::vector<std::wstring>{L"NTUSER.DAT"}));
}

TEST_F(PosixSearchTest, NoMatchIsFileNotFoundAndMissingFolderIsPathNotFound) {
  MakeFile("a.txt");
  std::vector<FindEntry> found;
  EXPECT_EQ(Search(Win("*.V2"), found), err::kFileNotFound);
  EXPECT_EQ(Search(Win("missing\\*"), found), err::kPathNotFound);
  EXPECT_EQ(Search(Win("missing\\deeper\\*"), found), err::kPathNotFound);
  EXPECT_EQ(Search(Win("a.txt\\*"), found), err::kDirectory);
  EXPECT_EQ(Search(Win("a.txt") + L"\\", found), err::kFileNotFound);
}

TEST_F(PosixSearchTest, SymbolicLinksAreListedAsReparsePointsAndNeverEntered) {
  ScratchFolder outside;
  std::ofstream(outside.path() / "secret.txt") << "s";
  std::filesystem::create_directory_symlink(outside.path(), folder.path() / "linked");
  MakeFile("target.txt");
  std::filesystem::create_symlink(folder.path() / "target.txt", folder.path() / "filelink");
  ::mkfifo((folder.path() / "pipe").c_str(), 0600);
  std::vector<FindEntry> found;
  ASSERT_EQ(Search(Win("*"), found), err::kSuccess);
  int reparse = 0;
  for (const FindEntry& entry : found) {
    if (entry.name == L"linked" || entry.name == L"filelink" || entry.name == L"pipe") {
      EXPECT_EQ(entry.attributes, file_attr::kReparsePoint) << entry.name;
      ++reparse;
    }
  }
  EXPECT_EQ(reparse, 3);
  EXPECT_EQ(Search(Win("linked\\*"), found), err::kDirectory);
}

TEST_F(PosixSearchTest, LinuxRootHasNoDotEntries) {
  std::vector<FindEntry> found;
  ASSERT_EQ(Search(L"Z:\\*", found), err::kSuccess);
  for (const FindEntry& entry : found) {
    EXPECT_NE(entry.name, L".");
    EXPECT_NE(entry.name, L"..");
  }
}

TEST_F(PosixSearchTest, ClosedOrUnknownSearchIsInvalidHandle) {
  MakeFile("a");
  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  ASSERT_EQ(files.FindFirstEntry(Win("*"), search, entry), err::kSuccess);
  EXPECT_EQ(files.CloseSearch(search), err::kSuccess);
  EXPECT_EQ(files.CloseSearch(search), err::kInvalidHandle);
  EXPECT_EQ(files.FindNextEntry(search, entry), err::kInvalidHandle);
}

}  // namespace
}  // namespace tw
