#include "hive/name_compare.h"

#include <gtest/gtest.h>

#include <string>

#include "hive/regf_layout.h"

namespace tw::hive {
namespace {

TEST(CompareNames, IgnoresCaseByTheWindowsRule) {
  EXPECT_EQ(CompareNames(L"Software", L"SOFTWARE"), 0);
  EXPECT_EQ(CompareNames(L"\u00e4bc", L"\u00c4BC"), 0);          // Latin-1
  EXPECT_EQ(CompareNames(L"\u03c3\u0434", L"\u03a3\u0414"), 0);  // Greek, Cyrillic
  EXPECT_TRUE(NamesEqual(L"\u0101", L"\u0100"));                 // Latin Extended-A
  EXPECT_FALSE(NamesEqual(L"abc", L"abcd"));
}

TEST(CompareNames, OrdersByUpperCaseCodeUnits) {
  // Upper-cased, "_" (5F) sorts after the letters (41-5A): the order Windows keeps on disk.
  EXPECT_LT(CompareNames(L"zeta", L"_first"), 0);
  EXPECT_GT(CompareNames(L"_first", L"ZETA"), 0);
  EXPECT_LT(CompareNames(L"ab", L"abc"), 0);  // a prefix first
  EXPECT_GT(CompareNames(L"b", L"ABC"), 0);
}

TEST(CompareNames, CharactersBeyondTheBmpSortAsTheirSurrogates) {
  // U+1F600 is D83D DE00 in UTF-16 and so sorts before U+FF21 (full-width A) on disk.
  const std::wstring emoji = sizeof(wchar_t) == 2 ? std::wstring(L"\xD83D\xDE00")
                                                  : std::wstring(1, static_cast<wchar_t>(0x1F600));
  EXPECT_LT(CompareNames(L"x" + emoji, L"x\uFF21"), 0);
  EXPECT_GT(CompareNames(L"x\uFF21", L"x" + emoji), 0);
  EXPECT_GT(CompareNames(L"x" + emoji, L"x\u1000"), 0);
  EXPECT_EQ(CompareNames(L"a" + emoji, L"A" + emoji), 0);
}

TEST(NameHashOf, HashesTheUpperCasedUtf16Units) {
  const std::uint32_t abc = (65u * 37u + 66u) * 37u + 67u;
  EXPECT_EQ(NameHashOf(L"abc"), abc);
  EXPECT_EQ(NameHashOf(L"ABC"), abc);
  EXPECT_EQ(NameHashOf(L"\u00e4"), 0xC4u);
  EXPECT_EQ(NameHashOf(L"\u0434"), 0x414u);
  const std::wstring emoji = sizeof(wchar_t) == 2 ? std::wstring(L"\xD83D\xDE00")
                                                  : std::wstring(1, static_cast<wchar_t>(0x1F600));
  EXPECT_EQ(NameHashOf(emoji), 0xD83Du * 37u + 0xDE00u);
}

}  // namespace
}  // namespace tw::hive
