// Hives built by hivexregedit --merge from a .reg file (tests/data/hives/reg_scenarios.py: every
// value type, an unknown type, empty and 1- to 4-byte values, a 100,000-byte value, non-ASCII
// names, a key with 5,000 sub keys, 512 levels) are read correctly, and the hive that
// `tarnwick-hive save` makes of one reads identically with reglookup, hivex and libregf and
// passes the lint. The hive is generated at test time, once for all tests (hivex needs several
// seconds for the 5,000 sub keys): it is kept in the system temp folder under a name made from
// its inputs. The tests skip when hivexregedit is missing.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "base/win32_error.h"
#include "hive/hive_reader.h"
#include "hive_dump.h"
#include "hive_readers.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

using testing::AsLibregfReadsResidentData;
using testing::FirstDifference;
using testing::kHiveScripts;
using testing::kPython;
using testing::Quote;
using testing::RunShell;
using testing::WithoutClassLines;

class RegMergedHive : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!testing::HaveCommand("command -v hivexregedit")) {
      skip_ = "hivexregedit is not installed";
      return;
    }
    folder_ = std::make_unique<testing::TempFolder>();
    saved_ = *folder_ / "saved.hiv";
    const auto reg = *folder_ / "scenarios.reg";
    bool ok = false;
    RunShell(kPython + " " + kHiveScripts + "reg_scenarios.py " + Quote(reg), &ok);
    if (!ok) {
      skip_ = "the .reg file could not be written";
      return;
    }
    // The merged hive is kept under a name made from the .reg file and the starting hive, so
    // that the test processes of one run (ctest starts one per test) merge only once.
    const auto base = testing::TestHive("windows-2003-minimal.hiv");
    const auto regBytes = testing::ReadBytes(reg);
    const auto baseBytes = testing::ReadBytes(base);
    const std::size_t key =
        std::hash<std::string>{}(std::string(regBytes.begin(), regBytes.end()) +
                                 std::string(baseBytes.begin(), baseBytes.end()));
    const auto cache = std::filesystem::temp_directory_path() / "tw-hive-reg-merge";
    input_ = cache / ("merged-" + std::to_string(key) + ".hiv");
    if (std::filesystem::exists(input_)) {
      generated_ = true;
    } else {
      const auto merging = *folder_ / "merged.hiv";
      std::filesystem::copy_file(base, merging);
      RunShell("hivexregedit --merge --prefix 'HKEY_LOCAL_MACHINE\\SOFTWARE' " + Quote(merging) +
                   " " + Quote(reg) + " 2>&1",
               &ok);
      std::error_code error;
      std::filesystem::create_directories(cache, error);
      // Copied beside its final name, then renamed: another process never sees half a file.
      const auto partial = cache / ("merging-" + folder_->path().filename().string());
      std::filesystem::copy_file(merging, partial, error);
      std::filesystem::rename(partial, input_, error);
      generated_ = ok && std::filesystem::exists(input_);
    }
    RunShell(std::string(TARNWICK_HIVE_TOOL) + " save " + Quote(input_) + " " + Quote(saved_) +
                 " --os 10.0 2>&1",
             &saved_ok_);
  }
  static void TearDownTestSuite() { folder_.reset(); }

  void SetUp() override {
    if (!skip_.empty()) GTEST_SKIP() << skip_;
    ASSERT_TRUE(generated_) << "hivexregedit --merge failed";
    ASSERT_TRUE(saved_ok_) << "tarnwick-hive save failed";
  }

  static std::unique_ptr<Hive> ReadOurs(const std::filesystem::path& path) {
    const auto bytes = testing::ReadBytes(path);
    ReadResult result = ParseHive(bytes);
    EXPECT_EQ(result.error, err::kSuccess)
        << std::string(result.reason.begin(), result.reason.end());
    return std::move(result.hive);
  }

  // hivex's reading of the input, made once.
  static const std::string& InputHivexDump() {
    static const std::string dump = testing::HivexDump(input_);
    return dump;
  }

  static inline std::unique_ptr<testing::TempFolder> folder_;
  static inline std::filesystem::path input_;
  static inline std::filesystem::path saved_;
  static inline std::string skip_;
  static inline bool generated_ = false;
  static inline bool saved_ok_ = false;
};

std::vector<std::uint8_t> Utf16z(const std::wstring& text) {
  std::vector<std::uint8_t> out;
  AppendUtf16Le(text + L'\0', out);
  return out;
}

