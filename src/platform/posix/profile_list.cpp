#include "platform/posix/profile_list.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <utility>

#include "platform/posix/errno_win32.h"

namespace tw::posix {
namespace {

// Writes all of text to fd; false with errno set on failure.
bool WriteAll(int fd, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = ::write(fd, text.data() + done, text.size() - done);
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(written);
  }
  return true;
}

// A temporary name no other writer uses: process id and a counter of this process.
std::string TemporaryName(const std::string& entry) {
  static std::atomic<unsigned> counter{0};
  return entry + "." + std::to_string(::getpid()) + "." + std::to_string(counter++) + ".tmp";
}

}  // namespace

ProfileList::ProfileList(std::string root) : folder_(std::move(root)) {
  if (!folder_.empty() && folder_.back() != '/') folder_.push_back('/');
  folder_.append(kProfileListFolderName);
}

std::string ProfileList::EntryPath(const std::string& sidText) const {
  return folder_ + "/" + sidText;
}

err::Win32Error ProfileList::Add(const std::string& sidText, const std::string& folder) const {
  if (::mkdir(folder_.c_str(), 0755) != 0 && errno != EEXIST) return Win32ErrorFromErrno(errno);
  const std::string entry = EntryPath(sidText);
  const std::string temporary = TemporaryName(entry);
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) return Win32ErrorFromErrno(errno);
  bool written = WriteAll(fd, folder + "\n") && ::fsync(fd) == 0;
  const int writeErrno = errno;
  if (::close(fd) != 0 && written) written = false;
  if (!written) {
    ::unlink(temporary.c_str());
    return Win32ErrorFromErrno(writeErrno);
  }
  err::Win32Error result = err::kSuccess;
  if (::link(temporary.c_str(), entry.c_str()) != 0) {
    result = errno == EEXIST ? err::kAlreadyExists : Win32ErrorFromErrno(errno);
  }
  ::unlink(temporary.c_str());
  return result;
}

err::Win32Error ProfileList::Find(const std::string& sidText, std::string& folder) const {
  std::ifstream stream(EntryPath(sidText), std::ios::binary);
  if (!stream) return err::kFileNotFound;
  std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  if (text.empty() || text.back() != '\n') return err::kInvalidData;  // not one of ours
  text.pop_back();
  folder = text;
  return err::kSuccess;
}

err::Win32Error ProfileList::Remove(const std::string& sidText) const {
  if (::unlink(EntryPath(sidText).c_str()) == 0) return err::kSuccess;
  if (errno == ENOENT) return err::kFileNotFound;
  return Win32ErrorFromErrno(errno);
}

}  // namespace tw::posix
