// Target states and redirected folders, by the run's own rules.
#include <vector>

#include "base/shell_path.h"
#include "profile/special_folder_table.h"
#include "profile/target_profile.h"
#include "registry/shell_folders.h"
#include "survey/survey_parts.h"

namespace tw::survey {

TargetState TargetStateOf(FileSystem& files, const std::wstring& targetPath) {
  if (targetPath.empty() || !files.PathExists(targetPath)) return TargetState::kNone;
  UniqueFileHandle lock;
  const err::Win32Error locked = TryTargetLock(files, MarkerPathOf(targetPath), lock);
  if (locked == err::kSuccess) return TargetState::kInterrupted;
  if (locked == err::kFileNotFound || locked == err::kPathNotFound) return TargetState::kFinished;
  // A live run holds it, or its lock cannot be tried: the run would refuse it either way.
  return TargetState::kLocked;
}

std::vector<std::wstring> RedirectedFoldersOf(COffregWrapper& offreg,
                                              const std::wstring& hivePath) {
  std::vector<std::wstring> found;
  if (offreg.OROpenHive == nullptr || offreg.OROpenKey == nullptr || offreg.ORGetValue == nullptr ||
      offreg.ORCloseKey == nullptr || offreg.ORCloseHive == nullptr)
    return found;
  OrKey hive = nullptr;
  if (offreg.OROpenHive(hivePath.c_str(), &hive) != err::kSuccess) return found;
  OrKey key = nullptr;
  if (offreg.OROpenKey(hive, kUserShellFoldersKey, &key) == err::kSuccess) {
    for (const SpecialFolderRow& row : SpecialFolders()) {
      std::wstring location;
      if (!ReadShellFolder(offreg, key, row.name, location)) continue;
      // As the shell-folder fix-up decides: a UNC location is carried over, not copied.
      if (PathIsUNCW(location)) found.push_back(row.name + L"=" + location);
    }
    offreg.ORCloseKey(key);
  }
  offreg.ORCloseHive(hive);
  return found;
}

}  // namespace tw::survey
