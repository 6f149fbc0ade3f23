// Transaction-log recovery on the dirty hives of the forensic corpus (tests/data/hives/yarp, see
// its NOTICE.md), written by Windows itself or damaged on purpose. What Windows makes of each:
//
// - NewDirtyHive1 (sequence numbers 3/2), .LOG1 with entry 2 and .LOG2 with entries 3 to 5 (new
//   format): both logs apply, .LOG1 first; the hive equals RecoveredHive_Windows10, the same
//   hive after Windows itself replayed the logs, down to the bytes of its hive bins.
// - NewDirtyHive2 (4/3), the same logs: .LOG1 is older than the hive's secondary sequence number
//   and is passed over; .LOG2 alone gives the same hive.
// - BadLogHive3 (3/2), both logs with a wrong base block checksum: no log is usable; the hive is
//   read as it stands (stale) and reported not recovered.
// - BadLogHive1 (5/4), an old-format .LOG1 with a wrong base block checksum and an empty .LOG2:
//   read as it stands, not recovered.
// - BadLogHive2 (5/4), an old-format .LOG1 whose dirty vector lacks "DIRT": the same.
// - BadBaseBlockHive (a broken base block: version 1.1, wrong checksum), a valid old-format
//   .LOG1: the log's base block replaces the broken one and its dirty pages are applied.
// - TruncatedDirtyHive (5/4, 12 KB of 476 KB), no logs: not recovered; the reader refuses it.
// - OldLogWithRemnantData, an old-format log with bytes after its last dirty page: beside
//   BadLogHive1's hive it recovers it as BadBaseBlockHive.LOG1 does; the remnant is ignored.
#include "hive/hive_log_recovery.h"

#include <gtest/gtest.h>

#include <map>

#include "hive/offreg_api.h"
#include "hive/regf_layout.h"
#include "hive/regf_log_layout.h"
#include "hive_log_test_util.h"

