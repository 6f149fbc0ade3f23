// Module port: loading a library at run time and finding its functions by name (LoadLibraryExW,
// GetProcAddress, FreeLibrary). The offline-registry binding loads its two libraries through it,
// so a test can bind a wrapper over any table of functions, including one with holes.
// Implementations are safe to call from any thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace tw {

// A loaded module (the HMODULE on Windows); kNoModule when nothing was loaded.
using ModuleHandle = std::uintptr_t;
constexpr ModuleHandle kNoModule = 0;

// Where Load looks for a library. Never the current folder or PATH: a library planted there would
// run with the program's backup and restore rights.
enum class ModuleSearch : std::uint8_t {
  // The system folder (System32) only.
  kSystemFolder,
  // The system folder, else the folder of the running program.
  kSystemThenApplicationFolder,
};

// A function found in a module, untyped (FARPROC). The caller converts it back to the type the
// module gives the function; a function pointer survives the round trip through this type.
using ModuleFunction = void (*)();

class ModuleLoader {
 public:
  ModuleLoader() = default;
  ModuleLoader(const ModuleLoader&) = delete;
  ModuleLoader& operator=(const ModuleLoader&) = delete;
  ModuleLoader(ModuleLoader&&) = delete;
  ModuleLoader& operator=(ModuleLoader&&) = delete;
  virtual ~ModuleLoader() = default;

  // LoadLibraryExW(name, NULL, the search flag of `search`): the loaded module, or kNoModule
  // when it cannot be loaded. kSystemThenApplicationFolder is two loads, the system folder's
  // first (one call with both flags would search the program's folder first).
  virtual ModuleHandle Load(std::wstring_view name, ModuleSearch search) = 0;

  // GetProcAddress(module, name): the exported function, or null when the module has none of
  // that name.
  virtual ModuleFunction FindFunction(ModuleHandle module, const char* name) = 0;

  // FreeLibrary(module), for a module that Load returned.
  virtual void Unload(ModuleHandle module) = 0;
};

// The process's real module loader. On Windows it loads the system's libraries; on Linux it
// serves the tool's built-in stand-ins for them (os/posix/module_loader.cpp). It
// lives until the process exits.
ModuleLoader& ProcessModuleLoader();

}  // namespace tw
