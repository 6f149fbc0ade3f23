// MigrationSettings: the settings record of one run. The entry routine keeps it on its stack for
// the whole run; the command line and the optional configuration file fill it.
#pragma once

#include <cstdint>
#include <string>

namespace tw {

// Mask values shared by folderMask and registryMask.
inline constexpr std::uint32_t kMaskEverything = 0x7FFFFFFFu;  // every row selected (default)
inline constexpr std::uint32_t kMaskOff = 0x80000000u;         // that migration switched off

// conflictPolicy values.
inline constexpr std::int32_t kConflictV1Profile = 1;
inline constexpr std::int32_t kConflictV2Profile = 2;
inline constexpr std::int32_t kConflictMostRecent = 4;
inline constexpr std::int32_t kConflictSaveCopy = 8;

struct MigrationSettings {
  // Source profile path; may end in "*" or a "*.V2"-style wildcard.
  std::wstring sourcePath;
  // Folder under which target profiles are created; empty: beside the source.
  std::wstring targetPath;
  // Mode read from the configuration file: (2, 5), (2, 6), (5, 6), (6, 6); 0/0 when none. The
  // run's own mode is g_runMode (migration/process_state.h): the command line copies this pair
  // into it when the file names a mode.
  std::int32_t sourceVersion = 0;
  std::int32_t targetVersion = 0;
  // One bit per special folder migrated; kMaskOff alone: file and folder migration is off.
  std::uint32_t folderMask = kMaskEverything;
  // One bit per registry key group migrated; kMaskOff alone: registry migration is off.
  std::uint32_t registryMask = kMaskEverything;
  // What wins when data exist on both sides (kConflict... values).
  std::int32_t conflictPolicy = kConflictSaveCopy;
  // Allow a temporary take-over of ownership of the source.
  bool takeOwnership = false;
  // Print usage and stop.
  bool showHelp = false;
};

// Sets every field of `settings` to its default (the values above).
void InitSettings(MigrationSettings& settings);

}  // namespace tw
