// CDebugLog: the process log file beside the executable.
#pragma once

#include "log/log.h"

namespace tw {

class CDebugLog : public LogWriter {
 public:
  CDebugLog() = default;
  void WriteMessage(std::wstring_view message) override;
};

// The process log, built first among the process-wide objects (run/process_globals.cpp).
extern CDebugLog g_log;

}  // namespace tw
