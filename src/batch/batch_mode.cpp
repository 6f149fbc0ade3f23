#include "batch/batch_mode.h"

#include <array>
#include <cctype>

namespace tw::batch {
namespace {

struct ModeInfo {
  BatchMode mode;
  std::string_view name;
  std::string_view option;
  std::string_view sourceSuffix;
  std::string_view targetSuffix;
};

constexpr std::array<ModeInfo, 4> kModes = {{
    {BatchMode::kV1ToV2, "v1tov2", "", "", "V2"},
    {BatchMode::kV2ToV5, "v2tov5", "/V2TOV5", "V2", "V5"},
    {BatchMode::kV2ToV6, "v2tov6", "/V2TOV6", "V2", "V6"},
    {BatchMode::kV5ToV6, "v5tov6", "/V5TOV6", "V5", "V6"},
}};

const ModeInfo& Info(BatchMode mode) {
  for (const ModeInfo& info : kModes) {
    if (info.mode == mode) return info;
  }
  return kModes[0];
}

char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

}  // namespace

std::optional<BatchMode> ParseBatchMode(std::string_view word) {
  for (const ModeInfo& info : kModes) {
    if (EqualNoCase(word, info.name)) return info.mode;
  }
  return std::nullopt;
}

std::string ModeName(BatchMode mode) { return std::string(Info(mode).name); }
std::string SourceSuffix(BatchMode mode) { return std::string(Info(mode).sourceSuffix); }
std::string TargetSuffix(BatchMode mode) { return std::string(Info(mode).targetSuffix); }

std::string TargetPathFor(std::string_view source, BatchMode mode, std::string_view targetRoot) {
  while (source.size() > 1 && source.back() == '\\') source.remove_suffix(1);
  const std::size_t separator = source.find_last_of('\\');
  std::string_view name = separator == std::string_view::npos ? source : source.substr(separator + 1);
  const std::string_view parent =
      separator == std::string_view::npos ? std::string_view() : source.substr(0, separator);
  if (name.size() >= 3) {
    const std::string_view suffix = name.substr(name.size() - 3);
    if (EqualNoCase(suffix, ".V2") || EqualNoCase(suffix, ".V5") || EqualNoCase(suffix, ".V6")) {
      name.remove_suffix(3);
    }
  }
  std::string folder = targetRoot.empty() ? std::string(parent) : std::string(targetRoot);
  if (!folder.empty() && folder.back() != '\\') folder += '\\';
  return folder + std::string(name) + "." + TargetSuffix(mode);
}

std::vector<std::string> TarnwickArguments(std::string_view source, BatchMode mode,
                                           std::string_view targetRoot) {
  std::vector<std::string> arguments = {"/s:" + std::string(source)};
  if (!targetRoot.empty()) arguments.push_back("/t:" + std::string(targetRoot));
  if (!Info(mode).option.empty()) arguments.emplace_back(Info(mode).option);
  return arguments;
}

std::string CommandText(std::string_view program, const std::vector<std::string>& arguments) {
  auto quoted = [](std::string_view text) {
    if (!text.empty() && text.find_first_of(" \t") == std::string_view::npos) {
      return std::string(text);
    }
    return "\"" + std::string(text) + "\"";
  };
  std::string command = quoted(program);
  for (const std::string& argument : arguments) command += " " + quoted(argument);
  return command;
}

}  // namespace tw::batch
