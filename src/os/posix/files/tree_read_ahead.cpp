#include "os/posix/files/tree_read_ahead.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "os/posix/paths/beneath_path.h"
#include "os/posix/samba/ntacl_xattr.h"

namespace tw::posix {
namespace {

enum class EntryType { kFile, kFolder, kOther };

struct Entry {
  std::string name;
  EntryType type = EntryType::kOther;
};

EntryType TypeOf(int folder, const struct dirent& item) {
  if (item.d_type == DT_DIR) return EntryType::kFolder;
  if (item.d_type == DT_REG) return EntryType::kFile;
  if (item.d_type != DT_UNKNOWN) return EntryType::kOther;
  struct stat info {};
  if (::fstatat(folder, item.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) return EntryType::kOther;
  if (S_ISDIR(info.st_mode)) return EntryType::kFolder;
  return S_ISREG(info.st_mode) ? EntryType::kFile : EntryType::kOther;
}

// The entries of the open folder (which the call takes over and closes).
std::vector<Entry> ListAndClose(int folder) {
  std::vector<Entry> entries;
  DIR* stream = ::fdopendir(folder);
  if (stream == nullptr) {
    ::close(folder);
    return entries;
  }
  while (const struct dirent* item = ::readdir(stream)) {
    const std::string_view name(item->d_name);
    if (name == "." || name == "..") continue;
    entries.push_back(Entry{std::string(name), TypeOf(::dirfd(stream), *item)});
  }
  ::closedir(stream);
  return entries;
}

// The stored security and attributes: one size query brings in the block that holds them all.
void ReadAttributesAhead(int fd) {
  static_cast<void>(::fgetxattr(fd, samba::kNtAclAttribute, nullptr, 0));
}

bool ReadFileAhead(int folder, const std::string& name) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  int fd = ::openat(folder, name.c_str(), kFlags | O_NOATIME);
  if (fd < 0 && errno == EPERM) fd = ::openat(folder, name.c_str(), kFlags);
  if (fd < 0) return false;
  struct stat info {};
  const bool regular = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
  if (regular) {
    ReadAttributesAhead(fd);
    static_cast<void>(::posix_fadvise(fd, 0, 0, POSIX_FADV_WILLNEED));
  }
  ::close(fd);
  return regular;
}

struct Walk {
  const std::function<bool()>& stop;
  ReadAheadCounts counts;

  // Reads the open folder's tree ahead; takes the descriptor over.
  void Folder(int folder, int depth) {
    ReadAttributesAhead(folder);
    ++counts.folders;
    const int listing = ::dup(folder);
    const std::vector<Entry> entries = listing < 0 ? std::vector<Entry>() : ListAndClose(listing);
    for (const Entry& entry : entries) {
      if (stop()) break;
      if (entry.type == EntryType::kFile) {
        if (ReadFileAhead(folder, entry.name)) ++counts.files;
      } else if (entry.type == EntryType::kFolder && depth < kReadAheadDepth) {
        const int sub =
            ::openat(folder, entry.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (sub >= 0) Folder(sub, depth + 1);
      }
    }
    ::close(folder);
  }
};

}  // namespace

ReadAheadCounts ReadTreeAhead(const std::string& native, const std::function<bool()>& stop) {
  Walk walk{stop, {}};
  if (stop()) return walk.counts;
  const int folder = OpenBeneath(native, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder >= 0) walk.Folder(folder, 0);
  return walk.counts;
}

}  // namespace tw::posix
