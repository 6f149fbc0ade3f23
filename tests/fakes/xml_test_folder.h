// A temporary folder for the configuration tests, removed with everything in it at the end, and
// files written into it byte for byte.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "base/text_encoding.h"
#include "platform/posix/native_path.h"

namespace tw::testing {

class XmlTestFolder {
 public:
  XmlTestFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tw-config-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~XmlTestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  XmlTestFolder(const XmlTestFolder&) = delete;
  XmlTestFolder& operator=(const XmlTestFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // Writes bytes to name in the folder; returns its POSIX path.
  std::string Write(std::string_view name, std::string_view bytes) const {
    const std::filesystem::path file = path_ / name;
    std::ofstream out(file, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return file.string();
  }

  // The Windows form ("Z:\tmp\...") of a POSIX path, as the core sees it.
  static std::wstring WindowsForm(const std::string& posixPath) {
    return posix::ToWindowsPath(posixPath);
  }
  // The POSIX path as wide text, as it stands.
  static std::wstring Wide(const std::string& posixPath) { return Utf8ToWide(posixPath); }

 private:
  std::filesystem::path path_;
};

}  // namespace tw::testing
