// Network port: the system calls behind the reachability test of a UNC path
// (network_reachability.h): the LAN state, the native file API of the system and the impersonation
// of an access token. The test itself lives in the core, so that every edge of it can be driven by
// a fake.
//
// One reachability test runs at a time: LoadNativeFileApi keeps the native functions in the
// adapter until UnloadNativeFileApi (the tool runs on one thread).
#pragma once

#include <cstdint>
#include <string_view>

#include "ports/security_port.h"

namespace tw {

// An NTSTATUS, with the bits of the native call.
using NtStatus = std::uint32_t;

namespace ntstatus {
constexpr NtStatus kSuccess = 0;
constexpr NtStatus kAccessDenied = 0xC0000022;
constexpr NtStatus kObjectNameInvalid = 0xC0000033;
constexpr NtStatus kObjectNameNotFound = 0xC0000034;
constexpr NtStatus kObjectPathNotFound = 0xC000003A;
constexpr NtStatus kObjectPathSyntaxBad = 0xC000003B;
constexpr NtStatus kBadNetworkPath = 0xC00000BE;
constexpr NtStatus kBadNetworkName = 0xC00000CC;
constexpr NtStatus kNotADirectory = 0xC0000103;
}  // namespace ntstatus

// IsNetworkAlive's NETWORK_ALIVE_LAN flag.
constexpr std::uint32_t kNetworkAliveLan = 0x1;

class NetworkPort {
 public:
  NetworkPort() = default;
  NetworkPort(const NetworkPort&) = delete;
  NetworkPort& operator=(const NetworkPort&) = delete;
  NetworkPort(NetworkPort&&) = delete;
  NetworkPort& operator=(NetworkPort&&) = delete;
  virtual ~NetworkPort() = default;

  // IsNetworkAlive(&flags). Returns false when the call fails (flags are then meaningless).
  virtual bool QueryNetworkAlive(std::uint32_t& flags) = 0;

  // LoadLibraryExW("NTDLL.dll") from the system folder only, and GetProcAddress of "NtCreateFile",
  // "NtClose" and "RtlInitUnicodeString". Returns false when the library or any of the three is
  // missing; the library is then already freed.
  virtual bool LoadNativeFileApi() = 0;

  // FreeLibrary of the library a successful LoadNativeFileApi loaded.
  virtual void UnloadNativeFileApi() = 0;

  // Opens the folder nativePath ("\Device\Mup\server\share") through the native functions:
  // RtlInitUnicodeString, object attributes of length 48 without root directory, attribute
  // flags, security descriptor or quality of service, then NtCreateFile with FILE_READ_ATTRIBUTES,
  // no allocation size, FILE_ATTRIBUTE_NORMAL, FILE_SHARE_READ | FILE_SHARE_WRITE |
  // FILE_SHARE_DELETE, FILE_OPEN, FILE_DIRECTORY_FILE and no extended attributes. On a status of
  // exactly 0 the handle is closed with NtClose. Returns NtCreateFile's status. Only called
  // between a successful LoadNativeFileApi and UnloadNativeFileApi.
  virtual NtStatus OpenFolderForAttributes(std::wstring_view nativePath) = 0;

  // ImpersonateLoggedOnUser(token): true when the calling thread now runs as the token.
  virtual bool ImpersonateToken(TokenHandle token) = 0;

  // RevertToSelf().
  virtual void RevertImpersonation() = 0;
};

// The process's real network port. It lives until the process exits.
NetworkPort& ProcessNetworkPort();

}  // namespace tw
