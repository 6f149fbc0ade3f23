// COM for the MSXML document: apartment-threaded, as CoInitialize(NULL) makes it.
#include <objbase.h>

#include "platform/com_runtime.h"
#include "platform/win32/windows_headers.h"

namespace tw {
namespace {

class Win32ComRuntime final : public ComRuntime {
 public:
  void Initialize() override { (void)::CoInitialize(nullptr); }  // the result is not checked
  void Uninitialize() override { ::CoUninitialize(); }
};

}  // namespace

ComRuntime& ProcessComRuntime() {
  static Win32ComRuntime runtime;
  return runtime;
}

}  // namespace tw
