#include "os/posix/samba/tdb_file.h"

#include <fcntl.h>
#include <sys/types.h>
#include <tdb.h>

#include <cstdlib>

namespace tw::posix::samba {

std::unique_ptr<TdbFile> TdbFile::Open(const std::string& path) {
  // O_NONBLOCK: a FIFO in the file's place must not stall the open (it then fails as "not a
  // database"); on a regular file it changes nothing. Read-only opens never lock. TDB_NOMMAP:
  // read with pread rather than through a mapping, which a writer shrinking the file would turn
  // into a fault.
  tdb_context* tdb = ::tdb_open(path.c_str(), 0, TDB_NOMMAP, O_RDONLY | O_NONBLOCK | O_NOCTTY, 0);
  if (tdb == nullptr) return nullptr;
  if (::tdb_check(tdb, nullptr, nullptr) != 0) {
    ::tdb_close(tdb);
    return nullptr;
  }
  return std::unique_ptr<TdbFile>(new TdbFile(tdb));
}

TdbFile::~TdbFile() { ::tdb_close(tdb_); }

std::optional<std::vector<std::uint8_t>> TdbFile::Fetch(std::string_view key) const {
  TDB_DATA wanted;
  wanted.dptr = reinterpret_cast<unsigned char*>(const_cast<char*>(key.data()));
  wanted.dsize = key.size();
  const TDB_DATA found = ::tdb_fetch(tdb_, wanted);
  if (found.dptr == nullptr) return std::nullopt;
  std::vector<std::uint8_t> value(found.dptr, found.dptr + found.dsize);
  std::free(found.dptr);
  return value;
}

}  // namespace tw::posix::samba
