// tarnwick-survey through the built program, over a generated share that holds every kind of row:
// clean, dirty (with and without usable logs) and corrupt hives, finished, interrupted and locked
// targets, a leftover temporary profile, a folder redirected to a UNC path, a path too long, a case
// collision, names the default mode refuses, folders that are no profile, a link. The share is
// unchanged afterwards.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/tree_state.h"
#include "unit/hive/hive_log_builder.h"
#include "unit/hive/hive_test_util.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::E2eShare;
using testing::ProcessResult;
using testing::RegSection;
using testing::RegString;
using Json = nlohmann::json;

constexpr char kOwner[] = "S-1-5-21-1004336348-1177238915-682003330-1201";
constexpr char kMarker[] = "_qzk_mig_marker_";

hive::testing::Bytes Dirty(const hive::testing::Bytes& hive) {
  const std::uint32_t secondary =
      hive::regf::Get32(hive.data() + hive::regf::kBaseSecondarySequence);
  return hive::testing::WithSequence(hive, secondary + 1, secondary);
}

class SurveyE2eTest : public ::testing::Test {
 protected:
  ProcessResult Survey(const std::vector<std::string>& args) const {
    return testing::RunProcess(TARNWICK_SURVEY_BINARY, args,
                               {{"TARNWICK_SHARES", (share_.root() / "shares.conf").string()},
                                {"TARNWICK_PROFILE_ROOT", share_.localProfiles().string()}});
  }

  // The survey's JSON rows by folder name.
  static std::map<std::string, Json> Rows(const ProcessResult& result) {
    const Json document = Json::parse(result.output);
    std::map<std::string, Json> rows;
    for (const Json& row : document.at("profiles")) rows[row.at("name")] = row;
    return rows;
  }

  // Every row kind on one share.
  void MakeEveryKind() {
    share_.AddV1Profile("alice");  // clean, nothing in the way

    // A dirty hive whose log brings it up to date, and one without any log.
    const fs::path bob = share_.AddV1Profile("bob");
    const hive::testing::Bytes older = hive::testing::ReadBytes(bob / "ntuser.dat");
    share_.MakeHive(share_.root() / "newer.dat",
                    RegSection("Software\\Tw", RegString("Profile", "newer")));
    const hive::testing::Bytes newer = hive::testing::ReadBytes(share_.root() / "newer.dat");
    const hive::testing::Bytes dirty = Dirty(older);
    const std::uint32_t sequence =
        hive::regf::Get32(dirty.data() + hive::regf::kBasePrimarySequence);
    hive::testing::WriteBytes(bob / "ntuser.dat", dirty);
    hive::testing::WriteBytes(bob / "NTUSER.DAT.LOG1",
                              hive::testing::NewLog(older, newer, sequence, 2));
    const fs::path carol = share_.AddV1Profile("carol");
    hive::testing::WriteBytes(carol / "ntuser.dat",
                              Dirty(hive::testing::ReadBytes(carol / "ntuser.dat")));

    // A corrupt hive.
    const fs::path dave = share_.AddV1Profile("dave");
    testing::WriteText(dave / "ntuser.dat", std::string(8192, 'x'));

    // A finished target, an interrupted one, and one a live run holds.
    share_.AddV1Profile("erin");
    share_.AddV1Profile("erin.V2");
    share_.AddV1Profile("frank");
    testing::WriteText(share_.share() / "frank.V2" / kMarker, "");
    testing::WriteText(share_.share() / "frank.V2" / "partial.txt", "half");
    share_.AddV1Profile("lena");
    testing::WriteText(share_.share() / "lena.V2" / kMarker, "");

    // A leftover temporary profile of the owner.
    const fs::path gina = share_.AddV1Profile("gina");
    share_.SetOwner(gina, L"S-1-5-21-1004336348-1177238915-682003330-1201");
    const fs::path leftover = share_.localProfiles() / "_tarnwick_";
    fs::create_directories(leftover);
    testing::WriteText(share_.localProfiles() / "[ProfileList]" / kOwner, leftover.string() + "\n");

    // A special folder redirected to another server.
    share_.AddProfile(
        "hank",
        RegSection(testing::kUserShellFolders, RegString("Personal", "\\\\other\\docs\\hank") +
                                                   RegString("Desktop", "%USERPROFILE%\\Desktop")),
        {{"Desktop/d.txt", "d"}});

    // A path past 260 characters, and two names that differ only in case.
    std::string deep = "Other";
    while (deep.size() < 250) deep += "/" + std::string(40, 'd');
    share_.AddProfile("ivan", "", {{deep + "/far.txt", "far"}, {"near.txt", "near"}});
    share_.AddProfile("jill", "", {{"Docs/a.txt", "a"}, {"Docs/A.TXT", "A"}});

    // Names the tool refuses, a V5 profile, no profile, and a link.
    share_.AddProfile("kimV2", "", {});
    share_.AddProfile("pct%x", "", {});
    share_.AddProfile("mona.V5", "", {});
    testing::WriteText(share_.share() / "notes" / "readme.txt", "no profile");
    fs::create_symlink(share_.root() / "bin", share_.share() / "elsewhere");
  }

