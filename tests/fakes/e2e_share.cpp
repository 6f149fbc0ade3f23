#include "fakes/e2e_share.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <regex>

#include "base/text_encoding.h"
#include "descriptor/security_descriptor.h"
#include "descriptor/sid.h"
#include "fakes/reg_text_hive.h"
#include "os/posix/security/descriptor_store.h"

namespace tw::testing {

namespace fs = std::filesystem;

namespace {

// The prefix the log puts before every message: "[mm/dd/yy hh:mm:ss][0x<thread>] ".
const std::regex& LogPrefix() {
  static const std::regex prefix(R"(\[\d\d/\d\d/\d\d \d\d:\d\d:\d\d\]\[0x[0-9a-f]{8}\] )");
  return prefix;
}

std::optional<security::SecurityDescriptor> DescriptorOf(const fs::path& path) {
  std::optional<security::SecurityDescriptor> sd;
  EXPECT_EQ(posix::LoadStoredDescriptor(path.string(), sd), err::kSuccess) << path;
  if (sd) return sd;
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) {
    ADD_FAILURE() << "cannot stat " << path;
    return std::nullopt;
  }
  return posix::DerivedDescriptor(path.string(), info);
}

}  // namespace

std::string RegString(const std::string& name, const std::string& data) {
  auto escape = [](const std::string& text) {
    std::string out;
    for (const char c : text) {
      if (c == '\\' || c == '"') out.push_back('\\');
      out.push_back(c);
    }
    return out;
  };
  return "\"" + escape(name) + "\"=\"" + escape(data) + "\"\n";
}

std::string ExportedString(const std::string& name, const std::string& data) {
  static const char kDigits[] = "0123456789abcdef";
  std::string line = "\"" + name + "\"=hex(1):";
  for (const char c : data + std::string(1, '\0')) {
    const auto byte = static_cast<unsigned char>(c);
    line.push_back(kDigits[byte >> 4]);
    line.push_back(kDigits[byte & 0xF]);
    line += ",00,";
  }
  line.pop_back();
  return line;
}

std::string RegSection(const std::string& key, const std::string& values) {
  std::string text;
  for (std::size_t at = key.find('\\'); at != std::string::npos; at = key.find('\\', at + 1)) {
    text += "[\\" + key.substr(0, at) + "]\n\n";
  }
  return text + "[\\" + key + "]\n" + values + "\n";
}

void WriteText(const fs::path& file, const std::string& content) {
  fs::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << content;
}

std::string WriteFileAt(const fs::path& file, const std::string& content) {
  WriteText(file, content);
  return file.string();
}

