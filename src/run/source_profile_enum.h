// CSourceProfileEnum: turns the source path into the sequence of source profile folders that the
// run hands one by one to the per-profile migration. The source path names either one profile
// folder or, with a wildcard, the folders under a parent. Built on the entry routine's stack over
// the source path; lives until the loop ends.
//
// Decisions where the platform's buffers leave a choice: the source path itself is kept whole
// (it is not cut to MAX_PATH); every path built from it goes through the MAX_PATH shell path
// functions, so a path that would not fit is simply not found. The name that FindNextProfile
// appends after PathAddBackslashW is concatenated as it stands (it already passed the folder
// test, whose own path had to fit).
#pragma once

#include <string>
#include <string_view>

#include "ports/file_system.h"

namespace tw {

class CSourceProfileEnum {
 public:
  // sourcePath: the settings' source path as given (lower case after the command line).
  CSourceProfileEnum(FileSystem& files, std::wstring_view sourcePath);
  CSourceProfileEnum(const CSourceProfileEnum&) = delete;
  CSourceProfileEnum& operator=(const CSourceProfileEnum&) = delete;
  // Closes a search that is still open.
  ~CSourceProfileEnum() = default;

  // suffix: "V2" or "V5" in the version modes, null in the default mode.
  //  1. The pattern is "*.<suffix>", or "*" without a suffix.
  //  2. Wildcard mode when the last four characters of the source path (the whole path when
  //     shorter) equal the pattern without regard to case. The fixed count of four is deliberate:
  //     with a suffix it recognises a path ending in "*.V2" or "*.V5"; without one only the bare
  //     path "*" is a wildcard, and "D:\Profiles\*" is taken as one folder.
  //  3. D is the source path, less its last element in wildcard mode.
  //  4. When D itself holds "ntuser.dat", D is the profile, returned alone (in wildcard mode too).
  //  5. Otherwise, in wildcard mode, the search of the source path (wildcard included) yields the
  //     first entry that passes the profile-folder test, as D with its name appended; the search
  //     stays open for FindNextProfile.
  // Returns true with profilePath set, or false with profilePath emptied.
  bool FindFirstProfile(std::wstring& profilePath, const wchar_t* suffix);

  // The next entry of the open search that passes the profile-folder test, as D with a trailing
  // backslash and the name. False with profilePath emptied when no search is open or none is
  // left (the search is then closed).
  bool FindNextProfile(std::wstring& profilePath);

 private:
  // The profile-folder test of one entry found in parent: a folder, not "." or "..", not a
  // reparse point; holding "ntuser.dat"; and whose extension is not ".V2" without regard to case.
  // The extension test always uses ".V2", in every mode, deliberately.
  bool IsProfileFolder(const std::wstring& parent, const FindEntry& entry);

  // The source path less its last element (PathRemoveFileSpecW).
  std::wstring ParentOfSource() const;

  FileSystem& files_;
  // The specified fields: the source path and the running search (none at first).
  std::wstring sourcePath_;
  UniqueSearchHandle findHandle_;
};

}  // namespace tw
