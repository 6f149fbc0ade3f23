// The computer name on Linux, in the form Windows shows its NetBIOS computer name.
#pragma once

#include <string>
#include <string_view>

namespace tw::posix {

// The NetBIOS-style name for a host name: the part before the first ".", upper-cased with
// Windows' case table and cut to 15 characters (the NetBIOS limit); "LOCALHOST" when that leaves
// nothing.
std::wstring ComputerNameFromHostName(std::string_view hostName);

// gethostname(), empty when it fails.
std::string HostName();

// GetComputerNameW: ComputerNameFromHostName of HostName().
std::wstring ComputerName();

}  // namespace tw::posix
