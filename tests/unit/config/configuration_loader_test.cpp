// The configuration loader through real XML files in a temporary folder and the real POSIX XML
// adapter.
#include "config/configuration_loader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "base/text_encoding.h"
#include "fakes/log_capture.h"
#include "fakes/temp_folder.h"
#include "migration/registry_key_table.h"
#include "os/posix/paths/native_path.h"

namespace tw {
namespace {

using ::tw::testing::LogCapture;
using ::tw::testing::TempFolder;

// The Windows form ("Z:\\tmp\\...") of a POSIX path, as the core sees it.
std::wstring WindowsForm(const std::string& posixPath) { return posix::ToWindowsPath(posixPath); }
// The POSIX path as wide text, as it stands.
std::wstring Wide(const std::string& posixPath) { return Utf8ToWide(posixPath); }
using Lines = std::vector<std::wstring>;

std::wstring InvalidRegistry(const std::wstring& item) {
  return L"Invalid registry filter found in the configuration file: " + item;
}
std::wstring InvalidFolder(const std::wstring& item) {
  return L"Invalid folder filter found in the configuration file: " + item;
}

class ConfigurationLoaderTest : public ::testing::Test {
 protected:
  ConfigurationLoaderTest() { InitSettings(settings_); }

  // Writes the configuration text and loads it through its Windows-form path.
  HResult Load(std::string_view xml) {
    const std::string file = folder_.WriteFile("cfg.xml", std::string(xml));
    return LoadConfiguration(settings_, WindowsForm(file));
  }

  // Loads a document whose root holds `body`.
  HResult LoadBody(std::string_view body) {
    return Load("<configuration>" + std::string(body) + "</configuration>");
  }

  void ExpectDefaults() const {
    EXPECT_EQ(settings_.sourcePath, L"");
    EXPECT_EQ(settings_.targetPath, L"");
    EXPECT_EQ(settings_.sourceVersion, 0);
    EXPECT_EQ(settings_.targetVersion, 0);
    EXPECT_EQ(settings_.folderMask, 0x7FFFFFFFu);
    EXPECT_EQ(settings_.registryMask, 0x7FFFFFFFu);
    EXPECT_EQ(settings_.conflictPolicy, 8);
    EXPECT_FALSE(settings_.takeOwnership);
    EXPECT_FALSE(settings_.showHelp);
  }

