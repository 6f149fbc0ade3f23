// The survey's scan and outputs over the fakes: kinds, targets and their locks, losses, hive
// states from base blocks, refusals, and the JSON and CSV forms. (Names that differ only in case
// need a case-sensitive file system: the end-to-end test has them.)
#include "survey/survey_scan.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fakes/fake_file_system.h"
#include "fakes/fake_security_port.h"
#include "fakes/fake_survey_port.h"
#include "hive/regf_layout.h"
#include "survey/survey_output.h"

namespace tw::survey {
namespace {

constexpr wchar_t kShare[] = L"\\\\srv\\profiles";

// A valid base block of a clean hive with one empty 4096-byte bin behind it.
std::string CleanHive() {
  std::string bytes(8192, '\0');
  auto* base = reinterpret_cast<std::uint8_t*>(bytes.data());
  std::memcpy(base, "regf", 4);
  hive::regf::Put32(base + hive::regf::kBasePrimarySequence, 7);
  hive::regf::Put32(base + hive::regf::kBaseSecondarySequence, 7);
  hive::regf::Put32(base + hive::regf::kBaseMajor, 1);
  hive::regf::Put32(base + hive::regf::kBaseMinor, 5);
  hive::regf::Put32(base + hive::regf::kBaseDataSize, 4096);
  hive::regf::Put32(base + hive::regf::kBaseChecksum, hive::regf::BaseBlockChecksum(base));
  return bytes;
}

class SurveyScanTest : public ::testing::Test {
 protected:
  void AddProfile(const std::wstring& name, const std::string& hive = CleanHive()) {
    files.AddFolder(std::wstring(kShare) + L"\\" + name);
    files.SetFile(std::wstring(kShare) + L"\\" + name + L"\\ntuser.dat", hive);
  }
  SurveyResult Survey() {
    SurveyResult result;
    EXPECT_EQ(SurveyShare(services, kShare, result), err::kSuccess);
    return result;
  }
  static const SurveyRow& Row(const SurveyResult& result, const std::wstring& name) {
    for (const SurveyRow& row : result.rows)
      if (row.name == name) return row;
    static const SurveyRow none;
    ADD_FAILURE() << "no row";
    return none;
  }

