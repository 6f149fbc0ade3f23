// Output of a message by the run flow: the finished text goes to the log as one line, then to the
// console with "\r\n" appended. The text is written as it stands both times: a "%" in a path is
// never interpreted again.
#pragma once

#include <string_view>

#include "platform/console.h"

namespace tw {

void Report(Console& console, std::wstring_view finished);

}  // namespace tw
