// Hives from independent writers (Windows, hivex) are read correctly, and hives our writer
// produces are read identically by independent readers (hivex, reglookup). Each test skips with
// a message when its tool is not installed. The hives built by hivexregedit from .reg files are
// in hive_reg_merge_test.cpp.
#include <gtest/gtest.h>

#include <map>

#include "base/win32_error.h"
#include "descriptor/ace.h"
#include "descriptor/acl.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/well_known_sids.h"
#include "hive/hive_lint.h"
#include "hive/hive_reader.h"
#include "hive/offreg_api.h"
#include "hive/regf_layout.h"
#include "hive/security_parts.h"
#include "hive_dump.h"
#include "hive_readers.h"
#include "hive_test_util.h"

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

// `size` bytes that end in non-zero bytes, so that a reader that reads them short shows it.
std::vector<std::uint8_t> Pattern(std::size_t size) {
  std::vector<std::uint8_t> data(size);
  for (std::size_t i = 0; i < size; ++i)
    data[i] = static_cast<std::uint8_t>((i * 131 + size) % 251 + 1);
  return data;
}

// reglookup's lines of the values of key `path` ("/Big"): value name -> the VALUE field.
std::map<std::string, std::string> ReglookupValues(const std::filesystem::path& hive,
                                                   const std::string& path, std::string* errors) {
  int status = 0;
  const auto err = hive.string() + ".err";
  const std::string out =
      RunCommand("reglookup -p " + path + " " + Quote(hive) + " 2>" + Quote(err), &status);
  EXPECT_EQ(status, 0);
  const auto bytes = testing::ReadBytes(err);
  *errors = std::string(bytes.begin(), bytes.end());
  std::map<std::string, std::string> values;
  for (std::size_t at = 0; at < out.size();) {
    const std::size_t end = out.find('\n', at);
    const std::string line = out.substr(at, end - at);
    at = end == std::string::npos ? out.size() : end + 1;
    if (line.rfind(path + "/", 0) != 0) continue;
    const std::size_t nameEnd = line.find(',');
    const std::size_t typeEnd = line.find(',', nameEnd + 1);
    const std::size_t valueEnd = line.find(',', typeEnd + 1);
    if (line.compare(nameEnd + 1, typeEnd - nameEnd - 1, "KEY") == 0) continue;
    values[line.substr(path.size() + 1, nameEnd - path.size() - 1)] =
        line.substr(typeEnd + 1, valueEnd - typeEnd - 1);
  }
  return values;
}

// Values over one big data segment (16,344 bytes), at every size around the segment edges, are
// saved so that reglookup, hivex and libregf read every byte back: each segment in a whole
// segment cell, as Windows writes them (those readers take a segment's length from its cell).
TEST(HiveOracle, BigValuesAtEverySegmentEdgeReadWholeWithEveryReader) {
  testing::TempFolder folder;
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_ORCreateHive(&hive), err::kSuccess);
  ORHKEY big = nullptr;
  ASSERT_EQ(tw_ORCreateKey(hive, L"Big", nullptr, 0, nullptr, &big, nullptr), err::kSuccess);
  std::vector<std::size_t> sizes = {16343, 16344, 3 * 16344, 3 * 16344 + 1, 73315, 100000, 204803};
  for (std::size_t extra = 1; extra <= 8; ++extra) {
    sizes.push_back(16344 + extra);
    sizes.push_back(2 * 16344 + extra);
  }
  std::map<std::string, std::vector<std::uint8_t>> written;
  for (const std::size_t size : sizes) {
    const std::string name = "b" + std::to_string(size);
    written[name] = Pattern(size);
    ASSERT_EQ(tw_ORSetValue(big, std::wstring(name.begin(), name.end()).c_str(), 3,
                            written[name].data(), static_cast<DWORD>(size)),
              err::kSuccess);
  }
  // A REG_MULTI_SZ of 16,346 bytes: its last segment holds only the list's final NUL.
  std::string strings;
  std::vector<std::uint8_t> multi;
  for (int i = 0; i < 205; ++i) {
    const std::string one =
        (i < 204 ? std::string(39, static_cast<char>('a' + i % 26)) : std::string("the last on"));
    strings += (i > 0 ? "|" : "") + one;
    for (const char c : one) multi.insert(multi.end(), {static_cast<std::uint8_t>(c), 0});
    multi.insert(multi.end(), {0, 0});
  }
  multi.insert(multi.end(), {0, 0});
  ASSERT_EQ(multi.size(), 16346u);
  ASSERT_EQ(tw_ORSetValue(big, L"multi", 7, multi.data(), static_cast<DWORD>(multi.size())),
            err::kSuccess);
  tw_ORCloseKey(big);
  const auto saved = folder / "big.hiv";
  ASSERT_EQ(tw_ORSaveHive(hive, saved.wstring().c_str(), 6, 1), err::kSuccess);
  tw_ORCloseHive(hive);

  const LintReport lint = LintHive(testing::ReadBytes(saved));
  EXPECT_TRUE(lint.problems.empty() && lint.notes.empty());
  auto ours = ReadOurs(saved);
  ASSERT_TRUE(ours);
  const Key* key = FindChild(*ours->root, L"big");
  ASSERT_NE(key, nullptr);
  for (const auto& [name, data] : written) {
    ASSERT_NE(FindValue(*key, std::wstring(name.begin(), name.end())), nullptr) << name;
    EXPECT_EQ(FindValue(*key, std::wstring(name.begin(), name.end()))->data, data) << name;
  }
  EXPECT_EQ(FindValue(*key, L"multi")->data, multi);
  // Every line holds a whole value in hex, so equal listings mean every byte read back.
  const std::string expected = testing::Dump(*ours->root);
  if (HaveHivex()) {
    EXPECT_TRUE(HivexDump(saved) == expected) << "hivex reads other bytes";
  }
  if (testing::HaveCommand(kPython + " -c 'import pyregf'")) {
    int status = 0;
    std::string libregf = RunCommand(
        kPython + " " + TARNWICK_TESTDATA_DIR + "/hives/regf_dump.py " + Quote(saved), &status);
    EXPECT_EQ(status, 0);
    std::string withoutClasses;
    for (std::size_t at = 0; at < libregf.size();) {
      const std::size_t next = libregf.find('\n', at) + 1;
      if (libregf.compare(at, 2, "C ") != 0) withoutClasses += libregf.substr(at, next - at);
      at = next;
    }
    EXPECT_TRUE(withoutClasses == expected) << "libregf reads other bytes";
  }
  if (testing::HaveCommand("command -v reglookup")) {
    std::string errors;
    const auto values = ReglookupValues(saved, "/Big", &errors);
    EXPECT_EQ(errors, "");
    EXPECT_EQ(values.size(), written.size() + 1);
    for (const auto& [name, data] : written) {
      const auto found = values.find(name);
      ASSERT_NE(found, values.end()) << name;
      EXPECT_TRUE(testing::FromReglookupText(found->second) == data) << "reglookup: " << name;
    }
    EXPECT_EQ(values.count("multi") == 1 ? values.at("multi") : "", strings);
  }
}

