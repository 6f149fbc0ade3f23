// The replay rules of both log formats, on logs the tests build (hive_log_builder.h) between two
// hives the engine wrote: `from_`, what the hive file holds, and `to_`, a larger hive with more
// keys and values that its logs bring it to. The corpus has old-format logs written by Windows
// (hive_log_recovery_test.cpp), but no hive that Windows recovered from one, so the old format's
// rules are shown here: every page of `to_` that differs from `from_` is a dirty page.
#include <gtest/gtest.h>

#include <cstdio>
#include <tuple>

#include "hive/hive_log_recovery.h"
#include "hive/offreg_api.h"
#include "hive_log_builder.h"
#include "hive_log_test_util.h"

namespace tw::hive {
namespace {

using testing::Bytes;
using testing::DataSize;
using testing::Narrow;

constexpr std::uint32_t kSequence = 7;  // the hive file's primary sequence number

std::string DumpOf(std::span<const std::uint8_t> file) {
  const ReadResult parsed = ParseHive(file);
  if (parsed.error != err::kSuccess) return "error " + std::to_string(parsed.error);
  return testing::FullDump(*parsed.hive);
}

std::string Hex8(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "%08X", value);
  return text;
}

bool SameBins(std::span<const std::uint8_t> a, const Bytes& b) {
  const std::size_t end = regf::kBaseBlockSize + DataSize(b);
  return a.size() >= end &&
         std::equal(b.begin() + regf::kBaseBlockSize, b.begin() + static_cast<std::ptrdiff_t>(end),
                    a.begin() + regf::kBaseBlockSize);
}

class LogReplay : public ::testing::Test {
 protected:
  void SetUp() override {
    ORHKEY hive = nullptr;
    ASSERT_EQ(tw_ORCreateHive(&hive), err::kSuccess);
    AddKeys(hive, 0, 40, 40);
    from_ = Save(hive, "from.dat");
    AddKeys(hive, 40, 400, 300);
    const Bytes big(40000, 0x5A);
    ASSERT_EQ(tw_ORSetValue(hive, L"big", 3, big.data(), static_cast<DWORD>(big.size())),
              err::kSuccess);
    to_ = Save(hive, "to.dat");
    ASSERT_EQ(tw_ORCloseHive(hive), err::kSuccess);
    ASSERT_GT(DataSize(to_), DataSize(from_));
    dirty_ = testing::WithSequence(from_, kSequence, kSequence - 1);
  }

  static void AddKeys(ORHKEY hive, int first, int end, std::size_t dataSize) {
    const Bytes data(dataSize, 0x41);
    for (int i = first; i < end; ++i) {
      ORHKEY key = nullptr;
      const std::wstring name = L"Software\\App" + std::to_wstring(i);
      ASSERT_EQ(tw_ORCreateKey(hive, name.c_str(), nullptr, 0, nullptr, &key, nullptr),
                err::kSuccess);
      ASSERT_EQ(tw_ORSetValue(key, L"v", 3, data.data(), static_cast<DWORD>(data.size())),
                err::kSuccess);
      ASSERT_EQ(tw_ORCloseKey(key), err::kSuccess);
    }
  }

  Bytes Save(ORHKEY hive, const char* name) {
    const auto path = folder_ / name;
    EXPECT_EQ(tw_ORSaveHive(hive, path.wstring().c_str(), 6, 1), err::kSuccess);
    return testing::ReadBytes(path);
  }

  static RecoveryResult Recover(const Bytes& hive, const Bytes* log, const Bytes* log1,
                                const Bytes* log2 = nullptr) {
    HiveLogs logs;
    if (log != nullptr) logs.log = {*log, true};
    if (log1 != nullptr) logs.log1 = {*log1, true};
    if (log2 != nullptr) logs.log2 = {*log2, true};
    return RecoverHive(hive, logs);
  }

