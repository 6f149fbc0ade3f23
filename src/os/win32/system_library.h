// Loading a library at run time from one known folder, never by the default search (which looks
// in the program's folder and the current folder before the system folder, so a library planted
// there would run with the program's backup and restore rights).
#pragma once

#include <string_view>

#include "os/win32/windows_headers.h"

namespace tw::win32 {

// `name` from the system folder (System32) only: LoadLibraryExW(name, NULL,
// LOAD_LIBRARY_SEARCH_SYSTEM32) where the system has the search flags; where it has not (Windows 7
// without the update that brings them, recognised by kernel32 lacking AddDllDirectory, as
// documented), LoadLibraryExW(<GetSystemDirectoryW>\name, NULL, LOAD_WITH_ALTERED_SEARCH_PATH),
// so that its own dependencies are looked for beside it too. Null when it cannot be loaded.
HMODULE LoadSystemLibrary(std::wstring_view name);

// `name` from the running program's folder only: LOAD_LIBRARY_SEARCH_APPLICATION_DIR, else the
// full path in the folder of GetModuleFileNameW(NULL) with LOAD_WITH_ALTERED_SEARCH_PATH.
HMODULE LoadApplicationLibrary(std::wstring_view name);

}  // namespace tw::win32
