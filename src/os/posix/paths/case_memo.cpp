#include "os/posix/paths/case_memo.h"

#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <mutex>

#include "os/posix/paths/beneath_path.h"

namespace tw::posix {
namespace {

// More than any run needs; past it the memo starts over.
constexpr std::size_t kMaxRemembered = 4096;

struct Memo {
  std::mutex mutex;
  std::map<std::string, std::string, std::less<>> found;  // asked prefix -> found prefix
};

Memo& ProcessMemo() {
  static Memo* memo = new Memo();  // never destroyed: usable until the process ends
  return *memo;
}

bool IsPlainPath(const std::string& path) {
  if (path.find("//") != std::string::npos) return false;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    const std::string_view component(path.data() + start, end - start);
    if (component == "." || component == "..") return false;
    start = end + 1;
  }
  return true;
}

}  // namespace

void RememberCaseResolution(const std::string& asked, const std::string& found) {
  if (asked == found || !IsPlainPath(asked)) return;
  Memo& memo = ProcessMemo();
  const std::lock_guard<std::mutex> hold(memo.mutex);
  if (memo.found.size() >= kMaxRemembered) memo.found.clear();
  memo.found[asked] = found;
}

std::string ApplyCaseResolution(const std::string& native) {
  std::string asked;
  std::string found;
  {
    Memo& memo = ProcessMemo();
    const std::lock_guard<std::mutex> hold(memo.mutex);
    if (memo.found.empty()) return {};
    std::size_t end = native.size();  // the prefix native[0, end), longest first
    for (;;) {
      const auto at = memo.found.find(std::string_view(native.data(), end));
      if (at != memo.found.end()) {
        asked = at->first;
        found = at->second;
        break;
      }
      const std::size_t slash = end == 0 ? std::string::npos : native.rfind('/', end - 1);
      if (slash == std::string::npos || slash == 0) break;
      end = slash;
    }
  }
  if (found.empty()) return {};
  struct stat info {};
  if (LstatBeneath(asked, info) == 0 || errno != ENOENT) return {};  // now there as written
  return found + native.substr(asked.size());
}

void ForgetCaseResolutions() {
  Memo& memo = ProcessMemo();
  const std::lock_guard<std::mutex> hold(memo.mutex);
  memo.found.clear();
}

}  // namespace tw::posix
