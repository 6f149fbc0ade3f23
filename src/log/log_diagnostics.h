// The log as the sink of the adapters' diagnostics (ports/diagnostics.h): each line goes to
// Log()'s writer as it stands, so it reads exactly as if the adapter had logged it.
#pragma once

#include "ports/diagnostics.h"

namespace tw {

// One process-wide sink; valid for the life of the process.
DiagnosticSink& LogDiagnosticSink();

}  // namespace tw
