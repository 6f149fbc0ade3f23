#include "log/log_diagnostics.h"

#include "log/log.h"

namespace tw {
namespace {

class LogSink final : public DiagnosticSink {
 public:
  void WriteMessage(std::wstring_view message) override { LogText(message); }
};

}  // namespace

DiagnosticSink& LogDiagnosticSink() {
  static LogSink sink;
  return sink;
}

}  // namespace tw