  TempFolder folder_;
  MigrationSettings settings_;
  LogCapture log_;
};

TEST_F(ConfigurationLoaderTest, ReadsEveryElementAndAttribute) {
  EXPECT_EQ(Load(R"(<?xml version="1.0" encoding="utf-8"?>
<anyname takeownership="1">
  <source>
    <profilepath> \\fileserver\profiles\* </profilepath>
    <migv2tov5>false</migv2tov5>
    <migv2tov6>true</migv2tov6>
  </source>
  <target><profilepath>\\fileserver\newprofiles</profilepath></target>
  <migration>
    <profile>
      <includefolders>Desktop</includefolders>
      <excludefolders>Favorites</excludefolders>
    </profile>
    <registry disabled="0">
      <includekeys>Console, Software,Environment</includekeys>
      <excludekeys>Console</excludekeys>
    </registry>
  </migration>
  <merging><conflict>MostRecent</conflict></merging>
</anyname>
)"),
            hr::kOk);
  EXPECT_TRUE(settings_.takeOwnership);
  EXPECT_EQ(settings_.sourcePath, L"\\\\fileserver\\profiles\\*");
  EXPECT_EQ(settings_.sourceVersion, 2);
  EXPECT_EQ(settings_.targetVersion, 6);
  EXPECT_EQ(settings_.targetPath, L"\\\\fileserver\\newprofiles");
  EXPECT_EQ(settings_.folderMask, 0u);
  EXPECT_EQ(settings_.registryMask, 0x20u | 0x100u);
  EXPECT_EQ(settings_.conflictPolicy, 4);
  EXPECT_FALSE(settings_.showHelp);
  EXPECT_EQ(log_.messages(), (Lines{InvalidFolder(L"Desktop"), InvalidFolder(L"Favorites")}));
}

TEST_F(ConfigurationLoaderTest, PosixPathWorksToo) {
  const std::string file =
      folder_.WriteFile("plain.xml", "<c><target><profilepath>t</profilepath></target></c>");
  EXPECT_EQ(LoadConfiguration(settings_, Wide(file)), hr::kOk);
  EXPECT_EQ(settings_.targetPath, L"t");
}

TEST_F(ConfigurationLoaderTest, MalformedFileLeavesRecordUntouchedAndLogsNothing) {
  settings_.sourcePath = L"from the command line";
  settings_.registryMask = 0x5u;
  EXPECT_EQ(Load("<configuration takeownership=\"1\"><source><profilepath>x</profilepath>"
                 "</source><migration><registry><includekeys>Bogus</includekeys>"),
            hr::kFalse);
  EXPECT_EQ(settings_.sourcePath, L"from the command line");
  EXPECT_EQ(settings_.registryMask, 0x5u);
  EXPECT_FALSE(settings_.takeOwnership);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ConfigurationLoaderTest, FileThatCannotBeOpenedFails) {
  const std::string missing = (folder_.path() / "missing.xml").string();
  const HResult result = LoadConfiguration(settings_, WindowsForm(missing));
  EXPECT_TRUE(Failed(result));
  EXPECT_EQ(result, HResultFromWin32(err::kFileNotFound));
  ExpectDefaults();
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ConfigurationLoaderTest, EmptyRootChangesNothing) {
  EXPECT_EQ(Load("<configuration/>"), hr::kOk);
  ExpectDefaults();
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ConfigurationLoaderTest, MissingElementsLeaveFieldsAlone) {
  settings_.sourcePath = L"s";
  settings_.targetPath = L"t";
  settings_.conflictPolicy = 2;
  settings_.folderMask = 0x3u;
  settings_.registryMask = 0x4u;
  EXPECT_EQ(LoadBody("<source/><target/><migration><profile/><registry/></migration>"
                     "<merging/><unknown>x</unknown>"),
            hr::kOk);
  EXPECT_EQ(settings_.sourcePath, L"s");
  EXPECT_EQ(settings_.targetPath, L"t");
  EXPECT_EQ(settings_.conflictPolicy, 2);
  EXPECT_EQ(settings_.folderMask, 0x3u);
  EXPECT_EQ(settings_.registryMask, 0x4u);
}

TEST_F(ConfigurationLoaderTest, ElementsAreLookedUpByExactName) {
  EXPECT_EQ(LoadBody("<Source><profilepath>x</profilepath></Source>"
                     "<deep><target><profilepath>y</profilepath></target></deep>"),
            hr::kOk);
  ExpectDefaults();
}

TEST_F(ConfigurationLoaderTest, UppercaseTrueInMigv5tov6SelectsModeFiveToSix) {
  EXPECT_EQ(LoadBody("<source><migv5tov6>TRUE</migv5tov6></source>"), hr::kOk);
  EXPECT_EQ(settings_.sourceVersion, 5);
  EXPECT_EQ(settings_.targetVersion, 6);
}

TEST_F(ConfigurationLoaderTest, EachModeElementSelectsItsMode) {
  const struct {
    const char* element;
    std::int32_t source;
    std::int32_t target;
  } modes[] = {{"migv2tov5", 2, 5}, {"migv2tov6", 2, 6}, {"migv5tov6", 5, 6}, {"migv6tov6", 6, 6}};
  for (const auto& mode : modes) {
    InitSettings(settings_);
    const std::string element = mode.element;
    EXPECT_EQ(LoadBody("<source><" + element + "> True </" + element + "></source>"), hr::kOk);
    EXPECT_EQ(settings_.sourceVersion, mode.source) << element;
    EXPECT_EQ(settings_.targetVersion, mode.target) << element;
  }
}

TEST_F(ConfigurationLoaderTest, LaterTrueModeWinsInFixedOrder) {
  // Document order does not matter; the loader reads v2v5, v2v6, v5v6, v6v6 in turn.
  EXPECT_EQ(LoadBody("<source><migv5tov6>true</migv5tov6><migv2tov5>true</migv2tov5>"
                     "<migv6tov6>no</migv6tov6></source>"),
            hr::kOk);
  EXPECT_EQ(settings_.sourceVersion, 5);
  EXPECT_EQ(settings_.targetVersion, 6);
}

TEST_F(ConfigurationLoaderTest, NonTrueModeTextsSelectNothing) {
  settings_.sourceVersion = 2;
  settings_.targetVersion = 5;
  EXPECT_EQ(LoadBody("<source><migv2tov6>1</migv2tov6><migv5tov6>yes</migv5tov6>"
                     "<migv6tov6>truee</migv6tov6></source>"),
            hr::kOk);
  EXPECT_EQ(settings_.sourceVersion, 2);
  EXPECT_EQ(settings_.targetVersion, 5);
}

TEST_F(ConfigurationLoaderTest, ConflictNamesWithoutRegardToCase) {
  const struct {
    const char* text;
    std::int32_t policy;
  } cases[] = {{"V1Profile", 1},    {"v1profile", 1},  {"V2PROFILE", 2},
               {" mostrecent ", 4}, {"MostRecent", 4}, {"savecopy", 8},
               {"SaveCopy", 8},     {"", 8},           {"Other", 8}};
  for (const auto& c : cases) {
    settings_.conflictPolicy = 0;
    EXPECT_EQ(LoadBody(std::string("<merging><conflict>") + c.text + "</conflict></merging>"),
              hr::kOk);
    EXPECT_EQ(settings_.conflictPolicy, c.policy) << c.text;
  }
}

TEST_F(ConfigurationLoaderTest, TakeOwnershipAttributeIsAnIntegerAboveZero) {
  const struct {
    const char* attribute;
    bool expected;
  } cases[] = {{" takeownership=\"1\"", true},     {" takeownership=\" 2 \"", true},
               {" takeownership=\"0\"", false},    {" takeownership=\"-1\"", false},
               {" takeownership=\"true\"", false}, {" takeownership=\"0x10\"", false},
               {" takeownership=\"\"", false},     {"", false}};
  for (const auto& c : cases) {
    settings_.takeOwnership = !c.expected;
    EXPECT_EQ(Load(std::string("<configuration") + c.attribute + "/>"), hr::kOk);
    EXPECT_EQ(settings_.takeOwnership, c.expected) << c.attribute;
  }
}

TEST_F(ConfigurationLoaderTest, IncludeKeysWithBlanksAndOneBogus) {
  EXPECT_EQ(LoadBody("<migration><registry><includekeys>Software, Console ,Bogus</includekeys>"
                     "</registry></migration>"),
            hr::kOk);
  EXPECT_EQ(settings_.registryMask, 0x21u);
  EXPECT_EQ(log_.messages(), Lines{InvalidRegistry(L"Bogus")});
}

TEST_F(ConfigurationLoaderTest, ExcludeKeysWithoutIncludeClearsFromDefault) {
  EXPECT_EQ(LoadBody("<migration><registry><excludekeys>Console,Network</excludekeys>"
                     "</registry></migration>"),
            hr::kOk);
  EXPECT_EQ(settings_.registryMask, 0x7FFFFBFEu);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ConfigurationLoaderTest, ExcludeListWinsOverIncludeList) {
  EXPECT_EQ(LoadBody("<migration><registry><excludekeys>software</excludekeys>"
                     "<includekeys>Software,System</includekeys></registry></migration>"),
            hr::kOk);
  EXPECT_EQ(settings_.registryMask, 0x40u);
}

TEST_F(ConfigurationLoaderTest, ExcludingEveryKeyLeavesPositiveMaskWithoutTableBits) {
  EXPECT_EQ(LoadBody("<migration><registry><excludekeys>Console,Control Panel,Identities,"
                     "Keyboard Layout,Printers,Software,System,AppEvents,Environment,EUDC,"
                     "Network</excludekeys></registry></migration>"),
            hr::kOk);
  EXPECT_EQ(settings_.registryMask, 0x7FFFF800u);
  EXPECT_TRUE(SelectedRegistryKeys(settings_.registryMask).empty());
  // Registry migration switched off on top copies "Software" alone.
  settings_.registryMask = kMaskOff;
  ASSERT_EQ(SelectedRegistryKeys(settings_.registryMask).size(), 1u);
  EXPECT_EQ(SelectedRegistryKeys(settings_.registryMask)[0].name, L"Software");
}

TEST_F(ConfigurationLoaderTest, IncludedKeysAreCopiedInTableOrder) {
  EXPECT_EQ(LoadBody("<migration><registry><includekeys>Environment,Software</includekeys>"
                     "</registry></migration>"),
            hr::kOk);
  const std::vector<RegistryKeyRow> rows = SelectedRegistryKeys(settings_.registryMask);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].name, L"Software");
  EXPECT_EQ(rows[1].name, L"Environment");
}

