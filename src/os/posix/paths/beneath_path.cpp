#include "os/posix/paths/beneath_path.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "os/posix/paths/share_map.h"

namespace tw::posix {
namespace {

constexpr std::size_t kCachedFolders = 16;
constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

std::atomic<bool> g_forceFallback{false};
std::atomic<bool> g_noOpenat2{false};  // the kernel said ENOSYS once

// "/proc/self/fd/": always the calling process's own descriptors. (A folder named by the process
// id, kept from the first call, would name the parent's descriptors in a forked child.)
const std::string& DescriptorFolder() {
  static const std::string folder = "/proc/self/fd/";
  return folder;
}

std::string DescriptorPath(int fd, std::string_view name) {
  std::string path = DescriptorFolder() + std::to_string(fd);
  path.push_back('/');
  path.append(name);
  return path;
}

// Whether folder (absolute, no trailing "/" but for "/") holds native on a component boundary.
bool Holds(const std::string& folder, const std::string& native) {
  if (folder.empty() || !native.starts_with(folder)) return false;
  if (folder == "/") return native[0] == '/';
  return native.size() == folder.size() || native[folder.size()] == '/';
}

// The share folders, as written and as resolved by the system, with the root fds opened once.
class TrustRoots {
 public:
  std::size_t Length(const std::string& native) {
    if (native.empty() || native[0] != '/') return std::string::npos;
    std::size_t best = std::string::npos;
    const std::lock_guard<std::mutex> guard(mutex_);
    const ShareMap* map = UsableProcessShareMap();
    if (!SameFoldersLocked(map)) {
      // The folders as written and as the system resolves them, gathered once per map.
      written_.clear();
      folders_.clear();
      if (map != nullptr) {
        for (const ShareMapEntry& entry : map->entries()) written_.push_back(entry.folder);
      }
      written_.insert(written_.end(), extra_.begin(), extra_.end());
      for (const std::string& folder : written_) AddFolderLocked(folder);
      gathered_ = true;
    }
    for (const std::string& folder : folders_) {
      if (Holds(folder, native) && (best == std::string::npos || folder.size() > best))
        best = folder.size();
    }
    return best;
  }

  // The root folder opened (following the administrator's links), shared; nullptr with errno.
  std::shared_ptr<const PinnedFolder> Open(const std::string& root) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = fds_.find(root);
    if (found != fds_.end()) return found->second;
    const int fd = ::open(root.c_str(), kFolderFlags);
    if (fd < 0) return nullptr;
    auto folder = std::make_shared<const PinnedFolder>(fd);
    fds_.emplace(root, folder);
    return folder;
  }

  void Add(const std::string& folder) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (folder.empty()) {
      extra_.clear();
    } else {
      extra_.push_back(folder);
    }
    fds_.clear();
    gathered_ = false;  // gathered again on the next look
  }

 private:
  // Whether the folders gathered are those of map and the test roots.
  bool SameFoldersLocked(const ShareMap* map) const {
    if (!gathered_) return false;
    const std::size_t count = map != nullptr ? map->entries().size() : 0;
    if (written_.size() != count + extra_.size()) return false;
    for (std::size_t i = 0; i < count; ++i) {
      if (written_[i] != map->entries()[i].folder) return false;
    }
    return true;
  }

  void AddFolderLocked(const std::string& folder) {
    folders_.push_back(folder);
    if (char* path = ::realpath(folder.c_str(), nullptr)) {
      if (folder != path) folders_.emplace_back(path);
      std::free(path);
    }
  }

  std::mutex mutex_;
  bool gathered_ = false;
  std::vector<std::string> written_;  // the folders as written: the map's, then the test roots
  std::vector<std::string> folders_;  // those and the ones the system resolves them to
  std::map<std::string, std::shared_ptr<const PinnedFolder>> fds_;
  std::vector<std::string> extra_;
};

TrustRoots& ProcessTrustRoots() {
  static TrustRoots* roots = new TrustRoots;  // lives until the process ends
  return *roots;
}

// The last folders resolved, most recent first.
class FolderCache {
 public:
  std::shared_ptr<const PinnedFolder> Find(const std::string& key) {
    const std::lock_guard<std::mutex> guard(mutex_);
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (entries_[i].first == key) {
        if (i != 0) std::swap(entries_[i], entries_[0]);
        return entries_[0].second;
      }
    }
    return nullptr;
  }

  void Add(const std::string& key, std::shared_ptr<const PinnedFolder> folder) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (entries_.size() >= kCachedFolders) entries_.pop_back();
    entries_.insert(entries_.begin(), {key, std::move(folder)});
  }

  void Clear() {
    const std::lock_guard<std::mutex> guard(mutex_);
    entries_.clear();
  }

 private:
  std::mutex mutex_;
  std::vector<std::pair<std::string, std::shared_ptr<const PinnedFolder>>> entries_;
};

