#include "os/posix/files/file_info.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "os/posix/errno_win32.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/samba/dos_attrib.h"

namespace tw::posix {
namespace {

constexpr const char* kDosAttribName = samba::kDosAttribAttribute;
// 100-ns intervals between 1601-01-01 and 1970-01-01.
constexpr std::int64_t kUnixEpochAsFileTime = 116444736000000000;
constexpr std::int64_t kIntervalsPerSecond = 10000000;

// The fallback store for file systems without user extended attributes.
struct FallbackStore {
  std::mutex mutex;
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::uint32_t> values;
};

FallbackStore& Fallback() {
  static FallbackStore* store = new FallbackStore;  // lives until the process ends
  return *store;
}

bool StatNoFollow(const std::string& native, struct statx& info) {
  const BeneathPath at(native);
  if (!at.ok()) return false;
  return ::statx(at.dir(), at.name(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
                 &info) == 0;
}

std::pair<std::uint64_t, std::uint64_t> InodeKey(const struct statx& info) {
  const std::uint64_t device = (std::uint64_t{info.stx_dev_major} << 32) | info.stx_dev_minor;
  return {device, info.stx_ino};
}

FileTime FromStatx(const struct statx_timestamp& stamp) {
  return FileTimeFromUnix(stamp.tv_sec, stamp.tv_nsec);
}

}  // namespace

FileTime FileTimeFromUnix(std::int64_t seconds, std::uint32_t nanoseconds) {
  const std::int64_t value =
      seconds * kIntervalsPerSecond + nanoseconds / 100 + kUnixEpochAsFileTime;
  return value < 0 ? 0 : static_cast<FileTime>(value);
}

void UnixFromFileTime(FileTime time, std::int64_t& seconds, std::int64_t& nanoseconds) {
  const std::int64_t sinceEpoch = static_cast<std::int64_t>(time) - kUnixEpochAsFileTime;
  seconds = sinceEpoch / kIntervalsPerSecond;
  std::int64_t rest = sinceEpoch % kIntervalsPerSecond;
  if (rest < 0) {
    rest += kIntervalsPerSecond;
    --seconds;
  }
  nanoseconds = rest * 100;
}

[[nodiscard]] err::Win32Error MissingPathError(const std::string& native) {
  const std::string::size_type slash = native.find_last_of('/');
  std::string parent;
  if (slash == std::string::npos) {
    parent = ".";
  } else if (slash == 0) {
    parent = "/";
  } else {
    parent = native.substr(0, slash);
  }
  if (!IsFolderBeneath(parent)) return err::kPathNotFound;
  return err::kFileNotFound;
}

[[nodiscard]] err::Win32Error PathError(const std::string& native) {
  const int errnum = errno;
  if (errnum == ENOENT) return MissingPathError(native);
  return Win32ErrorFromErrno(errnum);
}

namespace {

// The DOS attributes and creation time stored on `native`, when a readable value is;
// `unsupported` tells a file system without user extended attributes.
std::optional<samba::DosAttrib> ReadDosAttrib(const std::string& native, bool& unsupported) {
  std::uint8_t buffer[128];
  const ssize_t length = LgetxattrBeneath(native, kDosAttribName, buffer, sizeof buffer);
  unsupported = length < 0 && errno == ENOTSUP;
  if (length < 0) return std::nullopt;
  return samba::DecodeDosAttrib(
      std::span<const std::uint8_t>(buffer).first(static_cast<std::size_t>(length)));
}

// The same for an open descriptor.
std::optional<samba::DosAttrib> ReadDosAttrib(int fd) {
  std::uint8_t buffer[128];
  const ssize_t length = ::fgetxattr(fd, kDosAttribName, buffer, sizeof buffer);
  if (length < 0) return std::nullopt;
  return samba::DecodeDosAttrib(
      std::span<const std::uint8_t>(buffer).first(static_cast<std::size_t>(length)));
}

// The value the fallback store keeps for `native`, if any.
bool ReadFallbackAttributes(const std::string& native, std::uint32_t& value) {
  struct statx info {};
  if (!StatNoFollow(native, info)) return false;
  FallbackStore& store = Fallback();
  const std::lock_guard<std::mutex> guard(store.mutex);
  const auto found = store.values.find(InodeKey(info));
  if (found == store.values.end()) return false;
  value = found->second;
  return true;
}

}  // namespace

bool ReadStoredAttributes(const std::string& native, std::uint32_t& value) {
  bool unsupported = false;
  if (const std::optional<samba::DosAttrib> stored = ReadDosAttrib(native, unsupported)) {
    value = stored->attributes;
    return true;
  }
  return unsupported && ReadFallbackAttributes(native, value);
}

[[nodiscard]] err::Win32Error WriteStoredAttributes(const std::string& native,
                                                    std::uint32_t value) {
  // The creation time goes with the attributes: the one stored before, else the file's own.
  std::uint64_t created = 0;
  bool unsupported = false;
  if (const std::optional<samba::DosAttrib> stored = ReadDosAttrib(native, unsupported);
      stored && stored->creationTime) {
    created = *stored->creationTime;
  } else if (struct statx now{}; StatNoFollow(native, now)) {
    created = (now.stx_mask & STATX_BTIME) != 0
                  ? FromStatx(now.stx_btime)
                  : std::min(FromStatx(now.stx_ctime), FromStatx(now.stx_mtime));
  }
  const std::vector<std::uint8_t> bytes = samba::EncodeDosAttrib(value, created);
  // The kernel takes user attributes on files and folders only, so success says the type is
  // right; the type is looked at when the write fails.
  if (LsetxattrBeneath(native, kDosAttribName, bytes.data(), bytes.size(), 0) == 0)
    return err::kSuccess;
  const int refused = errno;
  struct statx info {};
  if (!StatNoFollow(native, info)) return PathError(native);
  if (!S_ISREG(info.stx_mode) && !S_ISDIR(info.stx_mode)) return err::kAccessDenied;
  errno = refused;
  if (errno != ENOTSUP) return PathError(native);
  FallbackStore& store = Fallback();
  const std::lock_guard<std::mutex> guard(store.mutex);
  store.values[InodeKey(info)] = value;
  return err::kSuccess;
}

void RemoveStoredAttributes(const std::string& native) {
  if (LremovexattrBeneath(native, kDosAttribName) == 0 || errno != ENOTSUP) return;
  struct statx info {};
  if (!StatNoFollow(native, info)) return;
  FallbackStore& store = Fallback();
  const std::lock_guard<std::mutex> guard(store.mutex);
  store.values.erase(InodeKey(info));
}

void ForgetFallbackAttributes(const std::string& native) {
  FallbackStore& store = Fallback();
  {
    const std::lock_guard<std::mutex> guard(store.mutex);
    if (store.values.empty()) return;
  }
  struct statx info {};
  if (!StatNoFollow(native, info)) return;
  const std::lock_guard<std::mutex> guard(store.mutex);
  store.values.erase(InodeKey(info));
}

namespace {

void TimesFromStatx(const struct statx& info, FileTimes& times) {
  times.lastAccess = FromStatx(info.stx_atime);
  times.lastWrite = FromStatx(info.stx_mtime);
  if ((info.stx_mask & STATX_BTIME) != 0) {
    times.creation = FromStatx(info.stx_btime);
  } else {
    times.creation = std::min(FromStatx(info.stx_ctime), times.lastWrite);
  }
}

}  // namespace

[[nodiscard]] err::Win32Error QueryDescriptorTimes(int fd, FileTimes& times) {
  struct statx info {};
  if (::statx(fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &info) != 0)
    return Win32ErrorFromErrno(errno);
  TimesFromStatx(info, times);
  if (const std::optional<samba::DosAttrib> dos = ReadDosAttrib(fd); dos && dos->creationTime) {
    times.creation = *dos->creationTime;
  }
  return err::kSuccess;
}

[[nodiscard]] err::Win32Error StoreDescriptorCreationTime(int fd, FileTime creation) {
  std::uint32_t attributes = 0;
  if (const std::optional<samba::DosAttrib> dos = ReadDosAttrib(fd)) {
    attributes = dos->attributes;
  } else {
    struct statx info {};
    if (::statx(fd, "", AT_EMPTY_PATH, STATX_TYPE, &info) != 0) return Win32ErrorFromErrno(errno);
    attributes = S_ISDIR(info.stx_mode) ? file_attr::kDirectory : file_attr::kArchive;
  }
  const std::vector<std::uint8_t> bytes = samba::EncodeDosAttrib(attributes, creation);
  if (::fsetxattr(fd, kDosAttribName, bytes.data(), bytes.size(), 0) == 0) return err::kSuccess;
  // Where no attribute can be kept (no user attributes, a descriptor opened for its path only),
  // the creation time is passed over, as before the file server's format was used.
  if (errno == ENOTSUP || errno == EBADF) return err::kSuccess;
  return Win32ErrorFromErrno(errno);
}

[[nodiscard]] err::Win32Error QueryFileInfo(const std::string& native, FindEntry& entry) {
  struct statx info {};
  if (!StatNoFollow(native, info)) return PathError(native);
  const bool isFolder = S_ISDIR(info.stx_mode);
  const bool isFile = S_ISREG(info.stx_mode);
  std::optional<FileTime> createdOverride;  // the creation time the file server keeps
  if (!isFolder && !isFile) {
    entry.attributes = file_attr::kReparsePoint;
  } else {
    std::uint32_t stored = 0;
    bool haveStored = false;
    bool unsupported = false;
    if (const std::optional<samba::DosAttrib> dos = ReadDosAttrib(native, unsupported)) {
      stored = dos->attributes;
      haveStored = true;
      if (dos->creationTime) createdOverride = *dos->creationTime;
    } else if (unsupported) {
      haveStored = ReadFallbackAttributes(native, stored);
    }
    if (haveStored) {
      stored &= ~(file_attr::kDirectory | file_attr::kReparsePoint);
      if (isFolder) {
        stored |= file_attr::kDirectory;
        stored &= ~file_attr::kNormal;
      } else if (stored == 0) {
        stored = file_attr::kNormal;
      } else if (stored != file_attr::kNormal) {
        stored &= ~file_attr::kNormal;  // NORMAL stands only alone
      }
      entry.attributes = stored;
    } else {
      entry.attributes = isFolder ? file_attr::kDirectory : file_attr::kArchive;
    }
  }
  entry.size = isFile ? info.stx_size : 0;
  TimesFromStatx(info, entry.times);
  if (createdOverride) entry.times.creation = *createdOverride;
  return err::kSuccess;
}

}  // namespace tw::posix
