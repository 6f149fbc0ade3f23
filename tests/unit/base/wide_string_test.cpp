#include "base/wide_string.h"

#include <gtest/gtest.h>

#include <string>

namespace tw {
namespace {

// The Windows case rule

TEST(ToUpperWindows, MapsAsciiAndLatin1) {
  EXPECT_EQ(ToUpperWindows(L'a'), L'A');
  EXPECT_EQ(ToUpperWindows(L'z'), L'Z');
  EXPECT_EQ(ToUpperWindows(L'\u00E9'), L'\u00C9');
  EXPECT_EQ(ToUpperWindows(L'\u00FF'), L'\u0178');
  EXPECT_EQ(ToUpperWindows(L'A'), L'A');
  EXPECT_EQ(ToUpperWindows(L'1'), L'1');
  EXPECT_EQ(ToUpperWindows(L'\u00F7'), L'\u00F7');  // division sign has no case
}

TEST(ToUpperWindows, AsciiMapsLetterForLetterAndLeavesTheRest) {
  for (wchar_t c = 0; c < 0x80; ++c) {
    const bool lower = c >= L'a' && c <= L'z';
    const bool upper = c >= L'A' && c <= L'Z';
    EXPECT_EQ(ToUpperWindows(c), lower ? static_cast<wchar_t>(c - 0x20) : c) << int(c);
    EXPECT_EQ(ToLowerWindows(c), upper ? static_cast<wchar_t>(c + 0x20) : c) << int(c);
  }
}

TEST(ToUpperWindows, MapsOtherScriptsOfTheBasicPlane) {
  EXPECT_EQ(ToUpperWindows(L'\u0101'), L'\u0100');  // Latin Extended-A, every other character
  EXPECT_EQ(ToUpperWindows(L'\u0100'), L'\u0100');
  EXPECT_EQ(ToUpperWindows(L'\u03B1'), L'\u0391');  // Greek
  EXPECT_EQ(ToUpperWindows(L'\u0436'), L'\u0416');  // Cyrillic
  EXPECT_EQ(ToUpperWindows(L'\uFF41'), L'\uFF21');  // fullwidth
}

TEST(ToUpperWindows, CharactersWithoutOneToOneMappingStay) {
  EXPECT_EQ(ToUpperWindows(L'\u00DF'), L'\u00DF');  // sharp s
  EXPECT_EQ(ToUpperWindows(L'\u0149'), L'\u0149');
}

TEST(ToUpperWindows, NonAsciiNeverBecomesAscii) {
  EXPECT_EQ(ToUpperWindows(L'\u0131'), L'\u0131');  // dotless i
  EXPECT_EQ(ToUpperWindows(L'\u017F'), L'\u017F');  // long s
}

TEST(ToLowerWindows, MapsLettersAndKeepsOthers) {
  EXPECT_EQ(ToLowerWindows(L'A'), L'a');
  EXPECT_EQ(ToLowerWindows(L'\u00C9'), L'\u00E9');
  EXPECT_EQ(ToLowerWindows(L'\u0416'), L'\u0436');
  EXPECT_EQ(ToLowerWindows(L'a'), L'a');
  EXPECT_EQ(ToLowerWindows(L'\u212A'), L'\u212A');  // Kelvin sign does not become "k"
  EXPECT_EQ(ToLowerWindows(L'\u0130'), L'\u0130');  // dotted capital I does not become "i"
}

TEST(ToUpperWindows, CharactersAboveTheBasicPlaneStay) {
  if constexpr (sizeof(wchar_t) == 4) {
    const auto deseretSmall = static_cast<wchar_t>(0x10428);
    EXPECT_EQ(ToUpperWindows(deseretSmall), deseretSmall);
  }
}

TEST(ToUpperWindows, EveryUpperCaseLowersBackForCasedLatinLetters) {
  for (wchar_t c = L'\u00E0'; c <= L'\u017E'; ++c) {
    const wchar_t upper = ToUpperWindows(c);
    if (upper != c) {
      EXPECT_EQ(ToLowerWindows(upper), c) << static_cast<int>(c);
    }
  }
}

TEST(CompareNoCase, EqualIgnoringCase) {
  EXPECT_EQ(CompareNoCase(L"NTUSER.DAT", L"ntuser.dat"), 0);
  EXPECT_EQ(CompareNoCase(L"\u00C4rger", L"\u00E4RGER"), 0);
  EXPECT_EQ(CompareNoCase(L"", L""), 0);
}

TEST(CompareNoCase, OrdersByUpperCaseForm) {
  EXPECT_LT(CompareNoCase(L"a", L"B"), 0);
  EXPECT_GT(CompareNoCase(L"b", L"A"), 0);
  // "_" (0x5F) sorts after the upper-case letters.
  EXPECT_GT(CompareNoCase(L"_", L"a"), 0);
}

TEST(CompareNoCase, ShorterPrefixSortsFirst) {
  EXPECT_LT(CompareNoCase(L"abc", L"ABCD"), 0);
  EXPECT_GT(CompareNoCase(L"abcd", L"ABC"), 0);
}

TEST(EqualsNoCase, DifferentLengthsAreUnequal) {
  EXPECT_TRUE(EqualsNoCase(L"True", L"TRUE"));
  EXPECT_FALSE(EqualsNoCase(L"True", L"TRUE "));
  EXPECT_FALSE(EqualsNoCase(L"\u0131", L"I"));
}

TEST(EndsWithNoCase, MatchesSuffix) {
  EXPECT_TRUE(EndsWithNoCase(L"anna.v2", L".V2"));
  EXPECT_TRUE(EndsWithNoCase(L"\\\\srv\\p\\*.v5", L"*.V5"));
  EXPECT_TRUE(EndsWithNoCase(L"abc", L""));
  EXPECT_FALSE(EndsWithNoCase(L"anna.v3", L".V2"));
  EXPECT_FALSE(EndsWithNoCase(L"v2", L".V2"));
}

TEST(StartsWithNoCase, MatchesPrefix) {
  EXPECT_TRUE(StartsWithNoCase(L"/TakeOwnership", L"/takeownership"));
  EXPECT_FALSE(StartsWithNoCase(L"/t", L"/takeownership"));
}

TEST(StartsWith, IsCaseSensitive) {
  EXPECT_TRUE(StartsWith(L"/s:c:\\x", L"/s:"));
  EXPECT_FALSE(StartsWith(L"/S:c:\\x", L"/s:"));
  EXPECT_TRUE(StartsWith(L"abc", L""));
  EXPECT_FALSE(StartsWith(L"ab", L"abc"));
}

TEST(EndsWith, IsCaseSensitive) {
  EXPECT_TRUE(EndsWith(L"x.V2", L".V2"));
  EXPECT_FALSE(EndsWith(L"x.v2", L".V2"));
}

// The C runtime's rule in the "C" locale

TEST(CrtCase, OnlyAsciiLettersChange) {
  EXPECT_EQ(ToUpperCrt(L'a'), L'A');
  EXPECT_EQ(ToUpperCrt(L'\u00E9'), L'\u00E9');
  EXPECT_EQ(ToLowerCrt(L'Z'), L'z');
  EXPECT_EQ(ToLowerCrt(L'\u00C9'), L'\u00C9');
  EXPECT_EQ(ToLowerCrt(L'['), L'[');
  EXPECT_EQ(ToUpperCrt(L'{'), L'{');
}

TEST(LowerCaseCrt, LowersArgumentLikeWcslwr) {
  std::wstring text = L"/S:\\\\SRV\\Profiles\\\u00C4RGER";
  LowerCaseCrt(text);
  EXPECT_EQ(text, L"/s:\\\\srv\\profiles\\\u00C4rger");
}

TEST(UpperCaseCrt, UppersArgumentLikeWcsupr) {
  std::wstring text = L"/v2tov6\u00e9";
  UpperCaseCrt(text);
  EXPECT_EQ(text, L"/V2TOV6\u00e9");
}

TEST(CompareNoCaseCrt, ComparesLowerCaseForms) {
  EXPECT_EQ(CompareNoCaseCrt(L"Desktop", L"DESKTOP"), 0);
  EXPECT_NE(CompareNoCaseCrt(L"\u00C4", L"\u00E4"), 0);
  // Lower-case forms: "_" (0x5F) sorts before "a" (0x61), unlike in CompareNoCase.
  EXPECT_LT(CompareNoCaseCrt(L"_", L"A"), 0);
  EXPECT_LT(CompareNoCaseCrt(L"ab", L"ABC"), 0);
}

// White space

TEST(IsSpaceWindows, KnowsAsciiAndUnicodeSpaces) {
  for (const wchar_t c : std::wstring(L" \t\n\v\f\r\u0085\u00A0\u2000\u200A\u3000\u2028")) {
    EXPECT_TRUE(IsSpaceWindows(c)) << static_cast<int>(c);
  }
  for (const wchar_t c : std::wstring(L"a_\u200B\u001F")) {
    EXPECT_FALSE(IsSpaceWindows(c)) << static_cast<int>(c);
  }
}

TEST(TrimWhitespace, RemovesBothEnds) {
  EXPECT_EQ(TrimWhitespace(L" \t Desktop \r\n"), L"Desktop");
  EXPECT_EQ(TrimWhitespace(L"My Documents"), L"My Documents");
  EXPECT_EQ(TrimWhitespace(L"\u00A0x\u3000"), L"x");
}

TEST(TrimWhitespace, AllSpaceGivesEmpty) {
  EXPECT_EQ(TrimWhitespace(L" \t\n "), L"");
  EXPECT_EQ(TrimWhitespace(L""), L"");
}

}  // namespace
}  // namespace tw
