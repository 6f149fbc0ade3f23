// An in-memory module port: libraries are named tables of functions, any of which can be left
// out (a hole) or the whole library made missing. Loads and unloads are recorded so tests can
// check that every loaded module is freed.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ports/module_loader.h"

namespace tw::testing {

class FakeModuleLoader : public ModuleLoader {
 public:
  // Adds a library of that name exporting the given functions (replacing one of the same name).
  void AddModule(std::wstring name, std::map<std::string, ModuleFunction> functions);
  // Removes one export of a library added before.
  void RemoveFunction(std::wstring_view module, const std::string& function);

  // Names asked for, in order (whether or not they loaded).
  const std::vector<std::wstring>& loadCalls() const { return loadCalls_; }
  // The search each of those loads asked for, in the same order.
  const std::vector<ModuleSearch>& loadSearches() const { return loadSearches_; }
  // Modules unloaded, in order, and modules loaded but not unloaded yet.
  const std::vector<ModuleHandle>& unloaded() const { return unloaded_; }
  int LoadedNow() const;
  // The handle a library got, or kNoModule.
  ModuleHandle HandleOf(std::wstring_view name) const;

  // --- the port ---
  ModuleHandle Load(std::wstring_view name, ModuleSearch search) override;
  ModuleFunction FindFunction(ModuleHandle module, const char* name) override;
  void Unload(ModuleHandle module) override;

 private:
  struct Module {
    std::wstring name;
    std::map<std::string, ModuleFunction> functions;
  };
  std::vector<Module> modules_;  // handle = position + 0x100
  std::vector<std::wstring> loadCalls_;
  std::vector<ModuleSearch> loadSearches_;
  std::vector<ModuleHandle> unloaded_;
  std::map<ModuleHandle, int> loadCount_;
};

}  // namespace tw::testing
