// The server's accounts behind SIDs: S-1-22 SIDs always, a standalone server's passdb users (made
// with Samba's smbpasswd into a private configuration's private folder, read straight from its
// tdbsam files through the configuration TARNWICK_SMB_CONF names), and nothing for a SID no
// account stands for, for another domain's SID, for another passdb backend or for damaged files.
#include "os/posix/samba/account_map.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/text_encoding.h"
#include "descriptor/well_known_sids.h"
#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"
#include "fakes/tree_state.h"

namespace tw::posix::samba {
namespace {

namespace fs = std::filesystem;
using security::Sid;

Sid SidOf(const std::wstring& text) {
  Sid sid;
  EXPECT_EQ(Sid::FromString(text, &sid), err::kSuccess) << WideToUtf8(text);
  return sid;
}

TEST(AccountMapTest, UnixSidsAlwaysMapAndUnknownSidsNever) {
  const std::unique_ptr<AccountMap> map = MakeServerAccountMap();
  EXPECT_EQ(map->UidOf(security::UnixUserSid(4242)), 4242u);
  EXPECT_EQ(map->GidOf(security::UnixGroupSid(4343)), 4343u);
  EXPECT_FALSE(map->UidOf(SidOf(L"S-1-5-21-7-8-9-1001")).has_value());
  EXPECT_FALSE(map->GidOf(SidOf(L"S-1-5-21-7-8-9-1001")).has_value());
  EXPECT_FALSE(map->UidOf(security::UnixGroupSid(5)).has_value());
}

// A private Samba configuration whose passdb has one user, made by smbpasswd; the user's SID as
// Samba's pdbedit lists it.
class PassdbAccountMapTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "skipped: useradd and smbpasswd need root";
    if (::access("/usr/bin/smbpasswd", X_OK) != 0 || ::access("/usr/bin/pdbedit", X_OK) != 0 ||
        ::access("/usr/sbin/useradd", X_OK) != 0) {
      GTEST_SKIP() << "skipped: Samba's smbpasswd, pdbedit or useradd is missing "
                      "(tools/install-deps.sh)";
    }
    fs::create_directory(Private());
    conf_ = WriteConf("smb.conf", "tdbsam");
    user_ = "twmap" + std::to_string(::getpid() % 100000);
    ASSERT_EQ(testing::RunProcess("/usr/sbin/useradd",
                                  {"--no-create-home", "--shell", "/usr/sbin/nologin", user_})
                  .exitStatus,
              0);
    added_ = true;
    const testing::ProcessResult added = testing::RunProcess(
        "/bin/sh",
        {"-c", "printf 'pw\\npw\\n' | /usr/bin/smbpasswd -c \"$0\" -a -s \"$1\"", conf_, user_});
    ASSERT_EQ(added.exitStatus, 0) << added.output << added.errors;
    const testing::ProcessResult listed =
        testing::RunProcess("/usr/bin/pdbedit", {"-s", conf_, "-v", "-u", user_});
    const std::size_t at = listed.output.find("User SID:");
    ASSERT_NE(at, std::string::npos) << listed.output;
    std::string text = listed.output.substr(at + 9);
    text = text.substr(text.find_first_not_of(' '));
    sid_ = SidOf(Utf8ToWide(text.substr(0, text.find('\n'))));
    const passwd* entry = ::getpwnam(user_.c_str());
    ASSERT_NE(entry, nullptr);
    uid_ = static_cast<std::uint32_t>(entry->pw_uid);
  }

  void TearDown() override {
    ::unsetenv("TARNWICK_SMB_CONF");
    if (added_) testing::RunProcess("/usr/sbin/userdel", {"--force", user_});
  }

  std::string Private() const { return folder_.Child("private"); }

  std::string WriteConf(const std::string& name, const std::string& backend) const {
    const std::string file = folder_.Child(name);
    std::ofstream out(file);
    out << "[global]\n  netbios name = fs01\n  workgroup = TWTEST\n"
        << "  server role = standalone server\n  passdb backend = " << backend
        << "\n  private dir = " << Private() << "\n  lock directory = " << Private()
        << "\n  state directory = " << Private() << "\n  cache directory = " << Private() << "\n";
    return file;
  }

  // A new map of the accounts of the configuration `conf`.
  std::unique_ptr<AccountMap> MapOf(const std::string& conf) const {
    ::setenv("TARNWICK_SMB_CONF", conf.c_str(), 1);
    return MakeServerAccountMap();
  }

  // The user's SID with another RID, or the same RID in another domain.
  Sid WithRid(std::uint32_t rid) const {
    std::vector<std::uint32_t> parts(sid_.subAuthorities().begin(), sid_.subAuthorities().end());
    parts.back() = rid;
    return Sid(sid_.authority(), parts);
  }
  Sid InOtherDomain() const {
    std::vector<std::uint32_t> parts(sid_.subAuthorities().begin(), sid_.subAuthorities().end());
    parts[parts.size() - 2] ^= 1;
    return Sid(sid_.authority(), parts);
  }

  testing::TempFolder folder_;
  std::string conf_;
  std::string user_;
  bool added_ = false;
  Sid sid_;
  std::uint32_t uid_ = 0;
};

