// COM runtime port: CoInitialize / CoUninitialize where there is COM (Windows); nothing on POSIX,
// where the XML document adapter needs no runtime.
#pragma once

namespace tw {

class ComRuntime {
 public:
  ComRuntime() = default;
  ComRuntime(const ComRuntime&) = delete;
  ComRuntime& operator=(const ComRuntime&) = delete;
  virtual ~ComRuntime() = default;

  virtual void Initialize() = 0;    // CoInitialize(NULL); its result is not checked
  virtual void Uninitialize() = 0;  // CoUninitialize()
};

ComRuntime& ProcessComRuntime();

}  // namespace tw
