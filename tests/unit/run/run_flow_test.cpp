#include "run/run_flow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fakes/fake_com_runtime.h"
#include "fakes/fake_console.h"
#include "fakes/fake_file_system.h"
#include "fakes/fake_module_loader.h"
#include "fakes/fake_security_port.h"
#include "fakes/log_capture.h"
#include "fakes/temp_folder.h"
#include "migration/process_state.h"
#include "ports/file_system.h"
#include "ports/xml_document.h"
#include "registry/offreg_wrapper.h"

namespace tw {
namespace {

using ::testing::ElementsAre;

constexpr const wchar_t* kStart = L"---------- Starting tarnwick.exe ----------";
constexpr const wchar_t* kExitBanner = L"---------- Exiting tarnwick.exe (return -1) ----------";

void Bound() {}

std::map<std::string, ModuleFunction> Exports(std::initializer_list<const char*> names) {
  std::map<std::string, ModuleFunction> functions;
  for (const char* name : names) functions[name] = &Bound;
  return functions;
}

// The platform's document, with its Close calls counted.
class TrackedDocument final : public XmlDocument {
 public:
  HResult Create() override { return inner_->Create(); }
  HResult Load(std::wstring_view path) override { return inner_->Load(path); }
  HResult GetDocumentElement(std::unique_ptr<XmlElement>& element) override {
    return inner_->GetDocumentElement(element);
  }
  void Close() override {
    ++closes;
    inner_->Close();
  }
  int closes = 0;

 private:
  std::unique_ptr<XmlDocument> inner_ = NewXmlDocument();
};

// COM that notes, at each CoUninitialize, how often the document had been released by then.
class OrderedComRuntime final : public testing::FakeComRuntime {
 public:
  explicit OrderedComRuntime(const TrackedDocument& document) : document_(document) {}
  void Uninitialize() override {
    FakeComRuntime::Uninitialize();
    closesAtUninitialize.push_back(document_.closes);
  }
  std::vector<int> closesAtUninitialize;

 private:
  const TrackedDocument& document_;
};

// One call of the per-profile migration as the loop made it.
struct MigrateCall {
  std::wstring source;
  std::uint32_t sourceVersion;
  std::uint32_t targetVersion;
};

class RunFlowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_sourceVersion = 0;
    g_targetVersion = 0;
    g_profilePath.clear();
  }

  // A binding whose userenv and offline-registry tables are complete or missing. The binding's
  // own log lines are kept out of the test's capture.
  void Bind(bool userenvBound, bool offregComplete) {
    if (userenvBound)
      loader_.AddModule(L"userenv.dll", Exports({"CreateProfile", "DeleteProfileW"}));
    if (offregComplete) {
      loader_.AddModule(
          L"offreg.dll",
          Exports({"OROpenHive", "ORCloseHive", "ORSaveHive", "OROpenKey", "ORCloseKey",
                   "ORCreateKey", "ORQueryInfoKey", "OREnumKey", "ORGetKeySecurity",
                   "ORSetKeySecurity", "ORGetValue", "ORSetValue", "OREnumValue"}));
    }
    testing::LogCapture bindingLog;
    offreg_ = std::make_unique<COffregWrapper>(loader_);
  }

  void AddProfile(const std::wstring& folder) {
    files_.AddFolder(folder);
    files_.SetFile(folder + L"\\ntuser.dat", "regf");
  }

  int Run(std::vector<std::wstring> args, bool userenvBound = true, bool offregComplete = true) {
    if (!offreg_) Bind(userenvBound, offregComplete);
    args.insert(args.begin(), L"tarnwick.exe");
    RunServices services{
        console_,
        com_,
        files_,
        document_,
        security_,
        *offreg_,
        nullptr,
        [this](MigrationContext& context, const std::wstring& source, std::uint32_t sourceVersion,
               std::wstring& target, std::uint32_t targetVersion) {
          EXPECT_EQ(context.settings->sourcePath.empty(), false);
          calls_.push_back({source, sourceVersion, targetVersion});
          target = source + L".target";
          const auto result = results_.find(source);
          return result == results_.end() ? HResult{0} : result->second;
        }};
    return RunTarnwick(args, services);
  }

