#include "fakes/fake_network_port.h"

namespace tw::testing {
namespace {
constexpr std::wstring_view kOpen = L"open ";
}  // namespace

std::vector<std::wstring> FakeNetworkPort::OpenedPaths() const {
  std::vector<std::wstring> paths;
  for (const std::wstring& call : calls_) {
    if (call.starts_with(kOpen)) paths.push_back(call.substr(kOpen.size()));
  }
  return paths;
}

int FakeNetworkPort::Count(std::wstring_view callPrefix) const {
  int count = 0;
  for (const std::wstring& call : calls_) {
    if (call.starts_with(callPrefix)) ++count;
  }
  return count;
}

bool FakeNetworkPort::QueryNetworkAlive(std::uint32_t& flags) {
  calls_.emplace_back(L"alive");
  if (!aliveCallSucceeds) return false;
  flags = aliveFlags;
  return true;
}

bool FakeNetworkPort::LoadNativeFileApi() {
  calls_.emplace_back(L"load");
  return nativeApiLoads;
}

void FakeNetworkPort::UnloadNativeFileApi() { calls_.emplace_back(L"unload"); }

NtStatus FakeNetworkPort::OpenFolderForAttributes(std::wstring_view nativePath) {
  calls_.push_back(std::wstring(kOpen) + std::wstring(nativePath));
  const auto found = statuses.find(nativePath);
  return found == statuses.end() ? otherStatus : found->second;
}

bool FakeNetworkPort::ImpersonateToken(TokenHandle token) {
  calls_.push_back(L"impersonate " + std::to_wstring(token));
  return impersonationSucceeds;
}

void FakeNetworkPort::RevertImpersonation() { calls_.emplace_back(L"revert"); }

}  // namespace tw::testing