namespace tw::hive {
namespace {

using testing::CopyCorpus;
using testing::CorpusFile;
using testing::DumpAsItStands;
using testing::Narrow;
using testing::ReadAndDump;
using testing::TempFolder;

std::string Recovered() { return ReadAndDump(CorpusFile("NewDirtyHive1/RecoveredHive_Windows10")); }

// Every file of a folder with its bytes.
std::map<std::string, std::vector<std::uint8_t>> Snapshot(const TempFolder& folder) {
  std::map<std::string, std::vector<std::uint8_t>> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    files[entry.path().filename().string()] = testing::ReadBytes(entry.path());
  }
  return files;
}

TEST(Marvin32, MatchesTheHashesWindowsWroteIntoALogEntry) {
  const auto log = testing::ReadBytes(CorpusFile("NewDirtyHive1/NewDirtyHive.LOG2"));
  ASSERT_GT(log.size(), 0x2000u);
  const std::span<const std::uint8_t> entry(log.data() + 0x200, 0x1E00);
  EXPECT_EQ(regf::Marvin32(entry.first(32), regf::kLogEntryHashSeed),
            regf::Get64(entry.data() + regf::kEntryHeaderHash));
  EXPECT_EQ(regf::Marvin32(entry.subspan(40), regf::kLogEntryHashSeed),
            regf::Get64(entry.data() + regf::kEntryDataHash));
  // Lengths that are not a multiple of four take the padding path.
  EXPECT_NE(regf::Marvin32(entry.first(33), regf::kLogEntryHashSeed),
            regf::Marvin32(entry.first(34), regf::kLogEntryHashSeed));
}

TEST(HiveLogRecovery, NewDirtyHiveOpensAsWindowsRecoveredIt) {
  TempFolder folder;
  CopyCorpus(folder, {{"NewDirtyHive1/NewDirtyHive", "NewDirtyHive"},
                      {"NewDirtyHive1/NewDirtyHive.LOG1", "NewDirtyHive.LOG1"},
                      {"NewDirtyHive1/NewDirtyHive.LOG2", "NewDirtyHive.LOG2"}});
  const auto before = Snapshot(folder);
  RecoveryState state = RecoveryState::kClean;
  std::wstring detail;
  const std::string recovered = ReadAndDump(folder / "NewDirtyHive", &state, &detail);
  EXPECT_EQ(state, RecoveryState::kRecovered);
  EXPECT_EQ(Narrow(detail), ".LOG1: entries 2 to 2 applied; .LOG2: entries 3 to 5 applied");
  EXPECT_EQ(recovered, Recovered());
  // The stale hive on its own is different: 4 of its 5 keys are not Windows' ones.
  EXPECT_NE(DumpAsItStands(CorpusFile("NewDirtyHive1/NewDirtyHive")), recovered);

  // The hive bins data is Windows' own, byte for byte.
  HiveFile file;
  ASSERT_EQ(ReadHiveFile((folder / "NewDirtyHive").wstring(), &file), err::kSuccess);
  const auto windows = testing::ReadBytes(CorpusFile("NewDirtyHive1/RecoveredHive_Windows10"));
  const auto ours = file.View();
  ASSERT_EQ(ours.size(), windows.size());
  EXPECT_TRUE(std::equal(ours.begin() + regf::kBaseBlockSize, ours.end(),
                         windows.begin() + regf::kBaseBlockSize));
  EXPECT_EQ(regf::Get32(ours.data() + regf::kBasePrimarySequence), 5u);
  EXPECT_EQ(regf::Get32(ours.data() + regf::kBaseSecondarySequence), 5u);

  // OROpenHive sees the recovered hive, and says so; saving it keeps every key and value.
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_OROpenHive((folder / "NewDirtyHive").wstring().c_str(), &hive), err::kSuccess);
  DWORD recovery = 9;
  EXPECT_EQ(tw_QueryHiveRecovery(hive, &recovery), err::kSuccess);
  EXPECT_EQ(recovery, 1u);
  ASSERT_EQ(tw_ORSaveHive(hive, (folder / "saved.dat").wstring().c_str(), 6, 1), err::kSuccess);
  EXPECT_EQ(tw_ORCloseHive(hive), err::kSuccess);
  const auto saved = testing::ReadBytes(folder / "saved.dat");
  const ReadResult reread = ParseHive(saved);
  ASSERT_EQ(reread.error, err::kSuccess);
  EXPECT_EQ(testing::Dump(*reread.hive->root), testing::Dump(*ParseHive(windows).hive->root));

  // The share's files are never changed.
  std::filesystem::remove(folder / "saved.dat");
  EXPECT_EQ(Snapshot(folder), before);
}

TEST(HiveLogRecovery, OlderLogIsPassedOver) {
  TempFolder folder;
  CopyCorpus(folder, {{"NewDirtyHive2/NewDirtyHive", "NewDirtyHive"},
                      {"NewDirtyHive2/NewDirtyHive.LOG1", "NewDirtyHive.LOG1"},
                      {"NewDirtyHive2/NewDirtyHive.LOG2", "NewDirtyHive.LOG2"}});
  RecoveryState state = RecoveryState::kClean;
  std::wstring detail;
  EXPECT_EQ(ReadAndDump(folder / "NewDirtyHive", &state, &detail), Recovered());
  EXPECT_EQ(state, RecoveryState::kRecovered);
  EXPECT_EQ(Narrow(detail), ".LOG1: older than the hive; .LOG2: entries 3 to 5 applied");
}

TEST(HiveLogRecovery, LogsAreFoundWithoutRegardToCase) {
  TempFolder folder;
  CopyCorpus(folder, {{"NewDirtyHive1/NewDirtyHive", "ntuser.dat"},
                      {"NewDirtyHive1/NewDirtyHive.LOG1", "NTUSER.DAT.log1"},
                      {"NewDirtyHive1/NewDirtyHive.LOG2", "NtUser.dat.Log2"}});
  RecoveryState state = RecoveryState::kClean;
  EXPECT_EQ(ReadAndDump(folder / "ntuser.dat", &state), Recovered());
  EXPECT_EQ(state, RecoveryState::kRecovered);
}

