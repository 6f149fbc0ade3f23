// Paths below a share's folder reached without ever following a symbolic link and without ever
// leaving the share. A profile's owner controls every name inside the profile and can swap a
// folder for a link at any moment; a path handed to the kernel whole would follow such a link
// on any component but the last. Here the folder of the last name is opened component by
// component from the share's folder (openat2 with RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH where
// the kernel has it, else openat with O_NOFOLLOW | O_DIRECTORY per component), and the calls on
// the last name are made relative to that open folder (the *at calls, or the /proc/self/fd/N
// form for calls that take only a path, such as the extended attribute calls). The last name
// itself is never followed either: every call here is its no-follow form.
//
// Deliberate deviation: a file server would follow a link inside a share as its settings allow;
// here none is, because a profile's owner controls every name in the profile and the tool runs
// with the rights to read and write every user's data.
//
// Where the trust root is: the folder of the share (of the share map, share_map.h) whose folder
// holds the path (the longest such folder, as written in the map or as the system resolves it
// once): links in the share's own path, above its folder, are the administrator's and are
// followed. Paths that lie in no share's folder (the program's folder, the temporary profile
// root, targets outside every share) are the administrator's too and are used as they stand;
// a path derived from a profile's content only ever reaches the adapters below a share.
//
// "." and ".." are resolved textually, which is what the kernel does once no link is followed;
// ".." never climbs above the share's folder (it stays there, as a UNC path's ".." stays at its
// share).
//
// A link met where a folder is needed (or, for a call that needs a file or folder, as the last
// name) fails the call with ELOOP, which the adapters report as ERROR_CANT_RESOLVE_FILENAME (the
// code Windows gives for a reparse point it does not traverse there; see errno_win32.cpp).
//
// Folders opened are kept in a small cache keyed by their path, so walking a folder costs one
// resolution for all its entries. Removals made through the adapters drop the cache
// (ForgetBeneathFolders, called from NoteNameRemoved). A folder another process renames while it
// is cached is still the folder that was opened: its own entries are used, never anything
// reached through a link.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

namespace tw::posix {

// One folder opened beneath its trust root (O_PATH); closed when the last user lets go.
struct PinnedFolder {
  int fd = -1;
  explicit PinnedFolder(int descriptor) : fd(descriptor) {}
  PinnedFolder(const PinnedFolder&) = delete;
  PinnedFolder& operator=(const PinnedFolder&) = delete;
  ~PinnedFolder();
};

// The place of one object: the open folder of its last name and that name, or, for a path in no
// share, the path as it stands (dir() is AT_FDCWD). Keeps the folder open while it lives.
class BeneathPath {
 public:
  explicit BeneathPath(const std::string& native);

  bool ok() const { return errnum_ == 0; }
  // The errno of a failed resolution (ELOOP for a link on the way, ENOENT for a missing folder,
  // ENOTDIR for a file where a folder is needed); also stored in errno by the constructor.
  int errnum() const { return errnum_; }
  // Whether the path lies in a share's folder and was resolved beneath it.
  bool pinned() const { return folder_ != nullptr; }

  int dir() const;                                    // for the *at calls
  const char* name() const { return name_.c_str(); }  // relative to dir()
  const char* path() const { return path_.c_str(); }  // for calls that take a whole path

 private:
  std::shared_ptr<const PinnedFolder> folder_;
  std::string name_;
  std::string path_;
  int errnum_ = 0;
};

// The length of the share folder that holds native (its trust root), or npos when native lies in
// no share's folder. Exposed for tests.
std::size_t TrustRootLength(const std::string& native);

// Drops every cached folder (after a removal or a rename, and for tests).
void ForgetBeneathFolders();

// Test seam: resolve with openat per component even where the kernel has openat2.
void ForceBeneathFallbackForTesting(bool force);
// Test seam: treat this folder as a share's folder too (an empty string removes it).
void AddTrustRootForTesting(const std::string& folder);

// The system calls of the adapters on an object below a share, each in its no-follow form,
// returning as the call does (-1 or nullptr with errno set, also when the resolution fails).
int LstatBeneath(const std::string& native, struct stat& info);
// Whether native is a folder (not a link to one); a path in no share is looked at as it stands,
// links followed, as the administrator's.
bool IsFolderBeneath(const std::string& native);
// openat with O_NOFOLLOW added.
int OpenBeneath(const std::string& native, int flags, mode_t mode = 0);
// A folder's listing (a folder that is a link fails with ELOOP or ENOTDIR; a path in no share
// is opened as it stands).
DIR* OpenFolderListingBeneath(const std::string& native);
int MakeFolderBeneath(const std::string& native, mode_t mode);
int UnlinkBeneath(const std::string& native);
int RemoveFolderBeneath(const std::string& native);
// Changes the mode of a file or folder; a link is refused (ELOOP).
int ChmodBeneath(const std::string& native, mode_t mode);
int LchownBeneath(const std::string& native, uid_t uid, gid_t gid);
ssize_t LgetxattrBeneath(const std::string& native, const char* name, void* value,
                         std::size_t size);
int LsetxattrBeneath(const std::string& native, const char* name, const void* value,
                     std::size_t size, int flags);
int LremovexattrBeneath(const std::string& native, const char* name);

}  // namespace tw::posix
