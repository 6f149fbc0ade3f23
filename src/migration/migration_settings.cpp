#include "migration/migration_settings.h"

namespace tw {

void InitSettings(MigrationSettings& settings) {
  settings.sourcePath.clear();
  settings.targetPath.clear();
  settings.sourceVersion = 0;
  settings.targetVersion = 0;
  settings.folderMask = kMaskEverything;
  settings.registryMask = kMaskEverything;
  settings.conflictPolicy = kConflictSaveCopy;
  settings.takeOwnership = false;
  settings.showHelp = false;
}

}  // namespace tw
