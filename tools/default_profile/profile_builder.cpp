#include "profile_builder.h"

#include <fstream>
#include <system_error>

#include "base/text_encoding.h"
#include "hive/offreg_api.h"
#include "os/posix/paths/native_path.h"
#include "ports/file_system.h"

namespace tw::tools {
namespace {

namespace fs = std::filesystem;

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

std::string WriteHive(const HiveSpec& description, const fs::path& file) {
  HiveHandle hive;
  if (const hive::DWORD error = hive::tw_ORCreateHive(hive.out()); error != 0)
    return "cannot create a hive (error " + std::to_string(error) + ")";
  for (const KeySpec& keySpec : description.keys) {
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

}  // namespace

fs::path PathBelow(const fs::path& folder, const std::wstring& relative) {
  std::wstring native = relative;
  for (wchar_t& c : native) {
    if (c == L'\\') c = L'/';
  }
  return folder / WideToUtf8(native);
}

std::string BuildProfile(const ProfileDescription& description, const fs::path& folder) {
  std::error_code failure;
  for (const std::wstring& relative : description.folders) {
    fs::create_directories(PathBelow(folder, relative), failure);
    if (failure) return "cannot create " + PathBelow(folder, relative).string();
  }
  for (const FileSpec& fileEntry : description.files) {
    const fs::path file = PathBelow(folder, fileEntry.path);
    fs::create_directories(file.parent_path(), failure);
    if (failure) return "cannot create " + file.parent_path().string();
    std::ofstream output(file, std::ios::binary | std::ios::trunc);
    output << fileEntry.text;
    output.close();
    if (!output) return "cannot write " + file.string();
  }
  for (const HiveSpec& hiveEntry : description.hives) {
    const fs::path file = PathBelow(folder, hiveEntry.path);
    fs::create_directories(file.parent_path(), failure);
    if (failure) return "cannot create " + file.parent_path().string();
    if (const std::string problem = WriteHive(hiveEntry, file); !problem.empty()) return problem;
  }
  for (const AttributeSpec& attributeEntry : description.attributes) {
    const fs::path target = PathBelow(folder, attributeEntry.path);
    if (!fs::exists(target))
      return "attributes for a path the description does not make: " + target.string();
    const std::wstring windowsPath = posix::ToWindowsPath(fs::absolute(target).string());
    if (const err::Win32Error error =
            ProcessFileSystem().SetAttributes(windowsPath, attributeEntry.attributes);
        error != err::kSuccess)
      return "cannot set the attributes of " + target.string() + " (error " +
             std::to_string(error) + ")";
  }
  return std::string();
}

}  // namespace tw::tools