  // What the console shows for a reported message: the text and "\r\n".
  static std::wstring Line(const std::wstring& text) { return text + L"\r\n"; }

  testing::FakeConsole console_;
  TrackedDocument document_;
  OrderedComRuntime com_{document_};
  testing::FakeFileSystem files_;
  testing::FakeSecurityPort security_;
  testing::FakeModuleLoader loader_;
  std::unique_ptr<COffregWrapper> offreg_;
  std::map<std::wstring, HResult> results_;  // per source path; 0 when absent
  std::vector<MigrateCall> calls_;
  testing::LogCapture log_;
};

TEST_F(RunFlowTest, NoArgumentsExitsBeforeCom) {
  EXPECT_EQ(Run({}), -1);
  const std::wstring message = std::wstring(L"No command line args, exiting.\r\n") + kExitBanner;
  EXPECT_EQ(console_.text(), Line(kStart) + Line(message));
  EXPECT_THAT(log_.messages(), ElementsAre(kStart, message));
  EXPECT_EQ(com_.initializeCalls, 0);
  EXPECT_EQ(com_.uninitializeCalls, 0);
}

TEST_F(RunFlowTest, HelpPrintsUsageOnlyAndKeepsComInitialised) {
  const std::string expected =
      testing::ReadWholeFile(std::string(TARNWICK_TESTDATA_DIR) + "/usage-text.txt");
  ASSERT_FALSE(expected.empty());
  for (const wchar_t* form : {L"/help", L"-help", L"/?", L"-?"}) {
    console_.Clear();
    log_.Clear();
    com_.initializeCalls = 0;
    com_.uninitializeCalls = 0;
    EXPECT_EQ(Run({form}), 0) << form;
    EXPECT_EQ(console_.text(), Line(kStart) + std::wstring(expected.begin(), expected.end()));
    EXPECT_THAT(log_.messages(), ElementsAre(kStart));  // the usage text is never logged
    EXPECT_EQ(com_.initializeCalls, 1);
    EXPECT_EQ(com_.uninitializeCalls, 0);
  }
}

TEST_F(RunFlowTest, ParseFailureReportsAndReleasesCom) {
  EXPECT_EQ(Run({L"/r-"}), -1);
  const std::wstring message =
      std::wstring(L"Failed parsing command line args, exiting\r\n") + kExitBanner;
  EXPECT_EQ(console_.text(), Line(kStart) + Line(message));
  EXPECT_THAT(log_.messages(), ElementsAre(kStart, message));
  EXPECT_EQ(com_.initializeCalls, 1);
  EXPECT_EQ(com_.uninitializeCalls, 1);
  EXPECT_THAT(com_.closesAtUninitialize, ElementsAre(1));  // the document went first
}

TEST_F(RunFlowTest, UnknownArgumentIsReportedAsTyped) {
  Run({L"/s:\\\\server\\share\\x", L"/bogus"}, false, false);
  EXPECT_EQ(log_.messages().at(1), L"Unknown command line arg: /bogus");
  const std::wstring expected = L"Unknown command line arg: /bogus\r\n";
  EXPECT_EQ(console_.text().substr(Line(kStart).size(), expected.size()), expected);
}

TEST_F(RunFlowTest, V2WildcardWithoutModeIsRefused) {
  EXPECT_EQ(Run({L"/s:D:\\Profiles\\*.V2"}), -1);
  const std::wstring message =
      std::wstring(
          L"Source profile is V2. /V2toV5 or /V2toV6 option must be specified for V2 to "
          L"V5 or V2 to V6 or V5 to V6\r\n") +
      kExitBanner;
  EXPECT_THAT(log_.messages(), ElementsAre(kStart, message));
  EXPECT_EQ(console_.text(), Line(kStart) + Line(message));
  EXPECT_EQ(com_.uninitializeCalls, 1);
  EXPECT_THAT(com_.closesAtUninitialize, ElementsAre(1));
}

