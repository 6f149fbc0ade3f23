// The built tarnwick-hive tool, run on the real test hives and on hives made through the engine.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <string>

#include "base/win32_error.h"
#include "hive/hive_reader.h"
#include "hive/offreg_api.h"
#include "hive/regf_layout.h"
#include "hive_dump.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

using testing::RunCommand;

std::string Quote(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

std::string Tool(const std::string& args, int* exitCode) {
  int status = 0;
  const std::string out =
      RunCommand(std::string(TARNWICK_HIVE_TOOL) + " " + args + " 2>&1", &status);
  *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return out;
}

std::size_t CountLines(const std::string& text, const std::string& start) {
  std::size_t n = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    if (text.compare(at, start.size(), start) == 0) ++n;
    if (end == std::string::npos) break;
    at = end + 1;
  }
  return n;
}

TEST(HiveTool, DumpsTheSpecialHive) {
  int code = 0;
  const std::string out = Tool("dump " + Quote(testing::TestHive("windows-xp-special.hiv")), &code);
  EXPECT_EQ(code, 0) << out;
  EXPECT_EQ(out.rfind("hive \"$$$PROTO.HIV\"\nkey \"\\\\\"\n  class \"\"\n", 0), 0u) << out;
  // 130338615627187500 in FILETIME units.
  EXPECT_NE(out.find("  time 2014-01-10 21:06:02.7187500\n"), std::string::npos);
  EXPECT_NE(out.find("key \"\\\\zero\\x00key\"\n"), std::string::npos);
  EXPECT_NE(out.find("  value \"zero\\x00val\" REG_DWORD 0x00000000\n"), std::string::npos);
  EXPECT_NE(out.find("key \"\\\\abcd_\u00e4\u00f6\u00fc\u00df\"\n"), std::string::npos);
  EXPECT_NE(out.find("  value \"symbols $\u00a3\u20a4\u20a7\u20ac\" REG_DWORD 0x00000000\n"),
            std::string::npos);
  EXPECT_NE(out.find("  owner S-1-5-32-544\n  group S-1-5-18\n  dacl D:PAI(A;;0x00020019;;;"
                     "S-1-5-32-545)(A;CIIO;0x80000000;;;S-1-5-32-545)"),
            std::string::npos);
  EXPECT_NE(out.find("  owner S-1-5-21-1708537768-220523388-1801674531-500\n"), std::string::npos);
  EXPECT_NE(out.find("(A;CIIOID;0x10000000;;;S-1-3-0)\n"), std::string::npos);
  EXPECT_EQ(CountLines(out, "key "), 4u);
  EXPECT_EQ(CountLines(out, "  value "), 3u);
}

TEST(HiveTool, DumpsValuesOfEveryLengthAsReglookupCountsThem) {
  int code = 0;
  const auto hive = testing::TestHive("rlenvalue-test.hiv");
  const std::string out = Tool("dump " + Quote(hive), &code);
  EXPECT_EQ(code, 0) << out;
  EXPECT_NE(out.find("  value \"3Bytes\" REG_BINARY hex:303132\n"), std::string::npos);
  EXPECT_NE(out.find("  value \"33Bytes\" REG_BINARY "
                     "hex:303132333435363738394142434445463031323334353637383941424344454630\n"),
            std::string::npos);
  if (testing::HaveCommand("command -v reglookup")) {
    int status = 0;
    const std::string rows = RunCommand("reglookup -s " + Quote(hive) + " 2>/dev/null", &status);
    EXPECT_EQ(CountLines(out, "key ") + CountLines(out, "  value "), CountLines(rows, "/"));
  }
}

TEST(HiveTool, DumpsEveryTypeClassAndDescriptorOfAnEngineHive) {
  testing::TempFolder folder;
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_ORCreateHive(&hive), err::kSuccess);
  ORHKEY key = nullptr;
  ASSERT_EQ(
      tw_ORCreateKey(hive, L"Types", const_cast<wchar_t*>(L"Cls\"1"), 0, nullptr, &key, nullptr),
      err::kSuccess);
  const auto set = [key](const wchar_t* name, DWORD type, std::vector<std::uint8_t> data) {
    ASSERT_EQ(tw_ORSetValue(key, name, type, data.data(), static_cast<DWORD>(data.size())),
              err::kSuccess);
  };
  set(L"", 1, {'h', 0, 'i', 0, 0, 0});
  set(L"x\\y", 2, {'%', 0, 0, 0});
  set(L"noterm", 1, {'a', 0});
  set(L"multi", 7, {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0});
  set(L"dw", 4, {0x78, 0x56, 0x34, 0x12});
  set(L"be", 5, {0x12, 0x34, 0x56, 0x78});
  set(L"qw", 11, {8, 7, 6, 5, 4, 3, 2, 1});
  set(L"short", 4, {1, 2});
  set(L"none", 0, {});
  set(L"odd", 0x12345, {0xAB});
  tw_ORCloseKey(key);
  const auto file = folder / "engine.hiv";
  ASSERT_EQ(tw_ORSaveHive(hive, file.wstring().c_str(), 10, 0), err::kSuccess);
  tw_ORCloseHive(hive);

  int code = 0;
  const std::string out = Tool("dump " + Quote(file), &code);
  EXPECT_EQ(code, 0) << out;
  const char* expected[] = {
      "key \"\\\\Types\"\n  class \"Cls\\\"1\"\n",
      "  value \"\" REG_SZ \"hi\"\n",
      "  value \"x\\\\y\" REG_EXPAND_SZ \"%\"\n",
      "  value \"noterm\" REG_SZ hex:6100\n",
      "  value \"multi\" REG_MULTI_SZ [\"a\", \"b\"]\n",
      "  value \"dw\" REG_DWORD 0x12345678\n",
      "  value \"be\" REG_DWORD_BIG_ENDIAN 0x12345678\n",
      "  value \"qw\" REG_QWORD 0x0102030405060708\n",
      "  value \"short\" REG_DWORD hex:0102\n",
      "  value \"none\" REG_NONE hex:\n",
      "  value \"odd\" 0x00012345 hex:ab\n",
      // The new key inherited the default root descriptor's entries.
      "  owner S-1-5-32-544\n  group S-1-5-18\n  dacl D:(A;CIID;0x000F003F;;;S-1-5-18)",
  };
  for (const char* line : expected) EXPECT_NE(out.find(line), std::string::npos) << line << out;
}

