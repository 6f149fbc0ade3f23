// The list of profiles that the built-in CreateProfile made, keyed by SID: what the ProfileList
// key of the registry is on Windows.
//
// Layout: the folder "[ProfileList]" directly under the profile root holds one file per SID,
// named by the SID's canonical text ("S-1-5-21-..."; Sid::ToString, so "s-1-5-..." and aliases
// name the same entry). The file holds the profile folder's Linux path in UTF-8 followed by one
// "\n". The folder name cannot clash with a profile folder: "[" and "]" are not allowed in
// Windows user names.
//
// Writes are atomic: an entry is written in full to a temporary file in the same folder and then
// hard-linked to its name, which fails when the name exists; so two processes never both
// register one SID, and no reader ever sees half an entry.
#pragma once

#include <string>

#include "base/win32_error.h"

namespace tw::posix {

// The name of the list's folder under the profile root.
inline constexpr const char* kProfileListFolderName = "[ProfileList]";

class ProfileList {
 public:
  // root: the profile root (a Linux path). Nothing is touched until a call is made.
  explicit ProfileList(std::string root);

  // Records folder for sidText (canonical). kAlreadyExists when the SID has an entry; another
  // Win32 error when the list cannot be written (its folder is created when missing).
  err::Win32Error Add(const std::string& sidText, const std::string& folder) const;

  // The folder recorded for sidText; kFileNotFound when it has no entry.
  err::Win32Error Find(const std::string& sidText, std::string& folder) const;

  // Removes sidText's entry; kFileNotFound when it has none.
  err::Win32Error Remove(const std::string& sidText) const;

  std::string EntryPath(const std::string& sidText) const;

 private:
  std::string folder_;
};

}  // namespace tw::posix