std::vector<std::string> Tree(const fs::path& folder) {
  std::vector<std::string> entries;
  std::error_code error;
  for (auto it = fs::recursive_directory_iterator(folder, error);
       it != fs::recursive_directory_iterator(); it.increment(error)) {
    std::string name = fs::relative(it->path(), folder).generic_string();
    if (it->is_symlink()) {
      name += "@";
    } else if (it->is_directory()) {
      name += "/";
    }
    entries.push_back(name);
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

E2eShare::E2eShare(const E2eTools& tools) : tools_(tools) {
  fs::create_directories(share());
  fs::create_directories(targets());
  fs::create_directories(root() / "bin");
  exe_ = root() / "bin" / "tarnwick";
  // A hard link where the file system allows it: the program finds itself (and puts its log)
  // here all the same, without a copy of the whole binary per share.
  std::error_code linkFailed;
  fs::create_hard_link(tools_.binary, exe_, linkFailed);
  if (linkFailed) fs::copy_file(tools_.binary, exe_);
  WriteText(root() / "shares.conf", std::string(kShare) + " = " + share().string() + "\n" +
                                        kTargets + " = " + targets().string() + "\n");
}

void E2eShare::MakeHive(const fs::path& file, const std::string& reg) const {
  ASSERT_EQ(WriteHiveFromRegText(fs::path(tools_.testData) / "hives" / "windows-2003-minimal.hiv",
                                 reg, file),
            "");
}

void E2eShare::MakeHiveWithHivex(const fs::path& file, const std::string& reg) const {
  fs::create_directories(file.parent_path());
  fs::copy_file(fs::path(tools_.testData) / "hives" / "windows-2003-minimal.hiv", file,
                fs::copy_options::overwrite_existing);
  fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
  const fs::path regFile = root() / "merge.reg";
  WriteText(regFile, "Windows Registry Editor Version 5.00\n\n" + reg);
  const ProcessResult merged = RunProcess(
      "/usr/bin/hivexregedit", {"--merge", "--prefix", "", file.string(), regFile.string()});
  ASSERT_EQ(merged.exitStatus, 0) << merged.errors;
  fs::remove(regFile);
}

fs::path E2eShare::AddProfile(const std::string& name, const std::string& reg,
                              const ProfileFiles& files, HiveMaker maker) const {
  const fs::path folder = share() / name;
  if (maker == HiveMaker::kHivex) {
    MakeHiveWithHivex(folder / "ntuser.dat", reg);
  } else {
    MakeHive(folder / "ntuser.dat", reg);
  }
  for (const auto& [relative, content] : files) WriteText(folder / relative, content);
  return folder;
}

fs::path E2eShare::AddV1Profile(const std::string& name) const {
  const std::string reg =
      RegSection(
          kUserShellFolders,
          RegString("Desktop", "%USERPROFILE%\\Desktop") +
              RegString("Personal", "%USERPROFILE%\\My Documents") +
              RegString("Local AppData", "%USERPROFILE%\\Local Settings\\Application Data")) +
      RegSection("Software\\Tw", RegString("Profile", name)) +
      RegSection("Console", RegString("TwConsole", name)) +
      RegSection("Environment", RegString("TwEnvironment", name));
  return AddProfile(name, reg,
                    {{"Desktop/desk.txt", "desk " + name},
                     {"My Documents/doc.txt", "doc " + name},
                     {"Local Settings/Application Data/local.txt", "local " + name},
                     {"Other/Deep/other.txt", "other " + name},
                     {"top.txt", "top " + name}});
}

void E2eShare::SetOwner(const fs::path& path, const std::wstring& sid) const {
  std::optional<security::SecurityDescriptor> sd = DescriptorOf(path);
  ASSERT_TRUE(sd.has_value());
  security::Sid owner;
  ASSERT_EQ(security::Sid::FromString(sid, &owner), err::kSuccess);
  sd->owner = owner;
  ASSERT_EQ(posix::StoreDescriptor(path.string(), *sd), err::kSuccess) << path;
}

std::wstring E2eShare::OwnerOf(const fs::path& path) const {
  const std::optional<security::SecurityDescriptor> sd = DescriptorOf(path);
  if (!sd || !sd->owner) return L"";
  return sd->owner->ToString();
}

std::map<std::string, std::string> E2eShare::RunEnvironment() const {
  return {{"TARNWICK_SHARES", (root() / "shares.conf").string()},
          {"TARNWICK_PROFILE_ROOT", localProfiles().string()},
          {"TARNWICK_DEFAULT_PROFILE", tools_.defaultProfile}};
}

ProcessResult E2eShare::Run(const std::vector<std::string>& args) const {
  return RunProcess(exe_.string(), args, RunEnvironment());
}

ProcessResult E2eShare::RunIn(const fs::path& folder, const std::vector<std::string>& args) const {
  std::vector<std::string> command = {"-C", folder.string(), exe_.string()};
  command.insert(command.end(), args.begin(), args.end());
  return RunProcess("/usr/bin/env", command, RunEnvironment());
}

std::string E2eShare::RawLog() const { return ReadWholeFile(root() / "bin" / "tarnwick.log"); }

std::vector<std::string> E2eShare::LogMessages() const {
  const std::string log = RawLog();
  std::vector<std::string> messages;
  std::size_t textStart = std::string::npos;
  for (auto it = std::sregex_iterator(log.begin(), log.end(), LogPrefix());
       it != std::sregex_iterator(); ++it) {
    const std::size_t at = static_cast<std::size_t>(it->position());
    if (textStart != std::string::npos) messages.push_back(log.substr(textStart, at - textStart));
    textStart = at + static_cast<std::size_t>(it->length());
  }
  if (textStart != std::string::npos) messages.push_back(log.substr(textStart));
  for (std::string& message : messages) {
    if (message.size() >= 2 && message.compare(message.size() - 2, 2, "\r\n") == 0) {
      message.resize(message.size() - 2);
    }
  }
  return messages;
}

int E2eShare::CountLogged(const std::string& message) const {
  const std::vector<std::string> messages = LogMessages();
  return static_cast<int>(std::count(messages.begin(), messages.end(), message));
}

int E2eShare::CountLoggedContaining(const std::string& part) const {
  int count = 0;
  for (const std::string& message : LogMessages()) {
    if (message.find(part) != std::string::npos) ++count;
  }
  return count;
}

void E2eShare::ClearLog() const { fs::remove(root() / "bin" / "tarnwick.log"); }

std::string E2eShare::ExportHive(const fs::path& file, const std::string& key) {
  const ProcessResult exported =
      RunProcess("/usr/bin/hivexregedit", {"--export", "--prefix", "", file.string(), key});
  EXPECT_EQ(exported.exitStatus, 0) << exported.errors;
  return exported.output;
}

}  // namespace tw::testing
