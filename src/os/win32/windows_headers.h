// The one header of the tool that includes the Windows SDK. Everything in the Win32 adapter
// includes this instead of <windows.h>, so the SDK is always seen with the same settings.
#pragma once

// The build names the oldest Windows supported (the top-level CMakeLists.txt).
#ifndef _WIN32_WINNT
#error "_WIN32_WINNT must be set by the build"
#endif

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef UNICODE
#define UNICODE
#endif
#ifndef _UNICODE
#define _UNICODE
#endif

#include <shlwapi.h>
#include <windows.h>
