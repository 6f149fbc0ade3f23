// The pieces of the survey of one folder (internal to survey/): the walk of its tree, the state
// of a hive file, the state of a target folder, the special folders its hive redirects.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "base/wide_string.h"
#include "ports/file_system.h"
#include "ports/survey_port.h"
#include "registry/offreg_wrapper.h"
#include "survey/survey_row.h"

namespace tw::survey {

// Orders paths without regard to case (the Windows rule).
struct NoCaseLess {
  bool operator()(const std::wstring& a, const std::wstring& b) const {
    return CompareNoCase(a, b) < 0;
  }
};

// What the walk of a folder's tree saw besides the row's counts: every file of the folder itself
// and of the folder that holds the classes hive, with its size (by full path), and the links
// among their entries.
struct WalkFacts {
  std::map<std::wstring, std::uint64_t, NoCaseLess> files;
  std::map<std::wstring, bool, NoCaseLess> links;  // entries of the folder itself that are links
};

// Walks folder's tree with one quick listing per folder (FileSystem::ListFolder), which looks at
// each entry at most once and reads no stored attribute:
// counts files and bytes into row, and records as the copy of the migration would meet them: names
// that differ from an earlier one only in case (case_twins.h), items whose path or whose target
// path (the same relative path below targetFolder) does not fit MAX_PATH, and folders that cannot
// be listed. Links are never followed. The files of folder itself and of classesFolder (the
// folder of the classes hive) go into facts.files, their links into facts.links.
void WalkProfileTree(FileSystem& files, const std::wstring& folder,
                     const std::wstring& targetFolder, const std::wstring& classesFolder,
                     SurveyRow& row, WalkFacts& facts);

// The state of the hive file at path (size from the walk, absent when it was not seen), read
// through its base block; a dirty hive is recovered from its logs in memory as the engine would
// do it, to tell whether the logs are usable.
HiveInfo HiveStateOf(SurveyPort& port, const std::wstring& path, const WalkFacts& facts);

// The state of the target folder at targetPath, as the run's target creation would find it.
TargetState TargetStateOf(FileSystem& files, const std::wstring& targetPath);

// The special folders that the "User Shell Folders" key of the hive at hivePath sets to UNC
// paths, as "Name=location". Nothing when the hive cannot be opened.
std::vector<std::wstring> RedirectedFoldersOf(COffregWrapper& offreg, const std::wstring& hivePath);

}  // namespace tw::survey