TEST_F(RunFlowTest, V5SuffixIsRefusedWithItsAdvice) {
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\bob.v5"}), -1);
  EXPECT_EQ(log_.messages().back(),
            std::wstring(L"Source profile is V5. /V5toV6 option must be specified for V2 to V5 or "
                         L"V2 to V6 or V5 to V6\r\n") +
                kExitBanner);
}

TEST_F(RunFlowTest, V6SourceIsRefusedEvenWithV6Selection) {
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\bob.V6", L"/V6TOV6"}), -1);
  EXPECT_EQ(log_.messages().back(),
            std::wstring(L"Source profile is V6. /V6toV6 option must be specified for V2 to V5 or "
                         L"V2 to V6 or V5 to V6\r\n") +
                kExitBanner);
}

TEST_F(RunFlowTest, V6SelectionWithOtherSourcePassesTheSuffixCheck) {
  // With nothing bound the run then stops at the binding check, not at the suffix check.
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\bob", L"/V6TOV6"}, false, false), -1);
  EXPECT_EQ(log_.messages().back(),
            std::wstring(L"Windows 7 APIs are not available\r\n") + kExitBanner);
}

TEST_F(RunFlowTest, VersionModeWithV2WildcardPassesTheSuffixCheck) {
  EXPECT_EQ(Run({L"/s:D:\\Profiles\\*.V2", L"/V2TOV6"}, true, false), -1);
  EXPECT_EQ(log_.messages().back(),
            std::wstring(L"Offline registry APIs are not available\r\n") + kExitBanner);
}

TEST_F(RunFlowTest, VersionModeWithoutUserenvUsesTheOfflineRegistryWording) {
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\*.V2", L"/V2TOV5"}, false, true), -1);
  const std::wstring message =
      std::wstring(L"Windows offline registry APIs are not available\r\n") + kExitBanner;
  EXPECT_THAT(log_.messages(), ElementsAre(kStart, message));
  EXPECT_EQ(console_.text(), Line(kStart) + Line(message));
  EXPECT_EQ(com_.uninitializeCalls, 1);
}

TEST_F(RunFlowTest, DefaultModeWithoutUserenv) {
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice"}, false, true), -1);
  EXPECT_EQ(log_.messages().back(),
            std::wstring(L"Windows 7 APIs are not available\r\n") + kExitBanner);
}

TEST_F(RunFlowTest, DefaultModeWithIncompleteOfflineRegistry) {
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice"}, true, false), -1);
  EXPECT_EQ(log_.messages().back(),
            std::wstring(L"Offline registry APIs are not available\r\n") + kExitBanner);
  EXPECT_EQ(com_.uninitializeCalls, 1);
  EXPECT_THAT(com_.closesAtUninitialize, ElementsAre(1));
}

TEST_F(RunFlowTest, PercentInPathIsReportedVerbatim) {
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\%s%n%%.v2"}), -1);
  EXPECT_EQ(log_.messages().back(),
            std::wstring(L"Source profile is V2. /V2toV5 or /V2toV6 option must be specified for "
                         L"V2 to V5 or V2 to V6 or V5 to V6\r\n") +
                kExitBanner);
  EXPECT_THAT(console_.text(), ::testing::Not(::testing::HasSubstr(L"(null)")));
}

TEST_F(RunFlowTest, PrivilegesAreEnabledInOrderWithoutTakeOwnership) {
  AddProfile(L"\\\\srv\\p\\alice");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice"}), 0);
  EXPECT_THAT(security_.privilegeCalls(), ElementsAre(L"SeBackupPrivilege", L"SeRestorePrivilege"));
  EXPECT_EQ(security_.closeTokenCalls(), 1);
}

