// The built program, run as a user runs it: console output, exit status and the log file that
// lands beside the executable.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"

namespace tw {
namespace {

const std::string kStart = "---------- Starting tarnwick.exe ----------";
const std::string kExitBanner = "---------- Exiting tarnwick.exe (return -1) ----------";
const std::string kPrefix = R"(\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\]\[0x[0-9a-f]{8}\] )";
// What the binding of the offline-registry and user-profile functions logs before the program's
// entry runs. On Linux both libraries are built in and complete, so it logs nothing.
const std::string kBindingLog;

class CommandLineE2eTest : public ::testing::Test {
 protected:
  void SetUp() override {
    exe_ = temp_.path() / "tarnwick";
    std::filesystem::copy_file(TARNWICK_BINARY, exe_);
  }

  testing::ProcessResult Run(const std::vector<std::string>& args) {
    return testing::RunProcess(exe_.string(), args);
  }

  std::string LogFile() { return testing::ReadWholeFile(temp_.path() / "tarnwick.log"); }

  static std::string Escape(const std::string& text) {
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return std::regex_replace(text, special, R"(\$&)");
  }

  testing::TempFolder temp_;
  std::filesystem::path exe_;
};

TEST_F(CommandLineE2eTest, NoArgumentsPrintsBannerAndExitsWith255) {
  const testing::ProcessResult result = Run({});
  EXPECT_EQ(result.exitStatus, 255);
  EXPECT_EQ(result.output,
            kStart + "\r\nNo command line args, exiting.\r\n" + kExitBanner + "\r\n");
  const std::regex expected(kBindingLog + kPrefix + Escape(kStart) + "\r\n" + kPrefix +
                            Escape("No command line args, exiting.\r\n" + kExitBanner) + "\r\n");
  EXPECT_TRUE(std::regex_match(LogFile(), expected)) << LogFile();
}

TEST_F(CommandLineE2eTest, HelpPrintsUsageAndLogsOnlyTheBanner) {
  const std::string usage =
      testing::ReadWholeFile(std::string(TARNWICK_TESTDATA_DIR) + "/usage-text.txt");
  ASSERT_FALSE(usage.empty());
  for (const char* form : {"/help", "-help", "/?", "-?"}) {
    std::filesystem::remove(temp_.path() / "tarnwick.log");
    const testing::ProcessResult result = Run({form});
    EXPECT_EQ(result.exitStatus, 0) << form;
    EXPECT_EQ(result.output, kStart + "\r\n" + usage) << form;
    EXPECT_TRUE(
        std::regex_match(LogFile(), std::regex(kBindingLog + kPrefix + Escape(kStart) + "\r\n")))
        << LogFile();
  }
}

TEST_F(CommandLineE2eTest, UnknownArgumentIsReportedAsTyped) {
  const testing::ProcessResult result = Run({R"(/s:\\server\share\x)", "/Bogus"});
  // An unknown argument is no failure: the run goes on, finds no profile behind the unknown
  // server, and ends with the summary and exit value 0.
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(
      result.output,
      kStart + "\r\nUnknown command line arg: /Bogus\r\n" +
          "---------- Exiting tarnwick.exe (return 0) ----------\r\n" +
          "The source does not contain any profiles to migrate: \\\\server\\share\\x\r\n\r\n");
  EXPECT_TRUE(
      std::regex_search(LogFile(), std::regex(kPrefix + "Unknown command line arg: /Bogus\r\n")))
      << LogFile();
}

TEST_F(CommandLineE2eTest, PercentSequencesArePrintedAndLoggedVerbatim) {
  const testing::ProcessResult result = Run({"/x%s%n%%", R"(/s:\\srv\p\%s%n%%.v2)"});
  EXPECT_EQ(result.exitStatus, 255);
  EXPECT_NE(result.output.find("Unknown command line arg: /x%s%n%%\r\n"), std::string::npos)
      << result.output;
  EXPECT_NE(LogFile().find("] Unknown command line arg: /x%s%n%%\r\n"), std::string::npos);
  EXPECT_NE(result.output.find("Source profile is V2. /V2toV5 or /V2toV6 option must be specified"),
            std::string::npos);
}

TEST_F(CommandLineE2eTest, NonAsciiArgumentRoundTripsToConsoleAndLog) {
  const testing::ProcessResult result = Run({"/Bögus™"});
  EXPECT_NE(result.output.find("Unknown command line arg: /Bögus™\r\n"), std::string::npos);
  // The log is in Windows-1252: "ö" is 0xF6 and "™" is 0x99.
  EXPECT_NE(LogFile().find("Unknown command line arg: /B\xF6gus\x99\r\n"), std::string::npos);
}

TEST_F(CommandLineE2eTest, BuiltInProfileFunctionsPassTheBindingChecks) {
  const testing::ProcessResult result = Run({R"(/s:\\server\share\alice)"});
  EXPECT_EQ(result.output.find("APIs are not available"), std::string::npos) << result.output;
  EXPECT_EQ(LogFile().find("function pointers"), std::string::npos) << LogFile();
}

TEST_F(CommandLineE2eTest, LogIsAppendedAcrossRuns) {
  Run({});
  Run({});
  const std::string log = LogFile();
  std::size_t count = 0;
  for (std::size_t at = log.find(kStart); at != std::string::npos; at = log.find(kStart, at + 1))
    ++count;
  EXPECT_EQ(count, 2u);
}

}  // namespace
}  // namespace tw
