// Totals, exit value, summary table and the JSON report.
#include "batch/batch_report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tw::batch {
namespace {

struct Sample {
  std::vector<PlannedProfile> plan;
  std::vector<ProfileRun> runs;
};

Sample MakeSample() {
  Sample sample;
  for (const char* name : {"a", "b", "c", "d"}) {
    PlannedProfile profile;
    profile.source = std::string("\\\\fs\\p\\") + name;
    profile.target = profile.source + ".V2";
    profile.bytes = 1000;
    sample.plan.push_back(profile);
  }
  sample.plan[2].targetState = TargetState::kFinished;
  sample.runs.resize(4);
  sample.runs[0].outcome = Outcome::kMigrated;
  sample.runs[0].command = {"/s:\\\\fs\\p\\a"};
  sample.runs[0].items.files = 2;
  sample.runs[0].log = {"Migrating profile: \\\\fs\\p\\a"};
  sample.runs[1].outcome = Outcome::kFailed;
  sample.runs[1].command = {"/s:\\\\fs\\p\\b"};
  sample.runs[1].exitValue = 255;
  sample.runs[1].cause = "Failed migrating profile (0x80070005): \\\\fs\\p\\b";
  sample.runs[1].console = "line one\r\nline \xff two\r\n";
  sample.runs[2] = UnrunProfile(sample.plan[2], false);
  sample.runs[3].outcome = Outcome::kMigrated;
  sample.runs[3].command = {"/s:\\\\fs\\p\\d"};
  return sample;
}

TEST(BatchReportTest, TotalsAndExitValue) {
  const Sample sample = MakeSample();
  const BatchTotals totals = CountTotals(sample.plan, sample.runs);
  EXPECT_EQ(totals.migrated, 2u);
  EXPECT_EQ(totals.migratedWithItemFailures, 1u);
  EXPECT_EQ(totals.skipped, 1u);
  EXPECT_EQ(totals.failed, 1u);
  EXPECT_EQ(totals.bytesCopied, 2000u);
  EXPECT_EQ(BatchExitValue(totals), 1);
  BatchTotals fine = totals;
  fine.failed = 0;
  fine.profiles = 3;
  EXPECT_EQ(BatchExitValue(fine), 0);
}

TEST(BatchReportTest, SummaryTableHasARowPerProfileAndTheTotals) {
  const Sample sample = MakeSample();
  const std::string table =
      SummaryTable(sample.plan, sample.runs, CountTotals(sample.plan, sample.runs), 65, false);
  EXPECT_NE(table.find("failed      255   0      0.0      \\\\fs\\p\\b  (Failed migrating "
                       "profile (0x80070005): \\\\fs\\p\\b)\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("skipped     -     0      -        \\\\fs\\p\\c"), std::string::npos);
  EXPECT_NE(table.find("4 profiles: 2 migrated (1 with 2 items not copied), 1 skipped as "
                       "finished, 1 failed; 2.0 KB in 1:05\n"),
            std::string::npos)
      << table;
}

TEST(BatchReportTest, JsonReportNamesEachProfilesResultAndCause) {
  const Sample sample = MakeSample();
  RunSettings settings{"/opt/tarnwick", BatchMode::kV1ToV2, "", 4};
  const nlohmann::json report = nlohmann::json::parse(
      ReportJson(sample.plan, sample.runs, CountTotals(sample.plan, sample.runs),
                 {settings, 1.5, true, false}));
  EXPECT_EQ(report["mode"], "v1tov2");
  EXPECT_EQ(report["jobs"], 4);
  EXPECT_EQ(report["interrupted"], true);
  EXPECT_EQ(report["exitValue"], 1);
  EXPECT_EQ(report["totals"]["failed"], 1);
  ASSERT_EQ(report["profiles"].size(), 4u);
  EXPECT_EQ(report["profiles"][1]["result"], "failed");
  EXPECT_EQ(report["profiles"][1]["exitValue"], 255);
  EXPECT_EQ(report["profiles"][1]["cause"], "Failed migrating profile (0x80070005): \\\\fs\\p\\b");
  EXPECT_EQ(report["profiles"][1]["console"][0], "line one");
  EXPECT_EQ(report["profiles"][1]["console"][1], "line \xef\xbf\xbd two");  // not UTF-8: replaced
  EXPECT_EQ(report["profiles"][0]["itemsNotCopied"]["total"], 2);
  EXPECT_EQ(report["profiles"][0]["log"][0], "Migrating profile: \\\\fs\\p\\a");
  EXPECT_EQ(report["profiles"][2]["result"], "skipped");
  EXPECT_TRUE(report["profiles"][2]["exitValue"].is_null());
}

}  // namespace
}  // namespace tw::batch
