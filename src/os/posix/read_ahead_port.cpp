// The read-ahead port on Linux: the tree's files read ahead through the page cache
// (os/posix/files/tree_read_ahead.h), the path mapped through the share map as for every port.
#include <string>

#include "os/native_ports.h"
#include "os/posix/files/tree_read_ahead.h"
#include "os/posix/paths/native_path.h"
#include "ports/read_ahead.h"

namespace tw {
namespace {

class PosixReadAheadPort final : public ReadAheadPort {
 public:
  void ReadTreeAhead(std::wstring_view path, const std::function<bool()>& stop) override {
    std::string native;
    err::Win32Error error = err::kSuccess;
    if (!posix::ToNativePath(path, native, error)) return;
    static_cast<void>(posix::ReadTreeAhead(native, stop));
  }
};

}  // namespace

ReadAheadPort& NativeReadAheadPort() {
  static PosixReadAheadPort port;
  return port;
}

}  // namespace tw
