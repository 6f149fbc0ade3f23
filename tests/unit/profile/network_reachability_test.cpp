#include "profile/network_reachability.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "fakes/fake_network_port.h"

namespace tw {
namespace {

using ::testing::ElementsAre;

constexpr TokenHandle kToken = 0x7A;
const std::wstring kMupRoot = L"\\Device\\Mup\\srv\\profiles";

class NetworkReachabilityTest : public ::testing::Test {
 protected:
  NetworkReachabilityTest() { port_.statuses[kMupRoot] = ntstatus::kSuccess; }
  testing::FakeNetworkPort port_;
};

TEST_F(NetworkReachabilityTest, NetworkDownGivesFalseBeforeAnyFileSystemAccess) {
  port_.aliveCallSucceeds = false;
  EXPECT_FALSE(IsNetworkPathReachable(port_, kToken, L"\\\\srv\\profiles\\alice"));
  EXPECT_THAT(port_.calls(), ElementsAre(L"alive"));
}

TEST_F(NetworkReachabilityTest, NetworkWithoutLanConnectivityGivesFalse) {
  port_.aliveFlags = 0x2;  // NETWORK_ALIVE_WAN only
  EXPECT_FALSE(IsNetworkPathReachable(port_, kToken, L"\\\\srv\\profiles\\alice"));
  EXPECT_THAT(port_.calls(), ElementsAre(L"alive"));
}

TEST_F(NetworkReachabilityTest, MissingNativeFunctionsGiveFalseWithoutOpening) {
  port_.nativeApiLoads = false;
  EXPECT_FALSE(IsNetworkPathReachable(port_, kToken, L"\\\\srv\\profiles\\alice"));
  EXPECT_THAT(port_.calls(), ElementsAre(L"alive", L"load"));
}

TEST_F(NetworkReachabilityTest, ReachableShareWhoseProfileFolderIsMissingGivesTrue) {
  // Only the share root is opened; the profile folder below it plays no part.
  EXPECT_TRUE(IsNetworkPathReachable(port_, kInvalidTokenHandle,
                                     L"\\\\srv\\profiles\\alice.V2\\not\\there"));
  EXPECT_THAT(port_.OpenedPaths(), ElementsAre(kMupRoot));
}

TEST_F(NetworkReachabilityTest, UnreachableShareGivesFalse) {
  EXPECT_FALSE(IsNetworkPathReachable(port_, kInvalidTokenHandle, L"\\\\other\\share\\alice"));
  EXPECT_THAT(port_.OpenedPaths(), ElementsAre(L"\\Device\\Mup\\other\\share"));
}

TEST_F(NetworkReachabilityTest, OnlyStatusZeroCounts) {
  for (const NtStatus status : {NtStatus{0x00000001}, NtStatus{0x00000103}, NtStatus{0x40000000},
                                NtStatus{0x80000005}, ntstatus::kAccessDenied}) {
    port_.statuses[kMupRoot] = status;
    EXPECT_FALSE(IsNetworkPathReachable(port_, kInvalidTokenHandle, L"\\\\srv\\profiles\\a"))
        << std::hex << status;
  }
}

TEST_F(NetworkReachabilityTest, NullTokenPerformsNoImpersonationAndNoRevert) {
  EXPECT_TRUE(IsNetworkPathReachable(port_, kInvalidTokenHandle, L"\\\\srv\\profiles\\alice"));
  EXPECT_THAT(port_.calls(), ElementsAre(L"alive", L"load", L"open " + kMupRoot, L"unload"));
}

TEST_F(NetworkReachabilityTest, TokenIsImpersonatedAroundTheOpenAndReverted) {
  EXPECT_TRUE(IsNetworkPathReachable(port_, kToken, L"\\\\srv\\profiles\\alice"));
  EXPECT_THAT(port_.calls(), ElementsAre(L"alive", L"load", L"impersonate 122", L"open " + kMupRoot,
                                         L"revert", L"unload"));
}

TEST_F(NetworkReachabilityTest, RevertOnlyWhenTheImpersonationSucceeded) {
  port_.impersonationSucceeds = false;
  EXPECT_TRUE(IsNetworkPathReachable(port_, kToken, L"\\\\srv\\profiles\\alice"));
  EXPECT_EQ(port_.Count(L"impersonate"), 1);
  EXPECT_EQ(port_.Count(L"revert"), 0);
  EXPECT_EQ(port_.Count(L"unload"), 1);
}

TEST_F(NetworkReachabilityTest, FailedOpenStillRevertsAndUnloads) {
  port_.statuses[kMupRoot] = ntstatus::kBadNetworkName;
  EXPECT_FALSE(IsNetworkPathReachable(port_, kToken, L"\\\\srv\\profiles\\alice"));
  EXPECT_EQ(port_.Count(L"revert"), 1);
  EXPECT_EQ(port_.Count(L"unload"), 1);
}

TEST_F(NetworkReachabilityTest, PathBeyond511CharactersIsCutBeforeItsRootIsTaken) {
  // A share root within the buffer, far more path after it: the root is found as usual.
  const std::wstring longPath = L"\\\\srv\\profiles\\" + std::wstring(700, L'x');
  EXPECT_TRUE(IsNetworkPathReachable(port_, kInvalidTokenHandle, longPath));
  EXPECT_THAT(port_.OpenedPaths(), ElementsAre(kMupRoot));

  // A server name that runs past the buffer: what is left of it after the cut is the root, and
  // the native path is cut to its buffer too.
  testing::FakeNetworkPort port;
  const std::wstring longServer = L"\\\\" + std::wstring(600, L's') + L"\\share\\alice";
  EXPECT_FALSE(IsNetworkPathReachable(port, kInvalidTokenHandle, longServer));
  const std::wstring expected = L"\\Device\\Mup\\" + std::wstring(511 - 12, L's');
  EXPECT_THAT(port.OpenedPaths(), ElementsAre(expected));
  EXPECT_EQ(port.OpenedPaths()[0].size(), 511u);
}

TEST_F(NetworkReachabilityTest, PathNotFoundOnTheMupDeviceIsTriedOnceThroughTheUncLink) {
  // The deliberate deviation for systems without the MUP device.
  port_.statuses[kMupRoot] = ntstatus::kObjectPathNotFound;
  port_.statuses[L"\\??\\UNC\\srv\\profiles"] = ntstatus::kSuccess;
  EXPECT_TRUE(IsNetworkPathReachable(port_, kInvalidTokenHandle, L"\\\\srv\\profiles\\alice"));
  EXPECT_THAT(port_.OpenedPaths(), ElementsAre(kMupRoot, L"\\??\\UNC\\srv\\profiles"));

  testing::FakeNetworkPort port;
  port.otherStatus = ntstatus::kObjectPathNotFound;
  EXPECT_FALSE(IsNetworkPathReachable(port, kInvalidTokenHandle, L"\\\\srv\\profiles\\alice"));
  EXPECT_EQ(port.OpenedPaths().size(), 2u);
}

TEST_F(NetworkReachabilityTest, OtherFailuresAreNotRetried) {
  port_.statuses[kMupRoot] = ntstatus::kObjectNameNotFound;
  EXPECT_FALSE(IsNetworkPathReachable(port_, kInvalidTokenHandle, L"\\\\srv\\profiles\\alice"));
  EXPECT_THAT(port_.OpenedPaths(), ElementsAre(kMupRoot));
}

TEST(IsUncPath, NullAndEmptyAreNotUnc) {
  EXPECT_FALSE(IsUncPath(static_cast<const wchar_t*>(nullptr)));
  EXPECT_FALSE(IsUncPath(L""));
  EXPECT_FALSE(IsUncPath(std::wstring()));
}

TEST(IsUncPath, FollowsPathIsUncW) {
  EXPECT_TRUE(IsUncPath(L"\\\\srv\\share\\alice"));
  EXPECT_TRUE(IsUncPath(std::wstring(L"\\\\srv")));
  EXPECT_TRUE(IsUncPath(L"\\\\?\\UNC\\srv\\share"));
  EXPECT_FALSE(IsUncPath(L"C:\\Profiles\\alice"));
  EXPECT_FALSE(IsUncPath(L"//srv/share"));
  EXPECT_FALSE(IsUncPath(L"\\srv\\share"));
}

}  // namespace
}  // namespace tw
