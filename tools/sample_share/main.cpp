// tarnwick-sample-share: builds a sample share of roaming profiles to try tarnwick on.
//
//   tarnwick-sample-share [--layouts FOLDER] DIR
//
// Makes DIR (which must not exist or be empty) holding:
//   DIR/shares.conf  the share map for TARNWICK_SHARES: the share of share.txt
//   ("\\sample\profiles")
//                    mapped to DIR/share;
//   DIR/share        the share: the profiles of share.txt, each built from its layout description
//                    (the format of tools/default_profile/default_profile.txt) with the hive
//                    engine, every object of a profile owned by the profile's SID (stored through
//                    the security port), and the other items of share.txt;
//   DIR/outside      a folder outside the share that the share's symbolic link points to.
// The descriptions are read from FOLDER, by default this program's source folder (the build
// records it). Exit values: 0 success, 1 failure (the reason on standard error), 2 a usage error.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "base/text_encoding.h"
#include "descriptor/sid.h"
#include "log/log_diagnostics.h"
#include "os/native_ports.h"
#include "os/posix/paths/native_path.h"
#include "ports/process_ports.h"
#include "ports/security_port.h"
#include "profile_builder.h"
#include "profile_description.h"
#include "share_description.h"

#ifndef TARNWICK_SAMPLE_SHARE_LAYOUTS
#define TARNWICK_SAMPLE_SHARE_LAYOUTS "."
#endif

// The tool runs with the system's adapters, as tarnwick does; what they cannot return in a result
// goes to the log.
const tw::ProcessPorts& tw::InstalledProcessPorts() {
  static const ProcessPorts ports = NativeProcessPorts(LogDiagnosticSink());
  return ports;
}

namespace tw::tools {
namespace {

namespace fs = std::filesystem;

int Fail(const std::string& message) {
  std::fprintf(stderr, "tarnwick-sample-share: %s\n", message.c_str());
  return 1;
}

bool ReadFile(const fs::path& file, std::string& text) {
  std::ifstream input(file, std::ios::binary);
  if (!input) return false;
  text.assign(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
  return true;
}

bool WriteFile(const fs::path& file, const std::string& text) {
  std::ofstream output(file, std::ios::binary | std::ios::trunc);
  output << text;
  output.close();
  return static_cast<bool>(output);
}

std::string SetOwner(const fs::path& object, const security::Sid& owner) {
  SecurityWrite write;
  write.writeOwner = true;
  write.owner = owner;
  const std::wstring path = posix::ToWindowsPath(object.string());
  if (const err::Win32Error error = ProcessSecurityPort().WriteNamedSecurity(path, write);
      error != err::kSuccess)
    return "cannot set the owner of " + object.string() + " (error " + std::to_string(error) + ")";
  return std::string();
}

// Gives the profile folder and everything in it the owner `sid`.
std::string OwnTree(const fs::path& folder, const std::string& sid) {
  security::Sid owner;
  if (security::Sid::FromString(Utf8ToWide(sid), &owner) != err::kSuccess)
    return "not a SID: " + sid;
  if (std::string problem = SetOwner(folder, owner); !problem.empty()) return problem;
  std::error_code failure;
  for (fs::recursive_directory_iterator it(folder, failure), end; !failure && it != end;
       it.increment(failure)) {
    if (std::string problem = SetOwner(it->path(), owner); !problem.empty()) return problem;
  }
  return failure ? "cannot list " + folder.string() : std::string();
}

std::string BuildSampleProfile(const fs::path& layouts, const ShareDescription& share,
                               const SampleProfile& profile, const fs::path& shareFolder) {
  std::string layout;
  if (!ReadFile(layouts / profile.layout, layout))
    return "cannot read " + (layouts / profile.layout).string();
  ProfileDescription description;
  std::string error;
  if (!ParseProfileDescription(ExpandLayout(layout, share, profile), description, error))
    return profile.layout + " (for " + profile.folder + "): " + error;
  const fs::path folder = shareFolder / profile.folder;
  std::error_code failure;
  fs::create_directory(folder, failure);
  if (failure) return "cannot create " + folder.string();
  if (std::string problem = BuildProfile(description, folder); !problem.empty()) return problem;
  return OwnTree(folder, profile.owner);
}

std::string BuildItem(const ShareItem& item, const fs::path& dir, const fs::path& shareFolder) {
  std::error_code failure;
  const fs::path path = shareFolder / item.name;
  switch (item.kind) {
    case ShareItem::Kind::kFolder:
      fs::create_directory(path, failure);
      if (failure || !WriteFile(path / "readme.txt", "a folder without a user hive\n"))
        return "cannot create " + path.string();
      return std::string();
    case ShareItem::Kind::kFile:
      if (!WriteFile(path, item.text + "\n")) return "cannot write " + path.string();
      return std::string();
    case ShareItem::Kind::kLink: {
      const fs::path target = dir / item.text;
      fs::create_directories(target, failure);
      if (failure || !WriteFile(target / "outside.txt", "outside the share: never copied\n"))
        return "cannot create " + target.string();
      fs::create_directory_symlink(target, path, failure);
      if (failure) return "cannot create the link " + path.string();
      return std::string();
    }
  }
  return std::string();
}

int Run(int argc, char** argv) {
  fs::path layouts = TARNWICK_SAMPLE_SHARE_LAYOUTS;
  int next = 1;
  if (argc == 4 && std::string(argv[1]) == "--layouts") {
    layouts = argv[2];
    next = 3;
  }
  if (next != argc - 1 || argv[next][0] == '\0') {
    std::fprintf(stderr, "usage: tarnwick-sample-share [--layouts FOLDER] DIR\n");
    return 2;
  }
  const fs::path dir = fs::absolute(argv[next]).lexically_normal();
  std::error_code failure;
  if (fs::exists(fs::symlink_status(dir, failure)) &&
      !(fs::is_directory(dir, failure) && fs::is_empty(dir, failure)))
    return Fail(dir.string() + " exists and is not empty; give a new or empty folder");

  std::string text;
  if (!ReadFile(layouts / "share.txt", text))
    return Fail("cannot read " + (layouts / "share.txt").string());
  ShareDescription share;
  std::string error;
  if (!ParseShareDescription(text, share, error))
    return Fail((layouts / "share.txt").string() + ": " + error);

  const fs::path shareFolder = dir / "share";
  fs::create_directories(shareFolder, failure);
  if (failure) return Fail("cannot create " + shareFolder.string());
  for (const SampleProfile& profile : share.profiles) {
    if (std::string problem = BuildSampleProfile(layouts, share, profile, shareFolder);
        !problem.empty())
      return Fail(problem);
  }
  for (const ShareItem& item : share.items) {
    if (std::string problem = BuildItem(item, dir, shareFolder); !problem.empty())
      return Fail(problem);
  }
  const fs::path map = dir / "shares.conf";
  if (!WriteFile(map, share.unc + " = " + shareFolder.string() + "\n"))
    return Fail("cannot write " + map.string());

  std::printf("Sample share %s built in %s\n", share.unc.c_str(), shareFolder.string().c_str());
  for (const SampleProfile& profile : share.profiles)
    std::printf("  profile %-10s owner %s (%s)\n", profile.folder.c_str(), profile.owner.c_str(),
                profile.layout.c_str());
  std::printf("Share map: %s\n", map.string().c_str());
  return 0;
}

}  // namespace
}  // namespace tw::tools

int main(int argc, char** argv) { return tw::tools::Run(argc, argv); }