  E2eShare share_{testing::SuiteTools()};
};

TEST_F(SurveyE2eTest, EveryRowKindInJsonTextAndCsvWithoutChangingTheShare) {
  MakeEveryKind();
  // lena's target is held by a live run: the lock a run takes on its target's folder.
  const int held = ::open((share_.share() / "lena.V2").c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(held, 0);
  ASSERT_EQ(::flock(held, LOCK_EX | LOCK_NB), 0);
  const testing::TreeState before = testing::CaptureTreeState(share_.share());

  const ProcessResult json = Survey({"--json", "\\\\fs\\profiles"});
  EXPECT_EQ(json.exitStatus, 1) << json.output << json.errors;
  std::map<std::string, Json> rows = Rows(json);

  EXPECT_EQ(rows["alice"]["kind"], "V1");
  EXPECT_EQ(rows["alice"]["hive"], "clean");
  EXPECT_EQ(rows["alice"]["target"]["state"], "none");
  EXPECT_EQ(rows["alice"]["target"]["path"], "\\\\fs\\profiles\\alice.V2");
  EXPECT_EQ(rows["alice"]["files"], 6);
  EXPECT_FALSE(rows["alice"]["wouldFail"]);
  EXPECT_EQ(rows["alice"]["owner"].get<std::string>().rfind("S-1-", 0), 0u);
  EXPECT_GT(rows["alice"]["bytes"].get<std::uint64_t>(), 8192u);

  EXPECT_EQ(rows["bob"]["hive"], "dirty (usable logs)");
  EXPECT_EQ(rows["carol"]["hive"], "dirty (no usable logs)");
  EXPECT_FALSE(rows["carol"]["wouldFail"]);
  EXPECT_EQ(rows["dave"]["hive"], "corrupt");
  EXPECT_EQ(rows["dave"]["hiveReason"], "the file does not begin with the signature \"regf\"");
  EXPECT_TRUE(rows["dave"]["wouldFail"]);

  EXPECT_EQ(rows["erin"]["target"]["state"], "finished");
  EXPECT_TRUE(rows["erin"]["wouldFail"]);
  EXPECT_EQ(rows["erin.V2"]["kind"], "V2");
  EXPECT_EQ(rows["frank"]["target"]["state"], "interrupted");
  EXPECT_FALSE(rows["frank"]["wouldFail"]);
  EXPECT_EQ(rows["frank.V2"]["kind"], "none");
  EXPECT_EQ(rows["frank.V2"]["reason"], "an unfinished migration target (holds the marker)");
  EXPECT_EQ(rows["lena"]["target"]["state"], "locked");
  EXPECT_TRUE(rows["lena"]["wouldFail"]);

  EXPECT_EQ(rows["gina"]["owner"], kOwner);
  std::string leftover = "Z:" + (share_.localProfiles() / "_tarnwick_").string();
  std::replace(leftover.begin(), leftover.end(), '/', '\\');
  EXPECT_EQ(rows["gina"]["leftoverTemporaryProfile"], leftover);
  EXPECT_EQ(rows["hank"]["redirectedFolders"], Json::array({"Personal=\\\\other\\docs\\hank"}));
  ASSERT_EQ(rows["ivan"]["longPaths"].size(), 1u);
  EXPECT_TRUE(Contains(rows["ivan"]["longPaths"][0], "\\\\fs\\profiles\\ivan\\Other\\"));
  EXPECT_EQ(rows["jill"]["caseCollisions"].size(), 1u);

  EXPECT_EQ(rows["kimV2"]["kind"], "V1");
  EXPECT_TRUE(rows["kimV2"]["wouldFail"]);
  EXPECT_TRUE(Contains(rows["kimV2"]["failures"][0], "the name ends in V2"));
  EXPECT_TRUE(rows["pct%x"]["wouldFail"]);
  EXPECT_EQ(rows["mona.V5"]["kind"], "V5");
  EXPECT_EQ(rows["mona.V5"]["target"]["mode"], "v5tov6");
  EXPECT_EQ(rows["mona.V5"]["target"]["path"], "\\\\fs\\profiles\\mona.V6");
  EXPECT_EQ(rows["notes"]["kind"], "none");
  EXPECT_EQ(rows["notes"]["reason"], "no ntuser.dat");
  EXPECT_EQ(rows["elsewhere"]["kind"], "none");
  EXPECT_EQ(rows["elsewhere"]["files"], 0);

  const ProcessResult text = Survey({"\\\\fs\\profiles"});
  EXPECT_EQ(text.exitStatus, 1);
  EXPECT_TRUE(Contains(text.output, "lena  V1  owner ")) << text.output;
  EXPECT_TRUE(Contains(text.output, "    v1tov2 target: \\\\fs\\profiles\\lena.V2 (locked)\n"));
  EXPECT_TRUE(
      Contains(text.output, "    redirected to a UNC path: Personal=\\\\other\\docs\\hank\n"));
  EXPECT_TRUE(
      Contains(text.output, "Totals: 19 folders (V1 13, V2 1, V5 1, V6 0, not a profile 4)"))
      << text.output;

  const ProcessResult csv = Survey({"--csv", "\\\\fs\\profiles"});
  EXPECT_EQ(csv.exitStatus, 1);
  EXPECT_TRUE(Contains(csv.output, "name,path,kind,reason,owner,"));
  EXPECT_TRUE(Contains(csv.output, "\r\ndave,\\\\fs\\profiles\\dave,V1,,"));
  EXPECT_EQ(std::count(csv.output.begin(), csv.output.end(), '\n'), 20);

  ::close(held);
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(share_.share())), "");
}

