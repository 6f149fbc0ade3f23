#include "batch/batch_mode.h"

#include <cctype>

#include "base/text_encoding.h"

namespace tw::batch {
namespace {

char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

// The tool's option for a mode; none for V1 to V2, its default.
std::string ModeOption(BatchMode mode) {
  if (mode == BatchMode::kV1ToV2) return std::string();
  std::string option = "/" + ModeWord(mode);
  for (char& c : option) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return option;
}

}  // namespace

std::string ModeWord(BatchMode mode) { return WideToUtf8(survey::ModeName(mode)); }

std::string TargetPathFor(std::string_view source, BatchMode mode, std::string_view targetRoot) {
  while (source.size() > 1 && source.back() == '\\') source.remove_suffix(1);
  const std::size_t separator = source.find_last_of('\\');
  std::string_view name =
      separator == std::string_view::npos ? source : source.substr(separator + 1);
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
  return folder + std::string(name) + ".V" + std::to_string(survey::TargetVersionOf(mode));
}

std::vector<std::string> TarnwickArguments(std::string_view source, BatchMode mode,
                                           std::string_view targetRoot) {
  std::vector<std::string> arguments = {"/s:" + std::string(source)};
  if (!targetRoot.empty()) arguments.push_back("/t:" + std::string(targetRoot));
  const std::string option = ModeOption(mode);
  if (!option.empty()) arguments.push_back(option);
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
