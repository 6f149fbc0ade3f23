// Hives from independent writers (Windows, hivex) are read correctly, and hives our writer
// produces are read identically by independent readers (hivex, reglookup). Each test skips with
// a message when its tool is not installed. The hives built by hivexregedit from .reg files are
// in hive_reg_merge_test.cpp.
#include <gtest/gtest.h>

#include "base/win32_error.h"
#include "hive/hive_lint.h"
#include "hive/hive_reader.h"
#include "hive/offreg_api.h"
#include "hive/security_parts.h"
#include "hive_dump.h"
#include "hive_readers.h"
#include "hive_test_util.h"
#include "security/codec/ace.h"
#include "security/codec/acl.h"
#include "security/codec/security_descriptor.h"
#include "security/codec/well_known_sids.h"

namespace tw::hive {
namespace {

using testing::HaveHivex;
using testing::HivexDump;
using testing::kPython;
using testing::Quote;
using testing::RunCommand;

std::unique_ptr<Hive> ReadOurs(const std::filesystem::path& path) {
  const auto bytes = testing::ReadBytes(path);
  ReadResult result = ParseHive(bytes);
  EXPECT_EQ(result.error, err::kSuccess) << std::string(result.reason.begin(), result.reason.end());
  return std::move(result.hive);
}

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

// A descriptor with `owner` as owner and group and one entry of `type` for `who`.
std::vector<std::uint8_t> OneEntryDescriptor(const security::Sid& owner, std::uint8_t type,
                                             std::uint32_t mask, const security::Sid& who) {
  security::SecurityDescriptor sd;
  sd.owner = owner;
  sd.group = owner;
  security::Acl dacl;
  security::Ace ace = type == security::kAccessAllowedAceType ? security::Ace::Allowed(mask, who)
                                                              : security::Ace::Denied(mask, who);
  EXPECT_EQ(security::Acl::FromAces(security::kAclRevision, {ace}, &dacl), err::kSuccess);
  sd.SetDacl(std::move(dacl));
  return security::MakeSelfRelative(sd);
}

TEST(HiveOracle, ApiBuiltHiveWithClassesDescriptorsAndBigValueReadsIdentically) {
  testing::TempFolder folder;
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_ORCreateHive(&hive), err::kSuccess);
  const security::Sid alice(5, {21, 7, 8, 9, 1001});
  const security::Sid bob(5, {21, 7, 8, 9, 1002});
  auto aliceSd = OneEntryDescriptor(alice, security::kAccessAllowedAceType, 0x000F003F, alice);
  auto bobSd =
      OneEntryDescriptor(bob, security::kAccessDeniedAceType, 0x00010000, security::EveryoneSid());
  ORHKEY a = nullptr;
  ORHKEY b = nullptr;
  ORHKEY c = nullptr;
  ASSERT_EQ(tw_ORCreateKey(hive, L"Alpha", const_cast<wchar_t*>(L"ClassA"), 0, aliceSd.data(), &a,
                           nullptr),
            err::kSuccess);
  ASSERT_EQ(tw_ORCreateKey(hive, L"Beta", const_cast<wchar_t*>(L"Klasse \u00df"), 0, bobSd.data(),
                           &b, nullptr),
            err::kSuccess);
  ASSERT_EQ(tw_ORCreateKey(a, L"Gamma", nullptr, 0, nullptr, &c, nullptr), err::kSuccess);
  std::vector<std::uint8_t> big(200 * 1024);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<std::uint8_t>(i * 31 + 7);
  ASSERT_EQ(tw_ORSetValue(b, L"Big", 3, big.data(), static_cast<DWORD>(big.size())), err::kSuccess);
  const std::uint8_t word[4] = {1, 2, 3, 4};
  ASSERT_EQ(tw_ORSetValue(c, L"w", 4, word, 4), err::kSuccess);
  const auto saved = folder / "api.hiv";
  ASSERT_EQ(tw_ORSaveHive(hive, saved.wstring().c_str(), 6, 3), err::kSuccess);
  tw_ORCloseHive(hive);

  EXPECT_TRUE(LintHive(testing::ReadBytes(saved)).problems.empty());
  auto ours = ReadOurs(saved);
  ASSERT_TRUE(ours);
  const std::string expected = testing::Dump(*ours->root);
  ASSERT_EQ(FindValue(*FindChild(*ours->root, L"beta"), L"big")->data, big);
  if (HaveHivex()) {
    EXPECT_EQ(HivexDump(saved), expected);
  }

  if (testing::HaveCommand(kPython + " -c 'import pyregf'")) {
    int status = 0;
    const std::string libregf = RunCommand(
        kPython + " " + TARNWICK_TESTDATA_DIR + "/hives/regf_dump.py " + Quote(saved), &status);
    EXPECT_EQ(status, 0);
    // Class lines: "C <path> <class as UTF-16LE hex>".
    EXPECT_NE(libregf.find("C 41006c00700068006100 43006c006100730073004100\n"), std::string::npos)
        << libregf;
    EXPECT_NE(libregf.find("C 4200650074006100 4b006c0061007300730065002000df00\n"),
              std::string::npos);
    EXPECT_NE(libregf.find("C 41006c007000680061005c00470061006d006d006100 -\n"),
              std::string::npos);
    std::string withoutClasses;
    for (std::size_t at = 0; at < libregf.size();) {
      const std::size_t next = libregf.find('\n', at) + 1;
      if (libregf.compare(at, 2, "C ") != 0) withoutClasses += libregf.substr(at, next - at);
      at = next;
    }
    EXPECT_EQ(withoutClasses, expected);
  }

  if (testing::HaveCommand("command -v reglookup")) {
    int status = 0;
    const std::string out = RunCommand("reglookup -s " + Quote(saved) + " 2>/dev/null", &status);
    EXPECT_EQ(status, 0);
    const auto line = [&out](const std::string& start) {
      const std::size_t at = out.find("\n" + start);
      return at == std::string::npos ? std::string()
                                     : out.substr(at + 1, out.find('\n', at + 1) - at - 1);
    };
    const std::string alpha = line("/Alpha,KEY,");
    EXPECT_NE(alpha.find(",S-1-5-21-7-8-9-1001,S-1-5-21-7-8-9-1001,,S-1-5-21-7-8-9-1001:ALLOW:"),
              std::string::npos)
        << alpha;
    EXPECT_EQ(alpha.substr(alpha.size() - 7), ",ClassA");
    const std::string beta = line("/Beta,KEY,");
    EXPECT_NE(beta.find(",S-1-5-21-7-8-9-1002,S-1-5-21-7-8-9-1002,,S-1-1-0:DENY:"),
              std::string::npos)
        << beta;
    // Gamma inherited nothing (Alice's entry is not inheritable) but took Alice as owner.
    const std::string gamma = line("/Alpha/Gamma,KEY,");
    EXPECT_NE(gamma.find(",S-1-5-21-7-8-9-1001,S-1-5-21-7-8-9-1001,,,"), std::string::npos)
        << gamma;
    EXPECT_NE(line("/Beta/Big,BINARY,").size(), 0u);
  }
}

}  // namespace
}  // namespace tw::hive
