// The module port over LoadLibraryW, GetProcAddress and FreeLibrary: the system's libraries,
// loaded by name.
#include <string>

#include "platform/module_loader.h"
#include "platform/win32/windows_headers.h"

namespace tw {
namespace {

class Win32ModuleLoader final : public ModuleLoader {
 public:
  ModuleHandle Load(std::wstring_view name) override {
    const std::wstring text(name);
    return reinterpret_cast<ModuleHandle>(::LoadLibraryW(text.c_str()));
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

ModuleLoader& ProcessModuleLoader() {
  static Win32ModuleLoader loader;
  return loader;
}

}  // namespace tw