TEST_F(RegMergedHive, ReadsEveryScenarioAsTheRegFileWroteIt) {
  auto hive = ReadOurs(input_);
  ASSERT_TRUE(hive);
  const Key* types = FindChild(*hive->root, L"types");
  ASSERT_NE(types, nullptr);
  ASSERT_EQ(types->values.size(), 22u);
  const auto value = [types](const wchar_t* name) -> const Value& {
    static const Value missing{L"<missing>", 0xFFFFFFFF, {}};
    const Value* v = FindValue(*types, name);
    return v != nullptr ? *v : missing;
  };
  EXPECT_EQ(value(L"").type, 1u);
  EXPECT_EQ(value(L"").data, Utf16z(L"default"));
  EXPECT_EQ(value(L"none").type, 0u);
  EXPECT_TRUE(value(L"none").data.empty());
  EXPECT_EQ(value(L"sz").data, Utf16z(L"hello"));
  EXPECT_EQ(value(L"expand").type, 2u);
  EXPECT_EQ(value(L"expand").data, Utf16z(L"%USERPROFILE%\\Desktop"));
  EXPECT_EQ(value(L"binary").data.size(), 512u);
  EXPECT_EQ(value(L"dword").type, 4u);
  EXPECT_EQ(value(L"dword").data, (std::vector<std::uint8_t>{0x78, 0x56, 0x34, 0x12}));
  EXPECT_EQ(value(L"dwordbe").type, 5u);
  EXPECT_EQ(value(L"dwordbe").data, (std::vector<std::uint8_t>{0x12, 0x34, 0x56, 0x78}));
  EXPECT_EQ(value(L"link").type, 6u);
  EXPECT_EQ(value(L"multi").type, 7u);
  EXPECT_EQ(value(L"multi").data.size(), 18u);  // "one\0two\0\0"
  EXPECT_EQ(value(L"resource").type, 8u);
  EXPECT_EQ(value(L"full").type, 9u);
  EXPECT_EQ(value(L"requirements").type, 10u);
  EXPECT_EQ(value(L"qword").type, 11u);
  EXPECT_EQ(value(L"qword").data,
            (std::vector<std::uint8_t>{0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11}));
  EXPECT_EQ(value(L"unknown").type, 0x12345u);
  EXPECT_EQ(value(L"unknown").data, (std::vector<std::uint8_t>{'c', 'u', 's', 't', 'o', 'm'}));
  EXPECT_TRUE(value(L"empty").data.empty());
  EXPECT_EQ(value(L"one").data, (std::vector<std::uint8_t>{1}));
  EXPECT_EQ(value(L"two").data, (std::vector<std::uint8_t>{1, 2}));
  EXPECT_EQ(value(L"three").data, (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_EQ(value(L"four").data, (std::vector<std::uint8_t>{1, 2, 3, 4}));
  const std::vector<std::uint8_t>& big = value(L"big").data;
  ASSERT_EQ(big.size(), 100000u);
  for (std::size_t i = 0; i < big.size(); ++i) {
    ASSERT_EQ(big[i], static_cast<std::uint8_t>(i * 7)) << i;
  }
  EXPECT_EQ(value(L"caf\u00e9 \u65e5\u672c").data, Utf16z(L"\u00fcml\u00e4ut \u20ac"));
  EXPECT_EQ(value(L"back\\slash").data, Utf16z(L"x"));
  EXPECT_NE(FindChild(*types, L"\u00e4RGER"), nullptr);  // found by its upper case too
  EXPECT_NE(FindChild(*types, L"\u65e5\u672c\u8a9e"), nullptr);
  EXPECT_NE(FindChild(*types, L"\u0436\u0423\u041a"), nullptr);

  const Key* wide = FindChild(*hive->root, L"Wide");
  ASSERT_NE(wide, nullptr);
  ASSERT_EQ(wide->children.size(), 5000u);
  for (std::size_t i = 0; i < 5000; ++i) {
    wchar_t name[16];
    std::swprintf(name, 16, L"Sub%05zu", i);
    ASSERT_EQ(wide->children[i]->name, name);
    ASSERT_EQ(wide->children[i]->values.size(), i % 1000 == 0 ? 1u : 0u) << i;
  }
  EXPECT_EQ(FindValue(*wide->children[3000], L"n")->data,
            (std::vector<std::uint8_t>{0xB8, 0x0B, 0, 0}));

  const Key* deep = hive->root.get();
  for (int level = 0; level < 512; ++level) {
    wchar_t name[16];
    std::swprintf(name, 16, L"Deep%03d", level);
    deep = FindChild(*deep, name);
    ASSERT_NE(deep, nullptr) << level;
  }
  EXPECT_TRUE(deep->children.empty());
  ASSERT_NE(FindValue(*deep, L"bottom"), nullptr);
  EXPECT_EQ(FindValue(*deep, L"bottom")->data, Utf16z(L"deepest"));
}

TEST_F(RegMergedHive, ReadsAsHivexReadsIt) {
  auto hive = ReadOurs(input_);
  ASSERT_TRUE(hive);
  const std::string ours = testing::Dump(*hive->root);
  EXPECT_TRUE(ours == InputHivexDump()) << FirstDifference(ours, InputHivexDump());
}

TEST_F(RegMergedHive, SavedHiveReadsIdenticallyWithReglookup) {
  if (!testing::HaveCommand("command -v reglookup")) GTEST_SKIP() << "reglookup is not installed";
  bool ok = false;
  // Keys, values, types, data, times, owner, group, SACL, DACL and class of every key.
  const std::string before = RunShell("reglookup -s " + Quote(input_) + " 2>/dev/null", &ok);
  EXPECT_TRUE(ok);
  const std::string after = RunShell("reglookup -s " + Quote(saved_) + " 2>/dev/null", &ok);
  EXPECT_TRUE(ok);
  EXPECT_TRUE(after == before) << FirstDifference(after, before);
  // Every key and value is listed: header, 1 + 512 + 1 + 3 + 1 + 5000 keys, 1 + 22 + 5 values.
  EXPECT_EQ(std::count(after.begin(), after.end(), '\n'), 5547);
}

TEST_F(RegMergedHive, SavedHiveReadsIdenticallyWithHivex) {
  const std::string saved = testing::HivexDump(saved_);
  EXPECT_TRUE(saved == InputHivexDump()) << FirstDifference(saved, InputHivexDump());
}

TEST_F(RegMergedHive, SavedHiveReadsIdenticallyWithLibregf) {
  bool ok = false;
  if (!testing::HaveCommand(kPython + " -c 'import pyregf'")) {
    GTEST_SKIP() << "python3-libregf is not installed";
  }
  // libregf itself cannot read hivex's 100,000-byte value (one cell where it expects big data
  // records), so the saved hive is compared with what hivex reads from the input.
  const std::string libregf =
      RunShell(kPython + " " + kHiveScripts + "regf_dump.py " + Quote(saved_), &ok);
  EXPECT_TRUE(ok);
  const std::string expected = AsLibregfReadsResidentData(InputHivexDump());
  const std::string read = WithoutClassLines(libregf);
  EXPECT_TRUE(read == expected) << FirstDifference(read, expected);
  EXPECT_EQ(libregf.find("C -"), libregf.find("C "));  // no key has a class
  if (testing::HaveCommand("command -v regfexport")) {
    const std::string exported = RunShell("regfexport " + Quote(saved_) + " 2>&1", &ok);
    EXPECT_TRUE(ok);
    std::size_t keys = 0;
    for (std::size_t at = exported.find("Key path: "); at != std::string::npos;
         at = exported.find("Key path: ", at + 1)) {
      ++keys;
    }
    EXPECT_EQ(keys, 1u + 512 + 1 + 3 + 1 + 5000);
  }
}

TEST_F(RegMergedHive, SavedHivePassesTheLintAndDumpsAsTheInput) {
  bool ok = false;
  const std::string check =
      RunShell(std::string(TARNWICK_HIVE_TOOL) + " check " + Quote(saved_) + " 2>&1", &ok);
  EXPECT_TRUE(ok) << check;
  const std::string before =
      RunShell(std::string(TARNWICK_HIVE_TOOL) + " dump " + Quote(input_), &ok);
  EXPECT_TRUE(ok);
  const std::string after =
      RunShell(std::string(TARNWICK_HIVE_TOOL) + " dump " + Quote(saved_), &ok);
  EXPECT_TRUE(ok);
  EXPECT_TRUE(after == before) << FirstDifference(after, before);
  // Compact: the saved hive is a small fraction of hivex's (which never reuses freed cells).
  EXPECT_LT(std::filesystem::file_size(saved_) * 10, std::filesystem::file_size(input_));
}

}  // namespace
}  // namespace tw::hive
