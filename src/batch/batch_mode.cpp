#include "batch/batch_mode.h"

#include <cctype>

#include "base/text_encoding.h"
#include "survey/survey_scan.h"

namespace tw::batch {
namespace {

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
  return WideToUtf8(
      survey::TargetPathOf(Utf8ToWide(source), mode, Utf8ToWide(std::string(targetRoot))));
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
