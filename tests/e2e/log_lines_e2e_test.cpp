// The built binary's log never holds a forged line: a profile whose folder name, file names and
// hive values carry CR LF followed by a line of the log's own form leaves every line of the log
// starting with its timestamp, the breaks shown as "<CR><LF>", on the console as well.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "fakes/e2e_share.h"
#include "fakes/tree_state.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::E2eShare;
using testing::ProcessResult;
using testing::RegSection;
using testing::RegString;

// The log's lines, split at each CR LF (the last, empty piece dropped).
std::vector<std::string> LogLines(const std::string& log) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end = log.find("\r\n"); end != std::string::npos;
       end = log.find("\r\n", start)) {
    lines.push_back(log.substr(start, end - start));
    start = end + 2;
  }
  if (start < log.size()) lines.push_back(log.substr(start));
  return lines;
}

TEST(LogLinesE2eTest, LineBreaksInNamesAndValuesCannotForgeALine) {
  E2eShare share(testing::SuiteTools());
  // A whole line of the log's form; names on the share cannot hold its "/" and "\\", so they
  // carry a shorter one.
  const std::string forged =
      "[11/16/26 02:21:38][0x00000001] 1 profiles were migrated from \\\\fs\\profiles\\bob.";
  const std::string forgedInName = "1 profiles were migrated from x";
  const std::string name = "alice\r\n" + forgedInName;
  const std::string escapedName = "alice<CR><LF>" + forgedInName;
  // A "User Shell Folders" value holding CR LF and a variable that is not expanded: the row is
  // logged with its location and not migrated.
  const std::string reg =
      RegSection(testing::kUserShellFolders,
                 RegString("Desktop", "%USERPROFILE%\\Desktop") +
                     testing::ExportedString("Favorites",
                                             "%USERPROFILE%\\Fav\r\n" + forged + " %HOMEPATH%") +
                     "\n") +
      RegSection("Software\\Tw", RegString("Profile", "alice"));
  const fs::path source = share.AddProfile(
      name, reg,
      {{"Desktop/desk\r\n" + forgedInName + ".txt", "desk"}, {"Other\r\nx/other.txt", "o"}});
  const testing::TreeState before = testing::CaptureTreeState(source);

  const ProcessResult result = share.Run({"/s:\\\\fs\\profiles\\" + name});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(result.output,
            "---------- Starting tarnwick.exe ----------\r\n"
            "---------- Exiting tarnwick.exe (return 0) ----------\r\n"
            "1 profiles were migrated from \\\\fs\\profiles\\" +
                escapedName + ".\r\n\r\n");
  EXPECT_TRUE(fs::exists(share.share() / (name + ".V2") / "Desktop" /
                         ("desk\r\n" + forgedInName + ".txt")));

  const std::string log = share.RawLog();
  const std::regex prefix(R"(\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\]\[0x[0-9a-f]{8}\] .*)");
  int empty = 0;
  for (const std::string& line : LogLines(log)) {
    if (line.empty()) {
      ++empty;  // the summary's own "\r\n"
      continue;
    }
    EXPECT_TRUE(std::regex_match(line, prefix)) << "forged or broken line: " << line;
    EXPECT_FALSE(Contains(line, "\r") || Contains(line, "\n")) << line;
  }
  EXPECT_EQ(empty, 1);
  EXPECT_TRUE(Contains(
      log, "] 1 profiles were migrated from \\\\fs\\profiles\\" + escapedName + ".\r\n\r\n"))
      << log;
  // The value's line of the log's form stays inside the message (the raw text is searched: a
  // reader that splits at every timestamp, anywhere, would take it for two messages).
  EXPECT_TRUE(Contains(log,
                       "] Cannot migrate profile folders containing environment variables: "
                       "\\\\fs\\profiles\\" +
                           escapedName + "\\Fav<CR><LF>" + forged + " %HOMEPATH%\r\n"))
      << log;

  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(source)), "");
}

}  // namespace
}  // namespace tw
