// The forensic test corpus of tests/data/hives/yarp (real hives written by Windows, some damaged
// on purpose; see its NOTICE.md). The table says, for every hive of it, whether OROpenHive opens
// it or refuses it and why. Every hive it opens is saved through ORSaveHive, and reglookup (with
// security and classes), hivex and libregf must read from the saved file exactly what they read
// from the original: keys, values with every byte of their data, classes, times and security.
// A reader that cannot read an original (damaged on purpose) is named in the table; what it
// reads from the saved file is then compared with our own reading of the original.
//
// A hive that Windows did not close cleanly is also opened where it lies, with its transaction
// logs beside it: usable logs are replayed before the hive is used, damaged ones are refused and
// the hive opens as it stands, and the files are never changed. Each test skips a reader that is
// not installed.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "base/win32_error.h"
#include "hive/hive_reader.h"
#include "hive/offreg_api.h"
#include "hive_dump.h"
#include "hive_readers.h"
#include "hive_test_util.h"

namespace tw::hive {
namespace {

using testing::FirstDifference;

// The independent readers, as bits of a set.
constexpr unsigned kHivex = 1;
constexpr unsigned kLibregf = 2;
constexpr unsigned kReglookup = 4;

// What lies beside a hive in the corpus, and what opening it there gives.
enum class Logs {
  kNone,      // no logs: the hive opens as it stands
  kUnusable,  // logs that Windows refuses (damaged, wrong sequence): it opens as it stands
  kReplayed,  // logs with newer data, which Windows replays before the hive is used
};

struct CorpusHive {
  const char* file;      // under tests/data/hives/yarp
  err::Win32Error open;  // OROpenHive on the file alone (no logs beside it)
  const char* reason;    // a part of the reason the reader gives when it refuses the file
  unsigned unreadable;   // readers that cannot read the original
  unsigned undecodable;  // of those, the ones that cannot read our saved file either
  Logs logs;
  const char* recovered;  // Windows' own recovery of the hive, when the corpus holds it
};

constexpr err::Win32Error kOpens = err::kSuccess;
constexpr err::Win32Error kRefused = err::kNotRegistryFile;

// clang-format off
constexpr CorpusHive kCorpus[] = {
  // Damaged base blocks and files that are no primary hive.
  {"BadBaseBlockHive/BadBaseBlockHive", kRefused, "the base block checksum is wrong", 0, 0,
   Logs::kReplayed, nullptr},  // .LOG1 (old format) holds a sound base block
  {"EffectiveSizeHive", kRefused, "the base block checksum is wrong", 0, 0, Logs::kNone, nullptr},
  {"GarbageHive", kRefused, "the base block checksum is wrong", 0, 0, Logs::kNone, nullptr},
  {"InvalidParentFragment", kRefused, "signature \"regf\"", 0, 0, Logs::kNone, nullptr},
  {"OldLogWithRemnantData", kRefused, "not a primary hive file", 0, 0, Logs::kNone, nullptr},  // a transaction log, not a hive
  {"TruncatedHiveBin", kRefused, "the base block is truncated", 0, 0, Logs::kNone, nullptr},
  {"TruncatedHive", kRefused, "the file is truncated", 0, 0, Logs::kNone, nullptr},
  {"TruncatedDirtyHive", kRefused, "the file is truncated", 0, 0, Logs::kNone, nullptr},
  // Broken records: hivex, libregf and reglookup read past these, losing or doubling keys.
  {"BadListHive", kRefused, "cell referenced twice", 0, 0, Logs::kNone, nullptr},
  {"BadSubkeyHive", kRefused, "cell referenced twice", 0, 0, Logs::kNone, nullptr},
  {"DuplicateSubkeysHive", kRefused, "two sub keys with the same name", 0, 0, Logs::kNone, nullptr},
  {"DeletedDataHiveTruncated", kRefused, "reference to no allocated cell", 0, 0, Logs::kNone,
   nullptr},
  {"TruncatedNameHive", kRefused, "key name runs past its cell", 0, 0, Logs::kNone, nullptr},
  // Dirty hives with their logs.
  {"NewDirtyHive1/NewDirtyHive", kOpens, "", 0, 0, Logs::kReplayed,
   "NewDirtyHive1/RecoveredHive_Windows10"},
  {"NewDirtyHive1/RecoveredHive_Windows10", kOpens, "", 0, 0, Logs::kNone, nullptr},
  // NewDirtyHive1 but for its sequence numbers (4 and 3): its .LOG1 is older and skipped, its
  // .LOG2 (the same file) brings it to the tree of Windows' recovery of NewDirtyHive1.
  {"NewDirtyHive2/NewDirtyHive", kOpens, "", 0, 0, Logs::kReplayed,
   "NewDirtyHive1/RecoveredHive_Windows10"},
  // Damaged logs (a wrong base block checksum, a missing dirty vector): Windows refuses them, the
  // hive opens as it stands.
  {"BadLogHive1/BadLogHive", kOpens, "", 0, 0, Logs::kUnusable, nullptr},
  {"BadLogHive2/BadLogHive", kOpens, "", 0, 0, Logs::kUnusable, nullptr},
  {"BadLogHive3/BadLogHive", kOpens, "", 0, 0, Logs::kUnusable, nullptr},
  // Sound hives: odd names, data, lists, flags, security; free cells with old data.
  {"BigDataHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"BogusKeyNamesHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"CompHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"DeletedDataHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"DeletedTreeHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"DeletedTreeNoRootFlagHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"DeletedTreePartialPathHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"DupNameHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"EmptyHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"ExtendedASCIIHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"HealedHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"InvalidParentHive", kOpens, "", 0, 0, Logs::kNone, nullptr},  // parent links ignored
  {"ManySubkeysHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"MultiSzHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"NewFlagsHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"OffHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"PairHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"ReallocValueDataHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"ReallocValueHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"RemnantData", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"RemnantsHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"SlackHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"StringValuesHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  // A differencing hive (regf 1.6): hivex fails on one of its values ("Bad address").
  {"System_Delta", kOpens, "", kHivex, 0, Logs::kNone, nullptr},
  // A key named by a lone surrogate: hivex and libregf cannot decode the name, in either file.
  {"TruncatedPairHive", kOpens, "", kHivex | kLibregf, kHivex | kLibregf, Logs::kNone, nullptr},
  {"TruncatedPairHive2", kOpens, "", kHivex | kLibregf, kHivex | kLibregf, Logs::kNone, nullptr},
  {"TwoOwnersHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"UnicodeHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"UpcaseHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"ValuesOrderHive", kOpens, "", 0, 0, Logs::kNone, nullptr},
  {"WrongOrderHive", kOpens, "", 0, 0, Logs::kNone, nullptr},  // lists sorted on save
};
// clang-format on

std::filesystem::path CorpusFolder() { return testing::TestHive("yarp"); }

bool IsLog(const std::filesystem::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return extension == ".LOG1" || extension == ".LOG2";
}

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

unsigned InstalledReaders() {
  return (testing::HaveHivex() ? kHivex : 0) | (testing::HavePyregf() ? kLibregf : 0) |
         (testing::HaveReglookup() ? kReglookup : 0);
}

// What the three readers read from a file.
struct Readings {
  unsigned failed = 0;  // the readers that could not read it
  std::string hivex;
  std::string libregf;
  std::string reglookup;
};

Readings Read(const std::filesystem::path& hive) {
  Readings out;
  bool ok = false;
  if (testing::HaveHivex()) {
    out.hivex = testing::HivexDump(hive, &ok);
    if (!ok) out.failed |= kHivex;
  }
  if (testing::HavePyregf()) {
    out.libregf = testing::RegfDump(hive, &ok);
    if (!ok) out.failed |= kLibregf;
  }
  if (testing::HaveReglookup()) {
    out.reglookup = testing::ReglookupRows(hive, &ok);
    if (!ok) out.failed |= kReglookup;
  }
  return out;
}

// Compares one reader's listing of the saved file with its listing of the original.
void ExpectSameListing(const char* reader, const std::string& original, const std::string& saved) {
  if (saved == original) return;
  ADD_FAILURE() << reader
                << " reads the saved file differently: " << FirstDifference(saved, original);
}

// The saved file must read as the original does, reader by reader. A reader that cannot read
// the original is compared with our own reading of it (hivex and libregf list in our format).
void ExpectSameReadings(const CorpusHive& row, const Readings& original, const Readings& saved,
                        const Hive& ours) {
  EXPECT_EQ(original.failed, row.unreadable & InstalledReaders())
      << "readers that cannot read the original";
  EXPECT_EQ(saved.failed, row.undecodable & InstalledReaders())
      << "readers that cannot read the saved file";
  const std::string ourListing = testing::Dump(*ours.root);
  if (testing::HaveHivex() && (saved.failed & kHivex) == 0) {
    ExpectSameListing("hivex", (original.failed & kHivex) ? ourListing : original.hivex,
                      saved.hivex);
  }
  if (testing::HavePyregf() && (saved.failed & kLibregf) == 0) {
    if (original.failed & kLibregf) {
      ExpectSameListing("libregf", testing::AsLibregfReadsResidentData(ourListing),
                        testing::WithoutClassLines(saved.libregf));
    } else {
      ExpectSameListing("libregf", original.libregf, saved.libregf);
    }
  }
  if (testing::HaveReglookup() && (saved.failed & kReglookup) == 0 &&
      (original.failed & kReglookup) == 0) {
    ExpectSameListing("reglookup", original.reglookup, saved.reglookup);
  }
}

std::unique_ptr<Hive> ParseFile(const std::filesystem::path& path) {
  ReadResult result = ParseHive(testing::ReadBytes(path));
  EXPECT_EQ(result.error, err::kSuccess) << Narrow(result.reason);
  return std::move(result.hive);
}

// Opens a hive through OROpenHive and saves it through ORSaveHive; the open's result.
err::Win32Error OpenAndSave(const std::filesystem::path& hive, const std::filesystem::path& saved) {
  ORHKEY root = nullptr;
  const err::Win32Error opened{tw_OROpenHive(hive.wstring().c_str(), &root)};
  if (opened != err::kSuccess) return opened;
  EXPECT_EQ(tw_ORSaveHive(root, saved.wstring().c_str(), 6, 1), err::kSuccess);
  EXPECT_EQ(tw_ORCloseHive(root), err::kSuccess);
  return opened;
}

// Copies the hive's folder (the hive and its logs) into `folder`; the copy of the hive.
std::filesystem::path CopyWithLogs(const CorpusHive& row, const testing::TempFolder& folder) {
  const std::filesystem::path source = CorpusFolder() / row.file;
  for (const auto& entry : std::filesystem::directory_iterator(source.parent_path())) {
    if (entry.path() == source ||
        (IsLog(entry.path()) && entry.path().stem() == source.filename())) {
      std::filesystem::copy_file(entry.path(), folder.path() / entry.path().filename());
    }
  }
  return folder.path() / source.filename();
}

// Whether this engine replays transaction logs: NewDirtyHive1 holds "Key3" only once its logs
// are replayed (Windows' recovery of it has it; the file as it stands has "Key1" instead).
bool EngineReplaysLogs() {
  static const bool replays = [] {
    testing::TempFolder folder;
    const auto row = std::find_if(std::begin(kCorpus), std::end(kCorpus), [](const CorpusHive& r) {
      return std::string(r.file) == "NewDirtyHive1/NewDirtyHive";
    });
    const std::filesystem::path hive = CopyWithLogs(*row, folder);
    ORHKEY root = nullptr;
    if (tw_OROpenHive(hive.wstring().c_str(), &root) != err::kSuccess) return false;
    ORHKEY key = nullptr;
    const bool found = tw_OROpenKey(root, L"Key3", &key) == err::kSuccess;
    tw_ORCloseHive(root);
    return found;
  }();
  return replays;
}

class HiveCorpus : public ::testing::TestWithParam<CorpusHive> {};
class DirtyHiveCorpus : public ::testing::TestWithParam<CorpusHive> {};

std::vector<CorpusHive> RowsWithLogs() {
  std::vector<CorpusHive> rows;
  std::copy_if(std::begin(kCorpus), std::end(kCorpus), std::back_inserter(rows),
               [](const CorpusHive& row) { return row.logs != Logs::kNone; });
  return rows;
}

TEST(HiveCorpusTable, NamesEveryHiveOfTheCorpus) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(CorpusFolder())) {
    if (!entry.is_regular_file() || IsLog(entry.path()) || entry.path().filename() == "NOTICE.md") {
      continue;
    }
    files.push_back(std::filesystem::relative(entry.path(), CorpusFolder()).generic_string());
  }
  std::vector<std::string> rows;
  for (const CorpusHive& row : kCorpus) rows.emplace_back(row.file);
  std::sort(files.begin(), files.end());
  std::sort(rows.begin(), rows.end());
  EXPECT_EQ(rows, files);
}

TEST_P(HiveCorpus, OpensOrRefusesAsTheTableSaysAndRoundTrips) {
  const CorpusHive& row = GetParam();
  const std::filesystem::path original = CorpusFolder() / row.file;
  testing::TempFolder folder;
  // The file alone, without the logs that may lie beside it in the corpus.
  const std::filesystem::path alone = folder / "alone";
  std::filesystem::copy_file(original, alone);
  const std::filesystem::path saved = folder / "saved.hiv";
  ASSERT_EQ(OpenAndSave(alone, saved), row.open);
  if (row.open != err::kSuccess) {
    const ReadResult read = ParseHive(testing::ReadBytes(original));
    EXPECT_EQ(read.error, row.open);
    EXPECT_NE(Narrow(read.reason).find(row.reason), std::string::npos) << Narrow(read.reason);
    return;
  }
  const auto ours = ParseFile(original);
  ASSERT_TRUE(ours);
  ExpectSameReadings(row, Read(original), Read(saved), *ours);
}

// Opened where it lies, with its logs beside it.
TEST_P(DirtyHiveCorpus, OpensWithItsLogsAsWindowsDoes) {
  const CorpusHive& row = GetParam();
  testing::TempFolder folder;
  const std::filesystem::path hive = CopyWithLogs(row, folder);
  std::vector<std::vector<std::uint8_t>> before;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    before.push_back(testing::ReadBytes(entry.path()));
  }
  testing::TempFolder out;
  const std::filesystem::path saved = out / "saved.hiv";
  const err::Win32Error opened = OpenAndSave(hive, saved);
  std::vector<std::vector<std::uint8_t>> after;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    after.push_back(testing::ReadBytes(entry.path()));
  }
  EXPECT_EQ(after, before) << "the hive or its logs were changed";

