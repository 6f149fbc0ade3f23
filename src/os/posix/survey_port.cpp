// The survey port on Linux: a file's first bytes read beneath its share without following a
// link, account names from the server's account map and the user database, and temporary
// profiles from the built-in profile list.
#include "ports/survey_port.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "base/text_encoding.h"
#include "os/native_ports.h"
#include "os/posix/errno_win32.h"
#include "os/posix/files/file_info.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/native_path.h"
#include "os/posix/profiles/user_profile.h"
#include "os/posix/samba/account_map.h"

namespace tw {
namespace {

// Samba's domain of the SIDs it makes from uids (S-1-22-1-<uid>).
constexpr wchar_t kUnixUserDomain[] = L"Unix User";

class PosixSurveyPort final : public SurveyPort {
 public:
  [[nodiscard]] err::Win32Error ReadFileHead(std::wstring_view path, std::size_t count,
                                             std::vector<std::uint8_t>& bytes) override {
    bytes.clear();
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return error;
    const posix::BeneathPath at(native);
    if (!at.ok()) return posix::PathError(native);
    // O_NOATIME is refused for files the caller does not own; then the file is read without it.
    constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    int fd = ::openat(at.dir(), at.name(), kFlags | O_NOATIME);
    if (fd < 0 && errno == EPERM) fd = ::openat(at.dir(), at.name(), kFlags);
    if (fd < 0) return errno == ELOOP ? err::kFileNotFound : posix::Win32ErrorFromErrno(errno);
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
      ::close(fd);
      return err::kFileNotFound;
    }
    bytes.resize(count);
    std::size_t done = 0;
    while (done < count) {
      const ssize_t got = ::read(fd, bytes.data() + done, count - done);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) break;
      done += static_cast<std::size_t>(got);
    }
    ::close(fd);
    bytes.resize(done);
    return err::kSuccess;
  }

  std::wstring AccountNameOf(const security::Sid& sid) override {
    const std::optional<std::uint32_t> uid = posix::samba::Accounts().UidOf(sid);
    if (!uid) return {};
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::string buffer(16384, '\0');
    if (::getpwuid_r(*uid, &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
      return {};
    const std::wstring name = Utf8ToWide(found->pw_name);
    return sid == posix::samba::Accounts().SidOfUid(*uid)
               ? std::wstring(kUnixUserDomain) + L"\\" + name
               : name;
  }

  std::wstring TemporaryProfileOf(const security::Sid& sid) override {
    const std::wstring text = sid.ToString();
    return posix::RegisteredProfileOf(posix::ProcessProfileSettings(), text.c_str());
  }
};

}  // namespace

SurveyPort& NativeSurveyPort() {
  static PosixSurveyPort port;
  return port;
}

}  // namespace tw
