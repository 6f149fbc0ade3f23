#include "os/posix/files/directory_search.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/file_name_pattern.h"
#include "base/text_encoding.h"
#include "os/posix/errno_win32.h"
#include "os/posix/files/file_info.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/native_path.h"

namespace tw::posix {
namespace {

// Closes a directory stream when it goes.
class DirectoryStream {
 public:
  explicit DirectoryStream(DIR* stream) : stream_(stream) {}
  DirectoryStream(const DirectoryStream&) = delete;
  DirectoryStream& operator=(const DirectoryStream&) = delete;
  ~DirectoryStream() { reset(nullptr); }
  DIR* get() const { return stream_; }
  void reset(DIR* stream) {
    if (stream_ != nullptr) ::closedir(stream_);
    stream_ = stream;
  }

 private:
  DIR* stream_;
};

std::string ChildPath(const std::string& folder, const std::string& name) {
  if (!folder.empty() && folder.back() == '/') return folder + name;
  return folder + "/" + name;
}

// The error of a folder that could not be opened for the search.
[[nodiscard]] err::Win32Error OpenFolderError(const std::string& folder, int errnum) {
  if (errnum == ENOTDIR || errnum == ELOOP) {
    struct stat info {};
    if (LstatBeneath(folder, info) == 0) return err::kDirectory;  // a file or a link
    return err::kPathNotFound;
  }
  if (errnum == ENOENT) return err::kPathNotFound;
  return Win32ErrorFromErrno(errnum);
}

// False for a Linux name that the Windows path functions would not take as one plain name: a
// backslash splits it ("..\bob" names the folder beside the one listed) and "X:" at its start
// makes it a drive path ("Z:" is the server's root). Windows can hold no such name; were it
// listed, a copy joining it to its folder would leave that folder. Such entries are not listed.
bool IsPlainWindowsName(std::wstring_view name) {
  if (name.find(L'\\') != std::wstring_view::npos) return false;
  return name.size() < 2 || name[1] != L':';
}

void AddEntry(const std::string& native, std::wstring name, std::vector<FindEntry>& entries) {
  FindEntry entry;
  if (QueryFileInfo(native, entry) != err::kSuccess) return;  // gone since readdir
  entry.name = std::move(name);
  entries.push_back(std::move(entry));
}

// Opens the folder that path names (the current folder when path is empty) for a listing,
// never through a symbolic link; folder becomes its native path.
[[nodiscard]] err::Win32Error OpenFolderStream(std::wstring_view path, std::string& folder,
                                               DirectoryStream& stream) {
  folder = ".";
  int fd = -1;
  const auto open = [&folder, &fd](const std::string& native) {
    folder = native;
    fd = OpenBeneath(folder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    return fd < 0 ? OpenFolderError(folder, errno) : err::kSuccess;
  };
  const err::Win32Error opened = path.empty() ? open(folder) : OnExistingObject(path, open);
  if (opened != err::kSuccess) return opened;
  stream.reset(::fdopendir(fd));
  if (stream.get() == nullptr) {
    const int errnum = errno;
    ::close(fd);
    return Win32ErrorFromErrno(errnum);
  }
  return err::kSuccess;
}

// A quick listing's entry for name in the folder of stream; false when it is gone since readdir.
bool ListedEntry(DIR* stream, const struct dirent& item, std::wstring name, FindEntry& entry) {
  entry = FindEntry{};
  entry.name = std::move(name);
  if (item.d_type == DT_DIR) {
    entry.attributes = file_attr::kDirectory;
    return true;
  }
  if (item.d_type != DT_REG && item.d_type != DT_UNKNOWN) {
    entry.attributes = file_attr::kReparsePoint;
    return true;
  }
  struct stat info {};
  if (::fstatat(::dirfd(stream), item.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (S_ISDIR(info.st_mode)) {
    entry.attributes = file_attr::kDirectory;
  } else if (S_ISREG(info.st_mode)) {
    entry.attributes = file_attr::kNormal;
    entry.size = static_cast<std::uint64_t>(info.st_size);
  } else {
    entry.attributes = file_attr::kReparsePoint;
  }
  return true;
}

}  // namespace

[[nodiscard]] err::Win32Error CollectSearchEntries(std::wstring_view pattern,
                                                   std::vector<FindEntry>& entries) {
  entries.clear();
  const SearchPatternParts parts = SplitSearchPattern(pattern);
  if (parts.name.empty()) return err::kFileNotFound;
  std::string folder;
  DirectoryStream stream(nullptr);
  if (const err::Win32Error opened = OpenFolderStream(parts.folder, folder, stream);
      opened != err::kSuccess)
    return opened;

  if (folder != "/") {
    if (MatchesSearchPattern(parts.name, L".")) AddEntry(folder, L".", entries);
    if (MatchesSearchPattern(parts.name, L"..")) AddEntry(ChildPath(folder, ".."), L"..", entries);
  }
  std::string child = ChildPath(folder, "");  // the folder's path, then each entry's
  const std::size_t prefix = child.size();
  for (;;) {
    errno = 0;
    const struct dirent* item = ::readdir(stream.get());
    if (item == nullptr) {
      if (errno != 0) return Win32ErrorFromErrno(errno);
      break;
    }
    const std::string_view native(item->d_name);
    if (native == "." || native == "..") continue;
    std::wstring name = Utf8ToWide(native);
    if (!IsPlainWindowsName(name) || !MatchesSearchPattern(parts.name, name)) continue;
    child.resize(prefix);
    child.append(native);
    AddEntry(child, std::move(name), entries);
  }
  return entries.empty() ? err::kFileNotFound : err::kSuccess;
}

[[nodiscard]] err::Win32Error ListFolderEntries(std::wstring_view path,
                                                std::vector<FindEntry>& entries) {
  entries.clear();
  std::string folder;
  DirectoryStream stream(nullptr);
  if (const err::Win32Error opened = OpenFolderStream(path, folder, stream);
      opened != err::kSuccess)
    return opened;
  for (;;) {
    errno = 0;
    const struct dirent* item = ::readdir(stream.get());
    if (item == nullptr) return errno != 0 ? Win32ErrorFromErrno(errno) : err::kSuccess;
    const std::string_view native(item->d_name);
    if (native == "." || native == "..") continue;
    std::wstring name = Utf8ToWide(native);
    if (!IsPlainWindowsName(name)) continue;
    FindEntry entry;
    if (ListedEntry(stream.get(), *item, std::move(name), entry))
      entries.push_back(std::move(entry));
  }
}

}  // namespace tw::posix
