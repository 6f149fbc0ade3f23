#include "os/posix/profiles/user_profile.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <filesystem>
#include <map>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

#include "base/hresult_error.h"
#include "base/text_encoding.h"
#include "base/wide_string.h"
#include "descriptor/sid.h"
#include "os/posix/errno_win32.h"
#include "os/posix/files/folder_tree.h"
#include "os/posix/files/template_copy.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/profiles/profile_list.h"
#include "ports/last_error.h"

namespace tw::posix {
namespace {

bool IsValidUserName(std::wstring_view name) {
  if (name.empty()) return false;
  bool onlyDotsAndBlanks = true;
  for (const wchar_t c : name) {
    if (c < 0x20 || std::wstring_view(L"\"/\\[]:;|=,+*?<>").find(c) != std::wstring_view::npos)
      return false;
    if (c != L'.' && c != L' ') onlyDotsAndBlanks = false;
  }
  return !onlyDotsAndBlanks;
}

// The canonical text of a SID string, or false when it is not one.
bool CanonicalSid(const wchar_t* text, std::string& canonical) {
  security::Sid sid;
  if (security::Sid::FromString(text, &sid) != err::kSuccess) return false;
  canonical = WideToUtf8(sid.ToString());
  return true;
}

// The Linux path of a setting (Linux or Windows form), made absolute.
[[nodiscard]] err::Win32Error MapSetting(const std::wstring& setting, std::string& native) {
  if (setting.empty()) return err::kPathNotFound;
  err::Win32Error error = err::kSuccess;
  if (!ToNativePath(setting, native, error)) return error;
  std::error_code failure;
  const std::filesystem::path absolute = std::filesystem::absolute(native, failure);
  if (failure) return Win32ErrorFromErrno(failure.value());
  native = absolute.lexically_normal().string();
  if (native.size() > 1 && native.back() == '/') native.pop_back();
  return err::kSuccess;
}

// True when folder holds an entry whose name equals name ignoring case.
bool HasEntryNoCase(const std::string& folder, std::wstring_view name) {
  DIR* stream = ::opendir(folder.c_str());
  if (stream == nullptr) return false;
  bool found = false;
  while (const struct dirent* item = ::readdir(stream)) {
    if (EqualsNoCase(Utf8ToWide(item->d_name), name)) {
      found = true;
      break;
    }
  }
  ::closedir(stream);
  return found;
}

bool IsFolder(const std::string& native) {
  struct stat info {};
  return ::stat(native.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

[[nodiscard]] HResult CreateProfileFolder(const ProfileSettings& settings, const ProfileList& list,
                                          const std::string& root, std::wstring_view userName,
                                          std::uint32_t cchProfilePath, std::string& folder,
                                          std::wstring& windowsPath) {
  for (int attempt = 0;; ++attempt) {
    const std::wstring name = ProfileFolderCandidate(userName, settings.computerName, attempt);
    if (name.empty()) return HResultFromWin32(err::kFileExists);
    if (HasEntryNoCase(root, name)) continue;
    folder = root + (root == "/" ? "" : "/") + WideToUtf8(name);
    // A name another profile's entry still records is taken: its owner may have emptied the
    // folder already but deletes it by name once more when it deletes its profile.
    if (list.RecordsFolder(folder)) continue;
    windowsPath = ToWindowsPath(folder);
    if (windowsPath.size() + 1 > cchProfilePath) return HResultFromWin32(err::kInsufficientBuffer);
    const err::Win32Error error = MakeNativeFolder(folder);
    if (error == err::kAlreadyExists) continue;  // made by someone else meanwhile
    return HResultFromWin32(error);
  }
}

// Makes the private folder of the default root when missing and checks that it is still
// private: a folder, not a link, of this user's own, which no one else may write to.
[[nodiscard]] err::Win32Error EnsurePrivateFolder(const std::wstring& setting) {
  std::string folder;
  if (const err::Win32Error error = MapSetting(setting, folder); error != err::kSuccess)
    return error;
  const std::string parent = folder.substr(0, folder.rfind('/'));
  if (!parent.empty()) {
    std::error_code failure;
    std::filesystem::create_directories(parent, failure);
  }
  if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return Win32ErrorFromErrno(errno);
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0) return Win32ErrorFromErrno(errno);
  if (!S_ISDIR(info.st_mode) || info.st_uid != ::geteuid() || (info.st_mode & 022) != 0)
    return err::kAccessDenied;
  return err::kSuccess;
}

// The profile list entries this process holds (ProfileList::Reserve), by entry path: each is
// kept open, and so locked, until DeleteProfileW removes it or the process ends.
class HeldEntries {
 public:
  void Keep(const std::string& entry, int fd) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto [found, added] = fds_.emplace(entry, fd);
    if (!added) {
      ::close(found->second);
      found->second = fd;
    }
  }
  void Release(const std::string& entry) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = fds_.find(entry);
    if (found == fds_.end()) return;
    ::close(found->second);
    fds_.erase(found);
  }

