// The mapping between the Windows-form paths the core uses and the Linux paths behind them. The
// Linux root is shown as drive Z: (as Wine does): "/tmp/x/tarnwick" is "Z:\tmp\x\tarnwick".
// UNC paths ("\\server\share\rest") are handed to MapUncPathToNative (unc_path.h), where the
// share map lives.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "base/win32_error.h"

namespace tw::posix {

// What the mapping learnt about the path it returns, so that a caller about to look at the
// object does not ask the system twice. Filled only when the last step of the mapping was an
// lstat of exactly the returned path.
struct NativeStatus {
  bool known = false;  // an lstat of the returned path was made
  int error = 0;       // its errno; 0 when the object exists and `info` describes it
  struct stat info {};

  bool Exists() const { return known && error == 0; }
};

// lstat of native, taken from status when it was made there.
int LstatKnown(const std::string& native, const NativeStatus& status, struct stat& info);

// The Linux path (UTF-8) for path. Accepted forms:
//   "Z:\tmp\x", "z:/tmp/x"  -> "/tmp/x" (either separator; "Z:" and "Z:\" are "/"; a drive-relative
//                              "Z:x" is the relative "x");
//   "\tmp\x"                -> "/tmp/x" (rooted on the current drive, which is always Z:);
//   "\\?\Z:\tmp\x"          -> "/tmp/x"; "\\?\UNC\server\share\x" is the UNC path below;
//   "\\server\share\x"      -> whatever the share map says (unc_path.h);
//   "/tmp/x"                -> a POSIX path, as it stands;
//   "alice\ntuser.dat"      -> the relative "alice/ntuser.dat" (either separator, as Windows
//                              reads a relative path; "conf/x.xml" stays as it is).
// Names are then resolved as Windows finds them, ignoring case (ResolveNameCase), so every
// adapter that maps a path gets the same answer.
// Returns false with error set where Windows would fail to find the path: another drive letter
// or an empty path gives kPathNotFound, an embedded NUL kInvalidName, and an unmapped UNC path
// the share map's error (kBadNetPath, kBadNetName).
bool ToNativePath(std::wstring_view path, std::string& native, err::Win32Error& error,
                  NativeStatus* status = nullptr);

// The mapping of ToNativePath with the names taken as written: nothing is looked at on disk.
bool MapNativePathAsWritten(std::wstring_view path, std::string& native, err::Win32Error& error);

// ToNativePath for a name about to be created where an existing object of that name, as written,
// is refused by the creation itself (mkdir, O_EXCL): the folder is resolved as usual, and the last
// name is looked up only in the folder's listing, in any case, without an lstat of its own.
bool ToNativePathForCreation(std::wstring_view path, std::string& native, err::Win32Error& error);

// native with each component that does not exist as written replaced by an entry of its folder
// whose name equals it ignoring case (Windows' upper-case table; the first such entry in the
// order the folder lists them when several differ only in case). Components are resolved from
// the first on; from the first component that exists in no case, the rest is kept as given, so
// a path to be created still names the right place. Below a share's folder every look goes
// through beneath_path.h: no symbolic link is followed and no folder behind one is listed;
// "." and ".." stay as they are.
// A missing path is resolved from its deepest existing folder: most often only the last name is
// missing (a file about to be created), so the cost is one lstat of the path, one of its folder
// and one reading of that folder.
std::string ResolveNameCase(const std::string& native, NativeStatus* status = nullptr);

// The Windows form of a Linux path: "/tmp/x" -> "Z:\tmp\x", "/" -> "Z:\". A relative path keeps
// being relative with backslash separators ("a/b" -> "a\b"). The UTF-8 bytes are decoded with
// Utf8ToWide.
std::wstring ToWindowsPath(std::string_view native);

// Runs call(native) on the Linux path of an object that must exist, mapped as written
// (MapNativePathAsWritten); only when the call finds a name missing (kFileNotFound,
// kPathNotFound) are the names resolved ignoring case, and the call made once more if that names
// another path. The same answer as resolving first, without a look at the path before every
// call. For calls that create nothing, and so change nothing when they fail.
// call: err::Win32Error(const std::string&).
template <class Call>
[[nodiscard]] err::Win32Error OnExistingNativePath(const std::string& native, Call call) {
  const err::Win32Error error = call(native);
  if (error != err::kFileNotFound && error != err::kPathNotFound) return error;
  const std::string resolved = ResolveNameCase(native);
  if (resolved == native) return error;
  return call(resolved);
}

// The same from a Windows path.
template <class Call>
[[nodiscard]] err::Win32Error OnExistingObject(std::wstring_view path, Call call) {
  std::string native;
  err::Win32Error error = err::kSuccess;
  if (!MapNativePathAsWritten(path, native, error)) return error;
  return OnExistingNativePath(native, call);
}

}  // namespace tw::posix
