// The text description of the default profile template (default_profile.txt explains the
// format): folders, plain files, hive files with their keys and values, and attributes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tw::tools {

struct ValueSpec {
  std::wstring name;  // "" for the default value
  std::uint32_t type = 0;
  std::vector<std::uint8_t> data;  // as stored: UTF-16LE text with its terminator(s), LE numbers
};

struct KeySpec {
  std::wstring path;  // below the hive root, "\"-separated
  std::vector<ValueSpec> values;
};

struct HiveSpec {
  std::wstring path;  // relative to the profile folder
  std::vector<KeySpec> keys;
};

struct FileSpec {
  std::wstring path;  // relative to the profile folder
  std::string text;   // the content, UTF-8, as written in the description
};

struct AttributeSpec {
  std::wstring path;  // relative to the profile folder
  std::uint32_t attributes = 0;
};

struct ProfileDescription {
  std::vector<std::wstring> folders;
  std::vector<FileSpec> files;
  std::vector<HiveSpec> hives;
  std::vector<AttributeSpec> attributes;
};

// Reads the UTF-8 description. On a malformed line returns false with error set to
// "line N: <what is wrong>" and description partly filled.
bool ParseProfileDescription(std::string_view text, ProfileDescription& description,
                             std::string& error);

}  // namespace tw::tools
