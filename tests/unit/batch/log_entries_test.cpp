// The shared log read as entries, and the follower that hands out only the entries added since.
#include "batch/log_entries.h"

#include <gtest/gtest.h>

#include <fstream>

#include "fakes/temp_folder.h"

namespace tw::batch {
namespace {

void Append(const std::filesystem::path& file, const std::string& text) {
  std::ofstream(file, std::ios::binary | std::ios::app) << text;
}

TEST(LogEntriesTest, SplitsEntriesByPrefixAndKeepsTheirThreadIds) {
  const std::vector<LogEntry> entries = ParseLogEntries(
      "[11/24/26 07:00:00][0x00000abc] first\r\n"
      "[Invalid DateTime][0x0000beef] second\r\n");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].threadId, 0xabcu);
  EXPECT_EQ(entries[0].message, "first");
  EXPECT_EQ(entries[1].threadId, 0xbeefu);
  EXPECT_EQ(entries[1].message, "second");
}

TEST(LogEntriesTest, AMessageWithItsOwnLineBreaksStaysOneEntry) {
  const std::vector<LogEntry> entries = ParseLogEntries(
      "[11/24/26 07:00:00][0x00000001] No command line args, exiting.\r\n"
      "---------- Exiting tarnwick.exe (return -1) ----------\r\n"
      "[11/24/26 07:00:00][0x00000001] 1 profiles were migrated from x.\r\n\r\n");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].message,
            "No command line args, exiting.\r\n---------- Exiting tarnwick.exe (return -1) "
            "----------");
  EXPECT_EQ(entries[1].message, "1 profiles were migrated from x.\r\n");
}

TEST(LogEntriesTest, TextBeforeTheFirstPrefixAndLookalikesInsideAMessageAreNoEntries) {
  const std::vector<LogEntry> entries = ParseLogEntries(
      "torn line\r\n"
      "[11/24/26 07:00:00][0x00000002] a [11/24/26 07:00:00][0x00000003] b\r\n"
      "[11/24/26 07:00:00][0xZZ000003] not a prefix\r\n");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].threadId, 2u);
  EXPECT_EQ(entries[0].message,
            "a [11/24/26 07:00:00][0x00000003] b\r\n[11/24/26 07:00:00][0xZZ000003] not a prefix");
}

TEST(LogFollowerTest, ReadsOnlyWhatWasAddedSinceItWasMade) {
  testing::TempFolder temp;
  const std::filesystem::path log = temp.path() / "tarnwick.log";
  Append(log, "[11/24/26 07:00:00][0x00000001] before\r\n");
  LogFollower follower(log, temp.path() / "tarnwick (previous).log");
  EXPECT_TRUE(follower.Read().empty());
  Append(log, "[11/24/26 07:00:00][0x00000002] after\r\n");
  const std::vector<LogEntry> entries = follower.Read();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].message, "after");
  EXPECT_TRUE(follower.Read().empty());
}

TEST(LogFollowerTest, KeepsACutEntryForTheNextRead) {
  testing::TempFolder temp;
  const std::filesystem::path log = temp.path() / "tarnwick.log";
  LogFollower follower(log, temp.path() / "tarnwick (previous).log");
  Append(log, "[11/24/26 07:00:00][0x00000001] one\r\n[11/24/26 07:00:00][0x00000001] tw");
  std::vector<LogEntry> entries = follower.Read();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].message, "one");
  Append(log, "o\r\n");
  entries = follower.Read();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].message, "two");
}

TEST(LogFollowerTest, ReadsTheRestOfARotatedLogFirst) {
  testing::TempFolder temp;
  const std::filesystem::path log = temp.path() / "tarnwick.log";
  const std::filesystem::path rotated = temp.path() / "tarnwick (previous).log";
  Append(log, "[11/24/26 07:00:00][0x00000001] old old old old\r\n");
  LogFollower follower(log, rotated);
  Append(log, "[11/24/26 07:00:00][0x00000001] last before rotation\r\n");
  std::filesystem::rename(log, rotated);
  Append(log, "[11/24/26 07:00:00][0x00000001] new\r\n");
  const std::vector<LogEntry> entries = follower.Read();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].message, "last before rotation");
  EXPECT_EQ(entries[1].message, "new");
}

}  // namespace
}  // namespace tw::batch
