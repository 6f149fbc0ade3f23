// Where the built-in profile functions put profiles and find their template, and how they name
// a profile's folder (user_profile_posix.h).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/text_encoding.h"
#include "os/posix/install_layout.h"
#include "os/posix/paths/computer_name.h"
#include "os/posix/profiles/user_profile.h"

namespace tw::posix {
namespace {

constexpr int kLastNumberedAttempt = 1001;  // ".999"

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

// The folder of the default profile root, private to the user who runs the tool.
std::string PrivateFolder() {
  const uid_t user = ::geteuid();
  if (user == 0) return "/run/tarnwick";
  std::string runtime = Variable("XDG_RUNTIME_DIR");
  if (!runtime.empty() && runtime.front() == '/') {
    if (runtime.size() > 1 && runtime.back() == '/') runtime.pop_back();
    return runtime + "/tarnwick";
  }
  std::string temporary = Variable("TMPDIR");
  if (temporary.empty()) temporary = "/tmp";
  if (temporary.size() > 1 && temporary.back() == '/') temporary.pop_back();
  return temporary + "/tarnwick-" + std::to_string(user);
}

}  // namespace

ProfileSettings ProcessProfileSettings() {
  ProfileSettings settings;
  const std::string root = Variable(kProfileRootVariable);
  if (root.empty()) {
    const std::string folder = PrivateFolder();
    settings.privateFolder = Utf8ToWide(folder);
    settings.root = Utf8ToWide(folder + "/profiles");
  } else {
    settings.root = Utf8ToWide(root);
  }
  std::string templateFolder = Variable(kDefaultProfileVariable);
  if (templateFolder.empty())
    templateFolder = DefaultTemplateFolder(ExecutableFolder(), BuildInstallDirs());
  settings.templateFolder = Utf8ToWide(templateFolder);
  settings.computerName = ComputerName();
  return settings;
}

std::wstring ProfileFolderCandidate(std::wstring_view userName, std::wstring_view computerName,
                                    int attempt) {
  if (attempt < 0 || attempt > kLastNumberedAttempt) return std::wstring();
  std::wstring name(userName);
  if (attempt == 0) return name;
  name.append(L".").append(computerName);
  if (attempt == 1) return name;
  char number[8];
  std::snprintf(number, sizeof number, ".%03d", attempt - 2);
  return name + Utf8ToWide(number);
}

}  // namespace tw::posix
