// The quick folder listing of the POSIX adapter (FileSystem::ListFolder) on real folders: types
// and sizes from the listing and one lstat, no stored attribute, no link followed.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "fakes/temp_folder.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

class PosixFolderListingTest : public ::testing::Test {
 protected:
  std::wstring Win(const std::string& name) const {
    return posix::ToWindowsPath((temp.path() / name).string());
  }
  std::vector<FindEntry> List(const std::string& name, err::Win32Error expected = err::kSuccess) {
    std::vector<FindEntry> entries{FindEntry{L"stale", 0, {}, 0}};
    EXPECT_EQ(files.ListFolder(Win(name), entries), expected);
    std::sort(entries.begin(), entries.end(),
              [](const FindEntry& a, const FindEntry& b) { return a.name < b.name; });
    return entries;
  }

  testing::TempFolder temp;
  FileSystem& files = ProcessFileSystem();
};

TEST_F(PosixFolderListingTest, TypesAndSizesWithoutDotEntriesOrTimes) {
  temp.WriteFile("p/ntuser.dat", std::string(1234, 'h'));
  temp.WriteFile("p/Documents/a.txt", "a");
  fs::create_directory(temp.path() / "p" / "Empty");
  fs::create_symlink("/etc/passwd", temp.path() / "p" / "file-link");
  fs::create_directory_symlink("/etc", temp.path() / "p" / "folder-link");
  ASSERT_EQ(::mkfifo((temp.path() / "p" / "pipe").c_str(), 0600), 0);

  const std::vector<FindEntry> entries = List("p");
  ASSERT_EQ(entries.size(), 6u);
  const auto expect = [&](std::size_t i, const wchar_t* name, std::uint32_t attributes,
                          std::uint64_t size) {
    EXPECT_EQ(entries[i].name, name);
    EXPECT_EQ(entries[i].attributes, attributes) << entries[i].name;
    EXPECT_EQ(entries[i].size, size) << entries[i].name;
    EXPECT_EQ(entries[i].times.lastWrite, 0u) << entries[i].name;
    EXPECT_EQ(entries[i].times.creation, 0u) << entries[i].name;
  };
  expect(0, L"Documents", file_attr::kDirectory, 0);
  expect(1, L"Empty", file_attr::kDirectory, 0);
  expect(2, L"file-link", file_attr::kReparsePoint, 0);
  expect(3, L"folder-link", file_attr::kReparsePoint, 0);
  expect(4, L"ntuser.dat", file_attr::kNormal, 1234);
  expect(5, L"pipe", file_attr::kReparsePoint, 0);

  EXPECT_TRUE(List("p/Empty").empty());
}

TEST_F(PosixFolderListingTest, StoredAttributesAreNotRead) {
  // Hidden and read-only as the file server stores them: the search reports them, the quick
  // listing does not look.
  const std::wstring file = Win("p/hidden.txt");
  temp.WriteFile("p/hidden.txt", "h");
  ASSERT_EQ(files.SetAttributes(file, file_attr::kHidden | file_attr::kReadOnly), err::kSuccess);
  std::uint32_t stored = 0;
  ASSERT_EQ(files.GetAttributes(file, stored), err::kSuccess);
  ASSERT_NE(stored & file_attr::kHidden, 0u);

  const std::vector<FindEntry> entries = List("p");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].attributes, file_attr::kNormal);
}

TEST_F(PosixFolderListingTest, FailuresAreThoseOfTheSearch) {
  temp.WriteFile("p/file.txt", "f");
  fs::create_directory_symlink(temp.path() / "p", temp.path() / "link");
  EXPECT_TRUE(List("missing", err::kPathNotFound).empty());
  EXPECT_TRUE(List("p/file.txt", err::kDirectory).empty());
  // A folder behind a link is never listed.
  EXPECT_TRUE(List("link", err::kDirectory).empty());
}

TEST_F(PosixFolderListingTest, NamesWindowsCouldNotHoldAreLeftOut) {
  temp.WriteFile("p/plain.txt", "p");
  temp.WriteFile("p/..\\escape.txt", "e");
  temp.WriteFile("p/Z:drive.txt", "d");
  const std::vector<FindEntry> entries = List("p");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].name, L"plain.txt");
}

TEST_F(PosixFolderListingTest, TheFolderIsFoundIgnoringCaseAsEveryPath) {
  temp.WriteFile("Profiles/Anna.V5/ntuser.dat", "n");
  const std::vector<FindEntry> entries = List("profiles/anna.v5");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].name, L"ntuser.dat");
}

}  // namespace
}  // namespace tw