TEST(HiveLogRecovery, LinkedLogsAreNotFollowedAndOddNamesAreSkipped) {
  TempFolder folder;
  CopyCorpus(folder, {{"NewDirtyHive1/NewDirtyHive", "NewDirtyHive"},
                      {"NewDirtyHive1/NewDirtyHive.LOG1", "elsewhere"},
                      {"NewDirtyHive1/NewDirtyHive.LOG2", "newdirtyhive.log2"}});
  std::filesystem::create_symlink(folder / "elsewhere", folder / "NewDirtyHive.LOG1");
  testing::WriteBytes(folder / std::string("\xff\xfe.LOG1"), {1, 2, 3});  // not UTF-8
  RecoveryState state = RecoveryState::kClean;
  std::wstring detail;
  ReadAndDump(folder / "NewDirtyHive", &state, &detail);
  EXPECT_EQ(state, RecoveryState::kRecovered);
  EXPECT_EQ(Narrow(detail), ".LOG2: entries 3 to 5 applied");
}

TEST(HiveLogRecovery, DirtyHiveWithoutLogsOpensAsItStands) {
  TempFolder folder;
  CopyCorpus(folder, {{"NewDirtyHive1/NewDirtyHive", "NewDirtyHive"}});
  RecoveryState state = RecoveryState::kClean;
  std::wstring detail;
  EXPECT_EQ(ReadAndDump(folder / "NewDirtyHive", &state, &detail),
            DumpAsItStands(CorpusFile("NewDirtyHive1/NewDirtyHive")));
  EXPECT_EQ(state, RecoveryState::kNotRecovered);
  EXPECT_EQ(Narrow(detail), "no transaction log lies beside it");

  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_OROpenHive((folder / "NewDirtyHive").wstring().c_str(), &hive), err::kSuccess);
  DWORD recovery = 9;
  EXPECT_EQ(tw_QueryHiveRecovery(hive, &recovery), err::kSuccess);
  EXPECT_EQ(recovery, 2u);
  EXPECT_EQ(tw_ORCloseHive(hive), err::kSuccess);
}

TEST(HiveLogRecovery, DamagedNewLogsAreNotUsed) {
  RecoveryState state = RecoveryState::kClean;
  std::wstring detail;
  EXPECT_EQ(ReadAndDump(CorpusFile("BadLogHive3/BadLogHive"), &state, &detail),
            DumpAsItStands(CorpusFile("NewDirtyHive1/NewDirtyHive")));
  EXPECT_EQ(state, RecoveryState::kNotRecovered);
  EXPECT_EQ(Narrow(detail),
            ".LOG1: the base block checksum is wrong; .LOG2: the base block checksum is wrong");
}

TEST(HiveLogRecovery, DamagedOldLogsAreNotUsed) {
  RecoveryState state = RecoveryState::kClean;
  std::wstring detail;
  const std::string stale = ReadAndDump(CorpusFile("BadLogHive1/BadLogHive"), &state, &detail);
  EXPECT_EQ(stale.rfind("root ", 0), 0u) << stale;
  EXPECT_EQ(state, RecoveryState::kNotRecovered);
  EXPECT_EQ(Narrow(detail), ".LOG1: the base block checksum is wrong; .LOG2: the file is empty");

  EXPECT_EQ(ReadAndDump(CorpusFile("BadLogHive2/BadLogHive"), &state, &detail), stale);
  EXPECT_EQ(state, RecoveryState::kNotRecovered);
  EXPECT_EQ(Narrow(detail),
            ".LOG1: no dirty vector (\"DIRT\") follows its base block; .LOG2: the file is empty");
}

