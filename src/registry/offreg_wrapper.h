// COffregWrapper: the run-time binding of the offline-registry functions (offreg.dll) and of the
// two user-profile functions of userenv.dll. One process-wide object, g_offreg, loads both
// libraries before the program's entry runs; the run flow refuses to run when functions are
// missing, and the profile and registry migrations call them through the object.
//
// On Windows the two libraries are the system's, loaded by name. On Linux the module port serves
// the hive engine's functions under the offline-registry names and the tool's built-in profile
// functions under the userenv names (os/posix/module_loader.cpp).
#pragma once

#include "log/reference_count.h"
#include "ports/module_loader.h"
#include "ports/offreg_functions.h"

namespace tw {

class COffregWrapper : public CReferenceCount {
 public:
  // The process's binding: the libraries of ProcessModuleLoader().
  COffregWrapper();

  // Loads "userenv.dll" and binds CreateProfile and DeleteProfileW; if either is null, logs
  // "Failed getting userenv.dll function pointers". Then loads "offreg.dll" and binds the
  // thirteen offline-registry functions; if any of them except ORSetKeySecurity is null, logs
  // "Failed getting offreg.dll function pointers". A library that does not load leaves its
  // pointers null (and so logs its line). Last, TwQueryHiveRecovery is bound when the library
  // exports it (our engine does, the platform's library does not): its absence logs nothing.
  // Construction never fails. loader must outlive the object.
  explicit COffregWrapper(ModuleLoader& loader);

  // Unloads each library that was loaded.
  ~COffregWrapper() override;

  // True when every offline-registry pointer except ORSetKeySecurity is bound. Leaving
  // ORSetKeySecurity out (here and in the construction's log test) is deliberate.
  bool IsOffregComplete() const;

  // True when CreateProfile and DeleteProfileW are both bound.
  bool IsUserenvBound() const;

  // The specified fields, in their order. Each pointer may be null.
  ModuleHandle userenvModule = kNoModule;
  ModuleHandle offregModule = kNoModule;
  CreateProfileFunction CreateProfile = nullptr;
  DeleteProfileWFunction DeleteProfileW = nullptr;
  OROpenHiveFunction OROpenHive = nullptr;
  ORCloseHiveFunction ORCloseHive = nullptr;
  ORSaveHiveFunction ORSaveHive = nullptr;
  OROpenKeyFunction OROpenKey = nullptr;
  ORCloseKeyFunction ORCloseKey = nullptr;
  ORCreateKeyFunction ORCreateKey = nullptr;
  ORQueryInfoKeyFunction ORQueryInfoKey = nullptr;
  OREnumKeyFunction OREnumKey = nullptr;
  ORGetKeySecurityFunction ORGetKeySecurity = nullptr;
  ORSetKeySecurityFunction ORSetKeySecurity = nullptr;
  ORGetValueFunction ORGetValue = nullptr;
  ORSetValueFunction ORSetValue = nullptr;
  OREnumValueFunction OREnumValue = nullptr;

  // Not one of the specified fields: optional, outside both tests above. Null means the library
  // cannot say whether a hive was recovered, and the migration then says nothing about it.
  TwQueryHiveRecoveryFunction TwQueryHiveRecovery = nullptr;

 private:
  ModuleLoader& loader_;
};

// The process-wide binding, built before the program's entry runs (run/process_globals.cpp,
// after g_log and g_profilePath).
extern COffregWrapper g_offreg;

}  // namespace tw
