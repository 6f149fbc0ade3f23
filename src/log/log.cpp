#include "log/log.h"

#include "log/debug_log.h"

namespace tw {
namespace {

// The writer a ScopedLogRedirect installed, or null for the process log.
LogWriter* g_redirectedLog = nullptr;

}  // namespace

LogWriter& ActiveLog() { return g_redirectedLog != nullptr ? *g_redirectedLog : g_log; }

ScopedLogRedirect::ScopedLogRedirect(LogWriter& writer) : previous_(g_redirectedLog) {
  g_redirectedLog = &writer;
}

ScopedLogRedirect::~ScopedLogRedirect() { g_redirectedLog = previous_; }

}  // namespace tw
