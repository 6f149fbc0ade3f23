// Hives from an independent writer (hivex) are read correctly, and hives our writer produces are
// read identically by independent readers (hivex, reglookup, regfexport). Each test skips with a
// message when its tool is not installed.
#include <gtest/gtest.h>

#include "base/win32_error.h"
#include "hive/hive_lint.h"
#include "hive/hive_reader.h"
#include "hive/offreg_api.h"
#include "hive_dump.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

using testing::RunCommand;

const std::string kPython = "/usr/bin/python3";
const std::string kTool = std::string(TARNWICK_TESTDATA_DIR) + "/hives/hive_tool.py";

bool HaveHivex() { return testing::HaveCommand(kPython + " -c 'import hivex'"); }

std::string Quote(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

std::string HivexDump(const std::filesystem::path& hive) {
  int status = 0;
  const std::string out = RunCommand(kPython + " " + kTool + " dump " + Quote(hive), &status);
  EXPECT_EQ(status, 0) << "hivex could not read " << hive;
  return out;
}

std::unique_ptr<Hive> ReadOurs(const std::filesystem::path& path) {
  const auto bytes = testing::ReadBytes(path);
  ReadResult result = ParseHive(bytes);
  EXPECT_EQ(result.error, err::kSuccess) << std::string(result.reason.begin(), result.reason.end());
  return std::move(result.hive);
}

std::filesystem::path SaveThroughEngine(const std::filesystem::path& in,
                                        const std::filesystem::path& out) {
  ORHKEY hive = nullptr;
  EXPECT_EQ(tw_OROpenHive(in.wstring().c_str(), &hive), err::kSuccess);
  EXPECT_EQ(tw_ORSaveHive(hive, out.wstring().c_str(), 10, 0), err::kSuccess);
  EXPECT_EQ(tw_ORCloseHive(hive), err::kSuccess);
  return out;
}

// Key and value lines of `reglookup -s` (its header line left out).
std::size_t ReglookupRows(const std::filesystem::path& hive, int* status) {
  const std::string out = RunCommand("reglookup -s " + Quote(hive) + " 2>/dev/null", status);
  return static_cast<std::size_t>(std::count(out.begin(), out.end(), '\n')) - 1;
}

std::size_t ModelRows(const Key& key) {
  std::size_t rows = 1 + key.values.size();
  for (const auto& child : key.children) rows += ModelRows(*child);
  return rows;
}

class HivexScenario : public ::testing::TestWithParam<const char*> {};

TEST_P(HivexScenario, ReadCorrectlyAndSavedHivesReadIdentically) {
  if (!HaveHivex()) GTEST_SKIP() << "python3-hivex is not installed";
  testing::TempFolder folder;
  const auto input = folder / "input.hiv";
  int status = 0;
  RunCommand(kPython + " " + kTool + " build " +
                 Quote(testing::TestHive("windows-2003-minimal.hiv")) + " " + Quote(input) + " " +
                 GetParam(),
             &status);
  ASSERT_EQ(status, 0);
  const std::string expected = HivexDump(input);
  auto ours = ReadOurs(input);
  ASSERT_TRUE(ours);
  EXPECT_EQ(testing::Dump(*ours->root), expected);

  const auto saved = SaveThroughEngine(input, folder / "saved.hiv");
  EXPECT_EQ(HivexDump(saved), expected);
  auto again = ReadOurs(saved);
  ASSERT_TRUE(again);
  EXPECT_EQ(testing::Dump(*again->root), expected);
  EXPECT_TRUE(LintHive(testing::ReadBytes(saved)).problems.empty());

  if (testing::HaveCommand("command -v reglookup")) {
    const std::size_t rows = ReglookupRows(saved, &status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(rows, ModelRows(*again->root));
  }
  if (testing::HaveCommand("command -v regfexport")) {
    RunCommand("regfexport " + Quote(saved) + " >/dev/null 2>&1", &status);
    EXPECT_EQ(status, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, HivexScenario, ::testing::Values("types", "wide", "deep"));

TEST(HiveOracle, RealHivesReadAsHivexReadsThem) {
  if (!HaveHivex()) GTEST_SKIP() << "python3-hivex is not installed";
  for (const char* name :
       {"windows-2003-minimal.hiv", "windows-xp-special.hiv", "rlenvalue-test.hiv"}) {
    auto ours = ReadOurs(testing::TestHive(name));
    ASSERT_TRUE(ours);
    EXPECT_EQ(testing::Dump(*ours->root), HivexDump(testing::TestHive(name))) << name;
  }
}

TEST(HiveOracle, ReglookupShowsOwnerDaclAndClassOfASavedHive) {
  if (!testing::HaveCommand("command -v reglookup")) GTEST_SKIP() << "reglookup is not installed";
  testing::TempFolder folder;
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_OROpenHive(testing::TestHive("windows-xp-special.hiv").wstring().c_str(), &hive),
            err::kSuccess);
  ORHKEY key = nullptr;
  ASSERT_EQ(
      tw_ORCreateKey(hive, L"Classy", const_cast<wchar_t*>(L"KeyClass"), 0, nullptr, &key, nullptr),
      err::kSuccess);
  std::vector<std::uint8_t> big(200 * 1024);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<std::uint8_t>(i * 13);
  ASSERT_EQ(tw_ORSetValue(key, L"Big", 3, big.data(), static_cast<DWORD>(big.size())),
            err::kSuccess);
  tw_ORCloseKey(key);
  const auto saved = folder / "saved.hiv";
  ASSERT_EQ(tw_ORSaveHive(hive, saved.wstring().c_str(), 6, 1), err::kSuccess);
  tw_ORCloseHive(hive);

  int status = 0;
  const std::string out = RunCommand("reglookup -s " + Quote(saved) + " 2>/dev/null", &status);
  EXPECT_EQ(status, 0);
  EXPECT_NE(out.find("/Classy,KEY,,"), std::string::npos) << out;
  EXPECT_NE(out.find(",KeyClass\n"), std::string::npos) << out;
  // The sub keys keep the owner Windows gave them; the root keeps Administrators.
  EXPECT_NE(out.find("S-1-5-21-1708537768-220523388-1801674531-500,"
                     "S-1-5-21-1708537768-220523388-1801674531-513"),
            std::string::npos);
  const std::size_t rootLine = out.find("\n/,KEY,,");
  ASSERT_NE(rootLine, std::string::npos);
  const std::string root = out.substr(rootLine + 1, out.find('\n', rootLine + 1) - rootLine - 1);
  EXPECT_NE(root.find(",S-1-5-32-544,S-1-5-18,,S-1-5-32-545:ALLOW:"), std::string::npos) << root;
  // Creating "Classy" changed the root's time.
  EXPECT_EQ(root.find("2014-01-10"), std::string::npos) << root;
  // The 200 KB value in big data records.
  auto again = ReadOurs(saved);
  ASSERT_TRUE(again);
  const Key* classy = FindChild(*again->root, L"classy");
  ASSERT_NE(classy, nullptr);
  EXPECT_EQ(classy->className, L"KeyClass");
  ASSERT_EQ(classy->values.size(), 1u);
  EXPECT_EQ(classy->values[0].data, big);
}

}  // namespace
}  // namespace tw::hive
