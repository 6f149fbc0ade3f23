#include "hive/hive_file.h"

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <type_traits>

#include "base/text_encoding.h"
#include "base/wide_string.h"

namespace tw::hive {

namespace fs = std::filesystem;

fs::path FileSystemPath(std::wstring_view path) {
  if constexpr (std::is_same_v<fs::path::value_type, char>) {
    return fs::path(WideToUtf8(path));
  } else {
    return fs::path(path);
  }
}

std::wstring EnginePath(const fs::path& path) {
  if constexpr (std::is_same_v<fs::path::value_type, char>) {
    return Utf8ToWide(path.string());  // the bytes as they are
  } else {
    return path.wstring();
  }
}

namespace {

constexpr std::uintmax_t kMaxHiveFile = 0xFFFFFFFFull;

err::Win32Error FromErrorCode(const std::error_code& ec, err::Win32Error fallback) {
  if (ec == std::errc::no_such_file_or_directory) return err::kFileNotFound;
  if (ec == std::errc::not_a_directory) return err::kPathNotFound;
  if (ec == std::errc::permission_denied || ec == std::errc::operation_not_permitted ||
      ec == std::errc::read_only_file_system) {
    return err::kAccessDenied;
  }
  if (ec == std::errc::file_exists) return err::kAlreadyExists;
  if (ec == std::errc::no_space_on_device) return err::kDiskFull;
  return fallback;
}

// Reads the file into the buffer `place(size)` returns. The stream gets no buffer of its own:
// the file is read in one piece straight into the caller's.
template <class Place>
err::Win32Error ReadInto(const std::wstring& path, Place place) {
  const fs::path p = FileSystemPath(path);
  std::error_code ec;
  const fs::file_status status = fs::status(p, ec);
  if (ec || !fs::exists(status)) {
    // A missing folder on the way is ERROR_PATH_NOT_FOUND, a missing file ERROR_FILE_NOT_FOUND.
    std::error_code parentEc;
    if (p.has_parent_path() && !fs::is_directory(p.parent_path(), parentEc)) {
      return err::kPathNotFound;
    }
    return ec ? FromErrorCode(ec, err::kFileNotFound) : err::kFileNotFound;
  }
  if (fs::is_directory(status)) return err::kAccessDenied;
  const std::uintmax_t size = fs::file_size(p, ec);
  if (ec) return FromErrorCode(ec, err::kCantRead);
  if (size > kMaxHiveFile) return err::kBadDb;
  std::ifstream in;
  in.rdbuf()->pubsetbuf(nullptr, 0);
  in.open(p, std::ios::binary);
  if (!in) return err::kAccessDenied;
  std::uint8_t* target = place(static_cast<std::size_t>(size));
  if (size != 0 && !in.read(reinterpret_cast<char*>(target), static_cast<std::streamsize>(size))) {
    return err::kCantRead;
  }
  return err::kSuccess;
}

}  // namespace

err::Win32Error ReadWholeFile(const std::wstring& path, FileBytes* bytes) {
  return ReadInto(path, [bytes](std::size_t size) {
    bytes->data = std::make_unique_for_overwrite<std::uint8_t[]>(size);
    bytes->size = size;
    return bytes->data.get();
  });
}

err::Win32Error ReadWholeFile(const std::wstring& path, std::vector<std::uint8_t>* bytes) {
  return ReadInto(path, [bytes](std::size_t size) {
    bytes->resize(size);
    return bytes->data();
  });
}

err::Win32Error ReadSiblingFile(const std::wstring& path, std::wstring_view suffix,
                                std::vector<std::uint8_t>* bytes) {
  const fs::path hive = FileSystemPath(path);
  fs::path sibling = hive;
  sibling += std::wstring(suffix);
  std::error_code ec;
  if (!fs::exists(fs::symlink_status(sibling, ec))) {
    // Not under the name as written: look for it in the folder without regard to case (names
    // that are not UTF-8 on Linux match only themselves).
    const std::wstring wanted = EnginePath(hive.filename()) + std::wstring(suffix);
    const fs::path folder = hive.has_parent_path() ? hive.parent_path() : fs::path(L".");
    std::wstring best;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
      try {
        const std::wstring name = EnginePath(it->path().filename());
        if (EqualsNoCase(name, wanted) && (best.empty() || name < best)) best = name;
      } catch (const std::exception&) {
      }
    }
    if (best.empty()) return err::kFileNotFound;
    sibling = folder / FileSystemPath(best);
  }
  // A symbolic link (or anything but a regular file) is not followed.
  if (!fs::is_regular_file(fs::symlink_status(sibling, ec))) return err::kFileNotFound;
  return ReadWholeFile(EnginePath(sibling), bytes);
}

err::Win32Error WriteNewFile(const std::wstring& path, const std::vector<std::uint8_t>& bytes) {
  static std::atomic<unsigned> counter{0};
  const fs::path target = FileSystemPath(path);
  std::error_code ec;
  if (fs::exists(fs::symlink_status(target, ec))) return err::kAlreadyExists;
  const fs::path parent = target.has_parent_path() ? target.parent_path() : fs::path(L".");
  if (!fs::is_directory(parent, ec)) return err::kPathNotFound;
  fs::path temp = target;
  temp += L"." + std::to_wstring(++counter) + L".tmp";
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    if (!out) return err::kAccessDenied;
    errno = 0;
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.flush();
    if (!out) {
      const bool full = errno == ENOSPC;  // the failing write's reason, where the stream keeps it
      out.close();
      fs::remove(temp, ec);
      return full ? err::kDiskFull : err::kCantWrite;
    }
  }
  if (fs::exists(fs::symlink_status(target, ec))) {
    fs::remove(temp, ec);
    return err::kAlreadyExists;
  }
  fs::rename(temp, target, ec);
  if (ec) {
    std::error_code ignored;
    fs::remove(temp, ignored);
    return FromErrorCode(ec, err::kCantWrite);
  }
  return err::kSuccess;
}

}  // namespace tw::hive