 private:
  std::mutex mutex_;
  std::map<std::string, int> fds_;
};

HeldEntries& ProcessHeldEntries() {
  static HeldEntries* const entries = new HeldEntries();  // kept until the process ends
  return *entries;
}

// A reservation in the profile list that is taken back (entry removed, lock let go) unless it
// is kept.
class Reservation {
 public:
  Reservation(const ProfileList& list, std::string sidText)
      : list_(list), sidText_(std::move(sidText)) {}
  Reservation(const Reservation&) = delete;
  Reservation& operator=(const Reservation&) = delete;
  ~Reservation() {
    if (fd_ < 0) return;
    // Cleanup of a failed creation.
    static_cast<void>(list_.Remove(sidText_));
    ::close(fd_);
  }
  [[nodiscard]] err::Win32Error Make() { return list_.Reserve(sidText_, fd_); }
  int fd() const { return fd_; }
  void Keep() {
    ProcessHeldEntries().Keep(list_.EntryPath(sidText_), fd_);
    fd_ = -1;
  }

 private:
  const ProfileList& list_;
  std::string sidText_;
  int fd_ = -1;
};

bool IsThisComputer(const ProfileSettings& settings, const wchar_t* computerName) {
  if (computerName == nullptr) return true;
  std::wstring_view name(computerName);
  if (name.size() >= 2 && name[0] == L'\\' && name[1] == L'\\') name.remove_prefix(2);
  return name.empty() || EqualsNoCase(name, settings.computerName);
}

}  // namespace

[[nodiscard]] HResult CreateUserProfile(const ProfileSettings& settings, const wchar_t* sid,
                                        const wchar_t* userName, wchar_t* profilePath,
                                        std::uint32_t cchProfilePath) {
  if (sid == nullptr || userName == nullptr || profilePath == nullptr) return hr::kInvalidArg;
  if (!IsValidUserName(userName)) return hr::kInvalidArg;
  std::string sidText;
  if (!CanonicalSid(sid, sidText)) return HResultFromWin32(err::kInvalidSid);

  if (!settings.privateFolder.empty()) {
    if (const err::Win32Error error = EnsurePrivateFolder(settings.privateFolder);
        error != err::kSuccess)
      return HResultFromWin32(error);
  }
  std::string root;
  if (const err::Win32Error error = MapSetting(settings.root, root); error != err::kSuccess)
    return HResultFromWin32(error);
  std::error_code failure;
  std::filesystem::create_directories(root, failure);
  if (failure) return HResultFromWin32(Win32ErrorFromErrno(failure.value()));
  if (!IsFolder(root)) return HResultFromWin32(err::kPathNotFound);

  // Registrations of processes that have ended (killed, or ended with their temporary profile
  // still there) go first, with their folders: a registration never outlives its process.
  const ProfileList list(root);
  list.RemoveAbandoned();
  std::string registered;
  if (list.Find(sidText, registered) == err::kSuccess) return HResultFromWin32(err::kAlreadyExists);

  std::string templateFolder;
  if (MapSetting(settings.templateFolder, templateFolder) != err::kSuccess ||
      !IsFolder(templateFolder))
    return HResultFromWin32(err::kPathNotFound);

  // The registration is made first, atomically and locked, so that of two processes creating a
  // profile for one SID at once exactly one goes on; the other gets ERROR_ALREADY_EXISTS and
  // changes nothing of the first's.
  Reservation reservation(list, sidText);
  if (const err::Win32Error error = reservation.Make(); error != err::kSuccess)
    return HResultFromWin32(error);

  std::string folder;
  std::wstring windowsPath;
  const HResult made =
      CreateProfileFolder(settings, list, root, userName, cchProfilePath, folder, windowsPath);
  if (Failed(made)) return made;

  err::Win32Error error = ProfileList::Record(reservation.fd(), folder);
  if (error == err::kSuccess) error = CopyTemplateTree(templateFolder, folder);
  if (error != err::kSuccess) {
    // Cleanup; the first error is returned.
    static_cast<void>(DeleteNativeTree(folder));
    return HResultFromWin32(error);
  }
  reservation.Keep();
  windowsPath.copy(profilePath, windowsPath.size());
  profilePath[windowsPath.size()] = L'\0';
  return hr::kOk;
}