FolderCache& ProcessFolderCache() {
  static FolderCache* cache = new FolderCache;  // lives until the process ends
  return *cache;
}

// One component opened without following it: a link gives ELOOP.
int OpenComponent(int folder, const std::string& name) {
  const int fd = ::openat(folder, name.c_str(), kFolderFlags | O_NOFOLLOW);
  if (fd >= 0) return fd;
  const int saved = errno;
  if (saved == ENOTDIR) {
    struct stat info {};
    if (::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(info.st_mode)) {
      errno = ELOOP;
      return -1;
    }
  }
  errno = saved;
  return -1;
}

// relative ("a/b/c", no "." or "..", no empty names) opened below root; -1 with errno.
int OpenRelative(int root, const std::string& relative) {
  if (!g_forceFallback.load() && !g_noOpenat2.load()) {
    struct open_how how {};
    how.flags = static_cast<std::uint64_t>(kFolderFlags);
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    for (int attempt = 0; attempt < 8; ++attempt) {
      const long fd = ::syscall(SYS_openat2, root, relative.c_str(), &how, sizeof how);
      if (fd >= 0) return static_cast<int>(fd);
      if (errno != EAGAIN && errno != EINTR) break;
    }
    if (errno != ENOSYS && errno != E2BIG && errno != EPERM) {
      // A link on the way gives ELOOP; a file where a folder is needed ENOTDIR.
      return -1;
    }
    g_noOpenat2.store(true);  // no openat2 here (or one refused by a sandbox): per component
  }
  int current = root;
  std::size_t position = 0;
  while (position <= relative.size()) {
    std::size_t end = relative.find('/', position);
    if (end == std::string::npos) end = relative.size();
    const int next = OpenComponent(current, relative.substr(position, end - position));
    const int saved = errno;
    if (current != root) ::close(current);
    if (next < 0) {
      errno = saved;
      return -1;
    }
    current = next;
    position = end + 1;
  }
  return current;
}

}  // namespace

PinnedFolder::~PinnedFolder() {
  if (fd >= 0) ::close(fd);
}

std::size_t TrustRootLength(const std::string& native) {
  return ProcessTrustRoots().Length(native);
}

void ForgetBeneathFolders() { ProcessFolderCache().Clear(); }

void ForceBeneathFallbackForTesting(bool force) {
  g_forceFallback.store(force);
  ForgetBeneathFolders();
}

void AddTrustRootForTesting(const std::string& folder) {
  ProcessTrustRoots().Add(folder);
  ForgetBeneathFolders();
}

namespace {

// The names of native below its trust root, "." and ".." resolved textually (".." stops at the
// root).
std::vector<std::string_view> NamesBelowRoot(const std::string& native, std::size_t rootLength) {
  std::vector<std::string_view> names;
  std::size_t position = rootLength;
  while (position < native.size()) {
    std::size_t end = native.find('/', position);
    if (end == std::string::npos) end = native.size();
    const std::string_view component(native.data() + position, end - position);
    position = end + 1;
    if (component.empty() || component == ".") continue;
    if (component == "..") {
      if (!names.empty()) names.pop_back();
      continue;
    }
    names.push_back(component);
  }
  return names;
}

// The folder `relative` (names joined by '/', empty for the root itself) below the trust root
// `root`: from the cache, or opened without following links and cached. Null, with the errno of
// the failure in `errnum`, when it cannot be opened.
std::shared_ptr<const PinnedFolder> PinFolder(const std::string& root, const std::string& relative,
                                              int& errnum) {
  std::string key = root;
  key.push_back('\0');  // a separator no name holds
  key.append(relative);
  std::shared_ptr<const PinnedFolder> folder = ProcessFolderCache().Find(key);
  if (folder != nullptr) return folder;
  std::shared_ptr<const PinnedFolder> rootFolder = ProcessTrustRoots().Open(root);
  if (rootFolder == nullptr) {
    errnum = errno;
    return nullptr;
  }
  if (relative.empty()) {
    folder = std::move(rootFolder);
  } else {
    const int fd = OpenRelative(rootFolder->fd, relative);
    if (fd < 0) {
      errnum = errno;
      return nullptr;
    }
    folder = std::make_shared<const PinnedFolder>(fd);
  }
  ProcessFolderCache().Add(key, folder);
  return folder;
}

}  // namespace

