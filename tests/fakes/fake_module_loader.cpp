#include "fakes/fake_module_loader.h"

#include "base/wide_string.h"

namespace tw::testing {
namespace {
constexpr ModuleHandle kFirstHandle = 0x100;
}  // namespace

void FakeModuleLoader::AddModule(std::wstring name,
                                 std::map<std::string, ModuleFunction> functions) {
  for (Module& module : modules_) {
    if (EqualsNoCase(module.name, name)) {
      module.functions = std::move(functions);
      return;
    }
  }
  modules_.push_back({std::move(name), std::move(functions)});
}

void FakeModuleLoader::RemoveFunction(std::wstring_view module, const std::string& function) {
  for (Module& m : modules_) {
    if (EqualsNoCase(m.name, module)) m.functions.erase(function);
  }
}

ModuleHandle FakeModuleLoader::HandleOf(std::wstring_view name) const {
  for (std::size_t i = 0; i < modules_.size(); ++i) {
    if (EqualsNoCase(modules_[i].name, name)) return kFirstHandle + i;
  }
  return kNoModule;
}

int FakeModuleLoader::LoadedNow() const {
  int count = 0;
  for (const auto& [handle, loads] : loadCount_) count += loads;
  return count;
}

ModuleHandle FakeModuleLoader::Load(std::wstring_view name, ModuleSearch search) {
  loadCalls_.emplace_back(name);
  loadSearches_.push_back(search);
  const ModuleHandle handle = HandleOf(name);
  if (handle != kNoModule) ++loadCount_[handle];
  return handle;
}

ModuleFunction FakeModuleLoader::FindFunction(ModuleHandle module, const char* name) {
  if (module < kFirstHandle || module - kFirstHandle >= modules_.size()) return nullptr;
  const auto& functions = modules_[module - kFirstHandle].functions;
  const auto found = functions.find(name);
  return found == functions.end() ? nullptr : found->second;
}

void FakeModuleLoader::Unload(ModuleHandle module) {
  unloaded_.push_back(module);
  --loadCount_[module];
}

}  // namespace tw::testing
