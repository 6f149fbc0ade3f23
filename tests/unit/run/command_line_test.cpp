#include "run/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/text_encoding.h"
#include "fakes/fake_console.h"
#include "fakes/log_capture.h"
#include "fakes/temp_folder.h"
#include "migration/migration_settings.h"
#include "migration/process_state.h"
#include "ports/file_system.h"
#include "ports/xml_document.h"

namespace tw {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_sourceVersion = 0;
    g_targetVersion = 0;
    g_profilePath.clear();
    InitSettings(settings_);
  }

  bool Parse(std::vector<std::wstring> args) {
    std::unique_ptr<XmlDocument> document = NewXmlDocument();
    CommandLineServices services{console_, ProcessFileSystem(), *document};
    return ParseCommandLine(args, settings_, services);
  }

  std::wstring Wide(const std::string& path) { return Utf8ToWide(path); }

  MigrationSettings settings_;
  testing::FakeConsole console_;
  testing::LogCapture log_;
  testing::TempFolder temp_;
};

TEST_F(CommandLineTest, SourcePathIsStoredInLowerCase) {
  EXPECT_TRUE(Parse({L"/S:C:\\Users\\Bob"}));
  EXPECT_EQ(settings_.sourcePath, L"c:\\users\\bob");
}

TEST_F(CommandLineTest, TargetAndProfilePathsAreStoredInLowerCase) {
  EXPECT_TRUE(Parse({L"/s:x", L"/T:\\\\Srv\\New", L"/P:D:\\Prof"}));
  EXPECT_EQ(settings_.targetPath, L"\\\\srv\\new");
  EXPECT_EQ(g_profilePath, L"d:\\prof");
}

TEST_F(CommandLineTest, OnlyHelpReturnsTrueWithoutSource) {
  EXPECT_TRUE(Parse({L"/help"}));
  EXPECT_TRUE(settings_.showHelp);
  EXPECT_TRUE(settings_.sourcePath.empty());
}