TEST(HiveLogRecovery, BrokenBaseBlockIsRecoveredFromTheOldLog) {
  // Without its log the hive cannot be read at all.
  TempFolder folder;
  CopyCorpus(folder, {{"BadBaseBlockHive/BadBaseBlockHive", "BadBaseBlockHive"}});
  EXPECT_EQ(ReadAndDump(folder / "BadBaseBlockHive"),
            "error " + std::to_string(err::kNotRegistryFile));

  RecoveryState state = RecoveryState::kClean;
  std::wstring detail;
  const std::string recovered =
      ReadAndDump(CorpusFile("BadBaseBlockHive/BadBaseBlockHive"), &state, &detail);
  EXPECT_EQ(state, RecoveryState::kRecovered);
  EXPECT_EQ(Narrow(detail), ".LOG2: the file is empty; .LOG1: 64 dirty pages applied");
  EXPECT_NE(recovered.find("\nK \\" + testing::NameHex(L"key_with_many_subkeys") + " "),
            std::string::npos);
  // The same log beside the hive of BadLogHive1 (a valid base block) brings it to the same
  // state, and so does the log with remnant data after its last page.
  const std::string stale = DumpAsItStands(CorpusFile("BadLogHive1/BadLogHive"));
  EXPECT_NE(stale, recovered);
  for (const char* log : {"BadBaseBlockHive/BadBaseBlockHive.LOG1", "OldLogWithRemnantData"}) {
    TempFolder beside;
    CopyCorpus(beside, {{"BadLogHive1/BadLogHive", "BadLogHive"}, {log, "BadLogHive.LOG1"}});
    EXPECT_EQ(ReadAndDump(beside / "BadLogHive", &state), recovered) << log;
    EXPECT_EQ(state, RecoveryState::kRecovered) << log;
  }
}

TEST(HiveLogRecovery, TruncatedDirtyHiveIsRefused) {
  RecoveryState state = RecoveryState::kClean;
  EXPECT_EQ(ReadAndDump(CorpusFile("TruncatedDirtyHive"), &state),
            "error " + std::to_string(err::kNotRegistryFile));
  EXPECT_EQ(state, RecoveryState::kNotRecovered);
  ORHKEY hive = nullptr;
  EXPECT_EQ(tw_OROpenHive(CorpusFile("TruncatedDirtyHive").wstring().c_str(), &hive),
            err::kNotRegistryFile);
}

TEST(HiveLogRecovery, CleanHiveIgnoresLogsBesideIt) {
  TempFolder folder;
  // Windows' recovered hive is clean; the old logs beside it are stale junk.
  CopyCorpus(folder, {{"NewDirtyHive1/RecoveredHive_Windows10", "Hive"},
                      {"NewDirtyHive1/NewDirtyHive.LOG1", "Hive.LOG1"},
                      {"BadLogHive1/BadLogHive.LOG1", "Hive.LOG2"},
                      {"OldLogWithRemnantData", "Hive.LOG"}});
  HiveFile file;
  ASSERT_EQ(ReadHiveFile((folder / "Hive").wstring(), &file), err::kSuccess);
  EXPECT_EQ(file.state, RecoveryState::kClean);
  EXPECT_TRUE(file.detail.empty());
  EXPECT_TRUE(file.recovered.empty());
  const auto bytes = testing::ReadBytes(folder / "Hive");
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), file.View().begin(), file.View().end()));
}

TEST(HiveLogRecovery, DamagedEntryEndsTheReplay) {
  TempFolder folder;
  CopyCorpus(folder, {{"NewDirtyHive1/NewDirtyHive", "NewDirtyHive"},
                      {"NewDirtyHive1/NewDirtyHive.LOG1", "NewDirtyHive.LOG1"},
                      {"NewDirtyHive1/NewDirtyHive.LOG2", "NewDirtyHive.LOG2"}});
  auto log2 = testing::ReadBytes(folder / "NewDirtyHive.LOG2");
  log2[0x2000 + 0x1000] ^= 0x01;  // a byte inside entry 4's pages: its data hash no longer holds
  testing::WriteBytes(folder / "NewDirtyHive.LOG2", log2);
  RecoveryState state = RecoveryState::kClean;
  std::wstring detail;
  const std::string partial = ReadAndDump(folder / "NewDirtyHive", &state, &detail);
  EXPECT_EQ(state, RecoveryState::kRecovered);
  EXPECT_EQ(Narrow(detail),
            ".LOG1: entries 2 to 2 applied; .LOG2: entries 3 to 3 applied; "
            ".LOG2: entry at 0x00002000: wrong hash");
  EXPECT_NE(partial, Recovered());
}

