// A V1 profile whose ntuser.dat holds big values (a 73,315-byte REG_BINARY like a real Start
// menu ProgramsCache, a REG_MULTI_SZ over one big data segment whose last segment holds only the
// list's final NUL, a value of exactly 16,345 bytes) is migrated to V2 by the built binary; the
// new ntuser.dat is read whole by reglookup, hivex and libregf: every byte equal to the source
// value. The source hive is made by hivexregedit --merge (big data records of another writer).
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"
#include "hive/hive_lint.h"
#include "unit/hive/hive_dump.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::E2eShare;
using testing::ProcessResult;
using testing::RegSection;
using testing::RunProcess;

const std::string kPython = "/usr/bin/python3";
const char kBigKey[] = "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\StartPage";

struct BigValue {
  std::string name;
  int type;
  std::vector<std::uint8_t> data;
};

// Bytes as .reg text writes them: two hexadecimal digits each, separated by commas.
std::string RegHex(const std::vector<std::uint8_t>& bytes) {
  std::string out;
  char two[4];
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::snprintf(two, sizeof two, "%s%02x", i > 0 ? "," : "", bytes[i]);
    out += two;
  }
  return out;
}

std::wstring Wide(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

// The values of the test: data ending in non-zero bytes, so that reading short shows.
std::vector<BigValue> BigValues() {
  const auto pattern = [](std::size_t size) {
    std::vector<std::uint8_t> data(size);
    for (std::size_t i = 0; i < size; ++i) {
      data[i] = static_cast<std::uint8_t>((i * 7 + size) % 253 + 1);
    }
    return data;
  };
  std::vector<std::uint8_t> multi;
  for (int i = 0; i < 204; ++i) {
    hive::AppendUtf16Le(Wide(std::string(39, static_cast<char>('a' + i % 26))), multi);
    multi.insert(multi.end(), {0, 0});
  }
  hive::AppendUtf16Le(L"the last on", multi);
  multi.insert(multi.end(), {0, 0, 0, 0});  // its NUL and the list's
  return {{"ProgramsCache", 3, pattern(73315)},
          {"Edge16345", 3, pattern(16345)},
          {"Edge32691", 3, pattern(2 * 16344 + 3)},
          {"Names", 7, multi}};
}

// .reg text of the values: "name"=hex:.. for REG_BINARY, hex(7):.. for REG_MULTI_SZ.
std::string RegValues(const std::vector<BigValue>& values) {
  std::string out;
  for (const BigValue& value : values) {
    out += "\"" + value.name + "\"=" + (value.type == 3 ? "hex:" : "hex(7):") + RegHex(value.data) +
           "\n";
  }
  return out;
}

// A listing line of tests/data/hives/hive_tool.py or regf_dump.py for one value of kBigKey:
// "V <path> <name> <type> <data>", names as hex of UTF-16LE, path parts joined by "5c00".
std::string ListingLine(const BigValue& value) {
  std::string path;
  std::string part;
  for (const char c : std::string(kBigKey) + "\\") {
    if (c != '\\') {
      part.push_back(c);
      continue;
    }
    path += (path.empty() ? "" : "5c00") + hive::testing::NameHex(Wide(part));
    part.clear();
  }
  return "V " + path + " " + hive::testing::NameHex(Wide(value.name)) + " " +
         std::to_string(value.type) + " " + hive::testing::Hex(value.data);
}

bool HasLine(const std::string& listing, const std::string& line) {
  return listing.find(line + "\n") != std::string::npos;
}

// reglookup's VALUE field for the value `name` of kBigKey, escapes ("%XX") decoded.
std::vector<std::uint8_t> ReglookupBytes(const std::string& output, const std::string& name) {
  std::string prefix = "/";
  for (const char c : std::string(kBigKey)) prefix.push_back(c == '\\' ? '/' : c);
  prefix += "/" + name + ",BINARY,";
  const std::size_t at = output.find("\n" + prefix);
  if (at == std::string::npos) return {};
  const std::size_t from = at + 1 + prefix.size();
  return hive::testing::FromReglookupText(output.substr(from, output.find(',', from) - from));
}

TEST(BigValuesE2eTest, V1MigrationKeepsEveryByteOfBigValuesForEveryReader) {
  E2eShare share(testing::SuiteTools());
  const std::vector<BigValue> values = BigValues();
  share.AddProfile("alice",
                   RegSection(testing::kUserShellFolders,
                              testing::RegString("Desktop", "%USERPROFILE%\\Desktop")) +
                       RegSection(kBigKey, RegValues(values)),
                   {{"Desktop/desk.txt", "desk"}}, testing::HiveMaker::kHivex);
  const std::string tool = std::string(TARNWICK_TESTDATA_DIR) + "/hives/hive_tool.py";
  const fs::path source = share.share() / "alice" / "ntuser.dat";
  // The source holds the values as written (hivex reads back what it merged).
  const ProcessResult before = RunProcess(kPython, {tool, "dump", source.string()});
  ASSERT_EQ(before.exitStatus, 0) << before.errors;
  for (const BigValue& value : values) ASSERT_TRUE(HasLine(before.output, ListingLine(value)));

  const ProcessResult run = share.Run({"/s:\\\\fs\\profiles\\alice"});
  ASSERT_EQ(run.exitStatus, 0) << run.output;
  const fs::path migrated = share.share() / "alice.V2" / "ntuser.dat";
  ASSERT_TRUE(fs::is_regular_file(migrated));

  std::vector<std::uint8_t> bytes;
  {
    const std::string text = testing::ReadWholeFile(migrated);
    bytes.assign(text.begin(), text.end());
  }
  const hive::LintReport lint = hive::LintHive(bytes);
  EXPECT_TRUE(lint.problems.empty())
      << (lint.problems.empty() ? std::string()
                                : std::string(lint.problems[0].begin(), lint.problems[0].end()));

  const ProcessResult hivex = RunProcess(kPython, {tool, "dump", migrated.string()});
  ASSERT_EQ(hivex.exitStatus, 0) << hivex.errors;
  const ProcessResult libregf = RunProcess(
      kPython, {std::string(TARNWICK_TESTDATA_DIR) + "/hives/regf_dump.py", migrated.string()});
  ASSERT_EQ(libregf.exitStatus, 0) << libregf.errors;
  const ProcessResult reglookup = RunProcess("/usr/bin/reglookup", {migrated.string()});
  ASSERT_EQ(reglookup.exitStatus, 0) << reglookup.errors;
  for (const BigValue& value : values) {
    EXPECT_TRUE(HasLine(hivex.output, ListingLine(value))) << "hivex: " << value.name;
    EXPECT_TRUE(HasLine(libregf.output, ListingLine(value))) << "libregf: " << value.name;
    if (value.type == 3) {
      EXPECT_TRUE(ReglookupBytes(reglookup.output, value.name) == value.data)
          << "reglookup: " << value.name;
    }
  }
  // reglookup shows a REG_MULTI_SZ as its strings joined by "|".
  std::string strings;
  for (int i = 0; i < 204; ++i) strings += std::string(39, static_cast<char>('a' + i % 26)) + "|";
  EXPECT_NE(reglookup.output.find("/Names,MULTI_SZ," + strings + "the last on,"),
            std::string::npos);
}

}  // namespace
}  // namespace tw
