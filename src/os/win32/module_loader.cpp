// The module port over LoadLibraryExW, GetProcAddress and FreeLibrary: libraries are loaded from
// the folders the caller names (system_library.h), never by the default search.
#include "ports/module_loader.h"

#include <string>

#include "os/native_ports.h"
#include "os/win32/system_library.h"
#include "os/win32/windows_headers.h"

namespace tw {
namespace {

class Win32ModuleLoader final : public ModuleLoader {
 public:
  ModuleHandle Load(std::wstring_view name, ModuleSearch search) override {
    HMODULE module = win32::LoadSystemLibrary(name);
    if (module == nullptr && search == ModuleSearch::kSystemThenApplicationFolder) {
      module = win32::LoadApplicationLibrary(name);
    }
    return reinterpret_cast<ModuleHandle>(module);
  }

  ModuleFunction FindFunction(ModuleHandle module, const char* name) override {
    // FARPROC and ModuleFunction are both functions without arguments: the conversion only
    // forgets the return type until the caller gives the function its real type.
    return reinterpret_cast<ModuleFunction>(
        ::GetProcAddress(reinterpret_cast<HMODULE>(module), name));
  }

  void Unload(ModuleHandle module) override { ::FreeLibrary(reinterpret_cast<HMODULE>(module)); }
};

}  // namespace

ModuleLoader& NativeModuleLoader() {
  static Win32ModuleLoader loader;
  return loader;
}

}  // namespace tw
