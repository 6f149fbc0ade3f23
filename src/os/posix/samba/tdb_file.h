// One of Samba's trivial database files, opened read-only to look records up while smbd may be
// running: a read-only open takes no lock (it never waits for a writer), reads with pread (no
// mapping to fault on), and the file is checked whole when it is opened, so that a damaged file
// gives no records rather than a crash or an endless walk along a looping chain.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct tdb_context;

namespace tw::posix::samba {

class TdbFile {
 public:
  // The file, or nullptr when it is missing, unreadable, not a database or damaged.
  static std::unique_ptr<TdbFile> Open(const std::string& path);
  ~TdbFile();
  TdbFile(const TdbFile&) = delete;
  TdbFile& operator=(const TdbFile&) = delete;

  // The value stored under `key` (its bytes exactly: Samba's text keys usually end in a NUL).
  std::optional<std::vector<std::uint8_t>> Fetch(std::string_view key) const;

 private:
  explicit TdbFile(tdb_context* tdb) : tdb_(tdb) {}
  tdb_context* tdb_;
};

}  // namespace tw::posix::samba
