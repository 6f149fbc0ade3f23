// The Linux network port: LAN always alive, share roots opened through the share map.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "fakes/temp_folder.h"
#include "os/posix/paths/share_map.h"
#include "ports/network_port.h"
#include "profile/network_reachability.h"

namespace tw {
namespace {

TEST(NetworkPortPosix, NetworkCountsAsLanAlive) {
  std::uint32_t flags = 0;
  EXPECT_TRUE(ProcessNetworkPort().QueryNetworkAlive(flags));
  EXPECT_EQ(flags & kNetworkAliveLan, kNetworkAliveLan);
  EXPECT_TRUE(ProcessNetworkPort().LoadNativeFileApi());
  ProcessNetworkPort().UnloadNativeFileApi();
}

TEST(NetworkPortPosix, ImpersonationChangesNothingAndSucceeds) {
  EXPECT_TRUE(ProcessNetworkPort().ImpersonateToken(0x7A));
  ProcessNetworkPort().RevertImpersonation();
}

TEST(NetworkPortPosix, OnlyTheTwoNativeShareFormsAreOpened) {
  EXPECT_EQ(ProcessNetworkPort().OpenFolderForAttributes(L"\\Device\\HarddiskVolume1\\x"),
            ntstatus::kObjectPathSyntaxBad);
  EXPECT_EQ(ProcessNetworkPort().OpenFolderForAttributes(L"C:\\x"), ntstatus::kObjectPathSyntaxBad);
}

TEST(NetworkPortPosix, UnknownServerIsABadNetworkPath) {
  EXPECT_EQ(
      ProcessNetworkPort().OpenFolderForAttributes(L"\\Device\\Mup\\no-such-server-7f3a\\share"),
      ntstatus::kBadNetworkPath);
  EXPECT_EQ(ProcessNetworkPort().OpenFolderForAttributes(L"\\??\\UNC\\no-such-server-7f3a\\share"),
            ntstatus::kBadNetworkPath);
  EXPECT_FALSE(IsNetworkPathReachable(kInvalidTokenHandle, L"\\\\no-such-server-7f3a\\share\\a"));
}

class NetworkPortShareMapTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(temp_.path() / "profiles" / "ALICE");
    temp_.WriteFile("plain.txt", "a file, not a folder");
    const std::filesystem::path map = temp_.path() / "shares.conf";
    std::ofstream(map, std::ios::binary)
        << "\\\\FileServer\\Profiles = " << temp_.Child("profiles")
        << "\n\\\\FileServer\\Plain = " << temp_.Child("plain.txt")
        << "\n\\\\FileServer\\Gone = " << temp_.Child("gone") << "\n";
    posix::UseShareMapFileForTesting(map.string());
  }
  void TearDown() override { posix::UseShareMapFileForTesting(""); }

  testing::TempFolder temp_;
};

TEST_F(NetworkPortShareMapTest, MappedFolderIsReachableWhetherOrNotTheProfileExists) {
  EXPECT_TRUE(IsNetworkPathReachable(kInvalidTokenHandle, L"\\\\fileserver\\profiles\\alice"));
  EXPECT_TRUE(IsNetworkPathReachable(kInvalidTokenHandle, L"\\\\FILESERVER\\PROFILES\\bob.V2\\x"));
  EXPECT_TRUE(IsNetworkPathReachable(0x7A, L"\\\\FileServer\\Profiles"));
}

TEST_F(NetworkPortShareMapTest, StatusesOfTheNativeForms) {
  NetworkPort& port = ProcessNetworkPort();
  EXPECT_EQ(port.OpenFolderForAttributes(L"\\Device\\Mup\\fileserver\\profiles"),
            ntstatus::kSuccess);
  EXPECT_EQ(port.OpenFolderForAttributes(L"\\??\\UNC\\fileserver\\profiles"), ntstatus::kSuccess);
  EXPECT_EQ(port.OpenFolderForAttributes(L"\\Device\\Mup\\fileserver\\nosuch"),
            ntstatus::kBadNetworkName);
  EXPECT_EQ(port.OpenFolderForAttributes(L"\\Device\\Mup\\otherserver\\profiles"),
            ntstatus::kBadNetworkPath);
  EXPECT_EQ(port.OpenFolderForAttributes(L"\\Device\\Mup\\fileserver\\plain"),
            ntstatus::kNotADirectory);
  EXPECT_EQ(port.OpenFolderForAttributes(L"\\Device\\Mup\\fileserver\\gone"),
            ntstatus::kObjectNameNotFound);
}

TEST_F(NetworkPortShareMapTest, UnmappedFileAndMissingSharesAreUnreachable) {
  EXPECT_FALSE(IsNetworkPathReachable(kInvalidTokenHandle, L"\\\\fileserver\\nosuch\\alice"));
  EXPECT_FALSE(IsNetworkPathReachable(kInvalidTokenHandle, L"\\\\fileserver\\plain\\alice"));
  EXPECT_FALSE(IsNetworkPathReachable(kInvalidTokenHandle, L"\\\\fileserver\\gone\\alice"));
}

}  // namespace
}  // namespace tw
