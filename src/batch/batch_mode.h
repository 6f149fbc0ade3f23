// The migrations a batch runs, and the tool's command line for one profile as an administrator
// would type it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw::batch {

enum class BatchMode { kV1ToV2, kV2ToV5, kV2ToV6, kV5ToV6 };

// "v1tov2", "v2tov5", "v2tov6", "v5tov6" (any case); nothing for another word.
std::optional<BatchMode> ParseBatchMode(std::string_view word);
std::string ModeName(BatchMode mode);  // "v1tov2", ...

// The suffix of the source folders the mode takes ("" for V1, "V2", "V5") and of the targets it
// makes ("V2", "V5", "V6").
std::string SourceSuffix(BatchMode mode);
std::string TargetSuffix(BatchMode mode);

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
