// FileSystem::ListFolder as every adapter without its own gets it: through the directory search,
// with the dot entries dropped, the attributes cut down to the kind of entry and no times.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/fake_file_system.h"

namespace tw::testing {
namespace {

TEST(FolderListing, TheSearchCutDownToKindsAndSizes) {
  FakeFileSystem files;
  files.AddFolder(L"\\\\srv\\p\\alice\\Documents", file_attr::kDirectory | file_attr::kHidden);
  files.SetFile(L"\\\\srv\\p\\alice\\ntuser.dat", "12345",
                file_attr::kHidden | file_attr::kSystem | file_attr::kArchive);
  files.AddReparsePoint(L"\\\\srv\\p\\alice\\Junction", true);
  files.SetTimes(L"\\\\srv\\p\\alice\\ntuser.dat", FileTimes{1, 2, 3});

  std::vector<FindEntry> entries{FindEntry{L"stale", 0, {}, 0}};
  ASSERT_EQ(files.ListFolder(L"\\\\srv\\p\\alice", entries), err::kSuccess);
  ASSERT_EQ(entries.size(), 3u);
  for (const FindEntry& entry : entries) {
    EXPECT_EQ(entry.times.lastWrite, 0u);
    if (entry.name == L"Documents") {
      EXPECT_EQ(entry.attributes, file_attr::kDirectory);
    } else if (entry.name == L"ntuser.dat") {
      EXPECT_EQ(entry.attributes, file_attr::kNormal);
      EXPECT_EQ(entry.size, 5u);
    } else {
      EXPECT_EQ(entry.name, L"Junction");
      EXPECT_EQ(entry.attributes, file_attr::kReparsePoint);
    }
  }
}

TEST(FolderListing, AnEmptyFolderIsNoEntriesAndAFailedSearchItsError) {
  FakeFileSystem files;
  files.AddFolder(L"\\\\srv\\p\\empty");
  std::vector<FindEntry> entries;
  EXPECT_EQ(files.ListFolder(L"\\\\srv\\p\\empty\\", entries), err::kSuccess);
  EXPECT_TRUE(entries.empty());
  EXPECT_EQ(files.ListFolder(L"\\\\srv\\p\\missing", entries), err::kPathNotFound);
  files.FailPath(FileOp::kFindFirst, L"\\\\srv\\p\\empty", err::kAccessDenied);
  EXPECT_EQ(files.ListFolder(L"\\\\srv\\p\\empty", entries), err::kAccessDenied);
}

}  // namespace
}  // namespace tw::testing
