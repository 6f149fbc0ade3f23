// The survey of a share: one row per folder of the share (or of the parent folder) that a UNC
// path names, read without changing anything and without following any link. Each entry is
// looked at once at most (a quick listing of its folder), hives are judged by their base blocks;
// the folders of a share are surveyed several at once.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/win32_error.h"
#include "ports/file_system.h"
#include "ports/security_port.h"
#include "ports/survey_port.h"
#include "survey/survey_row.h"

namespace tw::survey {

// The services the scan reads through.
struct SurveyServices {
  FileSystem& files;
  SecurityPort& security;
  SurveyPort& port;
  // The settings' target root folder (UNC), as tarnwick's /t: would give it; empty: targets lie
  // beside their sources.
  std::wstring targetRoot;
  // Whether each clean profile's ntuser.dat is opened to find special folders redirected to UNC
  // paths (the only look past a hive's base block).
  bool readRedirects = true;
  // How many folders of a share are surveyed at once. A walk waits mostly for the disk to bring
  // in directories and inodes, so several at once pay even on one core.
  unsigned parallelFolders = 8;
};

// Surveys the folders under sharePath (a UNC path of a share or of a parent folder), or
// sharePath itself when it is a profile folder. Rows are sorted by name (case-insensitively).
// Returns kSuccess, or the Win32 error that kept the folder from being listed (nothing in result
// then).
[[nodiscard]] err::Win32Error SurveyShare(const SurveyServices& services,
                                          std::wstring_view sharePath, SurveyResult& result);

// Surveys one folder (the row of SurveyShare for it).
SurveyRow SurveyFolder(const SurveyServices& services, const std::wstring& folderPath);

// The target tarnwick makes for the profile at `source` in `mode`, by the tool's own naming
// (GetTargetPath), under `targetRoot` when it is not empty; empty when it can make none.
std::wstring TargetPathOf(const std::wstring& source, Mode mode, const std::wstring& targetRoot);

// The rows that a batch of `mode` would run: folders of the mode's source kind, in order.
std::vector<const SurveyRow*> SourcesOf(const SurveyResult& result, Mode mode);

}  // namespace tw::survey
