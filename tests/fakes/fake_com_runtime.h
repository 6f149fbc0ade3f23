// A COM runtime that counts its calls and checks that they pair up.
#pragma once

#include "ports/com_runtime.h"

namespace tw::testing {

class FakeComRuntime : public ComRuntime {
 public:
  void Initialize() override { ++initializeCalls; }
  void Uninitialize() override { ++uninitializeCalls; }
  int initializeCalls = 0;
  int uninitializeCalls = 0;
};

}  // namespace tw::testing
