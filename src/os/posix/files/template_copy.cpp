#include "os/posix/files/template_copy.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "os/posix/errno_win32.h"
#include "os/posix/files/file_copy.h"
#include "os/posix/files/file_info.h"
#include "os/posix/files/folder_tree.h"
#include "os/posix/paths/beneath_path.h"

namespace tw::posix {
namespace {

// The names in folder except "." and "..", sorted so that copies are made in a stable order.
[[nodiscard]] err::Win32Error ListFolder(const std::string& folder,
                                         std::vector<std::string>& names) {
  DIR* stream = OpenFolderListingBeneath(folder);
  if (stream == nullptr) return PathError(folder);
  while (const struct dirent* item = ::readdir(stream)) {
    const std::string name(item->d_name);
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(stream);
  std::sort(names.begin(), names.end());
  return err::kSuccess;
}

}  // namespace

[[nodiscard]] err::Win32Error CopyTemplateTree(const std::string& source,
                                               const std::string& target) {
  std::vector<std::string> names;
  if (const err::Win32Error error = ListFolder(source, names); error != err::kSuccess) return error;
  for (const std::string& name : names) {
    const std::string from = source + "/" + name;
    const std::string to = target + "/" + name;
    struct stat info {};
    if (LstatBeneath(from, info) != 0) return PathError(from);
    if (S_ISDIR(info.st_mode)) {
      if (const err::Win32Error error = MakeNativeFolder(to); error != err::kSuccess) return error;
      std::uint32_t attributes = 0;
      if (ReadStoredAttributes(from, attributes)) {
        if (const err::Win32Error error = WriteStoredAttributes(to, attributes);
            error != err::kSuccess)
          return error;
      }
      if (const err::Win32Error error = CopyTemplateTree(from, to); error != err::kSuccess)
        return error;
    } else if (S_ISREG(info.st_mode)) {
      if (const err::Win32Error error = CopyNativeFile(from, to, true); error != err::kSuccess)
        return error;
    }
  }
  return err::kSuccess;
}

}  // namespace tw::posix
