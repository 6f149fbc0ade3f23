// The folder migrator: the per-profile object of the user-profile migration. Built by the
// per-profile migration over its context for one profile and destroyed right after; it holds the
// context, the settings record and the folder mapping built from the special folder table (whose
// rows' locations the shell-folder fix-up fills).
#pragma once

#include <span>

#include "migration/folder_mapping.h"
#include "migration/migration_context.h"
#include "migration/migration_settings.h"
#include "migration/special_folder_table.h"

namespace tw {

class FolderMigrator {
 public:
  // `table` (by default the process-wide special folder table) must outlive the migrator.
  explicit FolderMigrator(MigrationContext& context,
                          std::span<SpecialFolderRow> table = SpecialFolders())
      : context_(context), settings_(*context.settings), mapping_(table) {}
  FolderMigrator(const FolderMigrator&) = delete;
  FolderMigrator& operator=(const FolderMigrator&) = delete;

  MigrationContext& context() const { return context_; }
  const MigrationSettings& settings() const { return settings_; }
  FolderMapping& mapping() { return mapping_; }

 private:
  MigrationContext& context_;
  const MigrationSettings& settings_;
  FolderMapping mapping_;
};

}  // namespace tw
