#include "run/run_flow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fakes/fake_com_runtime.h"
#include "fakes/fake_console.h"
#include "fakes/log_capture.h"
#include "fakes/temp_folder.h"
#include "platform/file_system.h"
#include "platform/xml_document.h"
#include "run/command_line.h"

namespace tw {
namespace {

using ::testing::ElementsAre;

constexpr const wchar_t* kStart = L"---------- Starting tarnwick.exe ----------";
constexpr const wchar_t* kExitBanner = L"---------- Exiting tarnwick.exe (return -1) ----------";

class RunFlowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_sourceVersion = 0;
    g_targetVersion = 0;
    g_profilePath.clear();
  }

  int Run(std::vector<std::wstring> args, bool userenvBound = true, bool offregComplete = true) {
    args.insert(args.begin(), L"tarnwick.exe");
    std::unique_ptr<XmlDocument> document = NewXmlDocument();
    RunServices services{console_, com_, ProcessFileSystem(), *document, userenvBound,
                         offregComplete};
    return RunTarnwick(args, services);
  }

  // What the console shows for a reported message: the text and "\r\n".
  static std::wstring Line(const std::wstring& text) { return text + L"\r\n"; }

  testing::FakeConsole console_;
  testing::FakeComRuntime com_;
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
    testing::FakeConsole console;
    testing::LogCapture log;
    testing::FakeComRuntime com;
    std::unique_ptr<XmlDocument> document = NewXmlDocument();
    RunServices services{console, com, ProcessFileSystem(), *document, true, true};
    const std::vector<std::wstring> args{L"tarnwick.exe", form};
    EXPECT_EQ(RunTarnwick(args, services), 0) << form;
    EXPECT_EQ(console.text(), Line(kStart) + std::wstring(expected.begin(), expected.end()));
    EXPECT_THAT(log.messages(), ElementsAre(kStart));  // the usage text is never logged
    EXPECT_EQ(com.initializeCalls, 1);
    EXPECT_EQ(com.uninitializeCalls, 0);
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
      std::wstring(L"Source profile is V2. /V2toV5 or /V2toV6 option must be specified for V2 to "
                   L"V5 or V2 to V6 or V5 to V6\r\n") +
      kExitBanner;
  EXPECT_THAT(log_.messages(), ElementsAre(kStart, message));
  EXPECT_EQ(console_.text(), Line(kStart) + Line(message));
  EXPECT_EQ(com_.uninitializeCalls, 1);
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
}

TEST_F(RunFlowTest, PercentInPathIsReportedVerbatim) {
  EXPECT_EQ(Run({L"/s:\\\\srv\\p\\%s%n%%.v2"}), -1);
  EXPECT_EQ(log_.messages().back(),
            std::wstring(L"Source profile is V2. /V2toV5 or /V2toV6 option must be specified for "
                         L"V2 to V5 or V2 to V6 or V5 to V6\r\n") +
                kExitBanner);
  EXPECT_THAT(console_.text(), ::testing::Not(::testing::HasSubstr(L"(null)")));
}

}  // namespace
}  // namespace tw
