// A tdbsam passdb read from its files: which files the configuration names, the stored domain SID
// and account record layouts, and read-only database files that are missing, not databases or
// FIFOs (no records, no wait). Files are made with Samba's own tdbtool.
#include "os/posix/samba/passdb.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fakes/process_runner.h"
#include "fakes/temp_folder.h"
#include "fakes/tree_state.h"
#include "os/posix/samba/tdb_file.h"

namespace tw::posix::samba {
namespace {

using security::Sid;
using Bytes = std::vector<std::uint8_t>;

Sid SidOf(const wchar_t* text) {
  Sid sid;
  EXPECT_EQ(Sid::FromString(text, &sid), err::kSuccess);
  return sid;
}

void AppendU32(Bytes& out, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

// An account record as Samba packs it: 7 times, 12 counted strings (the user name first, with
// its NUL), the user and group RIDs, then the rest.
Bytes SamRecord(const std::string& name, std::uint32_t rid) {
  Bytes record;
  for (int i = 0; i < 7; ++i) AppendU32(record, 0x7C54A97Fu);
  for (int i = 0; i < 12; ++i) {
    const std::string text = i == 0 ? name : i == 1 ? "FS01" : "";
    const std::size_t length = i < 4 ? text.size() + 1 : 0;  // some empty strings keep a NUL
    AppendU32(record, static_cast<std::uint32_t>(length));
    record.insert(record.end(), text.begin(), text.end());
    if (length != 0) record.push_back(0);
  }
  AppendU32(record, rid);
  AppendU32(record, 513);
  for (int i = 0; i < 20; ++i) record.push_back(0xFF);
  return record;
}

TEST(PassdbTest, TdbsamFilesFollowTheConfiguration) {
  SmbConf conf;
  conf.serverNames = {"FS01", "fs01.example.com"};
  auto files = TdbsamFiles(conf);  // nothing set: tdbsam in Samba's own private folder
  ASSERT_TRUE(files.has_value());
  EXPECT_EQ(files->passdb, "/var/lib/samba/private/passdb.tdb");
  EXPECT_EQ(files->secrets, "/var/lib/samba/private/secrets.tdb");
  EXPECT_EQ(files->domainName, "FS01");

  conf.privateDir = "/srv/private";
  conf.passdbBackend = "TdbSam";
  files = TdbsamFiles(conf);
  ASSERT_TRUE(files.has_value());
  EXPECT_EQ(files->passdb, "/srv/private/passdb.tdb");
  EXPECT_EQ(files->secrets, "/srv/private/secrets.tdb");

  conf.passdbBackend = "tdbsam:/srv/elsewhere/users.tdb";
  files = TdbsamFiles(conf);
  ASSERT_TRUE(files.has_value());
  EXPECT_EQ(files->passdb, "/srv/elsewhere/users.tdb");
  EXPECT_EQ(files->secrets, "/srv/private/secrets.tdb");

  for (const char* other : {"smbpasswd", "ldapsam:ldap://dc.example.com", "tdbsamx"}) {
    conf.passdbBackend = other;
    EXPECT_FALSE(TdbsamFiles(conf).has_value()) << other;
  }
}

TEST(PassdbTest, StoredDomainSidIsSambasInMemorySid) {
  // As secrets.tdb holds it: revision 1, 4 sub-authorities, authority 5, 21 and three numbers.
  Bytes stored = {1, 4, 0, 0, 0, 0, 0, 5};
  for (const std::uint32_t part : {21u, 2834581186u, 2825243239u, 4236823901u}) {
    AppendU32(stored, part);
  }
  stored.resize(68, 0);
  EXPECT_EQ(ParseStoredDomainSid(stored), SidOf(L"S-1-5-21-2834581186-2825243239-4236823901"));

  Bytes shorter(stored.begin(), stored.end() - 1);
  EXPECT_FALSE(ParseStoredDomainSid(shorter).has_value());
  Bytes revision = stored;
  revision[0] = 2;
  EXPECT_FALSE(ParseStoredDomainSid(revision).has_value());
  Bytes tooMany = stored;
  tooMany[1] = 16;
  EXPECT_FALSE(ParseStoredDomainSid(tooMany).has_value());
}

TEST(PassdbTest, AccountRecordGivesNameAndRidAndNothingWhenCut) {
  const Bytes record = SamRecord("alice", 1000);
  const auto account = ParseSamAccount(record);
  ASSERT_TRUE(account.has_value());
  EXPECT_EQ(account->userName, "alice");
  EXPECT_EQ(account->userRid, 1000u);

  const std::size_t ridEnd = record.size() - 24;  // the group RID and the rest are not read
  for (std::size_t size = 0; size < ridEnd; ++size) {
    const Bytes cut(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(ParseSamAccount(cut).has_value()) << size;
  }
  Bytes huge = record;
  huge[28] = 0xFF;  // the user name's length runs past the end
  huge[31] = 0xFF;
  EXPECT_FALSE(ParseSamAccount(huge).has_value());
  EXPECT_FALSE(ParseSamAccount(SamRecord("", 1000)).has_value());
}

bool HaveTdbtool() { return ::access("/usr/bin/tdbtool", X_OK) == 0; }

// A new database file with one record, made by tdbtool (which reads its commands from its input).
void MakeTdb(const std::string& file, const std::string& key, const std::string& value) {
  const testing::ProcessResult made = testing::RunProcess(
      "/bin/sh",
      {"-c", "printf 'create %s\\ninsert %s %s\\nquit\\n' \"$0\" \"$1\" \"$2\" | /usr/bin/tdbtool",
       file, key, value});
  ASSERT_EQ(made.exitStatus, 0) << made.output << made.errors;
}

TEST(PassdbTest, TdbFileReadsRecordsOfAFileMadeByTdbtool) {
  if (!HaveTdbtool()) GTEST_SKIP() << "skipped: Samba's tdbtool is missing (tools/install-deps.sh)";
  testing::TempFolder folder;
  const std::string file = folder.Child("made.tdb");
  MakeTdb(file, "RID_000003e8", "alice");
  const testing::TreeState before = testing::CaptureTreeState(folder.path());
  const std::unique_ptr<TdbFile> tdb = TdbFile::Open(file);
  ASSERT_NE(tdb, nullptr);
  EXPECT_EQ(tdb->Fetch("RID_000003e8"), (Bytes{'a', 'l', 'i', 'c', 'e'}));
  EXPECT_FALSE(tdb->Fetch("RID_000003e9").has_value());
  EXPECT_FALSE(tdb->Fetch(std::string("RID_000003e8\0", 13)).has_value());
  EXPECT_EQ(testing::DescribeTreeChanges(before, testing::CaptureTreeState(folder.path())), "");
}

TEST(PassdbTest, MissingGarbageAndFifoFilesAreNoDatabase) {
  testing::TempFolder folder;
  EXPECT_EQ(TdbFile::Open(folder.Child("missing.tdb")), nullptr);
  EXPECT_EQ(TdbFile::Open(folder.WriteFile("garbage.tdb", std::string(4096, 'x'))), nullptr);
  EXPECT_EQ(TdbFile::Open(folder.WriteFile("empty.tdb", "")), nullptr);
  EXPECT_EQ(TdbFile::Open(folder.path().string()), nullptr);  // a folder
  const std::string fifo = folder.Child("fifo.tdb");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(TdbFile::Open(fifo), nullptr);  // returns at once: nobody writes to the FIFO

  PassdbFiles files{folder.Child("missing.tdb"), folder.Child("garbage.tdb"), "FS01"};
  EXPECT_EQ(Passdb::Open(files), nullptr);
}

TEST(PassdbTest, DamagedDatabaseIsNoDatabase) {
  if (!HaveTdbtool()) GTEST_SKIP() << "skipped: Samba's tdbtool is missing (tools/install-deps.sh)";
  testing::TempFolder folder;
  const std::string file = folder.Child("made.tdb");
  MakeTdb(file, "key", "value");
  const std::string bytes = testing::ReadWholeFile(file);
  ASSERT_GT(bytes.size(), 200u);
  // The hash table and records overwritten, the header kept: the whole-file check refuses it.
  std::string damaged = bytes;
  for (std::size_t i = 168; i < damaged.size(); ++i) damaged[i] = static_cast<char>(~damaged[i]);
  EXPECT_EQ(TdbFile::Open(folder.WriteFile("damaged.tdb", damaged)), nullptr);
  EXPECT_EQ(TdbFile::Open(folder.WriteFile("cut.tdb", bytes.substr(0, bytes.size() / 2))), nullptr);
}

}  // namespace
}  // namespace tw::posix::samba
