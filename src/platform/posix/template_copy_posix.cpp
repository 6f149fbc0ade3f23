#include "platform/posix/template_copy_posix.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "platform/posix/beneath_path.h"
#include "platform/posix/errno_win32.h"
#include "platform/posix/file_copy_posix.h"
#include "platform/posix/file_info_posix.h"
#include "platform/posix/folder_tree_posix.h"

namespace tw::posix {
namespace {

// The names in folder except "." and "..", sorted so that copies are made in a stable order.
err::Win32Error ListFolder(const std::string& folder, std::vector<std::string>& names) {
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

err::Win32Error CopyTemplateTree(const std::string& source, const std::string& target) {
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