  testing::TempFolder folder_;
  Bytes from_;
  Bytes to_;
  Bytes dirty_;
};

TEST_F(LogReplay, OldLogBringsTheHiveToItsState) {
  const Bytes log = testing::OldLog(from_, to_, kSequence);
  for (const bool single : {true, false}) {
    const RecoveryResult result =
        single ? Recover(dirty_, &log, nullptr) : Recover(dirty_, nullptr, &log);
    ASSERT_EQ(result.state, RecoveryState::kRecovered) << Narrow(result.detail);
    EXPECT_TRUE(SameBins(result.image, to_));
    EXPECT_EQ(DumpOf(result.image), DumpOf(to_));
    const std::uint8_t* base = result.image.data();
    EXPECT_EQ(regf::Get32(base + regf::kBasePrimarySequence), kSequence);
    EXPECT_EQ(regf::Get32(base + regf::kBaseSecondarySequence), kSequence);
    EXPECT_EQ(regf::Get32(base + regf::kBaseFileType), 0u);
    EXPECT_EQ(regf::Get32(base + regf::kBaseDataSize), DataSize(to_));
  }
}

TEST_F(LogReplay, OldLogOlderThanTheHiveIsNotApplied) {
  Bytes log = testing::OldLog(from_, to_, kSequence);
  testing::SetLogTimestamp(log, regf::Get64(from_.data() + regf::kBaseTimestamp) - 1);
  const RecoveryResult result = Recover(dirty_, nullptr, &log);
  EXPECT_EQ(result.state, RecoveryState::kNotRecovered);
  EXPECT_EQ(Narrow(result.detail), ".LOG1: older than the hive");
}

TEST_F(LogReplay, NewestOldLogIsChosen) {
  Bytes stale = testing::OldLog(from_, from_, kSequence);  // no dirty page at all
  Bytes fresh = testing::OldLog(from_, to_, kSequence);
  const std::uint64_t time = regf::Get64(from_.data() + regf::kBaseTimestamp);
  testing::SetLogTimestamp(stale, time + 10);
  testing::SetLogTimestamp(fresh, time + 20);
  for (const bool freshFirst : {true, false}) {
    const RecoveryResult result = freshFirst ? Recover(dirty_, nullptr, &fresh, &stale)
                                             : Recover(dirty_, nullptr, &stale, &fresh);
    ASSERT_EQ(result.state, RecoveryState::kRecovered);
    EXPECT_TRUE(SameBins(result.image, to_)) << freshFirst;
  }
}

TEST_F(LogReplay, OldLogStopsAtAnInvalidDirtyBin) {
  Bytes log = testing::OldLog(from_, to_, kSequence);
  // The second bin of `to_` begins on a dirty page; its signature is damaged in the log.
  const std::uint32_t second = regf::Get32(to_.data() + regf::kBaseBlockSize + regf::kBinSize);
  ASSERT_LT(second, DataSize(to_));
  const std::vector<std::uint32_t> pages = testing::ChangedPages(from_, to_, 512);
  const auto position = std::find(pages.begin(), pages.end(), second);
  ASSERT_NE(position, pages.end());
  const std::size_t vectorBytes =
      (4 + DataSize(to_) / 4096 + regf::kLogSector - 1) / regf::kLogSector * regf::kLogSector;
  log[regf::kLogSector + vectorBytes + 512 * static_cast<std::size_t>(position - pages.begin())] =
      'X';
  const RecoveryResult result = Recover(dirty_, nullptr, &log);
  ASSERT_EQ(result.state, RecoveryState::kRecovered);
  EXPECT_EQ(Narrow(result.detail), ".LOG1: " + std::to_string(pages.size()) +
                                       " dirty pages applied; .LOG1: the bin at 0x" + Hex8(second) +
                                       " it wrote is invalid; its pages from there on were not "
                                       "applied");
  // Before that bin the pages are the log's; from it on every dirty page keeps the file's bytes.
  const std::size_t base = regf::kBaseBlockSize;
  EXPECT_TRUE(
      std::equal(to_.begin() + base, to_.begin() + base + second, result.image.begin() + base));
  for (const std::uint32_t at : pages) {
    if (at < second) continue;
    for (std::size_t i = 0; i < 512; ++i) {
      const std::size_t file = base + at + i;
      EXPECT_EQ(result.image[file], file < from_.size() ? from_[file] : 0) << at;
      if (result.image[file] != (file < from_.size() ? from_[file] : 0)) break;
    }
  }
}

TEST_F(LogReplay, EntriesBringTheHiveToItsState) {
  const Bytes log = testing::NewLog(from_, to_, kSequence, 3);
  const RecoveryResult result = Recover(dirty_, nullptr, &log);
  ASSERT_EQ(result.state, RecoveryState::kRecovered) << Narrow(result.detail);
  EXPECT_EQ(Narrow(result.detail), ".LOG1: entries 7 to 9 applied");
  EXPECT_TRUE(SameBins(result.image, to_));
  EXPECT_EQ(DumpOf(result.image), DumpOf(to_));
  EXPECT_EQ(regf::Get32(result.image.data() + regf::kBasePrimarySequence), 9u);
  EXPECT_EQ(regf::Get32(result.image.data() + regf::kBaseDataSize), DataSize(to_));
}

TEST_F(LogReplay, EntriesSpreadOverBothLogsAreReplayedInSequence) {
  const Bytes all = testing::NewLog(from_, to_, kSequence, 3);
  // The first two entries in one log, the third in the other, under either name.
  const std::size_t third = [&] {
    std::size_t at = regf::kLogSector;
    for (int i = 0; i < 2; ++i) at += regf::Get32(all.data() + at + regf::kEntrySize);
    return at;
  }();
  const Bytes first(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(third));
  Bytes second = testing::LogBaseBlock(to_, regf::kFileTypeLogEntries, kSequence + 2);
  second.insert(second.end(), all.begin() + static_cast<std::ptrdiff_t>(third), all.end());
  RecoveryResult result = Recover(dirty_, nullptr, &first, &second);
  EXPECT_EQ(Narrow(result.detail), ".LOG1: entries 7 to 8 applied; .LOG2: entries 9 to 9 applied");
  EXPECT_TRUE(SameBins(result.image, to_));
  result = Recover(dirty_, nullptr, &second, &first);
  EXPECT_EQ(Narrow(result.detail), ".LOG2: entries 7 to 8 applied; .LOG1: entries 9 to 9 applied");
  EXPECT_TRUE(SameBins(result.image, to_));

  // A second log that does not continue the first is not used.
  Bytes one = testing::LogBaseBlock(from_, regf::kFileTypeLogEntries, kSequence);
  Bytes gap = testing::LogBaseBlock(from_, regf::kFileTypeLogEntries, kSequence + 2);
  for (const auto& [log, sequence, page] :
       {std::tuple{&one, kSequence, 0u}, std::tuple{&gap, kSequence + 2, 4096u}}) {
    const Bytes entry = testing::LogEntry(to_, sequence, DataSize(from_), {page});
    log->insert(log->end(), entry.begin(), entry.end());
  }
  result = Recover(dirty_, nullptr, &one, &gap);
  EXPECT_EQ(Narrow(result.detail),
            ".LOG1: entries 7 to 7 applied; .LOG2: does not continue the entries before it");
  const std::size_t page = regf::kBaseBlockSize + 4096;
  EXPECT_TRUE(std::equal(to_.begin() + regf::kBaseBlockSize, to_.begin() + page,
                         result.image.begin() + regf::kBaseBlockSize));
  EXPECT_TRUE(
      std::equal(from_.begin() + page, from_.begin() + page + 4096, result.image.begin() + page));
}

TEST_F(LogReplay, EntryOutOfSequenceOrOutsideTheHiveEndsTheReplay) {
  Bytes log = testing::LogBaseBlock(to_, regf::kFileTypeLogEntries, kSequence);
  for (const Bytes& entry : {testing::LogEntry(to_, kSequence, DataSize(from_), {0}),
                             testing::LogEntry(to_, kSequence + 2, DataSize(from_), {4096})}) {
    log.insert(log.end(), entry.begin(), entry.end());
  }
  RecoveryResult result = Recover(dirty_, nullptr, &log);
  EXPECT_EQ(result.state, RecoveryState::kRecovered);
  EXPECT_EQ(Narrow(result.detail),
            ".LOG1: entries 7 to 7 applied; .LOG1: entry at 0x00001400: out of sequence");

  Bytes outside = testing::LogBaseBlock(to_, regf::kFileTypeLogEntries, kSequence);
  const Bytes entry = testing::LogEntry(to_, kSequence, 4096, {4096});
  outside.insert(outside.end(), entry.begin(), entry.end());
  result = Recover(dirty_, nullptr, &outside);
  EXPECT_EQ(result.state, RecoveryState::kNotRecovered);
  EXPECT_EQ(Narrow(result.detail),
            ".LOG1: entry at 0x00000200: a page lies outside the hive bins data");
}

TEST_F(LogReplay, LogOlderThanTheHiveIsPassedOver) {
  const Bytes log = testing::NewLog(from_, to_, kSequence - 2, 1);
  const RecoveryResult result = Recover(dirty_, nullptr, &log);
  EXPECT_EQ(result.state, RecoveryState::kNotRecovered);
  EXPECT_EQ(Narrow(result.detail), ".LOG1: older than the hive");
}

TEST_F(LogReplay, BrokenBaseBlockTakesTheNewerLogOnly) {
  Bytes broken = dirty_;
  broken[regf::kBaseMinor] = 1;  // the checksum no longer holds
  const Bytes older = testing::NewLog(from_, from_, kSequence - 5, 1);
  const Bytes newer = testing::NewLog(from_, to_, kSequence, 2);
  const RecoveryResult result = Recover(broken, nullptr, &newer, &older);
  ASSERT_EQ(result.state, RecoveryState::kRecovered);
  EXPECT_EQ(Narrow(result.detail), ".LOG1: entries 7 to 8 applied");
  EXPECT_EQ(DumpOf(result.image), DumpOf(to_));
  EXPECT_EQ(regf::Get32(result.image.data() + regf::kBaseMinor),
            regf::Get32(to_.data() + regf::kBaseMinor));
}

TEST_F(LogReplay, BrokenBaseBlockIsReplacedEvenWithoutEntries) {
  Bytes broken = dirty_;
  broken[regf::kBaseMinor] = 1;
  const Bytes log = testing::LogBaseBlock(from_, regf::kFileTypeLogEntries, kSequence);
  const RecoveryResult result = Recover(broken, nullptr, &log);
  ASSERT_EQ(result.state, RecoveryState::kRecovered);
  EXPECT_EQ(Narrow(result.detail),
            ".LOG1: no log entries; .LOG1: its base block replaces the hive's");
  EXPECT_EQ(DumpOf(result.image), DumpOf(from_));
}

TEST_F(LogReplay, EntryFlagsReachTheBaseBlock) {
  Bytes log = testing::LogBaseBlock(to_, regf::kFileTypeLogEntries, kSequence);
  const Bytes entry = testing::LogEntry(from_, kSequence, DataSize(from_), {0}, 1);
  log.insert(log.end(), entry.begin(), entry.end());
  const RecoveryResult result = Recover(dirty_, nullptr, &log);
  ASSERT_EQ(result.state, RecoveryState::kRecovered);
  EXPECT_EQ(regf::Get32(result.image.data() + regf::kBaseFlags) & 1u, 1u);
}

TEST_F(LogReplay, InvalidBinTheEntriesLeaveBecomesAnEmptyBin) {
  // An entry grows the hive by one block and writes zeros there: that block is no hive bin.
  const Bytes zeros(regf::kBaseBlockSize + DataSize(from_) + 4096, 0);
  Bytes log = testing::LogBaseBlock(from_, regf::kFileTypeLogEntries, kSequence);
  const Bytes entry =
      testing::LogEntry(zeros, kSequence, DataSize(from_) + 4096, {DataSize(from_)});
  log.insert(log.end(), entry.begin(), entry.end());
  const RecoveryResult result = Recover(dirty_, nullptr, &log);
  ASSERT_EQ(result.state, RecoveryState::kRecovered);
  const std::uint8_t* bin = result.image.data() + regf::kBaseBlockSize + DataSize(from_);
  EXPECT_EQ(std::string(bin, bin + 4), "hbin");
  EXPECT_EQ(regf::Get32(bin + regf::kBinOffset), DataSize(from_));
  EXPECT_EQ(regf::Get32(bin + regf::kBinSize), 4096u);
  EXPECT_EQ(regf::Get32(bin + regf::kBinHeaderSize), 4096u - 32u);  // one free cell
  EXPECT_EQ(DumpOf(result.image), DumpOf(from_));
}

}  // namespace
}  // namespace tw::hive
