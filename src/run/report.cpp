#include "run/report.h"

#include <string>

#include "log/log.h"

namespace tw {

void ReportFinished(Console& console, std::wstring_view finished) {
  LogText(finished);
  std::wstring line(finished);
  line += L"\r\n";
  console.Write(line);
}

}  // namespace tw
