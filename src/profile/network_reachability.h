// Whether the file share that holds a UNC path can be reached, without the path itself having to
// exist: the share's root is opened through the system's multiple UNC provider device, so the
// answer comes from the redirector and not from a shell or a cache. Nothing is logged.
#pragma once

#include <cstddef>
#include <string_view>

#include "ports/network_port.h"
#include "ports/security_port.h"

namespace tw {

// Characters in each of the test's path buffers, terminator included.
constexpr std::size_t kReachabilityPathBuffer = 512;

// True when the share root of uncPath could be opened.
//  1. The network must be alive with LAN connectivity; else false before any file-system access.
//  2. The native file functions must load; else false.
//  3. The path is cut to the buffer (its first 511 characters, or up to an embedded NUL) and
//     reduced to its root with PathStripToRootW ("\\server\share").
//  4. A token other than kInvalidTokenHandle is impersonated; a null token is not (the test then
//     runs as the process).
//  5. "\Device\Mup\" followed by the root without its two leading backslashes (the whole is cut
//     to 511 characters as well) is opened; only a status of exactly 0 counts as reachable.
//     Deliberate deviation: when that open fails with STATUS_OBJECT_PATH_NOT_FOUND (a system
//     without the MUP device, such as Wine), the share is tried once more as "\??\UNC\" followed
//     by the same text.
//  6. RevertToSelf only when the impersonation succeeded; the native functions are unloaded.
bool IsNetworkPathReachable(NetworkPort& port, TokenHandle token, std::wstring_view uncPath);

// The same over the process's network port.
bool IsNetworkPathReachable(TokenHandle token, std::wstring_view uncPath);

// False for a null or empty path, else PathIsUNCW(path).
bool IsUncPath(const wchar_t* path);
bool IsUncPath(std::wstring_view path);

}  // namespace tw
