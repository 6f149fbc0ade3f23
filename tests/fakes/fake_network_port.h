// An in-memory network port: the LAN state, the native functions, the statuses of native paths
// and the impersonation can each be made to fail, and every call is recorded in order.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ports/network_port.h"

namespace tw::testing {

class FakeNetworkPort : public NetworkPort {
 public:
  // --- switches ---
  bool aliveCallSucceeds = true;
  std::uint32_t aliveFlags = kNetworkAliveLan;
  bool nativeApiLoads = true;
  bool impersonationSucceeds = true;
  // The status each native path opens with (compared exactly); others give this default.
  std::map<std::wstring, NtStatus, std::less<>> statuses;
  NtStatus otherStatus = ntstatus::kBadNetworkPath;

  // --- records ---
  // "alive", "load", "unload", "open <path>", "impersonate <token>", "revert", in call order.
  const std::vector<std::wstring>& calls() const { return calls_; }
  std::vector<std::wstring> OpenedPaths() const;
  int Count(std::wstring_view callPrefix) const;

  // --- the port ---
  bool QueryNetworkAlive(std::uint32_t& flags) override;
  bool LoadNativeFileApi() override;
  void UnloadNativeFileApi() override;
  NtStatus OpenFolderForAttributes(std::wstring_view nativePath) override;
  bool ImpersonateToken(TokenHandle token) override;
  void RevertImpersonation() override;

 private:
  std::vector<std::wstring> calls_;
};

}  // namespace tw::testing
