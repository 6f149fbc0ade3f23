#include "run/source_profile_enum.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/fake_file_system.h"

namespace tw {
namespace {

using ::testing::ElementsAre;
using testing::FileOp;
using ::testing::IsEmpty;

class SourceProfileEnumTest : public ::testing::Test {
 protected:
  void AddProfile(const std::wstring& folder) {
    files_.AddFolder(folder);
    files_.SetFile(folder + L"\\ntuser.dat", "regf");
  }

  // Every profile the enumerator yields for source and suffix, first then next.
  std::vector<std::wstring> Enumerate(const std::wstring& source, const wchar_t* suffix) {
    CSourceProfileEnum profiles(files_, source);
    std::vector<std::wstring> found;
    std::wstring path = L"left over";
    if (!profiles.FindFirstProfile(path, suffix)) {
      EXPECT_THAT(path, IsEmpty());
      return found;
    }
    found.push_back(path);
    while (profiles.FindNextProfile(path)) found.push_back(path);
    EXPECT_THAT(path, IsEmpty());
    return found;
  }

  testing::FakeFileSystem files_;
};

TEST_F(SourceProfileEnumTest, SingleProfileFolderYieldsItOnce) {
  AddProfile(L"D:\\Profiles\\alice");
  EXPECT_THAT(Enumerate(L"d:\\profiles\\alice", nullptr), ElementsAre(L"d:\\profiles\\alice"));
  EXPECT_EQ(files_.Calls(FileOp::kFindFirst), 0);
}

TEST_F(SourceProfileEnumTest, FolderWithoutHiveAndWithoutWildcardYieldsNothing) {
  files_.AddFolder(L"D:\\Profiles\\alice");
  AddProfile(L"D:\\Profiles\\alice\\inner");
  EXPECT_THAT(Enumerate(L"d:\\profiles\\alice", nullptr), IsEmpty());
  EXPECT_EQ(files_.Calls(FileOp::kFindFirst), 0);
}

TEST_F(SourceProfileEnumTest, V2WildcardSkipsV2FoldersByTheirExtension) {
  AddProfile(L"\\\\srv\\profiles\\bob.V2");
  AddProfile(L"\\\\srv\\profiles\\carol.v2");
  EXPECT_THAT(Enumerate(L"\\\\srv\\profiles\\*.v2", L"V2"), IsEmpty());
  EXPECT_EQ(files_.Calls(FileOp::kFindFirst), 1);
  EXPECT_EQ(files_.OpenSearches(), 0);
}

TEST_F(SourceProfileEnumTest, ParentThatIsAProfileIsReturnedAloneInWildcardMode) {
  AddProfile(L"\\\\srv\\profiles");
  AddProfile(L"\\\\srv\\profiles\\bob.V2");
  AddProfile(L"\\\\srv\\profiles\\dave.V5");
  EXPECT_THAT(Enumerate(L"\\\\srv\\profiles\\*.v2", L"V2"), ElementsAre(L"\\\\srv\\profiles"));
  EXPECT_THAT(Enumerate(L"\\\\srv\\profiles\\*.V5", L"V5"), ElementsAre(L"\\\\srv\\profiles"));
  EXPECT_EQ(files_.Calls(FileOp::kFindFirst), 0);
}

TEST_F(SourceProfileEnumTest, V5WildcardYieldsV5ProfilesInSearchOrder) {
  AddProfile(L"\\\\srv\\profiles\\zed.V5");
  AddProfile(L"\\\\srv\\profiles\\alice.V5");
  files_.AddFolder(L"\\\\srv\\profiles\\carol.V5");  // no ntuser.dat
  AddProfile(L"\\\\srv\\profiles\\bob.V5");
  AddProfile(L"\\\\srv\\profiles\\erin.V2");
  const std::vector<std::wstring> order = files_.ChildNames(L"\\\\srv\\profiles");
  std::vector<std::wstring> expected;
  for (const std::wstring& name : order) {
    if (name != L"carol.V5" && name != L"erin.V2")
      expected.push_back(L"\\\\srv\\profiles\\" + name);
  }
  ASSERT_EQ(expected.size(), 3u);
  EXPECT_EQ(Enumerate(L"\\\\srv\\profiles\\*.v5", L"V5"), expected);
}

TEST_F(SourceProfileEnumTest, ReparsePointsAndPlainFilesAreSkipped) {
  // A junction that would hold a hive, and a file named like a profile.
  files_.AddFolder(L"\\\\srv\\p\\junction.V5", file_attr::kDirectory | file_attr::kReparsePoint);
  files_.SetFile(L"\\\\srv\\p\\junction.V5\\ntuser.dat", "regf");
  files_.AddReparsePoint(L"\\\\srv\\p\\link.V5", true);
  files_.SetFile(L"\\\\srv\\p\\file.V5", "not a folder");
  AddProfile(L"\\\\srv\\p\\real.V5");
  EXPECT_THAT(Enumerate(L"\\\\srv\\p\\*.v5", L"V5"), ElementsAre(L"\\\\srv\\p\\real.V5"));
}

TEST_F(SourceProfileEnumTest, AliceV2IsNeverReturnedByAWildcardSearch) {
  AddProfile(L"\\\\srv\\p\\alice.V2");
  AddProfile(L"\\\\srv\\p\\ALICE.v2.V2");
  for (const wchar_t* suffix : {L"V2", L"V5"}) {
    for (const std::wstring& path : Enumerate(std::wstring(L"\\\\srv\\p\\*.") + suffix, suffix)) {
      EXPECT_EQ(path.find(L"alice"), std::wstring::npos) << path;
    }
  }
  EXPECT_THAT(Enumerate(L"\\\\srv\\p\\*.v2", L"V2"), IsEmpty());
}

TEST_F(SourceProfileEnumTest, StarAfterAFolderIsOneFolderInTheDefaultMode) {
  AddProfile(L"D:\\Profiles\\alice");
  AddProfile(L"D:\\Profiles\\bob");
  EXPECT_THAT(Enumerate(L"d:\\profiles\\*", nullptr), IsEmpty());
  EXPECT_EQ(files_.Calls(FileOp::kFindFirst), 0);
  EXPECT_EQ(files_.Calls(FileOp::kPathExists), 1);  // only "d:\profiles\*\ntuser.dat"
}

TEST_F(SourceProfileEnumTest, OnlyTheBareStarIsAWildcardWithoutSuffix) {
  CSourceProfileEnum profiles(files_, L"*");
  std::wstring path;
  profiles.FindFirstProfile(path, nullptr);
  EXPECT_EQ(files_.Calls(FileOp::kFindFirst), 1);

  for (const wchar_t* source : {L"\\*", L"x*", L"*.*", L"C:*"}) {
    testing::FakeFileSystem files;
    CSourceProfileEnum other(files, source);
    EXPECT_FALSE(other.FindFirstProfile(path, nullptr)) << source;
    EXPECT_EQ(files.Calls(FileOp::kFindFirst), 0) << source;
  }
}

TEST_F(SourceProfileEnumTest, SuffixWildcardIsRecognisedInAnyCase) {
  AddProfile(L"\\\\srv\\p\\alice.V5");
  EXPECT_THAT(Enumerate(L"\\\\srv\\p\\*.V5", L"V5"), ElementsAre(L"\\\\srv\\p\\alice.V5"));
  EXPECT_THAT(Enumerate(L"\\\\srv\\p\\*.v5", L"v5"), ElementsAre(L"\\\\srv\\p\\alice.V5"));
  // A suffix pattern is not a wildcard without its suffix, and the other suffix does not match.
  EXPECT_THAT(Enumerate(L"\\\\srv\\p\\*.v5", nullptr), IsEmpty());
  EXPECT_THAT(Enumerate(L"\\\\srv\\p\\*.v5", L"V2"), IsEmpty());
}

TEST_F(SourceProfileEnumTest, FailingSearchYieldsNothing) {
  AddProfile(L"\\\\srv\\p\\alice.V5");
  files_.FailOperation(FileOp::kFindFirst, err::kAccessDenied);
  EXPECT_THAT(Enumerate(L"\\\\srv\\p\\*.v5", L"V5"), IsEmpty());
  EXPECT_THAT(Enumerate(L"\\\\nowhere\\p\\*.v5", L"V5"), IsEmpty());
}

TEST_F(SourceProfileEnumTest, NextWithoutASearchIsFalseAndEmpty) {
  AddProfile(L"D:\\Profiles\\alice");
  CSourceProfileEnum profiles(files_, L"d:\\profiles\\alice");
  std::wstring path = L"left over";
  EXPECT_FALSE(profiles.FindNextProfile(path));
  EXPECT_THAT(path, IsEmpty());
  EXPECT_TRUE(profiles.FindFirstProfile(path, nullptr));
  EXPECT_FALSE(profiles.FindNextProfile(path));
  EXPECT_THAT(path, IsEmpty());
}

TEST_F(SourceProfileEnumTest, SearchIsClosedWhenDoneAndByTheDestructor) {
  AddProfile(L"\\\\srv\\p\\alice.V5");
  AddProfile(L"\\\\srv\\p\\bob.V5");
  {
    CSourceProfileEnum profiles(files_, L"\\\\srv\\p\\*.v5");
    std::wstring path;
    ASSERT_TRUE(profiles.FindFirstProfile(path, L"V5"));
    EXPECT_EQ(files_.OpenSearches(), 1);
  }
  EXPECT_EQ(files_.OpenSearches(), 0);

  CSourceProfileEnum profiles(files_, L"\\\\srv\\p\\*.v5");
  std::wstring path;
  ASSERT_TRUE(profiles.FindFirstProfile(path, L"V5"));
  ASSERT_TRUE(profiles.FindNextProfile(path));
  EXPECT_FALSE(profiles.FindNextProfile(path));
  EXPECT_EQ(files_.OpenSearches(), 0);
  EXPECT_EQ(files_.Calls(FileOp::kCloseSearch), 2);
  EXPECT_FALSE(profiles.FindNextProfile(path));  // nothing left to close
  EXPECT_EQ(files_.Calls(FileOp::kCloseSearch), 2);
}

TEST_F(SourceProfileEnumTest, FindFirstAgainRestartsTheSearch) {
  AddProfile(L"\\\\srv\\p\\alice.V5");
  AddProfile(L"\\\\srv\\p\\bob.V5");
  CSourceProfileEnum profiles(files_, L"\\\\srv\\p\\*.v5");
  std::wstring first;
  std::wstring again;
  ASSERT_TRUE(profiles.FindFirstProfile(first, L"V5"));
  ASSERT_TRUE(profiles.FindFirstProfile(again, L"V5"));
  EXPECT_EQ(first, again);
  EXPECT_EQ(files_.OpenSearches(), 1);
}

}  // namespace
}  // namespace tw
