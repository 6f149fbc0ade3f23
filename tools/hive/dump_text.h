// The text form of a hive that `tarnwick-hive dump` prints (the format is described in
// README.md beside this file): one block per key, depth first in the stored sub key order (by
// upper-cased name), each value on its own line in the key's value order.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "hive/hive_model.h"

namespace tw::hive_tool {

// Calls `line` with each line of the dump (without line end).
void DumpHive(const hive::Key& root, const std::function<void(const std::wstring&)>& line);

// Pieces of the format, for the tests.
std::wstring QuotedText(std::wstring_view text);
std::wstring TypeText(std::uint32_t type);
std::wstring DataText(std::uint32_t type, const std::vector<std::uint8_t>& data);
std::wstring FileTimeText(std::uint64_t fileTime);

}  // namespace tw::hive_tool
