// tarnwick-default-profile: builds the default profile template from its text description with
// the hive engine.
//
//   tarnwick-default-profile DESCRIPTION OUTPUT
//
// The template is built in "OUTPUT.new" and then put in place of OUTPUT, so an interrupted
// build never leaves half a template under the real name. Folders and hives are made in the
// order the description lists them; the attributes are stored last (in the user.DOSATTRIB
// extended attribute, through the file-system port). Hives are saved in the format of Windows
// 10 (ORSaveHive version 10.0). Exit values: 0 success, 1 failure (the reason on standard error),
// 2 a usage error.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "base/text_encoding.h"
#include "hive/offreg_api.h"
#include "platform/file_system.h"
#include "platform/posix/native_path.h"
#include "profile_description.h"

namespace tw::tools {
namespace {

namespace fs = std::filesystem;

int Fail(const std::string& message) {
  std::fprintf(stderr, "tarnwick-default-profile: %s\n", message.c_str());
  return 1;
}

fs::path Below(const fs::path& folder, const std::wstring& relative) {
  std::wstring native = relative;
  for (wchar_t& c : native) {
    if (c == L'\\') c = L'/';
  }
  return folder / WideToUtf8(native);
}

// Closes a hive handle when it goes.
class HiveHandle {
 public:
  HiveHandle() = default;
  HiveHandle(const HiveHandle&) = delete;
  HiveHandle& operator=(const HiveHandle&) = delete;
  ~HiveHandle() {
    if (handle_ != nullptr) hive::tw_ORCloseHive(handle_);
  }
  hive::ORHKEY* out() { return &handle_; }
  hive::ORHKEY get() const { return handle_; }

 private:
  hive::ORHKEY handle_ = nullptr;
};

std::string WriteHive(const HiveSpec& spec, const fs::path& file) {
  HiveHandle hive;
  if (const hive::DWORD error = hive::tw_ORCreateHive(hive.out()); error != 0)
    return "cannot create a hive (error " + std::to_string(error) + ")";
  for (const KeySpec& keySpec : spec.keys) {
    hive::ORHKEY key = nullptr;
    hive::DWORD disposition = 0;
    hive::DWORD error = hive::tw_ORCreateKey(hive.get(), keySpec.path.c_str(), nullptr, 0, nullptr,
                                             &key, &disposition);
    if (error != 0)
      return "cannot create key " + WideToUtf8(keySpec.path) + " (error " + std::to_string(error) +
             ")";
    for (const ValueSpec& value : keySpec.values) {
      error = hive::tw_ORSetValue(key, value.name.c_str(), value.type, value.data.data(),
                                  static_cast<hive::DWORD>(value.data.size()));
      if (error != 0) break;
    }
    hive::tw_ORCloseKey(key);
    if (error != 0)
      return "cannot set a value of " + WideToUtf8(keySpec.path) + " (error " +
             std::to_string(error) + ")";
  }
  const std::wstring path = Utf8ToWide(file.string());
  if (const hive::DWORD error = hive::tw_ORSaveHive(hive.get(), path.c_str(), 10, 0); error != 0)
    return "cannot save " + file.string() + " (error " + std::to_string(error) + ")";
  return std::string();
}

std::string Build(const ProfileDescription& description, const fs::path& folder) {
  std::error_code failure;
  for (const std::wstring& relative : description.folders) {
    fs::create_directories(Below(folder, relative), failure);
    if (failure) return "cannot create " + Below(folder, relative).string();
  }
  for (const HiveSpec& spec : description.hives) {
    const fs::path file = Below(folder, spec.path);
    fs::create_directories(file.parent_path(), failure);
    if (failure) return "cannot create " + file.parent_path().string();
    if (const std::string problem = WriteHive(spec, file); !problem.empty()) return problem;
  }
  for (const AttributeSpec& spec : description.attributes) {
    const fs::path target = Below(folder, spec.path);
    if (!fs::exists(target))
      return "attributes for a path the description does not make: " + target.string();
    const std::wstring windowsPath = posix::ToWindowsPath(fs::absolute(target).string());
    if (const err::Win32Error error =
            ProcessFileSystem().SetAttributes(windowsPath, spec.attributes);
        error != err::kSuccess)
      return "cannot set the attributes of " + target.string() + " (error " +
             std::to_string(error) + ")";
  }
  return std::string();
}

int Run(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: tarnwick-default-profile DESCRIPTION OUTPUT\n");
    return 2;
  }
  std::ifstream input(argv[1], std::ios::binary);
  if (!input) return Fail(std::string("cannot read ") + argv[1]);
  const std::string text((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
  ProfileDescription description;
  std::string error;
  if (!ParseProfileDescription(text, description, error)) return Fail(argv[1] + (": " + error));

  const fs::path output = fs::absolute(argv[2]);
  fs::path building = output;
  building += ".new";
  std::error_code failure;
  fs::remove_all(building, failure);
  fs::create_directories(building, failure);
  if (failure) return Fail("cannot create " + building.string());
  if (const std::string problem = Build(description, building); !problem.empty()) {
    fs::remove_all(building, failure);
    return Fail(problem);
  }
  fs::remove_all(output, failure);
  fs::rename(building, output, failure);
  if (failure) return Fail("cannot put the template in place at " + output.string());
  return 0;
}

}  // namespace
}  // namespace tw::tools

int main(int argc, char** argv) { return tw::tools::Run(argc, argv); }
