// Read-ahead port: asks the system to bring a profile's files into its cache before the run that
// copies them reads them. tarnwick-batch uses it for the profiles next in line, so that the disk
// reads many files at once instead of one file after another as each run asks for it. It reads
// and changes nothing that anybody sees: its only effect is on the system's cache.
#pragma once

#include <functional>
#include <string_view>

namespace tw {

class ReadAheadPort {
 public:
  ReadAheadPort() = default;
  ReadAheadPort(const ReadAheadPort&) = delete;
  ReadAheadPort& operator=(const ReadAheadPort&) = delete;
  ReadAheadPort(ReadAheadPort&&) = delete;
  ReadAheadPort& operator=(ReadAheadPort&&) = delete;
  virtual ~ReadAheadPort() = default;

  // Walks the tree of the folder at path (Windows-form, as for the file-system port) and asks for
  // the content and the stored security of each regular file, and the folders' own, to be read
  // ahead. Never follows a link, never leaves the tree, opens nothing but regular files and
  // folders, goes no deeper than a fixed limit, and returns early once stop() gives true.
  // Failures are not reported: the run meets whatever is wrong. Safe to call from any thread.
  virtual void ReadTreeAhead(std::wstring_view path, const std::function<bool()>& stop) = 0;
};

}  // namespace tw