std::wstring RegisteredProfileOf(const ProfileSettings& settings, const wchar_t* sid) {
  std::string sidText;
  std::string root;
  if (sid == nullptr || !CanonicalSid(sid, sidText) ||
      MapSetting(settings.root, root) != err::kSuccess)
    return {};
  std::string folder;
  struct stat info {};
  if (ProfileList(root).Find(sidText, folder) != err::kSuccess ||
      ::lstat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
    return {};
  return ToWindowsPath(folder);
}

[[nodiscard]] err::Win32Error DeleteUserProfile(const ProfileSettings& settings, const wchar_t* sid,
                                                const wchar_t* profilePath,
                                                const wchar_t* computerName) {
  if (sid == nullptr) return err::kInvalidParameter;
  std::string sidText;
  if (!CanonicalSid(sid, sidText)) return err::kInvalidSid;
  if (!IsThisComputer(settings, computerName)) return err::kBadNetPath;

  std::string root;
  if (const err::Win32Error error = MapSetting(settings.root, root); error != err::kSuccess)
    return error == err::kPathNotFound ? err::kFileNotFound : error;
  const ProfileList list(root);
  std::string folder;
  if (const err::Win32Error error = list.Find(sidText, folder); error != err::kSuccess)
    return error;
  if (profilePath != nullptr && *profilePath != L'\0' &&
      !EqualsNoCase(profilePath, ToWindowsPath(folder)))
    return err::kInvalidParameter;

  const err::Win32Error deleted = DeleteNativeTree(folder);
  if (deleted != err::kSuccess && deleted != err::kFileNotFound && deleted != err::kPathNotFound)
    return deleted;
  const err::Win32Error removed = list.Remove(sidText);
  if (removed != err::kSuccess && removed != err::kFileNotFound) return removed;
  ProcessHeldEntries().Release(list.EntryPath(sidText));
  return err::kSuccess;
}

std::int32_t TW_OR_CALL BuiltInCreateProfile(const wchar_t* sid, const wchar_t* userName,
                                             wchar_t* profilePath, hive::DWORD cchProfilePath) {
  try {
    return CreateUserProfile(ProcessProfileSettings(), sid, userName, profilePath, cchProfilePath)
        .Value();
  } catch (const HResultError& failure) {
    return failure.code().Value();
  } catch (const std::bad_alloc&) {
    return hr::kOutOfMemory.Value();
  } catch (const std::exception&) {
    return hr::kFail.Value();
  }
}

std::int32_t TW_OR_CALL BuiltInDeleteProfileW(const wchar_t* sid, const wchar_t* profilePath,
                                              const wchar_t* computerName) {
  err::Win32Error error = err::kSuccess;
  try {
    error = DeleteUserProfile(ProcessProfileSettings(), sid, profilePath, computerName);
  } catch (const std::bad_alloc&) {
    error = err::kNotEnoughMemory;
  } catch (const std::exception&) {
    error = err::kGenFailure;
  }
  if (error == err::kSuccess) return 1;
  SetThreadLastError(error);
  return 0;
}

}  // namespace tw::posix