TEST_F(CommandLineTest, EveryHelpFormIsRecognisedAsBeginsWith) {
  for (const wchar_t* form : {L"/help", L"-help", L"/?", L"-?", L"/HELP", L"/helpme"}) {
    InitSettings(settings_);
    EXPECT_TRUE(Parse({form})) << form;
    EXPECT_TRUE(settings_.showHelp) << form;
  }
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(CommandLineTest, NoSourceAndNoHelpReturnsFalse) { EXPECT_FALSE(Parse({L"/r-"})); }

TEST_F(CommandLineTest, FlagsAreBeginsWithTests) {
  EXPECT_TRUE(Parse({L"/s:x", L"/f-x", L"/R-", L"/takeownershipX"}));
  EXPECT_EQ(settings_.folderMask, 0x80000000u);
  EXPECT_EQ(settings_.registryMask, 0x80000000u);
  EXPECT_TRUE(settings_.takeOwnership);
  EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(CommandLineTest, UnknownArgumentIsReportedAsTypedAndParsingGoesOn) {
  EXPECT_TRUE(Parse({L"/tx", L"/s:\\\\server\\share\\x", L"/BoGus"}));
  // "/tx" is not "/t:" and not "/takeownership".
  EXPECT_THAT(log_.messages(),
              ElementsAre(L"Unknown command line arg: /tx", L"Unknown command line arg: /BoGus"));
  EXPECT_EQ(console_.text(),
            L"Unknown command line arg: /tx\r\nUnknown command line arg: /BoGus\r\n");
  EXPECT_FALSE(settings_.takeOwnership);
  EXPECT_EQ(settings_.sourcePath, L"\\\\server\\share\\x");
}

TEST_F(CommandLineTest, PercentInUnknownArgumentIsPrintedVerbatim) {
  EXPECT_FALSE(Parse({L"%s%n%%x"}));
  EXPECT_THAT(log_.messages(), ElementsAre(L"Unknown command line arg: %s%n%%x"));
  EXPECT_EQ(console_.text(), L"Unknown command line arg: %s%n%%x\r\n");
}

TEST_F(CommandLineTest, BareVersionCodeIsUnknown) {
  EXPECT_TRUE(Parse({L"/s:x", L"V2toV5"}));
  EXPECT_EQ(g_sourceVersion, 0);
  EXPECT_EQ(g_targetVersion, 0);
  EXPECT_THAT(log_.messages(), ElementsAre(L"Unknown command line arg: V2toV5"));
}

TEST_F(CommandLineTest, ModeOptionsInAnyCaseAndLaterWins) {
  EXPECT_TRUE(Parse({L"/s:x", L"/v2tov5"}));
  EXPECT_EQ(g_sourceVersion, 2);
  EXPECT_EQ(g_targetVersion, 5);
  EXPECT_TRUE(Parse({L"/s:x", L"/V2ToV6", L"/V5TOV6extra"}));
  EXPECT_EQ(g_sourceVersion, 5);
  EXPECT_EQ(g_targetVersion, 6);
  EXPECT_TRUE(Parse({L"/s:x", L"/V6TOV6"}));
  EXPECT_EQ(g_sourceVersion, 6);
  EXPECT_EQ(g_targetVersion, 6);
}

TEST_F(CommandLineTest, ConfigurationModeWinsOverModeOption) {
  const std::string config =
      temp_.WriteFile("cfg.xml",
                      "<config><source><profilepath>\\\\srv\\p\\*.v2</profilepath>"
                      "<migv2tov6>true</migv2tov6></source></config>");
  EXPECT_TRUE(Parse({Wide(config), L"/s:x", L"/V5TOV6"}));
  EXPECT_EQ(g_sourceVersion, 2);
  EXPECT_EQ(g_targetVersion, 6);
  EXPECT_EQ(settings_.sourcePath, L"x");  // the command line wins for everything else
}

TEST_F(CommandLineTest, ConfigurationSourcePathAloneIsEnough) {
  const std::string config = temp_.WriteFile(
      "only.xml",
      "<c takeownership=\"1\"><source><profilepath>\\\\Srv\\P\\Alice</profilepath></source>"
      "<target><profilepath>\\\\srv\\new</profilepath></target></c>");
  EXPECT_TRUE(Parse({Wide(config)}));
  EXPECT_EQ(settings_.sourcePath, L"\\\\Srv\\P\\Alice");  // file text is kept as written
  EXPECT_EQ(settings_.targetPath, L"\\\\srv\\new");
  EXPECT_TRUE(settings_.takeOwnership);
}

TEST_F(CommandLineTest, CommandLineOverridesConfiguration) {
  const std::string config = temp_.WriteFile(
      "over.xml",
      "<c><source><profilepath>from-file</profilepath></source>"
      "<target><profilepath>target-file</profilepath></target>"
      "<migration><registry><includekeys>Console</includekeys></registry></migration></c>");
  EXPECT_TRUE(Parse({Wide(config), L"/s:from-line", L"/t:target-line", L"/r-", L"/f-"}));
  EXPECT_EQ(settings_.sourcePath, L"from-line");
  EXPECT_EQ(settings_.targetPath, L"target-line");
  EXPECT_EQ(settings_.registryMask, 0x80000000u);
  EXPECT_EQ(settings_.folderMask, 0x80000000u);
}

// The folder is taken as the configuration path; its load gives S_FALSE (a file that did not
// parse: the loader test asserts that code), so nothing is stored and nothing is logged.
TEST_F(CommandLineTest, ExistingFolderIsTakenAsConfigurationAndLoadsAsAFileThatDidNotParse) {
  const std::wstring folder = Wide(temp_.path().string());
  EXPECT_TRUE(Parse({folder, L"/s:x"}));
  EXPECT_THAT(log_.messages(), IsEmpty());
  EXPECT_EQ(console_.text(), L"");
  EXPECT_EQ(settings_.sourcePath, L"x");
}

TEST_F(CommandLineTest, LaterConfigurationArgumentReplacesEarlier) {
  const std::string first =
      temp_.WriteFile("first.xml", "<c><source><profilepath>first</profilepath></source></c>");
  const std::string second =
      temp_.WriteFile("second.xml", "<c><source><profilepath>second</profilepath></source></c>");
  EXPECT_TRUE(Parse({Wide(first), Wide(second)}));
  EXPECT_EQ(settings_.sourcePath, L"second");
}

TEST_F(CommandLineTest, MalformedConfigurationChangesNothingAndReportsNothing) {
  const std::string config = temp_.WriteFile("bad.xml", "<c><source><profilepath>x</source>");
  EXPECT_FALSE(Parse({Wide(config)}));
  EXPECT_THAT(log_.messages(), IsEmpty());
  EXPECT_EQ(console_.text(), L"");
  EXPECT_TRUE(settings_.sourcePath.empty());
}

}  // namespace
}  // namespace tw
