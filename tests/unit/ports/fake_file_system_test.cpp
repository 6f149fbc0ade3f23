// The in-memory file system used by the core's tests behaves as the Windows calls do.
#include "fakes/fake_file_system.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tw::testing {
namespace {

std::vector<std::wstring> SearchNames(FileSystem& files, std::wstring_view pattern,
                                      err::Win32Error& error) {
  std::vector<std::wstring> names;
  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  error = files.FindFirstEntry(pattern, search, entry);
  if (error != err::kSuccess) return names;
  UniqueSearchHandle owner(files, search);
  do {
    names.push_back(entry.name);
  } while (files.FindNextEntry(search, entry) == err::kSuccess);
  return names;
}

TEST(FakeFileSystemSearch, ListsDotEntriesThenChildrenInTheirOwnCase) {
  FakeFileSystem files;
  files.AddFolder(L"\\\\srv\\Profiles\\Alice");
  files.AddFolder(L"\\\\srv\\Profiles\\bob.V2");
  files.SetFile(L"\\\\srv\\Profiles\\readme.txt", "r");
  files.SetFile(L"\\\\srv\\Profiles\\Alice\\NTUSER.DAT", "hive");
  err::Win32Error error = err::kGenFailure;
  EXPECT_EQ(SearchNames(files, L"\\\\SRV\\profiles\\*", error),
            (std::vector<std::wstring>{L".", L"..", L"Alice", L"bob.V2", L"readme.txt"}));
  EXPECT_EQ(error, err::kSuccess);
  EXPECT_EQ(SearchNames(files, L"\\\\srv\\profiles\\*.v2", error),
            (std::vector<std::wstring>{L"bob.V2"}));
  EXPECT_EQ(files.OpenSearches(), 0);
}

TEST(FakeFileSystemSearch, ReportsAttributesSizeAndReparsePoints) {
  FakeFileSystem files;
  files.AddFolder(L"C:\\p");
  files.SetFile(L"C:\\p\\f", "abc", file_attr::kHidden | file_attr::kSystem);
  files.AddReparsePoint(L"C:\\p\\junction", true);
  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  ASSERT_EQ(files.FindFirstEntry(L"C:\\p\\f", search, entry), err::kSuccess);
  EXPECT_EQ(entry.attributes, file_attr::kHidden | file_attr::kSystem);
  EXPECT_EQ(entry.size, 3u);
  EXPECT_EQ(files.CloseSearch(search), err::kSuccess);
  ASSERT_EQ(files.FindFirstEntry(L"C:\\p\\JUNCTION", search, entry), err::kSuccess);
  EXPECT_EQ(entry.name, L"junction");
  EXPECT_EQ(entry.attributes, file_attr::kReparsePoint | file_attr::kDirectory);
  EXPECT_EQ(files.FindNextEntry(search, entry), err::kNoMoreFiles);
  EXPECT_EQ(files.CloseSearch(search), err::kSuccess);
  EXPECT_EQ(files.CloseSearch(search), err::kInvalidHandle);
}

TEST(FakeFileSystemSearch, ErrorsAsWindowsGivesThem) {
  FakeFileSystem files;
  files.AddFolder(L"C:\\p");
  files.SetFile(L"C:\\p\\f", "");
  err::Win32Error error = err::kSuccess;
  SearchNames(files, L"C:\\p\\*.V2", error);
  EXPECT_EQ(error, err::kFileNotFound);
  SearchNames(files, L"C:\\q\\*", error);
  EXPECT_EQ(error, err::kPathNotFound);
  SearchNames(files, L"C:\\p\\f\\*", error);
  EXPECT_EQ(error, err::kDirectory);
  // A drive root has no "." and "..".
  EXPECT_EQ(SearchNames(files, L"C:\\*", error), (std::vector<std::wstring>{L"p", L"Tools"}));
}

TEST(FakeFileSystemSearch, FailureSwitchesPerOperationAndPerPath) {
  FakeFileSystem files;
  files.AddFolder(L"C:\\p\\locked\\inner");
  files.AddFolder(L"C:\\p\\open");
  files.FailPath(FileOp::kFindFirst, L"C:\\p\\locked", err::kAccessDenied);
  err::Win32Error error = err::kSuccess;
  SearchNames(files, L"C:\\P\\LOCKED\\*", error);
  EXPECT_EQ(error, err::kAccessDenied);
  SearchNames(files, L"C:\\p\\locked\\inner\\*", error);
  EXPECT_EQ(error, err::kAccessDenied);
  SearchNames(files, L"C:\\p\\open\\*", error);
  EXPECT_EQ(error, err::kSuccess);
  SearchNames(files, L"C:\\p\\lockedness\\*", error);
  EXPECT_EQ(error, err::kPathNotFound);  // a sibling with a longer name is not below it
  files.ClearFailures();
  SearchNames(files, L"C:\\p\\locked\\*", error);
  EXPECT_EQ(error, err::kSuccess);
}

TEST(FakeFileSystemSearch, FailureSwitchAfterSomeCalls) {
  FakeFileSystem files;
  files.AddFolder(L"C:\\p");
  files.FailOperation(FileOp::kFindNext, err::kNotEnoughMemory, 1);
  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  ASSERT_EQ(files.FindFirstEntry(L"C:\\p\\*", search, entry), err::kSuccess);
  EXPECT_EQ(files.FindNextEntry(search, entry), err::kSuccess);
  EXPECT_EQ(files.FindNextEntry(search, entry), err::kNotEnoughMemory);
  EXPECT_EQ(files.Calls(FileOp::kFindNext), 2);
  EXPECT_EQ(files.CloseSearch(search), err::kSuccess);
}

}  // namespace
}  // namespace tw::testing
