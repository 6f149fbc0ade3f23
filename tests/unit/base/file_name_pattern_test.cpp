// Search-pattern matching with the Windows rules, and cutting a pattern path.
#include "base/file_name_pattern.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

TEST(MatchesSearchPattern, StarMatchesEveryNameIncludingDots) {
  EXPECT_TRUE(MatchesSearchPattern(L"*", L"alice"));
  EXPECT_TRUE(MatchesSearchPattern(L"*", L"."));
  EXPECT_TRUE(MatchesSearchPattern(L"*", L".."));
  EXPECT_TRUE(MatchesSearchPattern(L"*", L"bob.V2"));
}

TEST(MatchesSearchPattern, StarDotStarMatchesNamesWithoutDotsToo) {
  EXPECT_TRUE(MatchesSearchPattern(L"*.*", L"alice"));
  EXPECT_TRUE(MatchesSearchPattern(L"*.*", L"a.b.c"));
  EXPECT_TRUE(MatchesSearchPattern(L"*.*", L"."));
}

TEST(MatchesSearchPattern, SuffixPatternIgnoresCase) {
  EXPECT_TRUE(MatchesSearchPattern(L"*.V2", L"bob.V2"));
  EXPECT_TRUE(MatchesSearchPattern(L"*.v2", L"bob.V2"));
  EXPECT_TRUE(MatchesSearchPattern(L"*.V2", L"carol.v2"));
  EXPECT_TRUE(MatchesSearchPattern(L"*.V2", L"d.e.V2"));
  EXPECT_FALSE(MatchesSearchPattern(L"*.V2", L"bob.V5"));
  EXPECT_FALSE(MatchesSearchPattern(L"*.V2", L"bob.V2.old"));
  EXPECT_FALSE(MatchesSearchPattern(L"*.V2", L"bobV2"));
  EXPECT_FALSE(MatchesSearchPattern(L"*.V2", L"."));
}

TEST(MatchesSearchPattern, QuestionMarkMatchesOneCharacterButNoneAtADot) {
  EXPECT_TRUE(MatchesSearchPattern(L"?", L"a"));
  EXPECT_FALSE(MatchesSearchPattern(L"?", L"ab"));
  EXPECT_FALSE(MatchesSearchPattern(L"?", L"."));
  EXPECT_FALSE(MatchesSearchPattern(L"?", L".."));
  EXPECT_TRUE(MatchesSearchPattern(L"a?c", L"ABC"));
  EXPECT_FALSE(MatchesSearchPattern(L"a?c", L"ac"));
  // Trailing question marks may match nothing at the end or before a dot.
  EXPECT_TRUE(MatchesSearchPattern(L"ab??", L"ab"));
  EXPECT_TRUE(MatchesSearchPattern(L"ab??.txt", L"ab.txt"));
  EXPECT_TRUE(MatchesSearchPattern(L"ab??.txt", L"abcd.txt"));
  EXPECT_FALSE(MatchesSearchPattern(L"ab??.txt", L"abcde.txt"));
}

TEST(MatchesSearchPattern, StarDotMatchesNamesWithoutExtension) {
  EXPECT_TRUE(MatchesSearchPattern(L"*.", L"readme"));
  EXPECT_FALSE(MatchesSearchPattern(L"*.", L"readme.txt"));
}

TEST(MatchesSearchPattern, NameWithoutWildcardsComparesIgnoringCase) {
  EXPECT_TRUE(MatchesSearchPattern(L"NTUSER.DAT", L"ntuser.dat"));
  EXPECT_FALSE(MatchesSearchPattern(L"ntuser.dat", L"ntuser.dat.log"));
}

TEST(SplitSearchPattern, KeepsRootSeparators) {
  EXPECT_EQ(SplitSearchPattern(L"C:\\*").folder, L"C:\\");
  EXPECT_EQ(SplitSearchPattern(L"C:\\*").name, L"*");
  EXPECT_EQ(SplitSearchPattern(L"\\\\srv\\share\\*.V2").folder, L"\\\\srv\\share");
  EXPECT_EQ(SplitSearchPattern(L"\\\\srv\\share\\*.V2").name, L"*.V2");
  EXPECT_EQ(SplitSearchPattern(L"\\*").folder, L"\\");
  EXPECT_EQ(SplitSearchPattern(L"C:x*").folder, L"C:");
  EXPECT_EQ(SplitSearchPattern(L"C:x*").name, L"x*");
  EXPECT_EQ(SplitSearchPattern(L"*").folder, L"");
  EXPECT_EQ(SplitSearchPattern(L"Z:/tmp/a/*").folder, L"Z:/tmp/a");
  EXPECT_EQ(SplitSearchPattern(L"C:\\dir\\").name, L"");
}

}  // namespace
}  // namespace tw
