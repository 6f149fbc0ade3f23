#include "fakes/tree_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <vector>

namespace tw::testing {
namespace {

namespace fs = std::filesystem;

std::string Hex(const std::string& bytes) {
  std::string text;
  char digits[3];
  for (const unsigned char byte : bytes) {
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

std::string ExtendedAttributes(const std::string& path) {
  const ssize_t listSize = llistxattr(path.c_str(), nullptr, 0);
  if (listSize <= 0) return {};
  std::string list(static_cast<std::size_t>(listSize), '\0');
  const ssize_t got = llistxattr(path.c_str(), list.data(), list.size());
  if (got <= 0) return "<unlistable>";
  list.resize(static_cast<std::size_t>(got));
  std::vector<std::string> names;
  for (std::size_t at = 0; at < list.size();) {
    const std::size_t end = list.find('\0', at);
    names.push_back(list.substr(at, end - at));
    at = end == std::string::npos ? list.size() : end + 1;
  }
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string& name : names) {
    const ssize_t size = lgetxattr(path.c_str(), name.c_str(), nullptr, 0);
    std::string value(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    if (size > 0) {
      const ssize_t read = lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
      value.resize(read > 0 ? static_cast<std::size_t>(read) : 0);
    }
    text += name + "=" + Hex(value) + ";";
  }
  return text;
}

// Read without touching the access time (O_NOATIME; the owner or root may use it), so that a
// capture changes nothing a later capture or test looks at.
std::string FileBytes(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NOATIME | O_CLOEXEC);
  if (fd < 0) fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return "<unreadable>";
  std::string bytes;
  char buffer[65536];
  for (ssize_t got; (got = read(fd, buffer, sizeof buffer)) > 0;) {
    bytes.append(buffer, static_cast<std::size_t>(got));
  }
  close(fd);
  return bytes;
}

EntryState StateOf(const std::string& path) {
  EntryState state;
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) {
    state.meta = "<missing>";
    return state;
  }
  std::ostringstream meta;
  meta << "mode=" << std::oct << info.st_mode << std::dec << " uid=" << info.st_uid
       << " gid=" << info.st_gid << " size=" << info.st_size
       << " mtime=" << info.st_mtim.tv_sec * 1000000000LL + info.st_mtim.tv_nsec;
  state.meta = meta.str();
  if (S_ISREG(info.st_mode)) {
    state.content = FileBytes(path);
  } else if (S_ISLNK(info.st_mode)) {
    std::error_code error;
    state.content = "-> " + fs::read_symlink(path, error).string();
  }
  state.xattrs = ExtendedAttributes(path);
  return state;
}

}  // namespace

TreeState CaptureTreeState(const fs::path& folder) {
  TreeState tree;
  tree["."] = StateOf(folder.string());
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder, fs::directory_options::none, error), end;
       !error && it != end; it.increment(error)) {
    tree[fs::relative(it->path(), folder).generic_string()] = StateOf(it->path().string());
  }
  if (error) tree["<walk error>"].meta = error.message();
  return tree;
}

std::string DescribeTreeChanges(const TreeState& before, const TreeState& after) {
  std::string text;
  for (const auto& [path, state] : before) {
    const auto found = after.find(path);
    if (found == after.end()) {
      text += "vanished: " + path + "\n";
    } else if (!(found->second == state)) {
      text += "changed: " + path;
      if (found->second.meta != state.meta)
        text += " [" + state.meta + "] -> [" + found->second.meta + "]";
      if (found->second.content != state.content) text += " (content)";
      if (found->second.xattrs != state.xattrs) text += " (extended attributes)";
      text += "\n";
    }
  }
  for (const auto& [path, state] : after) {
    if (before.find(path) == before.end()) text += "appeared: " + path + "\n";
  }
  return text;
}

}  // namespace tw::testing