  const bool replayed = row.logs == Logs::kReplayed && EngineReplaysLogs();
  if (!replayed) {
    // As it stands: what the file alone gives.
    ASSERT_EQ(opened, row.open);
    if (opened != err::kSuccess) return;
    const auto ours = ParseFile(hive);
    ASSERT_TRUE(ours);
    ExpectSameReadings(row, Read(hive), Read(saved), *ours);
    return;
  }
  ASSERT_EQ(opened, err::kSuccess);
  if (row.recovered != nullptr) {
    const std::filesystem::path reference = CorpusFolder() / row.recovered;
    const auto windows = ParseFile(reference);
    ASSERT_TRUE(windows);
    ExpectSameReadings(row, Read(reference), Read(saved), *windows);
    return;
  }
  // No reference (BadBaseBlockHive): the readers read the saved hive as we do.
  const auto ours = ParseFile(saved);
  ASSERT_TRUE(ours);
  const Readings readings = Read(saved);
  EXPECT_EQ(readings.failed, 0u);
  if (testing::HaveHivex()) {
    EXPECT_EQ(readings.hivex, testing::Dump(*ours->root));
  }
  if (std::string(row.file) == "BadBaseBlockHive/BadBaseBlockHive") {
    EXPECT_NE(FindChild(*ours->root, L"key_with_many_subkeys"), nullptr);
  }
}

std::string RowName(const ::testing::TestParamInfo<CorpusHive>& info) {
  std::string name = info.param.file;
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Yarp, HiveCorpus, ::testing::ValuesIn(kCorpus), RowName);
INSTANTIATE_TEST_SUITE_P(Yarp, DirtyHiveCorpus, ::testing::ValuesIn(RowsWithLogs()), RowName);

}  // namespace
}  // namespace tw::hive
