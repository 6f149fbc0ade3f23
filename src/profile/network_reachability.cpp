#include "profile/network_reachability.h"

#include <string>

#include "base/shell_path.h"

namespace tw {
namespace {

// What a buffer of kReachabilityPathBuffer characters keeps of text: up to an embedded NUL, and
// at most the characters before the terminator.
std::wstring CutToBuffer(std::wstring_view text) {
  const std::size_t nul = text.find(L'\0');
  if (nul != std::wstring_view::npos) text = text.substr(0, nul);
  return std::wstring(text.substr(0, kReachabilityPathBuffer - 1));
}

NtStatus OpenShareRoot(NetworkPort& port, std::wstring_view rootWithoutPrefix) {
  const NtStatus status = port.OpenFolderForAttributes(
      CutToBuffer(L"\\Device\\Mup\\" + std::wstring(rootWithoutPrefix)));
  if (status != ntstatus::kObjectPathNotFound) return status;
  // Deliberate deviation: a system without the MUP device reaches the share through the UNC
  // link of the object manager's DOS device folder.
  return port.OpenFolderForAttributes(
      CutToBuffer(L"\\??\\UNC\\" + std::wstring(rootWithoutPrefix)));
}

}  // namespace

bool IsNetworkPathReachable(NetworkPort& port, TokenHandle token, std::wstring_view uncPath) {
  std::uint32_t flags = 0;
  if (!port.QueryNetworkAlive(flags) || (flags & kNetworkAliveLan) == 0) return false;
  if (!port.LoadNativeFileApi()) return false;

  std::wstring root = CutToBuffer(uncPath);
  PathStripToRootW(root);

  const bool impersonated = token != kInvalidTokenHandle && port.ImpersonateToken(token);
  // The root without its two leading backslashes, as the buffer arithmetic of the native path
  // takes it (a root shorter than that leaves nothing).
  const std::wstring_view rest = std::wstring_view(root).substr(root.size() < 2 ? root.size() : 2);
  const bool reachable = OpenShareRoot(port, rest) == ntstatus::kSuccess;
  if (impersonated) port.RevertImpersonation();

  port.UnloadNativeFileApi();
  return reachable;
}

bool IsNetworkPathReachable(TokenHandle token, std::wstring_view uncPath) {
  return IsNetworkPathReachable(ProcessNetworkPort(), token, uncPath);
}

bool IsUncPath(const wchar_t* path) {
  if (path == nullptr) return false;
  return IsUncPath(std::wstring_view(path));
}

bool IsUncPath(std::wstring_view path) { return !path.empty() && PathIsUNCW(path); }

}  // namespace tw
