#include "fakes/temp_folder.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

namespace tw::testing {

TempFolder::TempFolder() {
  static std::atomic<unsigned> counter{0};
  const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
  for (;;) {
    std::ostringstream name;
    name << "tarnwick-test-" << std::hex << ticks << "-" << counter++;
    path_ = std::filesystem::temp_directory_path() / name.str();
    if (std::filesystem::create_directory(path_)) break;
  }
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  // Folders a test made read-only must become writable again to be removed.
  for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored))
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ignored);
  }
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::WriteFile(const std::string& name, const std::string& content) const {
  const std::filesystem::path file = path_ / name;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary);
  out << content;
  return file.string();
}

std::string ReadWholeFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool ReplaceUniqueBytes(const std::filesystem::path& file, const std::string& from,
                        const std::string& to) {
  std::string bytes = ReadWholeFile(file);
  const std::size_t at = bytes.find(from);
  if (from.empty() || from.size() != to.size() || at == std::string::npos ||
      bytes.find(from, at + 1) != std::string::npos) {
    return false;
  }
  bytes.replace(at, from.size(), to);
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

}  // namespace tw::testing