TEST_F(RunFlowTest, TakeOwnershipAddsItsPrivilegeLast) {
  AddProfile(L"\\\\srv\\p\\alice");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice", L"/takeownership"}), 0);
  EXPECT_THAT(security_.privilegeCalls(), ElementsAre(L"SeBackupPrivilege", L"SeRestorePrivilege",
                                                      L"SeTakeOwnershipPrivilege"));
}

TEST_F(RunFlowTest, PrivilegeNotHeldGoesOnWithoutAMessage) {
  security_.notHeld.insert(L"SeBackupPrivilege");
  security_.notHeld.insert(L"SeRestorePrivilege");
  AddProfile(L"\\\\srv\\p\\alice");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice"}), 0);
  ASSERT_EQ(calls_.size(), 1u);
  EXPECT_THAT(log_.messages(),
              ElementsAre(kStart, L"---------- Exiting tarnwick.exe (return 0) ----------",
                          L"1 profiles were migrated from \\\\srv\\p\\alice.\r\n"));
}

TEST_F(RunFlowTest, TokenThatCannotBeOpenedEndsTheRun) {
  security_.openTokenError = err::kAccessDenied;
  AddProfile(L"\\\\srv\\p\\alice");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice"}), -1);
  const std::wstring message =
      L"Failed to open the process token to set necessary privileges (0x80070005)";
  EXPECT_THAT(log_.messages(), ElementsAre(kStart, message));  // no exit banner of its own
  EXPECT_EQ(console_.text(), Line(kStart) + Line(message));
  EXPECT_TRUE(calls_.empty());
  EXPECT_EQ(com_.uninitializeCalls, 1);
  EXPECT_THAT(com_.closesAtUninitialize, ElementsAre(1));
}

TEST_F(RunFlowTest, PrivilegeThatCannotBeEnabledEndsTheRun) {
  security_.enableErrors[L"SeRestorePrivilege"] = err::kNoSuchPrivilege;
  AddProfile(L"\\\\srv\\p\\alice");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice"}), -1);
  EXPECT_THAT(log_.messages(),
              ElementsAre(kStart, L"Failed to set necessary token privileges (0x80070521)"));
  EXPECT_TRUE(calls_.empty());
  EXPECT_EQ(com_.uninitializeCalls, 1);
  EXPECT_EQ(security_.closeTokenCalls(), 0);  // the token is not closed on this path
}

TEST_F(RunFlowTest, APrivilegeCallFailingWithLastErrorZeroStillEndsTheRun) {
  security_.enableErrors[L"SeBackupPrivilege"] = err::kSuccess;  // FALSE, last error 0
  AddProfile(L"\\\\srv\\p\\alice");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice"}), -1);
  EXPECT_THAT(log_.messages(),
              ElementsAre(kStart, L"Failed to set necessary token privileges (0x00000000)"));
  EXPECT_TRUE(calls_.empty());
  EXPECT_EQ(com_.uninitializeCalls, 1);
}

TEST_F(RunFlowTest, V1LoopMigratesEachProfileAsV1ToV2WithItsOwnLineBreakSummary) {
  AddProfile(L"\\\\srv\\p\\alice");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice"}), 0);
  ASSERT_EQ(calls_.size(), 1u);
  EXPECT_EQ(calls_[0].source, L"\\\\srv\\p\\alice");
  EXPECT_EQ(calls_[0].sourceVersion, 1u);
  EXPECT_EQ(calls_[0].targetVersion, 2u);
  const std::wstring exitBanner = L"---------- Exiting tarnwick.exe (return 0) ----------";
  const std::wstring summary = L"1 profiles were migrated from \\\\srv\\p\\alice.\r\n";
  EXPECT_THAT(log_.messages(), ElementsAre(kStart, exitBanner, summary));
  EXPECT_EQ(console_.text(), Line(kStart) + Line(exitBanner) + Line(summary));
  EXPECT_EQ(com_.uninitializeCalls, 1);
  EXPECT_THAT(com_.closesAtUninitialize, ElementsAre(1));  // the document went first
}