TEST_F(ConfigurationLoaderTest, EmptyIncludeKeysSelectsNothing) {
  EXPECT_EQ(LoadBody("<migration><registry><includekeys/></registry></migration>"), hr::kOk);
  EXPECT_EQ(settings_.registryMask, 0u);
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(ConfigurationLoaderTest, DisabledAttributeTurnsRegistryOffAfterTheLists) {
  EXPECT_EQ(LoadBody("<migration><registry disabled=\"1\"><includekeys>Console</includekeys>"
                     "<excludekeys>Bogus</excludekeys></registry></migration>"),
            hr::kOk);
  EXPECT_EQ(settings_.registryMask, 0x80000000u);
  EXPECT_EQ(log_.messages(), Lines{InvalidRegistry(L"Bogus")});
}

TEST_F(ConfigurationLoaderTest, DisabledValuesThatDoNotTurnRegistryOff) {
  for (const char* value : {"0", "true", "", "0x1", "no"}) {
    settings_.registryMask = 0x7FFFFFFFu;
    EXPECT_EQ(
        LoadBody(std::string("<migration><registry disabled=\"") + value + "\"/></migration>"),
        hr::kOk);
    EXPECT_EQ(settings_.registryMask, 0x7FFFFFFFu) << value;
  }
  for (const char* value : {"-1", " 7 "}) {
    settings_.registryMask = 0x7FFFFFFFu;
    EXPECT_EQ(
        LoadBody(std::string("<migration><registry disabled=\"") + value + "\"/></migration>"),
        hr::kOk);
    EXPECT_EQ(settings_.registryMask, 0x80000000u) << value;
  }
}

TEST_F(ConfigurationLoaderTest, DesktopInIncludeFoldersGivesZeroMask) {
  EXPECT_EQ(LoadBody("<migration><profile><includefolders>Desktop</includefolders></profile>"
                     "</migration>"),
            hr::kOk);
  EXPECT_EQ(settings_.folderMask, 0u);
  EXPECT_EQ(log_.messages(), Lines{InvalidFolder(L"Desktop")});
}

TEST_F(ConfigurationLoaderTest, DesktopInExcludeFoldersLeavesMask) {
  EXPECT_EQ(LoadBody("<migration><profile><excludefolders>Desktop</excludefolders></profile>"
                     "</migration>"),
            hr::kOk);
  EXPECT_EQ(settings_.folderMask, 0x7FFFFFFFu);
  EXPECT_EQ(log_.messages(), Lines{InvalidFolder(L"Desktop")});
}

TEST_F(ConfigurationLoaderTest, PercentSequencesStayVerbatim) {
  EXPECT_EQ(LoadBody("<source><profilepath>\\\\s\\%s%n%%\\*</profilepath></source>"
                     "<target><profilepath>%d%%</profilepath></target>"
                     "<migration><registry><includekeys>%s%n%%</includekeys></registry>"
                     "<profile><excludefolders>%x</excludefolders></profile></migration>"),
            hr::kOk);
  EXPECT_EQ(settings_.sourcePath, L"\\\\s\\%s%n%%\\*");
  EXPECT_EQ(settings_.targetPath, L"%d%%");
  EXPECT_EQ(log_.messages(), (Lines{InvalidFolder(L"%x"), InvalidRegistry(L"%s%n%%")}));
}

TEST_F(ConfigurationLoaderTest, ProfilePathTextIsTrimmedAndKeepsNonAscii) {
  EXPECT_EQ(LoadBody("<source><profilepath>\n\t \\\\srv\\pr\xC3\xB6"
                     "files\\a b \n"
                     "</profilepath></source>"),
            hr::kOk);
  EXPECT_EQ(settings_.sourcePath, L"\\\\srv\\pr\u00F6files\\a b");
}

// A path that holds no document, or a file too large to be read, loads as a file that did not
// parse: S_FALSE, nothing stored, nothing logged.
class NotADocumentTest : public ConfigurationLoaderTest {
 protected:
  void ExpectNotParsed(const std::string& posixPath) {
    settings_.sourcePath = L"from the command line";
    EXPECT_EQ(LoadConfiguration(settings_, WindowsForm(posixPath)), hr::kFalse) << posixPath;
    EXPECT_EQ(settings_.sourcePath, L"from the command line");
    settings_.sourcePath.clear();
    ExpectDefaults();
    EXPECT_EQ(log_.messages(), Lines{});
  }
  // A well-formed configuration of `size` bytes that names the source "big".
  std::string ConfigurationOfSize(std::size_t size) {
    const std::string head = "<c><source><profilepath>big</profilepath></source>";
    const std::string tail = "</c>";
    return head + std::string(size - head.size() - tail.size(), ' ') + tail;
  }
};

TEST_F(NotADocumentTest, AFolderLoadsAsAFileThatDidNotParse) {
  ExpectNotParsed(folder_.path().string());
}

TEST_F(NotADocumentTest, ADeviceIsNeverRead) { ExpectNotParsed("/dev/zero"); }

// A FIFO without a writer: the load neither waits for a writer nor reads.
TEST_F(NotADocumentTest, AFifoWithoutWriterNeitherHangsNorIsRead) {
  const std::string fifo = (folder_.path() / "cfg.fifo").string();
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  MigrationSettings settings;
  InitSettings(settings);
  auto load = std::async(std::launch::async, [&settings, &fifo] {
    return LoadConfiguration(settings, WindowsForm(fifo));
  });
  if (load.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
    // Release the blocked reader so that the test ends, then fail.
    const int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
    if (writer >= 0) close(writer);
    load.wait();
    FAIL() << "loading a FIFO as the configuration blocked";
  }
  EXPECT_EQ(load.get(), hr::kFalse);
  EXPECT_EQ(settings.sourcePath, L"");
  EXPECT_EQ(log_.messages(), Lines{});
}

TEST_F(NotADocumentTest, AFileOfSixteenMebibytesIsReadAndOneByteMoreIsNot) {
  constexpr std::size_t kLimit = 16u * 1024u * 1024u;
  EXPECT_EQ(Load(ConfigurationOfSize(kLimit)), hr::kOk);
  EXPECT_EQ(settings_.sourcePath, L"big");
  settings_.sourcePath.clear();
  ExpectNotParsed(folder_.WriteFile("big.xml", ConfigurationOfSize(kLimit + 1)));
  ExpectNotParsed(folder_.WriteFile("bigger.xml", ConfigurationOfSize(17u * 1024u * 1024u)));
}

// A file the process may not read. As root, the load runs in a child that has given up root.
TEST_F(NotADocumentTest, AnUnreadableFileLoadsAsAFileThatDidNotParse) {
  const std::string file =
      folder_.WriteFile("secret.xml", "<c><source><profilepath>secret</profilepath></source></c>");
  ASSERT_EQ(chmod(file.c_str(), 0), 0);
  ASSERT_EQ(chmod(folder_.path().c_str(), 0755), 0);
  if (geteuid() != 0) {
    ExpectNotParsed(file);
    return;
  }
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
    MigrationSettings settings;
    InitSettings(settings);
    const HResult result = LoadConfiguration(settings, WindowsForm(file));
    _exit(result == hr::kFalse && settings.sourcePath.empty() ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: the unreadable file was not taken as unparsed";
}

// 200,000 nested elements load, and their text is gathered without recursion.
TEST_F(ConfigurationLoaderTest, DeeplyNestedElementsLoadAndGiveTheirText) {
  constexpr int kDepth = 200000;
  std::string open;
  std::string close;
  for (int i = 0; i < kDepth; ++i) {
    open += "<a>";
    close += "</a>";
  }
  EXPECT_EQ(LoadBody("<deep>" + open + close + "</deep><source><profilepath>p" + open + "q" +
                     close + "r</profilepath></source>"),
            hr::kOk);
  EXPECT_EQ(settings_.sourcePath, L"pqr");
  EXPECT_EQ(log_.messages(), Lines{});
}

}  // namespace
}  // namespace tw
