// The built tarnwick-hive tool on hives that were not cleanly closed: dump, save and check read
// them as OROpenHive does (recovered from their logs) and say so in a note on standard error.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <string>

#include "hive_log_test_util.h"

namespace tw::hive {
namespace {

using testing::CorpusFile;

std::string Quote(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

// Runs the tool; its standard output, standard error in `errors`, its exit value in `code`.
std::string Tool(const std::string& args, std::string* errors, int* code) {
  testing::TempFolder folder;
  const std::filesystem::path errorFile = folder / "stderr";
  int status = 0;
  const std::string out = testing::RunCommand(
      std::string(TARNWICK_HIVE_TOOL) + " " + args + " 2>" + Quote(errorFile), &status);
  const auto bytes = testing::ReadBytes(errorFile);
  errors->assign(bytes.begin(), bytes.end());
  *code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return out;
}

const std::string kRecoveredNote = " was not cleanly closed; recovered from its transaction logs";

TEST(HiveToolRecovery, DumpShowsTheRecoveredHiveAndSaysSo) {
  const auto hive = CorpusFile("NewDirtyHive1/NewDirtyHive");
  std::string errors;
  int code = 0;
  const std::string dump = Tool("dump " + Quote(hive), &errors, &code);
  EXPECT_EQ(code, 0) << errors;
  EXPECT_EQ(errors, "tarnwick-hive: note: " + hive.string() + kRecoveredNote +
                        " (.LOG1: entries 2 to 2 applied; .LOG2: entries 3 to 5 applied)\n");
  std::string windowsErrors;
  EXPECT_EQ(dump, Tool("dump " + Quote(CorpusFile("NewDirtyHive1/RecoveredHive_Windows10")),
                       &windowsErrors, &code));
  EXPECT_EQ(windowsErrors, "");
}

TEST(HiveToolRecovery, SaveWritesTheRecoveredHive) {
  testing::TempFolder folder;
  const auto hive = CorpusFile("NewDirtyHive2/NewDirtyHive");
  std::string errors;
  int code = 0;
  Tool("save " + Quote(hive) + " " + Quote(folder / "out.dat") + " --os 10.0", &errors, &code);
  EXPECT_EQ(code, 0) << errors;
  EXPECT_EQ(errors, "tarnwick-hive: note: " + hive.string() + kRecoveredNote + "\n");
  const auto saved = testing::ReadBytes(folder / "out.dat");
  const ReadResult reread = ParseHive(saved);
  ASSERT_EQ(reread.error, err::kSuccess);
  const auto windows = testing::ReadBytes(CorpusFile("NewDirtyHive1/RecoveredHive_Windows10"));
  EXPECT_EQ(testing::Dump(*reread.hive->root), testing::Dump(*ParseHive(windows).hive->root));
}

TEST(HiveToolRecovery, CheckSaysWhenTheLogsCouldNotBeApplied) {
  const auto hive = CorpusFile("BadLogHive3/BadLogHive");
  std::string errors;
  int code = 0;
  Tool("check " + Quote(hive), &errors, &code);
  EXPECT_EQ(errors.rfind("tarnwick-hive: note: " + hive.string() +
                             " was not cleanly closed and its transaction logs could not be "
                             "applied (.LOG1: the base block checksum is wrong; .LOG2: the base "
                             "block checksum is wrong); read as it stands\n",
                         0),
            0u)
      << errors;
  // The recovered hive is what check judges: its sequence numbers agree.
  Tool("check " + Quote(CorpusFile("NewDirtyHive1/NewDirtyHive")), &errors, &code);
  EXPECT_NE(errors.find(kRecoveredNote), std::string::npos) << errors;
  EXPECT_EQ(errors.find("sequence numbers"), std::string::npos) << errors;
}

}  // namespace
}  // namespace tw::hive