TEST(HiveLogRecovery, QueryRejectsDeadHandlesAndReportsCreatedHivesClean) {
  DWORD state = 9;
  EXPECT_EQ(tw_QueryHiveRecovery(nullptr, &state), err::kInvalidHandle);
  ORHKEY hive = nullptr;
  ASSERT_EQ(tw_ORCreateHive(&hive), err::kSuccess);
  EXPECT_EQ(tw_QueryHiveRecovery(hive, nullptr), err::kInvalidParameter);
  EXPECT_EQ(tw_QueryHiveRecovery(hive, &state), err::kSuccess);
  EXPECT_EQ(state, 0u);
  EXPECT_EQ(tw_ORCloseHive(hive), err::kSuccess);
  EXPECT_EQ(tw_QueryHiveRecovery(hive, &state), err::kInvalidHandle);
}

// Mutated logs (single bytes, cut files) never crash the recovery or the reader after it.
TEST(HiveLogRecovery, MutatedLogsNeverCrash) {
  const auto primary = testing::ReadBytes(CorpusFile("NewDirtyHive1/NewDirtyHive"));
  const auto badBase = testing::ReadBytes(CorpusFile("BadBaseBlockHive/BadBaseBlockHive"));
  const auto newLog1 = testing::ReadBytes(CorpusFile("NewDirtyHive1/NewDirtyHive.LOG1"));
  const auto newLog2 = testing::ReadBytes(CorpusFile("NewDirtyHive1/NewDirtyHive.LOG2"));
  const auto oldLog = testing::ReadBytes(CorpusFile("BadBaseBlockHive/BadBaseBlockHive.LOG1"));
  std::mt19937 random(14);
  for (int round = 0; round < 300; ++round) {
    auto log1 = round % 2 == 0 ? newLog1 : oldLog;
    auto log2 = newLog2;
    for (int i = 0; i < 4; ++i) {
      auto& log = (i % 2 == 0) ? log1 : log2;
      log[random() % log.size()] = static_cast<std::uint8_t>(random());
    }
    if (round % 7 == 0) log2.resize(random() % log2.size());
    HiveLogs logs;
    logs.log1 = {log1, true};
    logs.log2 = {log2, true};
    const RecoveryResult result = RecoverHive(round % 2 == 0 ? primary : badBase, logs);
    if (result.state == RecoveryState::kRecovered) ParseHive(result.image);
  }
}

// Entries whose headers and page references are changed and whose hashes are then made right
// again (anyone can compute them) are refused or applied without a crash.
TEST(HiveLogRecovery, AuthenticButBogusEntriesNeverCrash) {
  const auto primary = testing::ReadBytes(CorpusFile("NewDirtyHive1/NewDirtyHive"));
  const auto original = testing::ReadBytes(CorpusFile("NewDirtyHive1/NewDirtyHive.LOG2"));
  const std::size_t entries[] = {0x200, 0x2000, 0x8000};
  std::mt19937 random(41);
  for (int round = 0; round < 2000; ++round) {
    auto log = original;
    const std::size_t at = entries[random() % 3];
    const std::size_t count = regf::Get32(log.data() + at + regf::kEntryPageCount);
    const std::size_t header = regf::kEntryHeader + count * regf::kEntryPageReference;
    for (int i = 0; i < 1 + round % 3; ++i) {
      std::size_t field = random() % header;
      if (field >= regf::kEntryDataHash && field < regf::kEntryHeader) field = regf::kEntryDataSize;
      log[at + field] = static_cast<std::uint8_t>(random());
    }
    const std::uint32_t size = regf::Get32(log.data() + at + regf::kEntrySize);
    if (size >= regf::kEntryHeader && size <= log.size() - at) {
      const std::span<const std::uint8_t> entry(log.data() + at, size);
      regf::Put64(log.data() + at + regf::kEntryDataHash,
                  regf::Marvin32(entry.subspan(regf::kEntryHeader), regf::kLogEntryHashSeed));
      regf::Put64(log.data() + at + regf::kEntryHeaderHash,
                  regf::Marvin32(entry.first(regf::kEntryHeaderHashed), regf::kLogEntryHashSeed));
    }
    HiveLogs logs;
    logs.log2 = {log, true};
    const RecoveryResult result = RecoverHive(primary, logs);
    if (result.state == RecoveryState::kRecovered) ParseHive(result.image);
  }
}

}  // namespace
}  // namespace tw::hive
