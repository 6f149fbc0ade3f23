// Where a tarnwick installed on a Linux system keeps its log and finds its default profile.
//
// On Windows the log lies beside the executable and the system makes profiles. On Linux the same
// rule would put the log into /usr/sbin, so an installed program is told apart from a build tree
// or a copied binary by the folder it runs from:
//   - an installed program folder is <prefix>/sbin or <prefix>/bin (the names the build was
//     configured with) for the build's install prefix, or /usr/sbin, /usr/bin (where the Debian
//     package installs, whatever prefix the build had);
//   - the log folder is the folder TARNWICK_LOG_DIR names; else /var/log/tarnwick for an
//     installed program; else the executable's own folder, as on Windows;
//   - the default profile template is the folder TARNWICK_DEFAULT_PROFILE names; else
//     <prefix>/share/tarnwick/default-profile for an installed program; else the folder
//     "default-profile" beside the executable (where the build puts it).
#pragma once

#include <string>
#include <vector>

namespace tw::posix {

// What the build was configured with: the install prefix and the program and data folders below
// it (GNUInstallDirs' relative names).
struct InstallDirs {
  std::string prefix;   // "/usr/local"
  std::string sbinDir;  // "sbin"
  std::string binDir;   // "bin"
  std::string dataDir;  // "share"
};

// The build's own install folders (compiled in).
InstallDirs BuildInstallDirs();

// The data folder of the installation whose program folder is programFolder
// ("<prefix>/share/tarnwick"), or "" when programFolder is no installed program folder.
std::string InstalledDataFolder(const std::string& programFolder, const InstallDirs& dirs);

// The folder of the log (see above); logDirVariable is TARNWICK_LOG_DIR's value ("" when unset).
std::string LogFolder(const std::string& executableFolder, const std::string& logDirVariable,
                      const InstallDirs& dirs);

// The default profile template's folder when TARNWICK_DEFAULT_PROFILE is unset.
std::string DefaultTemplateFolder(const std::string& executableFolder, const InstallDirs& dirs);

// module (the Windows-form path of the running executable) with its folder replaced by the log
// folder, as the log takes its folder and name from it.
std::wstring LogModulePath(const std::wstring& module);

// The folder of the running executable (/proc/self/exe), or "" when it cannot be read.
std::string ExecutableFolder();

// The name of the variable that names the log folder.
inline constexpr char kLogDirVariable[] = "TARNWICK_LOG_DIR";
// The log folder of an installed program.
inline constexpr char kInstalledLogFolder[] = "/var/log/tarnwick";

}  // namespace tw::posix
