// The shares of a Samba configuration: the file format as Samba reads it, the server names, the
// shares kept and left out, includes, and the same answers as Samba's testparm.
#include "os/posix/paths/smb_conf.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fakes/process_runner.h"
#include "fakes/sized_file.h"

namespace tw::posix {
namespace {

namespace fs = std::filesystem;
using testing::ScratchFolder;

class SmbConfTest : public ::testing::Test {
 protected:
  fs::path Write(const std::string& name, const std::string& text) {
    const fs::path file = folder.path() / name;
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
    return file;
  }
  // The shares as "name=path" texts, the configuration read for host "fs01.example.com".
  std::vector<std::string> Shares(const std::string& text) {
    Read(text);
    std::vector<std::string> shares;
    for (const SmbConfShare& share : conf.shares) shares.push_back(share.name + "=" + share.path);
    return shares;
  }
  void Read(const std::string& text) {
    std::wstring problem;
    ASSERT_TRUE(ReadSmbConf(Write("smb.conf", text).string(), "fs01.example.com", conf, problem))
        << ::testing::PrintToString(problem);
  }

  ScratchFolder folder;
  SmbConf conf;
};

using Names = std::vector<std::string>;

TEST_F(SmbConfTest, SectionsCommentsAndParameterNamesAsSambaReadsThem) {
  EXPECT_EQ(Shares("# comment\n; comment\n[global]\n  workgroup = WG\n"
                   "[Profiles]\n  PATH = /srv/profiles\n"
                   "[data] trailing text\n\tPa th=/srv/data\r\n"
                   "garbage without equals\n"
                   "[dir]\n  directory = /srv/dir\n"
                   "  path_ = /not/a/path/parameter\n"),
            (Names{"Profiles=/srv/profiles", "data=/srv/data", "dir=/srv/dir"}));
  EXPECT_TRUE(conf.notes.empty());
}

TEST_F(SmbConfTest, ContinuationLinesAndBlanksInsideValues) {
  EXPECT_EQ(Shares("[a]\n  path = /srv/da\\\nta\n"
                   "[b]\n  path = /srv/x \\\n   y\n"
                   "[c]\n  path = /srv/one    two\t\tthree  \n"
                   "[d]\n  path = /srv/d\\\n# not a comment here\n"),
            (Names{"a=/srv/data", "b=/srv/x y", "c=/srv/one two\tthree",
                   "d=/srv/d# not a comment here"}));
}

TEST_F(SmbConfTest, HomesPrintersPrintableAndPathlessSharesAreSkipped) {
  EXPECT_EQ(Shares("[homes]\n  path = /home/%S\n[PRINTERS]\n  path = /var/spool\n"
                   "[pr]\n  path = /var/spool/pr\n  printable = yes\n"
                   "[pr2]\n  path = /var/spool/pr2\n  print ok = True\n"
                   "[notprinted]\n  path = /srv/np\n  printable = no\n"
                   "[nopath]\n  comment = nothing\n"
                   "[quoted]\n  path = \"/srv/with blank\"\n"),
            (Names{"notprinted=/srv/np", "quoted=/srv/with blank"}));
  EXPECT_TRUE(conf.notes.empty());
}

TEST_F(SmbConfTest, SectionNamedTwiceIsOneShareWithTheLaterValues) {
  EXPECT_EQ(Shares("[x]\n  path = /a\n[other]\n  path = /o\n[X]\n  path = /b\n"),
            (Names{"x=/b", "other=/o"}));
}

TEST_F(SmbConfTest, GlobalShareValuesAreDefaultsAndCopyTakesAnEarlierShare) {
  EXPECT_EQ(Shares("[early]\n  comment = before the default\n"
                   "[global]\n  path = /srv/default\n"
                   "[late]\n  comment = after it\n"
                   "[source]\n  path = /srv/source\n"
                   "[copied]\n  copy = SOURCE\n"
                   "[copiedthenset]\n  copy = source\n  path = /srv/own\n"),
            (Names{"late=/srv/default", "source=/srv/source", "copied=/srv/source",
                   "copiedthenset=/srv/own"}));
}

TEST_F(SmbConfTest, PathsWithSubstitutionsOrRelativeAreLeftOutWithANote) {
  EXPECT_EQ(Shares("[users]\n  path = /srv/users/%U\n[rel]\n  path = srv/rel\n"
                   "[ok]\n  path = /srv/ok\n"),
            (Names{"ok=/srv/ok"}));
  const std::string file = (folder.path() / "smb.conf").string();
  ASSERT_EQ(conf.notes.size(), 2u);
  EXPECT_EQ(conf.notes[0],
            L"Samba configuration \"" + std::wstring(file.begin(), file.end()) +
                L"\": share [users] left out: its path \"/srv/users/%U\" has %-substitutions, "
                L"which differ per client or user");
  EXPECT_NE(conf.notes[1].find(L"share [rel] left out: its path \"srv/rel\" is not an absolute"),
            std::wstring::npos);
}

TEST_F(SmbConfTest, ServerNamesDefaultToTheHostName) {
  Read("[global]\n  workgroup = WG\n[s]\n  path = /s\n");
  EXPECT_EQ(conf.serverNames, (Names{"FS01", "fs01.example.com"}));
  std::wstring problem;
  ASSERT_TRUE(ReadSmbConf(Write("smb.conf", "[s]\npath=/s\n").string(),
                          "a-very-long-host-name.example.com", conf, problem));
  EXPECT_EQ(conf.serverNames, (Names{"A-VERY-LONG-HOS", "a-very-long-host-name",
                                     "a-very-long-host-name.example.com"}));
}

TEST_F(SmbConfTest, NetbiosNameAndAliasesAreServerNames) {
  Read("[global]\n  netbiosname = fileserver\n  NetBIOS Aliases = profiles, Alias2 fs01\n");
  EXPECT_EQ(conf.serverNames,
            (Names{"FILESERVER", "profiles", "Alias2", "fs01", "fs01.example.com"}));
  Read("[share]\n  netbios name = ignored-in-a-share\n");
  EXPECT_EQ(conf.serverNames.front(), "FS01");
}

TEST_F(SmbConfTest, PrivateDirAndPassdbBackendComeFromGlobalOnly) {
  Read(
      "[global]\n  Private Dir = /srv/samba/private\n  passdb backend = tdbsam:/srv/p.tdb\n"
      "[share]\n  private dir = /ignored\n  passdb backend = smbpasswd\n");
  EXPECT_EQ(conf.privateDir, "/srv/samba/private");
  EXPECT_EQ(conf.passdbBackend, "tdbsam:/srv/p.tdb");
  Read("[global]\n  private directory = /srv/other\n");
  EXPECT_EQ(conf.privateDir, "/srv/other");
  EXPECT_EQ(conf.passdbBackend, "");
}

TEST_F(SmbConfTest, IncludesAbsoluteRelativeAndMissing) {
  const fs::path absolute = Write("conf.d/absolute.conf", "[abs]\n  path = /srv/abs\n");
  Write("conf.d/relative.conf", "[rel]\n  path = /srv/rel\n");
  const fs::path saved = fs::current_path();
  fs::current_path(folder.path());  // a relative include is read from the current folder
  EXPECT_EQ(Shares("[global]\n  include = " + absolute.string() +
                   "\n  include = conf.d/relative.conf\n  include = /no/such/file.conf\n"
                   "[own]\n  path = /srv/own\n"),
            (Names{"abs=/srv/abs", "rel=/srv/rel", "own=/srv/own"}));
  fs::current_path(saved);
}

TEST_F(SmbConfTest, IncludedParametersGoToTheSectionOpenAtTheInclude) {
  const fs::path part = Write("part.conf", "  path = /srv/from-include\n[next]\n  path = /n\n");
  EXPECT_EQ(Shares("[s]\n  include = " + part.string() + "\n  comment = goes to [next]\n"),
            (Names{"s=/srv/from-include", "next=/n"}));
}

TEST_F(SmbConfTest, IncludeLoopMakesTheConfigurationUnusable) {
  const fs::path a = folder.path() / "a.conf";
  const fs::path b = Write("b.conf", "[b]\n  path = /b\n  include = " + a.string() + "\n");
  Write("a.conf", "[a]\n  path = /a\n  include = " + b.string() + "\n");
  std::wstring problem;
  EXPECT_FALSE(ReadSmbConf(a.string(), "fs01", conf, problem));
  EXPECT_NE(problem.find(L"loops"), std::wstring::npos);
  EXPECT_TRUE(conf.shares.empty());
  Write("self.conf", "include = " + (folder.path() / "self.conf").string() + "\n");
  EXPECT_FALSE(ReadSmbConf((folder.path() / "self.conf").string(), "fs01", conf, problem));
}

TEST_F(SmbConfTest, IncludeWithSubstitutionIsNotReadAndSaysSo) {
  EXPECT_EQ(Shares("[global]\n  include = /etc/samba/%m.conf\n[s]\n  path = /s\n"),
            (Names{"s=/s"}));
  ASSERT_EQ(conf.notes.size(), 1u);
  EXPECT_NE(conf.notes[0].find(L"\"include = /etc/samba/%m.conf\" is not read"),
            std::wstring::npos);
}

TEST_F(SmbConfTest, UnreadableFileIsAProblem) {
  std::wstring problem;
  EXPECT_FALSE(ReadSmbConf((folder.path() / "missing.conf").string(), "fs01", conf, problem));
  EXPECT_NE(problem.find(L"cannot be read"), std::wstring::npos);
}

// testparm's view of a configuration: its file shares as "name=path", after the same skipping
// rules, and its server names.
constexpr char kTestparm[] = "/usr/bin/testparm";

struct TestparmView {
  std::vector<std::string> shares;
  std::string netbiosName;
  std::string aliases;
};

std::string TestparmValue(const std::string& file, const std::string& parameter,
                          const std::string& section = "") {
  std::vector<std::string> args = {"-s", "--parameter-name=" + parameter, file};
  if (!section.empty()) args.push_back("--section-name=" + section);
  const testing::ProcessResult result = testing::RunProcess(kTestparm, args);
  std::string value = result.output;
  while (!value.empty() && value.back() == '\n') value.pop_back();
  return value;
}

TestparmView Testparm(const std::string& file) {
  TestparmView view;
  const testing::ProcessResult result = testing::RunProcess(kTestparm, {"-s", file});
  std::string section;
  std::string path;
  bool printable = false;
  auto finish = [&] {
    const bool special =
        section.empty() || section == "global" || section == "homes" || section == "printers";
    // testparm -s prints only the values that differ from the defaults: ask for the path
    if (!special && path.empty()) path = TestparmValue(file, "path", section);
    if (!special && !printable && !path.empty()) {
      if (path.size() >= 2 && path.front() == '"' && path.back() == '"')
        path = path.substr(1, path.size() - 2);
      if (path.find('%') == std::string::npos && path.front() == '/')
        view.shares.push_back(section + "=" + path);
    }
    path.clear();
    printable = false;
  };
  std::string_view text = result.output;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.empty() && line.front() == '[') {
      finish();
      section.assign(line.substr(1, line.find(']') - 1));
    } else if (line.rfind("\tpath = ", 0) == 0) {
      path.assign(line.substr(8));
    } else if (line == "\tprintable = Yes") {
      printable = true;
    }
  }
  finish();
  view.netbiosName = TestparmValue(file, "netbios name");
  view.aliases = TestparmValue(file, "netbios aliases");
  return view;
}