TEST_F(PassdbAccountMapTest, PassdbUserMapsToItsUidAndBack) {
  const testing::TreeState before = testing::CaptureTreeState(Private());
  const std::unique_ptr<AccountMap> map = MapOf(conf_);
  EXPECT_EQ(map->UidOf(sid_), uid_);
  EXPECT_EQ(map->UidOf(sid_), uid_);  // the second answer from what the first found
  EXPECT_EQ(map->SidOfUid(uid_), sid_);
  EXPECT_EQ(map->SidOfUid(4242), security::UnixUserSid(4242));  // not a passdb user
  EXPECT_EQ(map->UidOf(security::UnixUserSid(4242)), 4242u);
  // Read-only: the passdb, the secrets and everything else in the private folder stay as they
  // were.
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(Private())), "");
}

TEST_F(PassdbAccountMapTest, UnknownRidAndOtherDomainMapToNothing) {
  const std::unique_ptr<AccountMap> map = MapOf(conf_);
  EXPECT_FALSE(map->UidOf(WithRid(sid_.subAuthorities().back() + 1)).has_value());
  EXPECT_FALSE(map->UidOf(WithRid(513)).has_value());  // the domain's users group, no account
  EXPECT_FALSE(map->UidOf(InOtherDomain()).has_value());
  std::vector<std::uint32_t> longer(sid_.subAuthorities().begin(), sid_.subAuthorities().end());
  longer.push_back(1000);
  EXPECT_FALSE(map->UidOf(Sid(sid_.authority(), longer)).has_value());
  EXPECT_EQ(map->UidOf(sid_), uid_);
}

TEST_F(PassdbAccountMapTest, PassdbAtAnotherPlaceNamedByTheBackend) {
  const std::string moved = folder_.Child("users.tdb");
  fs::rename(Private() + "/passdb.tdb", moved);
  EXPECT_FALSE(MapOf(conf_)->UidOf(sid_).has_value());
  EXPECT_EQ(MapOf(WriteConf("moved.conf", "tdbsam:" + moved))->UidOf(sid_), uid_);
}

TEST_F(PassdbAccountMapTest, OtherBackendMapsNothing) {
  const std::unique_ptr<AccountMap> map = MapOf(WriteConf("other.conf", "smbpasswd"));
  EXPECT_FALSE(map->UidOf(sid_).has_value());
  EXPECT_EQ(map->SidOfUid(uid_), security::UnixUserSid(uid_));
}

TEST_F(PassdbAccountMapTest, MissingOrDamagedFilesMapNothing) {
  const std::string passdb = Private() + "/passdb.tdb";
  const std::string secrets = Private() + "/secrets.tdb";
  const std::string passdbBytes = testing::ReadWholeFile(passdb);
  const std::string secretsBytes = testing::ReadWholeFile(secrets);
  ASSERT_FALSE(passdbBytes.empty());
  ASSERT_FALSE(secretsBytes.empty());
  const auto put = [](const std::string& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
  };
  const auto expectNothing = [&](const char* what) {
    const testing::TreeState before = testing::CaptureTreeState(Private());
    const std::unique_ptr<AccountMap> map = MapOf(conf_);
    EXPECT_FALSE(map->UidOf(sid_).has_value()) << what;
    EXPECT_EQ(map->SidOfUid(uid_), security::UnixUserSid(uid_)) << what;
    EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(Private())), "")
        << what;
  };
  std::string flipped = passdbBytes;
  for (std::size_t i = 168; i < flipped.size(); ++i) flipped[i] = static_cast<char>(~flipped[i]);
  put(passdb, flipped);
  expectNothing("passdb with its hash table and records overwritten");
  put(passdb, passdbBytes.substr(0, 4096));
  expectNothing("passdb cut inside its hash table");
  put(passdb, std::string(passdbBytes.size(), '\0'));
  expectNothing("passdb of zeros");
  fs::remove(passdb);
  expectNothing("no passdb");
  put(passdb, passdbBytes);
  put(secrets, std::string(secretsBytes.size(), 'x'));
  expectNothing("secrets of garbage");
  fs::remove(secrets);
  expectNothing("no secrets");
  put(secrets, secretsBytes);
  EXPECT_EQ(MapOf(conf_)->UidOf(sid_), uid_);  // the files put back map again
}

// Any single damaged byte of the passdb: the user's SID maps to its uid or to nothing, never to
// another account, and nothing crashes.
TEST_F(PassdbAccountMapTest, AnyDamagedByteMapsTheUserOrNothing) {
  const std::string passdb = Private() + "/passdb.tdb";
  const std::string bytes = testing::ReadWholeFile(passdb);
  ASSERT_GT(bytes.size(), 1000u);
  const std::size_t step = bytes.size() / 400;
  // The file is the passdb with one byte damaged: that byte is written in place, and put back
  // before the next one is damaged.
  std::fstream file(passdb, std::ios::binary | std::ios::in | std::ios::out);
  ASSERT_TRUE(file.is_open());
  const auto putByte = [&file](std::size_t at, char byte) {
    file.seekp(static_cast<std::streamoff>(at));
    file.put(byte);
    file.flush();
  };
  for (std::size_t at = 0; at < bytes.size(); at += step + (at % 7)) {
    putByte(at, static_cast<char>(bytes[at] ^ 0x5A));
    const std::unique_ptr<AccountMap> map = MapOf(conf_);
    const std::optional<std::uint32_t> uid = map->UidOf(sid_);
    EXPECT_TRUE(!uid || *uid == uid_) << "byte " << at;
    const Sid back = map->SidOfUid(uid_);
    EXPECT_TRUE(back == sid_ || back == security::UnixUserSid(uid_)) << "byte " << at;
    putByte(at, bytes[at]);
  }
}

}  // namespace
}  // namespace tw::posix::samba
