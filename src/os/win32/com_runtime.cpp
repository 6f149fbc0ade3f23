// COM for the MSXML document: apartment-threaded, as CoInitialize(NULL) makes it.
#include "ports/com_runtime.h"

#include <objbase.h>

#include "os/native_ports.h"
#include "os/win32/windows_headers.h"

namespace tw {
namespace {

class Win32ComRuntime final : public ComRuntime {
 public:
  void Initialize() override { (void)::CoInitialize(nullptr); }  // the result is not checked
  void Uninitialize() override { ::CoUninitialize(); }
};

}  // namespace

ComRuntime& NativeComRuntime() {
  static Win32ComRuntime runtime;
  return runtime;
}

}  // namespace tw