TEST_F(SurveyE2eTest, CleanShareExitsZeroAndModeSelectsItsProfiles) {
  share_.AddV1Profile("alice");
  share_.AddProfile("bob.V2", "", {});
  const ProcessResult all = Survey({"\\\\fs\\profiles"});
  EXPECT_EQ(all.exitStatus, 0) << all.output << all.errors;
  const ProcessResult v2 = Survey({"--json", "--mode", "v2tov6", "\\\\fs\\profiles"});
  EXPECT_EQ(v2.exitStatus, 0);
  std::map<std::string, Json> rows = Rows(v2);
  EXPECT_EQ(rows["bob.V2"]["target"]["path"], "\\\\fs\\profiles\\bob.V6");
  EXPECT_TRUE(rows["alice"]["target"].is_null());
  // A target root moves every target.
  const ProcessResult moved = Survey({"--json", "--target", "\\\\fs\\targets", "\\\\fs\\profiles"});
  EXPECT_EQ(Rows(moved)["alice"]["target"]["path"], "\\\\fs\\targets\\alice.V2");
}

TEST_F(SurveyE2eTest, BadUsageAndUnreadableSharesExitTwo) {
  EXPECT_EQ(Survey({}).exitStatus, 2);
  EXPECT_EQ(Survey({"--bogus", "\\\\fs\\profiles"}).exitStatus, 2);
  EXPECT_EQ(Survey({"--json", "--csv", "\\\\fs\\profiles"}).exitStatus, 2);
  EXPECT_EQ(Survey({"--mode", "v9tov9", "\\\\fs\\profiles"}).exitStatus, 2);
  EXPECT_EQ(Survey({share_.share().string()}).exitStatus, 2);
  const ProcessResult unknown = Survey({"\\\\fs\\nosuchshare"});
  EXPECT_EQ(unknown.exitStatus, 2);
  EXPECT_TRUE(Contains(unknown.errors, "cannot read \\\\fs\\nosuchshare (error 67)"))
      << unknown.errors;
  EXPECT_EQ(Survey({"--help"}).exitStatus, 0);
}

}  // namespace
}  // namespace tw
