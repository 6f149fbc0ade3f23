// The Linux network port: LAN always alive, share roots opened through the share map.
#include <gtest/gtest.h>

#include <cstdint>

#include "platform/network_port.h"
#include "platform/network_reachability.h"

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

}  // namespace
}  // namespace tw