// Key flag bits the format does not define are not saved, so reglookup reads the saved hive
// without a warning.
TEST(HiveOracle, JunkKeyFlagBitsAreNotSavedAndReglookupDoesNotWarn) {
  if (!testing::HaveCommand("command -v reglookup")) GTEST_SKIP() << "reglookup is not installed";
  testing::TempFolder folder;
  // A hive with a few keys, all ASCII (reglookup warns about other names too).
  const auto clean = folder / "clean.hiv";
  {
    ORHKEY hive = nullptr;
    ASSERT_EQ(tw_OROpenHive(testing::TestHive("windows-2003-minimal.hiv").wstring().c_str(), &hive),
              err::kSuccess);
    for (const wchar_t* name : {L"One", L"Two", L"Three"}) {
      ORHKEY key = nullptr;
      ASSERT_EQ(tw_ORCreateKey(hive, name, nullptr, 0, nullptr, &key, nullptr), err::kSuccess);
      tw_ORCloseKey(key);
    }
    ASSERT_EQ(tw_ORSaveHive(hive, clean.wstring().c_str(), 6, 1), err::kSuccess);
    tw_ORCloseHive(hive);
  }
  auto bytes = testing::ReadBytes(clean);
  // Set junk bits in every allocated key node of the input.
  std::size_t junked = 0;
  for (std::size_t bin = regf::kBaseBlockSize; bin + regf::kBinHeaderSize <= bytes.size();) {
    const std::size_t end = bin + regf::Get32(bytes.data() + bin + regf::kBinSize);
    for (std::size_t cell = bin + regf::kBinHeaderSize; cell < end;) {
      const auto raw = static_cast<std::int32_t>(regf::Get32(bytes.data() + cell));
      if (raw < 0 && regf::HasSignature(bytes.data() + cell + 4, "nk")) {
        const std::size_t flags = cell + 4 + regf::kNkFlags;
        regf::Put16(bytes.data() + flags,
                    static_cast<std::uint16_t>(regf::Get16(bytes.data() + flags) | 0xAC00));
        ++junked;
      }
      cell += static_cast<std::size_t>(raw < 0 ? -static_cast<std::int64_t>(raw) : raw);
    }
    bin = end;
  }
  ASSERT_EQ(junked, 4u);
  const auto input = folder / "junk.hiv";
  testing::WriteBytes(input, bytes);
  int status = 0;
  const std::string warned = RunCommand("reglookup " + Quote(input) + " 2>&1 >/dev/null", &status);
  ASSERT_NE(warned.find("Unknown key flags"), std::string::npos) << warned;

  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_OROpenHive(input.wstring().c_str(), &hive), err::kSuccess);
  const auto saved = folder / "saved.hiv";
  ASSERT_EQ(tw_ORSaveHive(hive, saved.wstring().c_str(), 6, 1), err::kSuccess);
  tw_ORCloseHive(hive);
  const std::string quiet = RunCommand("reglookup " + Quote(saved) + " 2>&1 >/dev/null", &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(quiet, "");
}

}  // namespace
}  // namespace tw::hive
