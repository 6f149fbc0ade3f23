// Case-insensitive lookups of a name in a Linux folder, for names that do not exist as written.
// Windows finds "FILE.TXT" when "file.txt" exists; on Linux that takes reading the folder. A
// copy into a folder looks up every name it is about to create, so reading the folder each
// time would cost the square of its size; the listings are therefore kept.
//
// A kept listing is used only while the folder's identity and its modification and change times
// are those seen when it was read (taken before reading, so a change made during the reading
// shows). Names this process creates or removes through the adapters are entered into the
// listing as it goes, keeping it valid: after a creation, the folder's new times are taken as the
// process's own when the folder's change time is no later than the moment the creation returned.
// The decision: a name that another process creates in a folder at the same instant as this
// process creates one there (between the lookup before the creation and the creation, or
// within one tick of a coarse file clock after it) can be missed by the lookup of a name in
// another case (a name that exists as written is always found, as the lstat of the path comes
// first); such a miss makes a second name differing only in case, never a change to an
// existing object.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace tw::posix {

// The entry of `folder` whose name equals `name` ignoring case (Windows' upper-case table), the
// first in the order the folder lists them; "" when there is none or the folder cannot be read.
// folderInfo: the folder's lstat, made just now by the caller.
std::string FindNameNoCase(const std::string& folder, const struct stat& folderInfo,
                           std::string_view name);

// The same without a kept listing: the folder is read each time.
std::string ReadNameNoCase(const std::string& folder, std::string_view name);

// This process has just created, or removed, the object at `native`.
void NoteNameCreated(const std::string& native);
void NoteNameRemoved(const std::string& native);

}  // namespace tw::posix
