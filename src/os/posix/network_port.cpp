// The network port on Linux. The network counts as LAN-alive, the native file functions are
// always there, and a share is reachable when the share map resolves its root to a folder.
// Impersonation is not available to this tool on Linux: it succeeds without changing anything,
// and reverting does nothing.
#include "ports/network_port.h"

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "base/wide_string.h"
#include "os/native_ports.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/native_path.h"

namespace tw {
namespace {

// The two native forms of a share root the reachability test opens.
constexpr std::wstring_view kMupPrefix = L"\\Device\\Mup\\";
constexpr std::wstring_view kDosUncPrefix = L"\\??\\UNC\\";

NtStatus StatusForMapError(err::Win32Error error) {
  switch (error) {
    case err::kBadNetPath:
      return ntstatus::kBadNetworkPath;
    case err::kBadNetName:
      return ntstatus::kBadNetworkName;
    case err::kInvalidName:
      return ntstatus::kObjectNameInvalid;
    default:
      return ntstatus::kObjectPathNotFound;
  }
}

class PosixNetworkPort final : public NetworkPort {
 public:
  bool QueryNetworkAlive(std::uint32_t& flags) override {
    flags = kNetworkAliveLan;
    return true;
  }

  bool LoadNativeFileApi() override { return true; }
  void UnloadNativeFileApi() override {}

  // "\Device\Mup\server\share" and "\??\UNC\server\share" stand for "\\server\share"; any other
  // native path is not one this port can open.
  NtStatus OpenFolderForAttributes(std::wstring_view nativePath) override {
    std::wstring_view rest;
    if (StartsWithNoCase(nativePath, kMupPrefix)) {
      rest = nativePath.substr(kMupPrefix.size());
    } else if (StartsWithNoCase(nativePath, kDosUncPrefix)) {
      rest = nativePath.substr(kDosUncPrefix.size());
    } else {
      return ntstatus::kObjectPathSyntaxBad;
    }
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(L"\\\\" + std::wstring(rest), native, error)) {
      return StatusForMapError(error);
    }
    struct stat info {};
    if (posix::LstatBeneath(native, info) != 0) {
      return errno == EACCES ? ntstatus::kAccessDenied : ntstatus::kObjectNameNotFound;
    }
    return S_ISDIR(info.st_mode) ? ntstatus::kSuccess : ntstatus::kNotADirectory;
  }

  bool ImpersonateToken(TokenHandle /*token*/) override { return true; }
  void RevertImpersonation() override {}
};

}  // namespace

NetworkPort& NativeNetworkPort() {
  static PosixNetworkPort port;
  return port;
}

}  // namespace tw
