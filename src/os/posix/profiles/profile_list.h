// The list of profiles that the built-in CreateProfile made, keyed by SID: what the ProfileList
// key of the registry is on Windows.
//
// Layout: the folder "[ProfileList]" directly under the profile root holds one file per SID,
// named by the SID's canonical text ("S-1-5-21-..."; Sid::ToString, so "s-1-5-..." and aliases
// name the same entry). The file holds the profile folder's Linux path in UTF-8 followed by one
// "\n". The folder name cannot clash with a profile folder: "[" and "]" are not allowed in
// Windows user names.
//
// An entry belongs to the process that made it: that process holds it open with an exclusive
// flock for as long as the profile lives, and the system lets go of the lock when the process
// ends, however it ends. An entry whose lock is free is therefore abandoned (its process was
// killed, or ended with its temporary profile still there), and RemoveAbandoned takes it away
// with the profile folder it names.
//
// Entries are made atomically: a locked, empty temporary file in the same folder is hard-linked
// to the entry's name, which fails when the name exists; so two processes never both register
// one SID, and no entry is ever seen unlocked while its process lives.
#pragma once

#include <string>

#include "base/win32_error.h"

namespace tw::posix {

// The name of the list's folder under the profile root.
inline constexpr const char* kProfileListFolderName = "[ProfileList]";

class ProfileList {
 public:
  // root: the profile root (a Linux path, absolute and without a trailing "/"). Nothing is
  // touched until a call is made.
  explicit ProfileList(std::string root);

  // Makes sidText's entry (canonical), empty, and locked for this process: `held` is then the
  // open entry that holds the lock (-1 on failure), to be kept while the profile lives and
  // closed after Remove. kAlreadyExists when the SID has an entry; another Win32 error when the
  // list cannot be written (its folder is created when missing).
  [[nodiscard]] err::Win32Error Reserve(const std::string& sidText, int& held) const;

  // Writes folder as the content of the entry open as held.
  [[nodiscard]] static err::Win32Error Record(int held, const std::string& folder);

  // The folder recorded for sidText; kFileNotFound when it has no entry, kInvalidData when the
  // entry holds no complete line (not recorded yet, or not one of ours).
  [[nodiscard]] err::Win32Error Find(const std::string& sidText, std::string& folder) const;

  // Removes sidText's entry; kFileNotFound when it has none.
  [[nodiscard]] err::Win32Error Remove(const std::string& sidText) const;

  // Removes every entry that no process holds, after removing the profile folder it names when
  // that is a folder directly under the root (anything else named there is left alone). An entry
  // whose folder cannot be removed stays, to be tried again. Leftover temporary files of entries
  // go the same way.
  void RemoveAbandoned() const;

  // Whether any entry, held or not, records `folder`. Its owner deletes that folder by name when
  // it deletes its profile, so a folder of that name must not be made for another profile in
  // the meantime (another run's profile would be deleted under it).
  bool RecordsFolder(const std::string& folder) const;

  std::string EntryPath(const std::string& sidText) const;

 private:
  std::string root_;
  std::string folder_;
};

}  // namespace tw::posix
