#include "config/filters.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/hresult_error.h"
#include "fakes/log_capture.h"

namespace tw {
namespace {

using ::tw::testing::LogCapture;
using Lines = std::vector<std::wstring>;

std::wstring InvalidRegistry(const std::wstring& item) {
  return L"Invalid registry filter found in the configuration file: " + item;
}
std::wstring InvalidFolder(const std::wstring& item) {
  return L"Invalid folder filter found in the configuration file: " + item;
}

class FilterTest : public ::testing::Test {
 protected:
  MigrationSettings settings_;
  LogCapture log_;
};

TEST_F(FilterTest, RunsOfCommasProduceNothing) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L",,Console,,"), 0x1u);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(FilterTest, OnlyCommasGiveZeroAndNoMessage) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L",,,"), 0u);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(FilterTest, SurroundingBlanksAndAnyCaseMatch) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L" console "), 0x1u);
  EXPECT_EQ(ParseRegistryFilter(settings_, L"\t\r\nCONSOLE\v\f"), 0x1u);
  EXPECT_EQ(ParseRegistryFilter(settings_, L"cOnTrOl PaNeL"), 0x2u);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(FilterTest, BlanksInsideANameAreKept) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L"Control  Panel"), 0u);
  EXPECT_EQ(log_.messages(), Lines{InvalidRegistry(L"Control  Panel")});
}

TEST_F(FilterTest, EmptyTextGivesZero) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L""), 0u);
  EXPECT_EQ(ParseFolderFilter(settings_, L""), 0u);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(FilterTest, UnknownKeyIsLoggedTrimmedAndSkipped) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L"Console,Nonsense"), 0x1u);
  EXPECT_EQ(log_.messages(), Lines{InvalidRegistry(L"Nonsense")});
}

TEST_F(FilterTest, KnownRowsWithBlanksAndOneBogus) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L"Software, Console ,Bogus"), 0x20u | 0x1u);
  EXPECT_EQ(log_.messages(), Lines{InvalidRegistry(L"Bogus")});
}

TEST_F(FilterTest, EveryKeyNameGivesItsFlag) {
  EXPECT_EQ(ParseRegistryFilter(settings_,
                                L"Console,Control Panel,Identities,Keyboard Layout,Printers,"
                                L"Software,System,AppEvents,Environment,EUDC,Network"),
            0x7FFu);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(FilterTest, UnknownItemsKeepTheirOrderInTheLog) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L"b , a,Network, c"), 0x400u);
  EXPECT_EQ(log_.messages(),
            (Lines{InvalidRegistry(L"b"), InvalidRegistry(L"a"), InvalidRegistry(L"c")}));
}

TEST_F(FilterTest, BlankItemIsTrimmedToEmptyAndReported) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L"Console, ,EUDC"), 0x1u | 0x200u);
  EXPECT_EQ(log_.messages(), Lines{InvalidRegistry(L"")});
}

TEST_F(FilterTest, CaseFoldsOnlyAsciiLetters) {
  // U+017F (long s) upper-cases to 'S' by the Unicode rule but not by the "C" locale rule.
  EXPECT_EQ(ParseRegistryFilter(settings_, L"\u017Foftware"), 0u);
  EXPECT_EQ(log_.messages(), Lines{InvalidRegistry(L"\u017Foftware")});
}

TEST_F(FilterTest, PercentInAnItemIsLoggedVerbatim) {
  EXPECT_EQ(ParseRegistryFilter(settings_, L"%s%n%%"), 0u);
  EXPECT_EQ(log_.messages(), Lines{InvalidRegistry(L"%s%n%%")});
}

TEST_F(FilterTest, FolderNamesNeverMatchWhileLocationsAreEmpty) {
  EXPECT_EQ(ParseFolderFilter(settings_, L"Desktop"), 0u);
  EXPECT_EQ(log_.messages(), Lines{InvalidFolder(L"Desktop")});
}

TEST_F(FilterTest, EveryFolderNameIsReportedInvalid) {
  EXPECT_EQ(ParseFolderFilter(settings_, L"AppData, Local AppData,Templates"), 0u);
  EXPECT_EQ(log_.messages(), (Lines{InvalidFolder(L"AppData"), InvalidFolder(L"Local AppData"),
                                    InvalidFolder(L"Templates")}));
}

TEST_F(FilterTest, BlankFolderItemMatchesTheFirstRowsEmptyLocation) {
  // " " trims to "", which equals the empty source location of "AppData".
  EXPECT_EQ(ParseFolderFilter(settings_, L"Desktop, ,Cache"), 0x1u);
  EXPECT_EQ(log_.messages(), (Lines{InvalidFolder(L"Desktop"), InvalidFolder(L"Cache")}));
}

TEST_F(FilterTest, FolderFilterComparesWithSourceLocationNotName) {
  const SpecialFolderRow table[] = {
      {0x1u, L"AppData", L"C:\\p\\Application Data", {}},
      {0x8u, L"Desktop", L"C:\\p\\Desktop", L"C:\\q\\Desktop"},
      {0u, L"", {}, {}},
  };
  EXPECT_EQ(ParseFolderFilterOver(table, L"c:\\P\\DESKTOP ,Desktop, C:\\q\\Desktop"), 0x8u);
  EXPECT_EQ(log_.messages(), (Lines{InvalidFolder(L"Desktop"), InvalidFolder(L"C:\\q\\Desktop")}));
}

TEST_F(FilterTest, FirstMatchingRowWins) {
  const RegistryKeyRow table[] = {{0x1u, L"Twice"}, {0x2u, L"twice"}, {0u, L""}};
  EXPECT_EQ(ParseRegistryFilterOver(table, L"TWICE"), 0x1u);
}

TEST_F(FilterTest, WalkStopsAtTheTerminatingRow) {
  const RegistryKeyRow table[] = {{0x1u, L"One"}, {0u, L""}, {0x4u, L"Hidden"}};
  EXPECT_EQ(ParseRegistryFilterOver(table, L"Hidden"), 0u);
  EXPECT_EQ(log_.messages(), Lines{InvalidRegistry(L"Hidden")});
}

TEST_F(FilterTest, FolderRowWithoutNameRaisesFail) {
  const SpecialFolderRow table[] = {{0x1u, L"", {}, {}}, {0u, L"", {}, {}}};
  try {
    ParseFolderFilterOver(table, L"Desktop");
    FAIL() << "no exception";
  } catch (const HResultError& error) {
    EXPECT_EQ(error.code(), hr::kFail);
  }
}

TEST_F(FilterTest, IncludeThenExcludeAsTheLoaderAppliesThem) {
  std::uint32_t mask = ParseRegistryFilter(settings_, L"Console,Software");
  mask &= ~ParseRegistryFilter(settings_, L"Software");
  EXPECT_EQ(mask, 0x1u);
  // Exclude without include clears bits from the default.
  EXPECT_EQ(0x7FFFFFFFu & ~ParseRegistryFilter(settings_, L"Console"), 0x7FFFFFFEu);
  // An excluded folder name changes nothing.
  EXPECT_EQ(0x7FFFFFFFu & ~ParseFolderFilter(settings_, L"Desktop"), 0x7FFFFFFFu);
}

}  // namespace
}  // namespace tw
