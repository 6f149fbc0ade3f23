#include "ports/com_runtime.h"

#include "os/native_ports.h"

namespace tw {
namespace {

// There is no COM on POSIX: the XML adapter needs no runtime, so both steps do nothing.
class NoComRuntime final : public ComRuntime {
 public:
  void Initialize() override {}
  void Uninitialize() override {}
};

}  // namespace

ComRuntime& NativeComRuntime() {
  static NoComRuntime runtime;
  return runtime;
}

}  // namespace tw