BeneathPath::BeneathPath(const std::string& native) {
  const std::size_t rootLength = TrustRootLength(native);
  if (rootLength == std::string::npos) {
    name_ = native;
    path_ = native;
    return;
  }
  std::vector<std::string_view> names = NamesBelowRoot(native, rootLength);
  const bool atRoot = names.empty();
  name_ = atRoot ? std::string(".") : std::string(names.back());
  if (!names.empty()) names.pop_back();
  std::string relative;
  for (const std::string_view component : names) {
    if (!relative.empty()) relative.push_back('/');
    relative.append(component);
  }

  int error = 0;
  folder_ = PinFolder(native.substr(0, rootLength), relative, error);
  if (folder_ == nullptr) {
    if (atRoot) {
      // The share's folder itself, which is not a folder that opens: looked at as it stands.
      name_ = native;
      path_ = native;
      return;
    }
    errnum_ = error;
    return;
  }
  path_ = DescriptorPath(folder_->fd, name_);
}

int BeneathPath::dir() const { return folder_ != nullptr ? folder_->fd : AT_FDCWD; }

namespace {

// Runs call(at) on the resolved place of native, or fails as the resolution did.
template <class Result, class Call>
Result OnBeneath(const std::string& native, Result failed, Call call) {
  const BeneathPath at(native);
  if (!at.ok()) {
    errno = at.errnum();
    return failed;
  }
  return call(at);
}

}  // namespace

int LstatBeneath(const std::string& native, struct stat& info) {
  return OnBeneath(native, -1, [&](const BeneathPath& at) {
    return ::fstatat(at.dir(), at.name(), &info, AT_SYMLINK_NOFOLLOW);
  });
}

int OpenBeneath(const std::string& native, int flags, mode_t mode) {
  return OnBeneath(native, -1, [&](const BeneathPath& at) {
    return ::openat(at.dir(), at.name(), flags | O_NOFOLLOW, mode);
  });
}

bool IsFolderBeneath(const std::string& native) {
  const BeneathPath at(native);
  if (!at.ok()) return false;
  struct stat info {};
  const int result = at.pinned() ? ::fstatat(at.dir(), at.name(), &info, AT_SYMLINK_NOFOLLOW)
                                 : ::stat(at.path(), &info);
  return result == 0 && S_ISDIR(info.st_mode);
}

DIR* OpenFolderListingBeneath(const std::string& native) {
  if (native.empty()) return ::opendir(".");
  const BeneathPath at(native);
  if (!at.ok()) {
    errno = at.errnum();
    return nullptr;
  }
  if (!at.pinned()) return ::opendir(at.path());
  const int fd = ::openat(at.dir(), at.name(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return nullptr;
  DIR* stream = ::fdopendir(fd);
  if (stream == nullptr) {
    const int saved = errno;
    ::close(fd);
    errno = saved;
  }
  return stream;
}

int MakeFolderBeneath(const std::string& native, mode_t mode) {
  return OnBeneath(native, -1,
                   [&](const BeneathPath& at) { return ::mkdirat(at.dir(), at.name(), mode); });
}

int UnlinkBeneath(const std::string& native) {
  return OnBeneath(native, -1,
                   [&](const BeneathPath& at) { return ::unlinkat(at.dir(), at.name(), 0); });
}

int RemoveFolderBeneath(const std::string& native) {
  const int result = OnBeneath(native, -1, [&](const BeneathPath& at) {
    return ::unlinkat(at.dir(), at.name(), AT_REMOVEDIR);
  });
  if (result == 0) ForgetBeneathFolders();
  return result;
}

int ChmodBeneath(const std::string& native, mode_t mode) {
  const int fd = OpenBeneath(native, O_PATH | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat info {};
  int result = ::fstat(fd, &info);
  if (result == 0 && S_ISLNK(info.st_mode)) {
    errno = ELOOP;
    result = -1;
  }
  if (result == 0) result = ::chmod((DescriptorFolder() + std::to_string(fd)).c_str(), mode);
  const int saved = errno;
  ::close(fd);
  errno = saved;
  return result;
}

int LchownBeneath(const std::string& native, uid_t uid, gid_t gid) {
  return OnBeneath(native, -1, [&](const BeneathPath& at) {
    return ::fchownat(at.dir(), at.name(), uid, gid, AT_SYMLINK_NOFOLLOW);
  });
}

ssize_t LgetxattrBeneath(const std::string& native, const char* name, void* value,
                         std::size_t size) {
  return OnBeneath(native, static_cast<ssize_t>(-1), [&](const BeneathPath& at) {
    return ::lgetxattr(at.path(), name, value, size);
  });
}

int LsetxattrBeneath(const std::string& native, const char* name, const void* value,
                     std::size_t size, int flags) {
  return OnBeneath(native, -1, [&](const BeneathPath& at) {
    return ::lsetxattr(at.path(), name, value, size, flags);
  });
}

int LremovexattrBeneath(const std::string& native, const char* name) {
  return OnBeneath(native, -1,
                   [&](const BeneathPath& at) { return ::lremovexattr(at.path(), name); });
}

}  // namespace tw::posix
