// The share map: UNC paths to local folders, names found ignoring case, and its errors.
#include "os/posix/paths/share_map.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "fakes/sized_file.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"

namespace tw::posix {
namespace {

using testing::ScratchFolder;

TEST(ShareMapParse, ReadsSharesAndSkipsCommentsAndBlankLines) {
  ShareMap map;
  std::wstring problem;
  ASSERT_TRUE(
      map.Parse("# shares\n\n  \\\\FileServer\\Profiles = /srv/profiles/ \r\n"
                "\\\\fileserver\\Data=/srv/data\n\t# more\n",
                "shares.conf", problem))
      << problem;
  EXPECT_TRUE(problem.empty());
  ASSERT_EQ(map.entries().size(), 2u);
  EXPECT_EQ(map.entries()[0].server, L"FileServer");
  EXPECT_EQ(map.entries()[0].share, L"Profiles");
  EXPECT_EQ(map.entries()[0].folder, "/srv/profiles");
  EXPECT_EQ(map.entries()[1].folder, "/srv/data");
}

TEST(ShareMapParse, MalformedLineIsReportedWithItsNumber) {
  ShareMap map;
  std::wstring problem;
  EXPECT_FALSE(map.Parse("# ok\n\\\\a\\b = /x\n\\\\a\\c /y\n", "/etc/s.conf", problem));
  EXPECT_EQ(problem,
            L"Share map \"/etc/s.conf\", line 3: expected \\\\server\\share = /absolute/folder");
  EXPECT_TRUE(map.entries().empty());
  EXPECT_FALSE(map.Parse("\\\\a\\b = relative/x\n", "m", problem));
  EXPECT_EQ(problem, L"Share map \"m\", line 1: the folder must be an absolute path");
  EXPECT_FALSE(map.Parse("\n\n\\\\onlyserver = /x\n", "m", problem));
  EXPECT_EQ(problem, L"Share map \"m\", line 3: the share must be written \\\\server\\share");
  EXPECT_FALSE(map.Parse("\\\\a\\b\\c = /x\n", "m", problem));
  EXPECT_FALSE(map.Parse("a\\b = /x\n", "m", problem));
}

TEST(ShareMapLookup, NamesMatchIgnoringCaseAndUnknownNamesGiveWindowsErrors) {
  ShareMap map;
  std::wstring problem;
  ASSERT_TRUE(map.Parse("\\\\FileServer\\Profiles = /srv/p\n\\\\fileserver\\profiles = /other\n",
                        "m", problem));
  err::Win32Error error = err::kSuccess;
  const ShareMapEntry* entry = map.Lookup(L"FILESERVER", L"profiles", error);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(error, err::kSuccess);
  EXPECT_EQ(entry->folder, "/srv/p");  // the first line counts
  EXPECT_EQ(map.Lookup(L"otherserver", L"profiles", error), nullptr);
  EXPECT_EQ(error, err::kBadNetPath);
  EXPECT_EQ(map.Lookup(L"fileserver", L"nosuchshare", error), nullptr);
  EXPECT_EQ(error, err::kBadNetName);
}

class ShareMapFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root = folder.path() / "srv";
    std::filesystem::create_directories(root / "ALICE" / "AppData");
    std::ofstream(root / "ALICE" / "NTUSER.DAT") << "hive";
    WriteMap("# test shares\n\\\\FileServer\\Profiles = " + root.string() + "\n");
  }
  void TearDown() override { UseShareMapFileForTesting(""); }
  void WriteMap(const std::string& text) {
    const std::filesystem::path map = folder.path() / "shares.conf";
    std::ofstream(map, std::ios::binary | std::ios::trunc) << text;
    UseShareMapFileForTesting(map.string());
  }
  err::Win32Error Map(std::wstring_view path, std::string& native) {
    err::Win32Error error = err::kSuccess;
    native.clear();
    ToNativePath(path, native, error);
    return error;
  }

  ScratchFolder folder;
  std::filesystem::path root;
};

TEST_F(ShareMapFileTest, LowerCasedUncPathFindsTheFolderInItsOwnCase) {
  std::string native;
  ASSERT_EQ(Map(L"\\\\fileserver\\profiles\\alice", native), err::kSuccess);
  EXPECT_EQ(native, (root / "ALICE").string());
  ASSERT_EQ(Map(L"\\\\FileServer\\Profiles\\Alice\\ntuser.dat", native), err::kSuccess);
  EXPECT_EQ(native, (root / "ALICE" / "NTUSER.DAT").string());
  ASSERT_EQ(Map(L"\\\\?\\UNC\\fileserver\\profiles\\alice\\appdata", native), err::kSuccess);
  EXPECT_EQ(native, (root / "ALICE" / "AppData").string());
  EXPECT_TRUE(ProcessFileSystem().PathExists(L"\\\\fileserver\\profiles\\alice\\ntuser.dat"));
}

TEST_F(ShareMapFileTest, MissingNamesStayAsGivenSoTheyCanBeCreated) {
  std::string native;
  ASSERT_EQ(Map(L"\\\\fileserver\\profiles\\alice\\New Folder\\Sub", native), err::kSuccess);
  EXPECT_EQ(native, (root / "ALICE" / "New Folder" / "Sub").string());
  ASSERT_EQ(Map(L"\\\\fileserver\\profiles", native), err::kSuccess);
  EXPECT_EQ(native, root.string());
}

