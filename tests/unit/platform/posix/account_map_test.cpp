// The server's accounts behind SIDs: S-1-22 SIDs always, a standalone server's passdb users
// (made with smbpasswd, read through pdbedit from the configuration TARNWICK_SMB_CONF names),
// and nothing for a SID no account stands for.
#include "platform/posix/samba/account_map.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "base/text_encoding.h"
#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"
#include "security/codec/well_known_sids.h"

namespace tw::posix::samba {
namespace {

using security::Sid;

Sid SidOf(const wchar_t* text) {
  Sid sid;
  EXPECT_EQ(Sid::FromString(text, &sid), err::kSuccess);
  return sid;
}

TEST(AccountMapTest, ParsesPdbeditsVerboseList) {
  const auto users = ParsePassdbUsers(
      "Unix username:        alice\n"
      "NT username:          \n"
      "User SID:             S-1-5-21-1-2-3-1000\n"
      "Primary Group SID:    S-1-5-21-1-2-3-513\n"
      "---------------\n"
      "Unix username:        bob\n"
      "User SID:             not a sid\n"
      "Unix username:        carol\n"
      "User SID:             S-1-5-21-1-2-3-1001");
  ASSERT_EQ(users.size(), 2u);
  EXPECT_EQ(users[0].first, "alice");
  EXPECT_EQ(users[0].second, SidOf(L"S-1-5-21-1-2-3-1000"));
  EXPECT_EQ(users[1].first, "carol");
  EXPECT_EQ(users[1].second, SidOf(L"S-1-5-21-1-2-3-1001"));
}

TEST(AccountMapTest, UnixSidsAlwaysMapAndUnknownSidsNever) {
  const std::unique_ptr<AccountMap> map = MakeServerAccountMap();
  EXPECT_EQ(map->UidOf(security::UnixUserSid(4242)), 4242u);
  EXPECT_EQ(map->GidOf(security::UnixGroupSid(4343)), 4343u);
  EXPECT_FALSE(map->UidOf(SidOf(L"S-1-5-21-7-8-9-1001")).has_value());
  EXPECT_FALSE(map->GidOf(SidOf(L"S-1-5-21-7-8-9-1001")).has_value());
  EXPECT_FALSE(map->UidOf(security::UnixGroupSid(5)).has_value());
}

// A standalone server's user: its passdb SID maps to its uid, and back.
TEST(AccountMapTest, PassdbUsersMapToTheirUids) {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: useradd and smbpasswd need root";
  if (::access("/usr/bin/pdbedit", X_OK) != 0 || ::access("/usr/sbin/useradd", X_OK) != 0) {
    GTEST_SKIP() << "skipped: Samba's pdbedit or useradd is missing (tools/install-deps.sh)";
  }
  testing::TempFolder folder;
  const std::string conf = folder.Child("smb.conf");
  {
    std::ofstream out(conf);
    out << "[global]\n  server role = standalone server\n  passdb backend = tdbsam:"
        << folder.Child("passdb.tdb") << "\n  private dir = " << folder.path().string()
        << "\n  lock directory = " << folder.path().string()
        << "\n  state directory = " << folder.path().string()
        << "\n  cache directory = " << folder.path().string() << "\n";
  }
  const std::string user = "twmap" + std::to_string(::getpid() % 100000);
  ASSERT_EQ(testing::RunProcess("/usr/sbin/useradd",
                                {"--no-create-home", "--shell", "/usr/sbin/nologin", user})
                .exitStatus,
            0);
  struct Cleanup {
    std::string name;
    ~Cleanup() { testing::RunProcess("/usr/sbin/userdel", {"--force", name}); }
  } cleanup{user};
  const testing::ProcessResult added = testing::RunProcess(
      "/bin/sh", {"-c", "printf 'pw\\npw\\n' | smbpasswd -c \"$0\" -a -s \"$1\"", conf, user});
  ASSERT_EQ(added.exitStatus, 0) << added.output << added.errors;
  const testing::ProcessResult listed =
      testing::RunProcess("/usr/bin/pdbedit", {"-s", conf, "-v", "-u", user});
  const auto users = ParsePassdbUsers(listed.output);
  ASSERT_EQ(users.size(), 1u) << listed.output;
  const passwd* entry = ::getpwnam(user.c_str());
  ASSERT_NE(entry, nullptr);

  ::setenv("TARNWICK_SMB_CONF", conf.c_str(), 1);
  const std::unique_ptr<AccountMap> map = MakeServerAccountMap();
  EXPECT_EQ(map->UidOf(users[0].second), static_cast<std::uint32_t>(entry->pw_uid));
  EXPECT_EQ(map->SidOfUid(static_cast<std::uint32_t>(entry->pw_uid)), users[0].second);
  EXPECT_EQ(map->SidOfUid(4242), security::UnixUserSid(4242));
  ::unsetenv("TARNWICK_SMB_CONF");
}

}  // namespace
}  // namespace tw::posix::samba