TEST_F(SmbConfTest, SameSharesAndNamesAsTestparm) {
  if (testing::RunProcess(kTestparm, {"--version"}).exitStatus != 0)
    GTEST_SKIP() << "testparm is not installed";
  std::array<char, 256> host{};
  ASSERT_EQ(::gethostname(host.data(), host.size() - 1), 0);
  const fs::path included = Write("inc/shares.conf", "[inc]\n  path = /srv/inc\n");
  const std::string relative =
      fs::relative(Write("inc/rel.conf", "[rel]\npath=/srv/rel\n"), fs::current_path()).string();
  const std::vector<std::string> configurations = {
      "[global]\n  workgroup = WG\n[profiles]\n  path = /srv/profiles\n  read only = no\n",
      "[global]\n  netbios name = fileserver\n  netbios aliases = fs alias2\n"
      "  include = " +
          included.string() + "\n  include = " + relative +
          "\n"
          "[Profiles]\n  PATH = /srv/p\\\nrofiles\n[data] x\n\tpath = \"/srv/my  data\"\n",
      "[global]\n  path = /srv/default\n[homes]\n  browseable = no\n[printers]\n  path = /v\n"
      "[pr]\n  path = /var/spool\n  print ok = yes\n[nopath]\n  comment = c\n"
      "[users]\n  path = /srv/users/%U\n[x]\n  path = /a\n[X]\n  path = /b\n"
      "[src]\n  directory = /srv/src\n[copy]\n  copy = src\n",
      "; comment\n# comment\n  [one]\npath=/one\n  garbage\n[two]\n  path = /srv/t  w\to\n",
  };
  for (const std::string& text : configurations) {
    SCOPED_TRACE(text);
    const fs::path file = Write("smb.conf", text);
    const TestparmView expected = Testparm(file.string());
    std::wstring problem;
    ASSERT_TRUE(ReadSmbConf(file.string(), host.data(), conf, problem));
    std::vector<std::string> shares;
    for (const SmbConfShare& share : conf.shares) shares.push_back(share.name + "=" + share.path);
    EXPECT_EQ(shares, expected.shares);
    ASSERT_FALSE(conf.serverNames.empty());
    EXPECT_EQ(conf.serverNames.front(), expected.netbiosName);
    std::string aliases;
    for (std::size_t i = 1; i < conf.serverNames.size(); ++i) {
      const std::string& name = conf.serverNames[i];
      if (expected.aliases.find(name) == std::string::npos) continue;  // a host name
      aliases += (aliases.empty() ? "" : " ") + name;
    }
    EXPECT_EQ(aliases, expected.aliases);
  }
}

}  // namespace
}  // namespace tw::posix