TEST_F(RunFlowTest, V6SelectionRunsAsV1ToV2) {
  AddProfile(L"\\\\srv\\p\\alice");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\alice", L"/V6TOV6"}), 0);
  ASSERT_EQ(calls_.size(), 1u);
  EXPECT_EQ(calls_[0].sourceVersion, 1u);
  EXPECT_EQ(calls_[0].targetVersion, 2u);
}

TEST_F(RunFlowTest, SuffixLoopAnnouncesEachProfileAndUsesTheModeVersions) {
  AddProfile(L"\\\\srv\\p\\alice.V5");
  AddProfile(L"\\\\srv\\p\\bob.V5");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\*.V5", L"/V5TOV6"}), 0);
  ASSERT_EQ(calls_.size(), 2u);
  EXPECT_EQ(calls_[0].sourceVersion, 5u);
  EXPECT_EQ(calls_[0].targetVersion, 6u);
  const std::wstring alice = L"\\\\srv\\p\\alice.V5";
  const std::wstring bob = L"\\\\srv\\p\\bob.V5";
  const std::wstring exitBanner = L"---------- Exiting tarnwick.exe (return 0) ----------";
  const std::wstring summary = L"2 profiles were migrated from \\\\srv\\p\\*.v5.";
  EXPECT_THAT(log_.messages(),
              ElementsAre(kStart, L"Migrating profile: " + calls_[0].source,
                          L"Migrating profile: " + calls_[1].source, exitBanner, summary));
  EXPECT_EQ(console_.text(), Line(kStart) + L"Migrating profile: " + calls_[0].source + L"...\r\n" +
                                 L"Migrating profile: " + calls_[1].source + L"...\r\n" +
                                 Line(exitBanner) + Line(summary));
  EXPECT_TRUE((calls_[0].source == alice && calls_[1].source == bob) ||
              (calls_[0].source == bob && calls_[1].source == alice));
}

TEST_F(RunFlowTest, V2WildcardWithModeRunsTheLoopWithSuffixV2) {
  AddProfile(L"\\\\srv\\p\\bob.V2");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\*.V2", L"/V2TOV6"}), 0);
  EXPECT_TRUE(calls_.empty());  // a .V2 folder is never yielded by the search
  EXPECT_EQ(log_.messages().back(),
            L"The source does not contain any profiles to migrate: \\\\srv\\p\\*.v2");
}

TEST_F(RunFlowTest, NoProfilesGiveTheEmptySummaryAndExitZero) {
  files_.AddFolder(L"\\\\srv\\p\\empty");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\empty"}), 0);
  EXPECT_EQ(log_.messages().back(),
            L"The source does not contain any profiles to migrate: \\\\srv\\p\\empty\r\n");
  EXPECT_EQ(console_.text().substr(console_.text().size() - 4), L"\r\n\r\n");
}

TEST_F(RunFlowTest, FinishedTargetsCountAsFailuresAndTheBare183DoesNot) {
  // The table keyed by the profile's path; the enumerator yields the bare path for one profile.
  AddProfile(L"\\\\srv\\p\\done");
  results_[L"\\\\srv\\p\\done"] = hr::kAlreadyExists;
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\done"}), -1);
  EXPECT_THAT(log_.messages(),
              ElementsAre(kStart, L"Failed migrating profile (0x800700B7): \\\\srv\\p\\done",
                          L"---------- Exiting tarnwick.exe (return -1) ----------",
                          L"The source does not contain any profiles to migrate: "
                          L"\\\\srv\\p\\done\r\n"));
}

