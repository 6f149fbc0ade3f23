// The one directory walk of the profile copy: a folder search (FindFirstFileW, FindNextFileW)
// that passes over "." and ".." and every entry with FILE_ATTRIBUTE_REPARSE_POINT, so that a
// junction or link is never entered or copied.
#pragma once

#include <string>

#include "base/win32_error.h"
#include "ports/file_system.h"

namespace tw {

// What the walk does after an entry.
enum class WalkStep { kNext, kStop };

inline bool IsDotEntry(const std::wstring& name) { return name == L"." || name == L".."; }

inline bool IsReparsePoint(const FindEntry& entry) {
  return (entry.attributes & file_attr::kReparsePoint) != 0;
}

inline bool IsFolder(const FindEntry& entry) {
  return (entry.attributes & file_attr::kDirectory) != 0;
}

// Starts the search `pattern` names. A search that cannot start returns its error and calls
// nothing else. Otherwise runs `started()` once, then `visit(entry)` for every entry in search
// order (but the ones passed over), until `visit` returns kStop or FindNextEntry gives anything
// but success, closes the search and returns kSuccess.
template <class Started, class Visit>
[[nodiscard]] err::Win32Error ForEachEntry(FileSystem& files, const std::wstring& pattern,
                                           Started&& started, Visit&& visit) {
  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  const err::Win32Error searchError = files.FindFirstEntry(pattern, search, entry);
  if (searchError != err::kSuccess) return searchError;
  const UniqueSearchHandle searching(files, search);
  started();
  do {
    if (IsDotEntry(entry.name) || IsReparsePoint(entry)) continue;
    if (visit(static_cast<const FindEntry&>(entry)) == WalkStep::kStop) break;
  } while (files.FindNextEntry(search, entry) == err::kSuccess);
  return err::kSuccess;
}

// The walk with nothing to do when the search has started.
template <class Visit>
[[nodiscard]] err::Win32Error ForEachEntry(FileSystem& files, const std::wstring& pattern,
                                           Visit&& visit) {
  return ForEachEntry(
      files, pattern, [] {}, visit);
}

}  // namespace tw
