// Where an adapter reports what went wrong beneath a port call when the port's result cannot
// carry it (a stored descriptor that is read as none, say). The adapters format the line as the
// log would (FormatMessageText); the executable decides where it goes (the process log).
#pragma once

#include <string_view>

#include "base/format.h"

namespace tw {

// Takes finished lines; failures are swallowed.
class DiagnosticSink {
 public:
  DiagnosticSink() = default;
  DiagnosticSink(const DiagnosticSink&) = delete;
  DiagnosticSink& operator=(const DiagnosticSink&) = delete;
  virtual ~DiagnosticSink() = default;

  virtual void WriteMessage(std::wstring_view message) = 0;
};

// Writes one finished line to the process's sink (ProcessPorts::diagnostics).
void ReportDiagnosticText(std::wstring_view finished);

// The line of format and its arguments, formatted exactly as Log() formats its lines.
template <class... Args>
void ReportDiagnostic(FormatString<Args...> format, const Args&... args) {
  ReportDiagnosticText(FormatMessageText(format, args...));
}

}  // namespace tw