TEST_F(RunFlowTest, Bare183ReportsTheTargetAndKeepsTheReturnValue) {
  AddProfile(L"\\\\srv\\p\\again");
  results_[L"\\\\srv\\p\\again"] = HResult{183};  // the bare Win32 value
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\again"}), 0);
  EXPECT_EQ(log_.messages().at(1), L"Target profile already exists: \\\\srv\\p\\again.target");
}

TEST_F(RunFlowTest, SourceAndTargetCodesReportTheirPaths) {
  AddProfile(L"\\\\srv\\p\\x.V5");
  AddProfile(L"\\\\srv\\p\\y.V5");
  AddProfile(L"\\\\srv\\p\\z.V5");
  results_[L"\\\\srv\\p\\x.V5"] = hr::kSourceProfileInvalid;
  results_[L"\\\\srv\\p\\y.V5"] = hr::kTargetProfileInvalid;
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\*.V5", L"/V5TOV6"}), -1);
  ASSERT_EQ(calls_.size(), 3u);  // a failed profile never stops the loop
  const auto& messages = log_.messages();
  EXPECT_NE(std::find(messages.begin(), messages.end(),
                      L"Source profile is either not valid or cannot be accessed: "
                      L"\\\\srv\\p\\x.V5"),
            messages.end());
  EXPECT_NE(std::find(messages.begin(), messages.end(),
                      L"Target profile is either not valid or cannot be accessed: "
                      L"\\\\srv\\p\\y.V5.target"),
            messages.end());
  EXPECT_EQ(messages.at(messages.size() - 2),
            L"---------- Exiting tarnwick.exe (return -1) ----------");
  EXPECT_EQ(messages.back(), L"1 profiles were migrated from \\\\srv\\p\\*.v5.");
}

TEST_F(RunFlowTest, LineBreaksInAProfilePathCannotForgeALine) {
  // A profile folder whose name holds CR LF and a line of its own: the log and the console show
  // the break escaped, and every message stays one line; the summary's own "\r\n" stays.
  const std::wstring evil = L"\\\\srv\\p\\x\r\n1 profiles were migrated from y.V5";
  const std::wstring shown = L"\\\\srv\\p\\x<CR><LF>1 profiles were migrated from y.V5";
  AddProfile(evil);
  results_[evil] = hr::kFail;
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\*.V5", L"/V5TOV6"}), -1);
  const std::wstring exitBanner = L"---------- Exiting tarnwick.exe (return -1) ----------";
  const std::wstring failed = L"Failed migrating profile (0x80004005): " + shown;
  const std::wstring summary =
      L"The source does not contain any profiles to migrate: \\\\srv\\p\\*.v5";
  EXPECT_THAT(log_.messages(),
              ElementsAre(kStart, L"Migrating profile: " + shown, failed, exitBanner, summary));
  EXPECT_EQ(console_.text(), Line(kStart) + L"Migrating profile: " + shown + L"...\r\n" +
                                 Line(failed) + Line(exitBanner) + Line(summary));
}

TEST_F(RunFlowTest, LineBreaksInTheTypedSourceAreEscapedAndTheSummaryKeepsItsOwn) {
  files_.AddFolder(L"\\\\srv\\p\\a\nb");
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\a\nb", L"/bad\r\narg"}), 0);
  EXPECT_EQ(log_.messages().at(1), L"Unknown command line arg: /bad<CR><LF>arg");
  EXPECT_EQ(log_.messages().back(),
            L"The source does not contain any profiles to migrate: \\\\srv\\p\\a<LF>b\r\n");
  EXPECT_EQ(console_.text(),
            Line(kStart) + L"Unknown command line arg: /bad<CR><LF>arg\r\n" +
                Line(L"---------- Exiting tarnwick.exe (return 0) ----------") +
                L"The source does not contain any profiles to migrate: \\\\srv\\p\\a<LF>b\r\n\r\n");
}

}  // namespace
}  // namespace tw
