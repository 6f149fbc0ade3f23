// The engine's only file access: read a whole hive file, and write a new one. Paths are the
// platform's own (a Windows path on Windows; on Linux the path as the tool maps it), given as
// wide strings; FileSystemPath converts them (UTF-8 on Linux, bytes that are not UTF-8 included).
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/win32_error.h"

namespace tw::hive {

// The std::filesystem path of an engine path. Where the system's paths are bytes (Linux) the
// conversion is the tool's own (WideToUtf8), so that a name whose bytes are not UTF-8, carried in
// the wide text as stand-ins (base/text_encoding.h), reaches the system unchanged:
// std::filesystem's own conversion refuses such text with an exception.
std::filesystem::path FileSystemPath(std::wstring_view path);

// The engine path of a std::filesystem path: the reverse of FileSystemPath.
std::wstring EnginePath(const std::filesystem::path& path);

// The bytes of a file, in a buffer that is not cleared before the file is read into it.
struct FileBytes {
  std::unique_ptr<std::uint8_t[]> data;
  std::size_t size = 0;

  std::span<const std::uint8_t> View() const { return {data.get(), size}; }
};

// Reads the whole file. ERROR_FILE_NOT_FOUND / ERROR_PATH_NOT_FOUND when it is missing,
// ERROR_ACCESS_DENIED when it cannot be opened or is a directory, ERROR_BADDB when it is larger
// than 4 GB (it is not read then).
[[nodiscard]] err::Win32Error ReadWholeFile(const std::wstring& path, FileBytes* bytes);
[[nodiscard]] err::Win32Error ReadWholeFile(const std::wstring& path,
                                            std::vector<std::uint8_t>* bytes);

// Reads the file beside `path` whose name is path's file name followed by `suffix` (".LOG1"),
// as ReadWholeFile does. The name as written is tried first; when nothing is there, the folder is
// listed and a name that matches without regard to case (the Windows rule) is taken (of several,
// the first in code-unit order). ERROR_FILE_NOT_FOUND when there is none, or when what is there
// is a symbolic link or anything but a regular file (never followed).
[[nodiscard]] err::Win32Error ReadSiblingFile(const std::wstring& path, std::wstring_view suffix,
                                              std::vector<std::uint8_t>* bytes);

// Writes a new file. ERROR_ALREADY_EXISTS when something exists under the path (it is never
// overwritten). The bytes go to a temporary file beside the target ("<name>.<n>.tmp"), which is
// then renamed, so that a crash never leaves a half-written file under the target name; the
// existence check is repeated just before the rename. Other failures: ERROR_PATH_NOT_FOUND (no
// such folder), ERROR_ACCESS_DENIED (the folder cannot be written), ERROR_DISK_FULL, and
// ERROR_CANTWRITE for any other write failure.
[[nodiscard]] err::Win32Error WriteNewFile(const std::wstring& path,
                                           const std::vector<std::uint8_t>& bytes);

}  // namespace tw::hive