TEST(HiveTool, SavesThroughTheEngine) {
  testing::TempFolder folder;
  const auto in = testing::TestHive("windows-xp-special.hiv");
  const auto out = folder / "saved.hiv";
  int code = 0;
  EXPECT_EQ(Tool("save " + Quote(in) + " " + Quote(out) + " --os 6.1", &code), "");
  EXPECT_EQ(code, 0);
  const auto bytes = testing::ReadBytes(out);
  ASSERT_GT(bytes.size(), regf::kBaseBlockSize);
  EXPECT_EQ(regf::Get32(bytes.data() + regf::kBaseMinor), 5u);
  EXPECT_EQ(Tool("dump " + Quote(out), &code), Tool("dump " + Quote(in), &code));

  // The target exists now: refused, and the file is left alone.
  const std::string again = Tool("save " + Quote(in) + " " + Quote(out) + " --os 10.0", &code);
  EXPECT_EQ(code, 1);
  EXPECT_NE(again.find("cannot save"), std::string::npos) << again;
  EXPECT_NE(again.find("(error 183)"), std::string::npos) << again;
  EXPECT_EQ(testing::ReadBytes(out), bytes);

  const std::string badOs =
      Tool("save " + Quote(in) + " " + Quote(folder / "x.hiv") + " --os 7.0", &code);
  EXPECT_EQ(code, 2);
  EXPECT_NE(badOs.find("--os takes 6.1, 6.2, 6.3 or 10.0"), std::string::npos);
  Tool("save " + Quote(folder / "missing.hiv") + " " + Quote(folder / "y.hiv") + " --os 6.3",
       &code);
  EXPECT_EQ(code, 1);
}

TEST(HiveTool, ChecksSoundAndBrokenHives) {
  testing::TempFolder folder;
  int code = 0;
  const std::string good =
      Tool("check " + Quote(testing::TestHive("windows-xp-special.hiv")), &code);
  EXPECT_EQ(code, 0) << good;
  EXPECT_NE(good.find(": sound ("), std::string::npos) << good;

  // A saved hive with one lh hash changed.
  const auto saved = folder / "saved.hiv";
  Tool("save " + Quote(testing::TestHive("windows-xp-special.hiv")) + " " + Quote(saved) +
           " --os 10.0",
       &code);
  auto bytes = testing::ReadBytes(saved);
  const std::size_t nk = regf::kBaseBlockSize + regf::Get32(bytes.data() + regf::kBaseRootCell) + 4;
  const std::size_t list =
      regf::kBaseBlockSize + regf::Get32(bytes.data() + nk + regf::kNkSubKeyList) + 4;
  bytes[list + 8] ^= 1;
  const auto broken = folder / "broken.hiv";
  testing::WriteBytes(broken, bytes);
  const std::string bad = Tool("check " + Quote(broken), &code);
  EXPECT_EQ(code, 1);
  EXPECT_NE(bad.find("wrong lh hash"), std::string::npos) << bad;
  EXPECT_NE(bad.find("is not a sound hive (1 problems)"), std::string::npos) << bad;

  // A stale upper bound, as Windows leaves them: a note, still sound.
  bytes[list + 8] ^= 1;
  regf::Put16(
      bytes.data() + nk + regf::kNkMaxSubKeyName,
      static_cast<std::uint16_t>(regf::Get16(bytes.data() + nk + regf::kNkMaxSubKeyName) + 8));
  const auto stale = folder / "stale.hiv";
  testing::WriteBytes(stale, bytes);
  const std::string noted = Tool("check " + Quote(stale), &code);
  EXPECT_EQ(code, 0) << noted;
  EXPECT_NE(noted.find(": note: largest sub key name length larger than needed: 1 cells, the "
                       "first 0x"),
            std::string::npos)
      << noted;
  EXPECT_NE(noted.find(": sound ("), std::string::npos) << noted;

  const auto text = folder / "text.hiv";
  testing::WriteBytes(text, std::vector<std::uint8_t>(8192, 'x'));
  const std::string notHive = Tool("check " + Quote(text), &code);
  EXPECT_EQ(code, 1);
  EXPECT_NE(notHive.find("is not a sound hive"), std::string::npos) << notHive;
  const std::string dumpNotHive = Tool("dump " + Quote(text), &code);
  EXPECT_EQ(code, 1);
  EXPECT_NE(dumpNotHive.find("is not a valid hive (error 1017)"), std::string::npos) << dumpNotHive;

  EXPECT_NE(Tool("frobnicate", &code).find("usage: tarnwick-hive dump FILE"), std::string::npos);
  EXPECT_EQ(code, 2);
}

}  // namespace
}  // namespace tw::hive
