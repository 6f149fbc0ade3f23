// A fresh, empty folder under the system's temporary folder, removed with everything in it when
// the object goes. Its name is all lower case, so that paths that the command line lower-cases
// still name it.
#pragma once

#include <filesystem>
#include <string>

namespace tw::testing {

class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // path / name, as a native narrow string.
  std::string Child(const std::string& name) const { return (path_ / name).string(); }
  // Writes `content` to path / name (creating folders on the way) and returns the full path.
  std::string WriteFile(const std::string& name, const std::string& content) const;

 private:
  std::filesystem::path path_;
};

// The whole content of a file, or an empty string when it cannot be read.
std::string ReadWholeFile(const std::filesystem::path& file);

// Replaces the bytes `from`, which must occur exactly once in the file, by `to` (of the same
// length), as a damaged or crafted file would hold them; false when that is not possible.
bool ReplaceUniqueBytes(const std::filesystem::path& file, const std::string& from,
                        const std::string& to);

}  // namespace tw::testing
