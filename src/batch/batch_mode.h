// The migrations a batch runs, and the tool's command line for one profile as an administrator
// would type it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "survey/survey_row.h"

namespace tw::batch {

// The modes are the survey's (its names are the batch's --mode words).
using BatchMode = survey::Mode;

// "v1tov2", ... as UTF-8.
std::string ModeWord(BatchMode mode);

// The target folder a run makes for `source` (a UNC path): the source's name with a version
// suffix (".V2", ".V5", ".V6", any case) removed and the mode's appended, beside the source or
// inside `targetRoot` when that is not empty.
std::string TargetPathFor(std::string_view source, BatchMode mode, std::string_view targetRoot);

// The arguments of one run: "/s:<source>", "/t:<target root>" when one is given, and the mode's
// option ("/V2TOV5", "/V2TOV6", "/V5TOV6"; none for V1 to V2).
std::vector<std::string> TarnwickArguments(std::string_view source, BatchMode mode,
                                           std::string_view targetRoot);

// A command as it would be typed: the program and each argument, quoted with double quotes when
// it holds a blank or is empty.
std::string CommandText(std::string_view program, const std::vector<std::string>& arguments);

}  // namespace tw::batch
