// The one directory walk of the profile copy, over the fake file system.
#include "profile/for_each_entry.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/fake_file_system.h"

namespace tw {
namespace {

using testing::FakeFileSystem;
using testing::FileOp;

const wchar_t kFolder[] = L"\\\\srv\\profiles\\anna";
const wchar_t kPattern[] = L"\\\\srv\\profiles\\anna\\*";

class ForEachEntryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    files.AddFolder(kFolder);
    files.SetFile(std::wstring(kFolder) + L"\\b.txt", "b");
    files.AddFolder(std::wstring(kFolder) + L"\\Desktop");
    files.AddReparsePoint(std::wstring(kFolder) + L"\\Link", true);
    files.SetFile(std::wstring(kFolder) + L"\\a.txt", "a");
  }

  FakeFileSystem files;
  std::vector<std::wstring> record;
};

TEST_F(ForEachEntryTest, VisitsEveryEntryInSearchOrderButDotsAndReparsePoints) {
  std::vector<std::wstring> expected;
  for (const std::wstring& name : files.ChildNames(kFolder)) {
    if (name != L"Link") expected.push_back(name);
  }
  ASSERT_EQ(expected.size(), 3u);
  const err::Win32Error result = ForEachEntry(files, kPattern, [&](const FindEntry& entry) {
    record.push_back(entry.name);
    return WalkStep::kNext;
  });
  EXPECT_EQ(result, err::kSuccess);
  EXPECT_EQ(record, expected);
  EXPECT_EQ(files.OpenSearches(), 0);
  EXPECT_EQ(files.Calls(FileOp::kCloseSearch), 1);
}

TEST_F(ForEachEntryTest, StartedRunsOnceBeforeTheFirstEntry) {
  int started = 0;
  const err::Win32Error walked = ForEachEntry(
      files, kPattern,
      [&] {
        ++started;
        record.push_back(L"started");
      },
      [&](const FindEntry& entry) {
        record.push_back(entry.name);
        return WalkStep::kNext;
      });
  EXPECT_EQ(walked, err::kSuccess);
  EXPECT_EQ(started, 1);
  ASSERT_EQ(record.size(), 4u);
  EXPECT_EQ(record.front(), L"started");
}

TEST_F(ForEachEntryTest, StopEndsTheWalkAndClosesTheSearch) {
  int nextCallsAtVisit = -1;
  const err::Win32Error result = ForEachEntry(files, kPattern, [&](const FindEntry& entry) {
    record.push_back(entry.name);
    nextCallsAtVisit = files.Calls(FileOp::kFindNext);
    return WalkStep::kStop;
  });
  EXPECT_EQ(result, err::kSuccess);
  ASSERT_EQ(record.size(), 1u);
  EXPECT_NE(record[0], L".");
  EXPECT_NE(record[0], L"..");
  EXPECT_EQ(files.Calls(FileOp::kFindNext), nextCallsAtVisit);  // no search after the stop
  EXPECT_EQ(files.OpenSearches(), 0);
}

TEST_F(ForEachEntryTest, ASearchThatCannotStartIsItsErrorAndCallsNothing) {
  files.FailOperation(FileOp::kFindFirst, err::kAccessDenied);
  bool called = false;
  const err::Win32Error result = ForEachEntry(
      files, kPattern, [&] { called = true; },
      [&](const FindEntry&) {
        called = true;
        return WalkStep::kNext;
      });
  EXPECT_EQ(result, err::kAccessDenied);
  EXPECT_FALSE(called);
  EXPECT_EQ(files.Calls(FileOp::kCloseSearch), 0);
}

TEST_F(ForEachEntryTest, AFailingNextEndsTheWalkQuietly) {
  files.FailOperation(FileOp::kFindNext, err::kAccessDenied, 1);
  const err::Win32Error result = ForEachEntry(files, kPattern, [&](const FindEntry& entry) {
    record.push_back(entry.name);
    return WalkStep::kNext;
  });
  EXPECT_EQ(result, err::kSuccess);
  EXPECT_EQ(files.Calls(FileOp::kFindNext), 2);  // the second one fails
  EXPECT_TRUE(record.empty());                   // the first two entries are "." and ".."
  EXPECT_EQ(files.OpenSearches(), 0);
}

}  // namespace
}  // namespace tw
