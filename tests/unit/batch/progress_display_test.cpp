// The progress lines: live line on a terminal, one plain line per finished profile.
#include "batch/progress_display.h"

#include <gtest/gtest.h>

namespace tw::batch {
namespace {

TEST(ProgressTextTest, BytesAndDurations) {
  EXPECT_EQ(ByteText(999), "999 bytes");
  EXPECT_EQ(ByteText(1500), "1.5 KB");
  EXPECT_EQ(ByteText(2'500'000'000), "2.5 GB");
  EXPECT_EQ(DurationText(42), "0:42");
  EXPECT_EQ(DurationText(3723), "1:02:03");
}

TEST(ProgressTextTest, LiveLineEstimatesByBytesOrElseByRuns) {
  ProgressCounts counts;
  counts.total = 20;
  counts.done = 10;
  counts.failed = 1;
  counts.bytesCopied = 10'000'000;
  counts.bytesToCopy = 30'000'000;
  EXPECT_EQ(LiveLine(counts, 10), "10/20 done, 1 failed, 10.0 MB copied, 1.0 MB/s, 0:20 left");
  counts.bytesCopied = 0;
  counts.bytesToCopy = 0;
  counts.runsDone = 4;
  counts.runsToDo = 8;
  counts.skipped = 2;
  EXPECT_EQ(LiveLine(counts, 10), "10/20 done, 1 failed, 2 skipped, 0 bytes copied, 0:10 left");
}

TEST(ProgressDisplayTest, PlainOutputHasOneLinePerProfileAndNoCarriageReturns) {
  std::vector<PlannedProfile> plan(2);
  plan[0].source = "\\\\fs\\p\\a";
  plan[0].target = "\\\\fs\\p\\a.V2";
  plan[1].source = "\\\\fs\\p\\b";
  std::string out;
  ProgressDisplay display(plan, false, [&](std::string_view text) { out += text; });
  display.Started(0);
  ProfileRun migrated;
  migrated.outcome = Outcome::kMigrated;
  migrated.items.files = 3;
  display.Finished(0, migrated);
  ProfileRun failed;
  failed.outcome = Outcome::kFailed;
  failed.cause = "Failed migrating profile (0x80070005): \\\\fs\\p\\b";
  display.Finished(1, failed);
  display.Tick();
  display.Close();
  EXPECT_EQ(out,
            "[1/2] migrated \\\\fs\\p\\a -> \\\\fs\\p\\a.V2 (3 items not copied)\n"
            "[2/2] failed \\\\fs\\p\\b: Failed migrating profile (0x80070005): \\\\fs\\p\\b\n");
}

TEST(ProgressDisplayTest, OnATerminalTheLiveLineIsRewrittenAndClearedBeforeOtherLines) {
  std::vector<PlannedProfile> plan(1);
  plan[0].source = "s";
  std::string out;
  ProgressDisplay display(plan, true, [&](std::string_view text) { out += text; });
  display.Started(0);
  EXPECT_EQ(out.substr(0, 1), "\r");
  EXPECT_NE(out.find("0/1 done, 0 failed"), std::string::npos);
  display.NoteInterrupts(1);
  EXPECT_NE(out.find("Interrupted: no new runs are started; waiting for 1 running to finish.\n"),
            std::string::npos);
  display.NoteInterrupts(1);  // the same Ctrl-C is told once
  display.NoteInterrupts(2);
  EXPECT_NE(out.find("Still waiting for 1 running"), std::string::npos);
  display.Close();
  EXPECT_EQ(out.back(), '\r');
}

}  // namespace
}  // namespace tw::batch