TEST_F(ShareMapFileTest, UnknownServerAndShareGive53And67) {
  std::string native;
  EXPECT_EQ(Map(L"\\\\nosuchserver\\profiles\\alice", native), err::kBadNetPath);
  EXPECT_EQ(Map(L"\\\\fileserver\\nosuchshare\\alice", native), err::kBadNetName);
  EXPECT_EQ(ProcessFileSystem().PathExists(L"\\\\nosuchserver\\profiles"), false);
  std::uint32_t attributes = 0;
  EXPECT_EQ(ProcessFileSystem().GetAttributes(L"\\\\fileserver\\nosuchshare\\x", attributes),
            err::kBadNetName);
}

TEST_F(ShareMapFileTest, MalformedMapIsNotUsedAndItsProblemIsReported) {
  WriteMap("\\\\FileServer\\Profiles = " + root.string() + "\n\nbroken line\n");
  std::wstring problem;
  EXPECT_FALSE(LoadProcessShareMap(problem));
  EXPECT_NE(problem.find(L"line 3: expected"), std::wstring::npos) << problem;
  std::string native;
  EXPECT_EQ(Map(L"\\\\fileserver\\profiles\\alice", native), err::kBadNetPath);
  WriteMap("\\\\FileServer\\Profiles = " + root.string() + "\n");
  EXPECT_TRUE(LoadProcessShareMap(problem));
  EXPECT_TRUE(problem.empty());
}

TEST_F(ShareMapFileTest, UnreadableMapFileIsReported) {
  UseShareMapFileForTesting((folder.path() / "missing.conf").string());
  std::wstring problem;
  EXPECT_FALSE(LoadProcessShareMap(problem));
  EXPECT_NE(problem.find(L"cannot be read"), std::wstring::npos);
}

// The sources in their order: TARNWICK_SHARES, TARNWICK_SMB_CONF, the default share map file
// when it exists, the server's Samba configuration when it exists.
class ShareMapSourcesTest : public ::testing::Test {
 protected:
  std::string Write(const std::string& name, const std::string& text) {
    const std::filesystem::path file = folder.path() / name;
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
    return file.string();
  }
  std::string Folder(std::wstring_view server, std::wstring_view share) {
    err::Win32Error error = err::kSuccess;
    const ShareMapEntry* entry = map.Lookup(server, share, error);
    return entry != nullptr ? entry->folder : "error " + std::to_string(error);
  }

  ScratchFolder folder;
  ShareMap map;
  std::wstring problem;
};

TEST_F(ShareMapSourcesTest, EachSourceWinsOverTheOnesAfterIt) {
  ShareMapSources sources;
  sources.hostName = "fs01.example.com";
  sources.sharesFile = Write("shares.conf", "\\\\named\\p = /from/shares\n");
  sources.smbConf = Write("smb.conf", "[p]\n  path = /from/smbconf/\n");
  sources.defaultSharesFile = Write("default-shares.conf", "\\\\default\\p = /from/default\n");
  sources.defaultSmbConf = Write("default-smb.conf", "[p]\n  path = /from/default-smbconf\n");
  ASSERT_TRUE(LoadShareMap(sources, map, problem)) << ::testing::PrintToString(problem);
  EXPECT_EQ(Folder(L"named", L"p"), "/from/shares");
  sources.sharesFile.clear();
  ASSERT_TRUE(LoadShareMap(sources, map, problem));
  EXPECT_EQ(Folder(L"fs01", L"P"), "/from/smbconf");
  EXPECT_EQ(Folder(L"FS01.example.com", L"p"), "/from/smbconf");
  EXPECT_EQ(Folder(L"named", L"p"), "error 53");
  EXPECT_EQ(Folder(L"fs01", L"other"), "error 67");
  sources.smbConf.clear();
  ASSERT_TRUE(LoadShareMap(sources, map, problem));
  EXPECT_EQ(Folder(L"default", L"p"), "/from/default");
  sources.defaultSharesFile = (folder.path() / "missing-shares.conf").string();
  ASSERT_TRUE(LoadShareMap(sources, map, problem));
  EXPECT_EQ(Folder(L"FS01", L"p"), "/from/default-smbconf");
  sources.defaultSmbConf = (folder.path() / "missing-smb.conf").string();
  ASSERT_TRUE(LoadShareMap(sources, map, problem));
  EXPECT_TRUE(map.entries().empty());
  EXPECT_TRUE(problem.empty());
}

TEST_F(ShareMapSourcesTest, SambaSharesLeftOutAreNotesAndTheOthersStayUsable) {
  ShareMapSources sources;
  sources.hostName = "fs01";
  sources.smbConf = Write("smb.conf",
                          "[global]\n  netbios aliases = profiles-server\n"
                          "[users]\n  path = /srv/%U\n[profiles]\n  path = /srv/profiles\n");
  ASSERT_TRUE(LoadShareMap(sources, map, problem));
  EXPECT_NE(problem.find(L"share [users] left out"), std::wstring::npos);
  EXPECT_EQ(Folder(L"profiles-server", L"profiles"), "/srv/profiles");
  EXPECT_EQ(Folder(L"fs01", L"users"), "error 67");
}

TEST_F(ShareMapSourcesTest, NamedSambaConfigurationThatCannotBeReadIsAProblem) {
  ShareMapSources sources;
  sources.smbConf = (folder.path() / "missing.conf").string();
  sources.defaultSmbConf = Write("smb.conf", "[p]\npath=/p\n");
  EXPECT_FALSE(LoadShareMap(sources, map, problem));
  EXPECT_NE(problem.find(L"cannot be read"), std::wstring::npos);
  EXPECT_TRUE(map.entries().empty());
}

}  // namespace
}  // namespace tw::posix
