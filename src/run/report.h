// Output of a message by the run flow: the text is formatted once, goes to the log as one line,
// then to the console with "\r\n" appended. The text is written as it stands both times: a "%" in
// a path is never interpreted again. A CR or LF inside an argument is escaped on both ways
// (FormatMessageText), so no path or name can forge a line; the format's own "\r\n" is kept.
#pragma once

#include <string_view>

#include "base/format.h"
#include "ports/console.h"

namespace tw {

// Writes a message that FormatMessageText finished to the log and the console.
void ReportFinished(Console& console, std::wstring_view finished);

template <class... Args>
void Report(Console& console, FormatString<Args...> format, const Args&... args) {
  ReportFinished(console, FormatMessageText(format, args...));
}

}  // namespace tw
