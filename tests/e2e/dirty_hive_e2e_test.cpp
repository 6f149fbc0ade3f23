// Profiles whose ntuser.dat Windows did not close cleanly, through the built binary: with its
// transaction log beside it the migration works on the recovered hive and says nothing; without
// one it works on the hive as it stands and logs that once.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "fakes/e2e_share.h"
#include "unit/hive/hive_log_builder.h"
#include "unit/hive/hive_test_util.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::E2eShare;
using testing::ExportedString;
using testing::ProcessResult;

constexpr char kMessage[] = "Hive was not cleanly closed, its logs could not be applied: ";

// The hive with its primary sequence number one ahead of its secondary.
hive::testing::Bytes Dirty(const hive::testing::Bytes& hive) {
  const std::uint32_t secondary =
      hive::regf::Get32(hive.data() + hive::regf::kBaseSecondarySequence);
  return hive::testing::WithSequence(hive, secondary + 1, secondary);
}

class DirtyHiveE2eTest : public ::testing::Test {
 protected:
  E2eShare share_{testing::SuiteTools()};
};

TEST_F(DirtyHiveE2eTest, StaleHiveWithoutLogsIsMigratedAndReportedOnce) {
  const fs::path source = share_.AddV1Profile("alice");
  const fs::path hive = source / "ntuser.dat";
  hive::testing::WriteBytes(hive, Dirty(hive::testing::ReadBytes(hive)));
  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\alice"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(share_.CountLoggedContaining(kMessage), 1);
  EXPECT_EQ(share_.CountLogged(std::string(kMessage) + "\\\\fs\\profiles\\alice\\ntuser.dat"), 1);
  const std::string migrated = E2eShare::ExportHive(share_.share() / "alice.V2" / "ntuser.dat");
  EXPECT_TRUE(Contains(migrated, ExportedString("Profile", "alice"))) << migrated;
}

TEST_F(DirtyHiveE2eTest, HiveIsMigratedAsItsLogsLeaveIt) {
  // The file holds the old state; its log (named in another case) holds a newer one.
  const fs::path source = share_.AddV1Profile("bob");
  const fs::path hive = source / "ntuser.dat";
  const hive::testing::Bytes older = hive::testing::ReadBytes(hive);
  share_.MakeHive(share_.root() / "newer.dat",
                  testing::RegSection(testing::kUserShellFolders,
                                      testing::RegString("Desktop", "%USERPROFILE%\\Desktop")) +
                      testing::RegSection("Software\\Tw", testing::RegString("Profile", "newer")));
  const hive::testing::Bytes newer = hive::testing::ReadBytes(share_.root() / "newer.dat");
  const hive::testing::Bytes dirty = Dirty(older);
  const std::uint32_t sequence = hive::regf::Get32(dirty.data() + hive::regf::kBasePrimarySequence);
  const hive::testing::Bytes log = hive::testing::NewLog(older, newer, sequence, 2);
  hive::testing::WriteBytes(hive, dirty);
  hive::testing::WriteBytes(source / "NTUSER.DAT.LOG1", log);

  const ProcessResult result = share_.Run({"/s:\\\\fs\\profiles\\bob"});
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(share_.CountLoggedContaining(kMessage), 0);
  const std::string migrated = E2eShare::ExportHive(share_.share() / "bob.V2" / "ntuser.dat");
  EXPECT_TRUE(Contains(migrated, ExportedString("Profile", "newer"))) << migrated;
  EXPECT_FALSE(Contains(migrated, ExportedString("Profile", "bob"))) << migrated;
  // The source's hive and log are left exactly as they were.
  EXPECT_EQ(hive::testing::ReadBytes(hive), dirty);
  EXPECT_EQ(hive::testing::ReadBytes(source / "NTUSER.DAT.LOG1"), log);
}

}  // namespace
}  // namespace tw
