#include "os/posix/install_layout.h"

#include <unistd.h>

#include <array>
#include <cstdlib>

#include "os/posix/paths/native_path.h"
#include "os/posix/profiles/user_profile.h"

namespace tw::posix {
namespace {

// "a/b/" -> "a/b"; "/" stays.
std::string WithoutTrailingSlash(std::string folder) {
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  return folder;
}

std::string Join(const std::string& folder, const std::string& name) {
  if (name.empty()) return folder;
  if (name.front() == '/') return name;  // an absolute GNUInstallDirs folder
  return folder == "/" ? "/" + name : folder + "/" + name;
}

}  // namespace

InstallDirs BuildInstallDirs() {
#if defined(TARNWICK_INSTALL_PREFIX) && defined(TARNWICK_INSTALL_SBINDIR) && \
    defined(TARNWICK_INSTALL_BINDIR) && defined(TARNWICK_INSTALL_DATADIR)
  return {TARNWICK_INSTALL_PREFIX, TARNWICK_INSTALL_SBINDIR, TARNWICK_INSTALL_BINDIR,
          TARNWICK_INSTALL_DATADIR};
#else
  return {"/usr/local", "sbin", "bin", "share"};
#endif
}

std::string InstalledDataFolder(const std::string& programFolder, const InstallDirs& dirs) {
  const std::string folder = WithoutTrailingSlash(programFolder);
  const std::string prefix = WithoutTrailingSlash(dirs.prefix);
  // The build's own prefix first, then the package's /usr with the same relative names.
  const std::array<std::string, 2> prefixes = {prefix, "/usr"};
  for (const std::string& candidate : prefixes) {
    if (candidate.empty()) continue;
    const InstallDirs at{candidate, dirs.sbinDir, dirs.binDir, dirs.dataDir};
    if (folder == WithoutTrailingSlash(Join(candidate, at.sbinDir)) ||
        folder == WithoutTrailingSlash(Join(candidate, at.binDir))) {
      return Join(WithoutTrailingSlash(Join(candidate, at.dataDir)), "tarnwick");
    }
  }
  return std::string();
}

std::string LogFolder(const std::string& executableFolder, const std::string& logDirVariable,
                      const InstallDirs& dirs) {
  if (!logDirVariable.empty()) return WithoutTrailingSlash(logDirVariable);
  if (!executableFolder.empty() && !InstalledDataFolder(executableFolder, dirs).empty()) {
    return kInstalledLogFolder;
  }
  return executableFolder;
}

std::string DefaultTemplateFolder(const std::string& executableFolder, const InstallDirs& dirs) {
  if (executableFolder.empty()) return std::string();
  const std::string data = InstalledDataFolder(executableFolder, dirs);
  if (!data.empty()) return data + "/" + kTemplateFolderName;
  return Join(WithoutTrailingSlash(executableFolder), kTemplateFolderName);
}

std::wstring LogModulePath(const std::wstring& module) {
  const std::string executableFolder = ExecutableFolder();
  const char* variable = std::getenv(kLogDirVariable);
  const std::string folder =
      LogFolder(executableFolder, variable == nullptr ? std::string() : std::string(variable),
                BuildInstallDirs());
  if (module.empty() || folder.empty() || folder == executableFolder) return module;
  const std::size_t separator = module.find_last_of(L'\\');
  const std::wstring name = separator == std::wstring::npos ? module : module.substr(separator + 1);
  std::wstring path = ToWindowsPath(folder);
  if (path.empty() || path.back() != L'\\') path += L'\\';
  return path + name;
}

std::string ExecutableFolder() {
  std::string buffer(4096, '\0');
  const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (length <= 0 || static_cast<std::size_t>(length) >= buffer.size()) return std::string();
  buffer.resize(static_cast<std::size_t>(length));
  const std::size_t slash = buffer.rfind('/');
  if (slash == std::string::npos) return std::string();
  return slash == 0 ? std::string("/") : buffer.substr(0, slash);
}

}  // namespace tw::posix
