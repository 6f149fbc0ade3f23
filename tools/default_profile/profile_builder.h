// Turns a profile description (profile_description.h) into a folder on disk: folders, plain
// files and hives (written with the hive engine in the format of Windows 10), then the
// attributes. Shared by the default profile template and the sample share generator.
#pragma once

#include <filesystem>
#include <string>

#include "profile_description.h"

namespace tw::tools {

// `relative` ("\"-separated, as in a description) below `folder`, as a Linux path.
std::filesystem::path PathBelow(const std::filesystem::path& folder, const std::wstring& relative);

// Builds `description` into the existing `folder`, in this order: folders, files, hives (every
// missing folder on the way made), attributes (stored through the file-system port). Returns ""
// on success, else what went wrong; what was made until then stays.
std::string BuildProfile(const ProfileDescription& description,
                         const std::filesystem::path& folder);

}  // namespace tw::tools
