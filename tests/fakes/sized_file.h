// Helpers for tests that need real files: a scratch folder, and files of an exact size that
// cost nothing to make (the size is set by truncation, so the file is sparse).
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace tw::testing {

// A fresh folder under the system's temporary folder, removed with its content when it goes.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Creates (or replaces) file with `head` at its start and exactly `size` bytes in all; the rest
// are zero bytes.
void WriteSizedFile(const std::filesystem::path& file, std::string_view head, std::uint64_t size);

// The whole content of file ("" when it cannot be read).
std::string ReadBytes(const std::filesystem::path& file);

}  // namespace tw::testing