  testing::FakeFileSystem files;
  testing::FakeSecurityPort security;
  testing::FakeSurveyPort port{files};
  SurveyServices services{files, security, port, L"", false};
};

TEST_F(SurveyScanTest, KindsByNtuserDatAndSuffix) {
  files.AddFolder(kShare);
  AddProfile(L"anna");
  AddProfile(L"bert.V2");
  AddProfile(L"cleo.v5");
  AddProfile(L"dora.V6");
  files.AddFolder(std::wstring(kShare) + L"\\empty");
  files.SetFile(std::wstring(kShare) + L"\\file.txt", "x");
  files.AddReparsePoint(std::wstring(kShare) + L"\\link", true);
  const SurveyResult result = Survey();
  ASSERT_EQ(result.rows.size(), 6u);
  EXPECT_EQ(Row(result, L"anna").kind, ProfileKind::kV1);
  EXPECT_EQ(Row(result, L"bert.V2").kind, ProfileKind::kV2);
  EXPECT_EQ(Row(result, L"cleo.v5").kind, ProfileKind::kV5);
  EXPECT_EQ(Row(result, L"dora.V6").kind, ProfileKind::kV6);
  EXPECT_EQ(Row(result, L"empty").reason, L"no ntuser.dat");
  EXPECT_EQ(Row(result, L"link").reason, L"a link or junction, never followed");
  EXPECT_EQ(SourcesOf(result, Mode::kV2ToV6).size(), 1u);
  EXPECT_EQ(SourcesOf(result, Mode::kV1ToV2).front()->name, L"anna");
  EXPECT_TRUE(Row(result, L"dora.V6").targets.empty());
  EXPECT_EQ(Row(result, L"cleo.v5").targets.front().path, L"\\\\srv\\profiles\\cleo.V6");
}

TEST_F(SurveyScanTest, TargetStatesFollowTheMarkerAndItsLock) {
  AddProfile(L"anna");
  AddProfile(L"bert");
  AddProfile(L"cleo");
  files.AddFolder(std::wstring(kShare) + L"\\anna.V2");
  files.AddFolder(std::wstring(kShare) + L"\\bert.V2");
  files.SetFile(std::wstring(kShare) + L"\\bert.V2\\_qzk_mig_marker_", "");
  files.AddFolder(std::wstring(kShare) + L"\\cleo.V2");
  files.SetFile(std::wstring(kShare) + L"\\cleo.V2\\_qzk_mig_marker_", "");
  files.HoldLockElsewhere(std::wstring(kShare) + L"\\cleo.V2\\_qzk_mig_marker_");
  const SurveyResult result = Survey();
  EXPECT_EQ(Row(result, L"anna").targets.at(0).state, TargetState::kFinished);
  EXPECT_EQ(Row(result, L"bert").targets.at(0).state, TargetState::kInterrupted);
  EXPECT_EQ(Row(result, L"cleo").targets.at(0).state, TargetState::kLocked);
  EXPECT_TRUE(Row(result, L"anna").WouldFail(Mode::kV1ToV2));
  EXPECT_FALSE(Row(result, L"bert").WouldFail(Mode::kV1ToV2));
  EXPECT_TRUE(Row(result, L"cleo").WouldFail(Mode::kV1ToV2));
  EXPECT_EQ(Row(result, L"bert.V2").kind, ProfileKind::kNone);
  // The survey let go of every lock it tried.
  EXPECT_FALSE(files.IsLocked(std::wstring(kShare) + L"\\bert.V2\\_qzk_mig_marker_"));
  EXPECT_EQ(files.OpenHandles(), 0);
  EXPECT_EQ(files.OpenSearches(), 0);
}

TEST_F(SurveyScanTest, HiveStatesFromTheBaseBlock) {
  AddProfile(L"clean");
  AddProfile(L"short", "regf");
  std::string badSum = CleanHive();
  badSum[hive::regf::kBaseMajor] = 2;  // checksum no longer matches: dirty, no logs
  AddProfile(L"dirty", badSum);
  std::string version = CleanHive();
  auto* base = reinterpret_cast<std::uint8_t*>(version.data());
  hive::regf::Put32(base + hive::regf::kBaseMajor, 2);
  hive::regf::Put32(base + hive::regf::kBaseChecksum, hive::regf::BaseBlockChecksum(base));
  AddProfile(L"version", version);
  const SurveyResult result = Survey();
  EXPECT_EQ(Row(result, L"clean").hive.state, HiveState::kClean);
  EXPECT_EQ(Row(result, L"clean").usrClass.state, HiveState::kMissing);
  EXPECT_EQ(Row(result, L"short").hive.state, HiveState::kCorrupt);
  EXPECT_EQ(Row(result, L"short").hive.reason, L"the base block is truncated");
  EXPECT_EQ(Row(result, L"dirty").hive.state, HiveState::kDirtyWithoutLogs);
  EXPECT_EQ(Row(result, L"version").hive.reason, L"unsupported format version 2.5");
  EXPECT_TRUE(Row(result, L"version").WouldFail(Mode::kV1ToV2));
  EXPECT_FALSE(Row(result, L"dirty").WouldFail(Mode::kV1ToV2));
}

TEST_F(SurveyScanTest, LossesAndRefusals) {
  AddProfile(L"anna");
  files.AddFolder(std::wstring(kShare) + L"\\anna\\Docs");
  files.SetFile(std::wstring(kShare) + L"\\anna\\Docs\\a.txt", "1");
  std::wstring deep = std::wstring(kShare) + L"\\anna";
  while (deep.size() < 250) deep += L"\\" + std::wstring(30, L'd');
  files.AddFolder(deep);
  files.SetFile(deep + L"\\far.txt", "far");
  files.FailPath(testing::FileOp::kFindFirst, std::wstring(kShare) + L"\\anna\\Docs\\*",
                 err::kAccessDenied);
  AddProfile(L"bertV5");
  AddProfile(L"c%d");
  const SurveyResult result = Survey();
  const SurveyRow& anna = Row(result, L"anna");
  // The folder that cannot be listed, and (the fake holds no descriptor) the profile's owner.
  ASSERT_EQ(anna.unreadable.size(), 2u);
  EXPECT_EQ(anna.unreadable[0], L"\\\\srv\\profiles\\anna\\Docs (error 5)");
  EXPECT_EQ(anna.unreadable[1].rfind(L"\\\\srv\\profiles\\anna (owner and access list, error ", 0),
            0u);
  EXPECT_EQ(anna.longPaths.size(), 1u);
  EXPECT_EQ(Row(result, L"bertV5").Failures(std::nullopt).at(0),
            L"the name ends in V5, which the default mode refuses (/V5toV6 is needed)");
  EXPECT_EQ(Row(result, L"c%d").Failures(Mode::kV1ToV2).at(0), L"a \"%\" in the path");
  EXPECT_TRUE(Row(result, L"c%d").Failures(Mode::kV2ToV5).empty());
}

TEST_F(SurveyScanTest, NotAUncPathOrNoShare) {
  SurveyResult result;
  EXPECT_EQ(SurveyShare(services, L"C:\\profiles", result), err::kBadPathname);
  EXPECT_EQ(SurveyShare(services, L"\\\\srv\\none", result), err::kPathNotFound);
}

TEST_F(SurveyScanTest, JsonAndCsvCarryTheRows) {
  AddProfile(L"anna");
  AddProfile(L"b,\"x\"");
  const SurveyResult result = Survey();
  const std::string json = SurveyJson(result, std::nullopt);
  EXPECT_NE(json.find("\"kind\": \"V1\""), std::string::npos) << json;
  EXPECT_NE(json.find("\"path\": \"\\\\\\\\srv\\\\profiles\\\\anna\""), std::string::npos) << json;
  const std::string csv = SurveyCsv(result, std::nullopt);
  EXPECT_NE(csv.find("\r\nanna,\\\\srv\\profiles\\anna,V1,"), std::string::npos) << csv;
  EXPECT_NE(csv.find("\r\n\"b,\"\"x\"\"\",\"\\\\srv\\profiles\\b,\"\"x\"\"\",V1,"),
            std::string::npos)
      << csv;
  EXPECT_EQ(TotalsOf(result, std::nullopt).v1, 2u);
}

TEST_F(SurveyScanTest, SeveralFoldersAtOnceGiveTheRowsOfOneAtATime) {
  for (int i = 0; i < 40; ++i) {
    const std::wstring name = L"user" + std::to_wstring(i) + (i % 3 == 1 ? L".V2" : L"");
    if (i % 7 == 3) {
      AddProfile(name, "not a hive");
    } else if (i % 11 == 5) {
      files.AddFolder(std::wstring(kShare) + L"\\" + name + L"\\Documents");
    } else {
      AddProfile(name);
      files.SetFile(std::wstring(kShare) + L"\\" + name + L"\\a.txt", std::string(i, 'a'));
    }
  }
  files.AddReparsePoint(std::wstring(kShare) + L"\\link", true);
  services.parallelFolders = 1;
  const std::string one = SurveyJson(Survey(), std::nullopt);
  services.parallelFolders = 8;
  const SurveyResult several = Survey();
  EXPECT_EQ(several.rows.size(), 41u);
  EXPECT_EQ(SurveyJson(several, std::nullopt), one);
  EXPECT_EQ(TotalsOf(several, std::nullopt).v2, 12u);  // user16.V2 holds no ntuser.dat
}

}  // namespace
}  // namespace tw::survey
