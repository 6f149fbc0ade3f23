#include "registry/offreg_wrapper.h"

#include "log/log.h"

namespace tw {
namespace {

// Binds one function of module by name. A module that was not loaded binds nothing.
template <class Function>
void Bind(ModuleLoader& loader, ModuleHandle module, const char* name, Function& function) {
  function = nullptr;
  if (module == kNoModule) return;
  function = reinterpret_cast<Function>(loader.FindFunction(module, name));
}

}  // namespace

COffregWrapper::COffregWrapper() : COffregWrapper(ProcessModuleLoader()) {}

COffregWrapper::COffregWrapper(ModuleLoader& loader) : loader_(loader) {
  // Deliberate deviation: the libraries are not loaded by bare name (which searches the
  // program's folder and the current folder first), so a userenv.dll or offreg.dll planted there
  // cannot run with the program's rights. userenv.dll is part of Windows and comes from the
  // system folder only; offreg.dll, which is redistributed, from the system folder, else from
  // the program's folder.
  userenvModule = loader_.Load(L"userenv.dll", ModuleSearch::kSystemFolder);
  Bind(loader_, userenvModule, "CreateProfile", CreateProfile);
  Bind(loader_, userenvModule, "DeleteProfileW", DeleteProfileW);
  if (!IsUserenvBound()) Log(L"Failed getting userenv.dll function pointers");

  offregModule = loader_.Load(L"offreg.dll", ModuleSearch::kSystemThenApplicationFolder);
  Bind(loader_, offregModule, "OROpenHive", OROpenHive);
  Bind(loader_, offregModule, "ORCloseHive", ORCloseHive);
  Bind(loader_, offregModule, "ORSaveHive", ORSaveHive);
  Bind(loader_, offregModule, "OROpenKey", OROpenKey);
  Bind(loader_, offregModule, "ORCloseKey", ORCloseKey);
  Bind(loader_, offregModule, "ORCreateKey", ORCreateKey);
  Bind(loader_, offregModule, "ORQueryInfoKey", ORQueryInfoKey);
  Bind(loader_, offregModule, "OREnumKey", OREnumKey);
  Bind(loader_, offregModule, "ORGetKeySecurity", ORGetKeySecurity);
  Bind(loader_, offregModule, "ORSetKeySecurity", ORSetKeySecurity);
  Bind(loader_, offregModule, "ORGetValue", ORGetValue);
  Bind(loader_, offregModule, "ORSetValue", ORSetValue);
  Bind(loader_, offregModule, "OREnumValue", OREnumValue);
  if (!IsOffregComplete()) Log(L"Failed getting offreg.dll function pointers");
  Bind(loader_, offregModule, "TwQueryHiveRecovery", TwQueryHiveRecovery);
}

COffregWrapper::~COffregWrapper() {
  if (userenvModule != kNoModule) loader_.Unload(userenvModule);
  if (offregModule != kNoModule) loader_.Unload(offregModule);
}

bool COffregWrapper::IsOffregComplete() const {
  // ORSetKeySecurity is left out deliberately.
  return OROpenHive != nullptr && ORCloseHive != nullptr && ORSaveHive != nullptr &&
         OROpenKey != nullptr && ORCloseKey != nullptr && ORCreateKey != nullptr &&
         ORQueryInfoKey != nullptr && OREnumKey != nullptr && ORGetKeySecurity != nullptr &&
         ORGetValue != nullptr && ORSetValue != nullptr && OREnumValue != nullptr;
}

bool COffregWrapper::IsUserenvBound() const {
  return CreateProfile != nullptr && DeleteProfileW != nullptr;
}

}  // namespace tw
