// Which folder locations lie inside their profile, judged by their text alone.
#include "profile/folder_location.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace tw {
namespace {

constexpr wchar_t kProfile[] = L"\\\\fs\\profiles\\alice";

std::optional<std::wstring> Inside(const std::wstring& location,
                                   const std::wstring& profile = kProfile) {
  return ResolveInsideProfile(location, profile);
}

TEST(ResolveInsideProfile, AFolderBelowTheProfileIsItself) {
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\Desktop"), L"\\\\fs\\profiles\\alice\\Desktop");
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\Local Settings\\Application Data"),
            L"\\\\fs\\profiles\\alice\\Local Settings\\Application Data");
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice"), L"\\\\fs\\profiles\\alice");
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\"), L"\\\\fs\\profiles\\alice");
}

TEST(ResolveInsideProfile, DotsThatStayInsideAreResolved) {
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\.\\Desktop"), L"\\\\fs\\profiles\\alice\\Desktop");
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\Desktop\\..\\Documents"),
            L"\\\\fs\\profiles\\alice\\Documents");
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\a\\b\\..\\..\\c"), L"\\\\fs\\profiles\\alice\\c");
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\Desktop\\.."), L"\\\\fs\\profiles\\alice");
  // Empty names and forward slashes, as Windows reads them.
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\\\Desktop\\"), L"\\\\fs\\profiles\\alice\\Desktop");
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice/My Documents/x"),
            L"\\\\fs\\profiles\\alice\\My Documents\\x");
  // Names that merely hold dots are names.
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\.config\\a..b\\x."),
            L"\\\\fs\\profiles\\alice\\.config\\a..b\\x.");
}

TEST(ResolveInsideProfile, ADotDotThatLeavesTheProfileIsRefused) {
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\..\\bob\\Desktop"), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\.."), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\..\\.."), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\Desktop\\..\\..\\alice\\Desktop"), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice/../bob"), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\Desktop/../../bob"), std::nullopt);
}

TEST(ResolveInsideProfile, NamesOfDotsAndBlanksAreRefused) {
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\..."), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\.. \\bob"), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\. .\\x"), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\ \\x"), std::nullopt);
}

TEST(ResolveInsideProfile, EverythingNotBelowTheProfileIsRefused) {
  EXPECT_EQ(Inside(L"Z:\\srv\\other"), std::nullopt);
  EXPECT_EQ(Inside(L"Z:\\srv\\share\\profiles\\alice\\Desktop"), std::nullopt);
  EXPECT_EQ(Inside(L"C:\\Users\\alice\\Desktop"), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\bob\\Desktop"), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice2\\Desktop"), std::nullopt);
  EXPECT_EQ(Inside(L"\\\\fs\\profiles"), std::nullopt);
  EXPECT_EQ(Inside(L"..\\.."), std::nullopt);
  EXPECT_EQ(Inside(L"Desktop"), std::nullopt);
  EXPECT_EQ(Inside(L"\\Desktop"), std::nullopt);
  EXPECT_EQ(Inside(L""), std::nullopt);
  EXPECT_EQ(Inside(L"x\\\\fs\\profiles\\alice\\Desktop"), std::nullopt);
  // Compared as written: another spelling of the profile is not the profile.
  EXPECT_EQ(Inside(L"\\\\FS\\profiles\\alice\\Desktop"), std::nullopt);
  // No profile: nothing lies inside it.
  EXPECT_EQ(Inside(L"\\Desktop", L""), std::nullopt);
  EXPECT_EQ(Inside(L"\\Desktop", L"\\"), std::nullopt);
}

TEST(ResolveInsideProfile, AProfileWithATrailingBackslash) {
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\\\Desktop", L"\\\\fs\\profiles\\alice\\"),
            L"\\\\fs\\profiles\\alice\\Desktop");
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\alice\\..\\bob", L"\\\\fs\\profiles\\alice\\"),
            std::nullopt);
}

TEST(ResolveInsideProfile, TheResultHasTheCopysCanonicalForm) {
  // Dots in the profile's own text are resolved as the copy resolves them.
  EXPECT_EQ(Inside(L"\\\\fs\\profiles\\x\\..\\alice\\Desktop", L"\\\\fs\\profiles\\x\\..\\alice"),
            L"\\\\fs\\profiles\\alice\\Desktop");
  // A drive profile (the tests' temp folders) works the same.
  EXPECT_EQ(Inside(L"Z:\\tmp\\anna\\Desktop", L"Z:\\tmp\\anna"), L"Z:\\tmp\\anna\\Desktop");
  EXPECT_EQ(Inside(L"Z:\\tmp\\anna\\..\\bob", L"Z:\\tmp\\anna"), std::nullopt);
  // A path too long for that form stays as it is.
  const std::wstring longName(300, L'a');
  EXPECT_EQ(Inside(std::wstring(kProfile) + L"\\" + longName),
            std::wstring(kProfile) + L"\\" + longName);
}

}  // namespace
}  // namespace tw
