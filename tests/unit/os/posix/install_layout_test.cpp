#include "os/posix/install_layout.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace tw::posix {
namespace {

const InstallDirs kLocal{"/usr/local", "sbin", "bin", "share"};

TEST(InstalledDataFolder, ProgramFoldersOfTheBuildPrefixAndOfUsr) {
  EXPECT_EQ(InstalledDataFolder("/usr/local/sbin", kLocal), "/usr/local/share/tarnwick");
  EXPECT_EQ(InstalledDataFolder("/usr/local/bin/", kLocal), "/usr/local/share/tarnwick");
  // The Debian package installs under /usr whatever prefix the build had.
  EXPECT_EQ(InstalledDataFolder("/usr/sbin", kLocal), "/usr/share/tarnwick");
  EXPECT_EQ(InstalledDataFolder("/usr/bin", kLocal), "/usr/share/tarnwick");
}

TEST(InstalledDataFolder, EveryOtherFolderIsNoInstallation) {
  EXPECT_EQ(InstalledDataFolder("/work/build/linux/src", kLocal), "");
  EXPECT_EQ(InstalledDataFolder("/usr/local/sbin/extra", kLocal), "");
  EXPECT_EQ(InstalledDataFolder("/usr", kLocal), "");
  EXPECT_EQ(InstalledDataFolder("/opt/tarnwick/sbin", kLocal), "");
  EXPECT_EQ(InstalledDataFolder("", kLocal), "");
}

TEST(InstalledDataFolder, FollowsTheConfiguredFolderNames) {
  const InstallDirs opt{"/opt/tw", "admin", "tools", "data"};
  EXPECT_EQ(InstalledDataFolder("/opt/tw/admin", opt), "/opt/tw/data/tarnwick");
  EXPECT_EQ(InstalledDataFolder("/opt/tw/tools", opt), "/opt/tw/data/tarnwick");
  EXPECT_EQ(InstalledDataFolder("/opt/tw/sbin", opt), "");
  EXPECT_EQ(InstalledDataFolder("/usr/admin", opt), "/usr/data/tarnwick");
  // Absolute folder names stay as they are.
  const InstallDirs absolute{"/usr/local", "/srv/tools", "bin", "/srv/data"};
  EXPECT_EQ(InstalledDataFolder("/srv/tools", absolute), "/srv/data/tarnwick");
}

TEST(LogFolder, VariableThenInstalledThenBesideTheExecutable) {
  EXPECT_EQ(LogFolder("/usr/sbin", "/srv/logs/", kLocal), "/srv/logs");
  EXPECT_EQ(LogFolder("/work/build", "/srv/logs", kLocal), "/srv/logs");
  EXPECT_EQ(LogFolder("/usr/sbin", "", kLocal), "/var/log/tarnwick");
  EXPECT_EQ(LogFolder("/usr/local/bin", "", kLocal), "/var/log/tarnwick");
  EXPECT_EQ(LogFolder("/work/build/src", "", kLocal), "/work/build/src");
  EXPECT_EQ(LogFolder("", "", kLocal), "");
}

TEST(DefaultTemplateFolder, InstalledDataFolderElseBesideTheExecutable) {
  EXPECT_EQ(DefaultTemplateFolder("/usr/sbin", kLocal), "/usr/share/tarnwick/default-profile");
  EXPECT_EQ(DefaultTemplateFolder("/usr/local/sbin", kLocal),
            "/usr/local/share/tarnwick/default-profile");
  EXPECT_EQ(DefaultTemplateFolder("/work/build/src", kLocal), "/work/build/src/default-profile");
  EXPECT_EQ(DefaultTemplateFolder("/", kLocal), "/default-profile");
  EXPECT_EQ(DefaultTemplateFolder("", kLocal), "");
}

TEST(LogModulePath, BuildTreeKeepsTheModulePathAndTheVariableMovesTheFolder) {
  // The test runs from the build tree: no installation, so the log stays beside the program.
  const std::wstring module = L"Z:\\work\\build\\tests\\core_tests";
  unsetenv(kLogDirVariable);
  EXPECT_EQ(LogModulePath(module), module);
  setenv(kLogDirVariable, "/srv/logs", 1);
  EXPECT_EQ(LogModulePath(module), L"Z:\\srv\\logs\\core_tests");
  setenv(kLogDirVariable, "/", 1);
  EXPECT_EQ(LogModulePath(module), L"Z:\\core_tests");
  unsetenv(kLogDirVariable);
}

}  // namespace
}  // namespace tw::posix
