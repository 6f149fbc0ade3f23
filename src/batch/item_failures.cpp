#include "batch/item_failures.h"

#include <array>
#include <utility>

namespace tw::batch {
namespace {

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

}  // namespace

ItemKind ItemFailureKind(std::string_view message) {
  // The messages the copy steps log for one item before they go on with the next.
  static constexpr std::array<std::pair<std::string_view, ItemKind>, 8> kStarts = {{
      {"Failed copying file (", ItemKind::kFile},
      {"Failed migrating file (", ItemKind::kFile},
      {"Failed copying folder (", ItemKind::kFolder},
      {"Failed migrating folder (", ItemKind::kFolder},
      {"Failed getting security descriptor (0x", ItemKind::kFile},
      {"Failed to copy registry key to target hive (", ItemKind::kRegistry},
      {"Failed to copy registry value to target hive (", ItemKind::kRegistry},
      {"Failed to open source registry key (", ItemKind::kRegistry},
  }};
  // A key of the copied-key table that the source simply does not have is no loss.
  if (StartsWith(message, "Failed to open source registry key (0x80070002)")) {
    return ItemKind::kNone;
  }
  for (const auto& [start, kind] : kStarts) {
    if (StartsWith(message, start)) {
      // "Failed getting security descriptor (0x%08X)" without a path is the hive's, not an item's.
      if (kind == ItemKind::kFile && start.back() == 'x' &&
          message.find("): ") == std::string_view::npos) {
        return ItemKind::kNone;
      }
      return kind;
    }
  }
  return ItemKind::kNone;
}

ItemFailures CountItemFailures(const std::vector<LogEntry>& entries) {
  ItemFailures failures;
  for (const LogEntry& entry : entries) {
    switch (ItemFailureKind(entry.message)) {
      case ItemKind::kFile:
        ++failures.files;
        break;
      case ItemKind::kFolder:
        ++failures.folders;
        break;
      case ItemKind::kRegistry:
        ++failures.registry;
        break;
      case ItemKind::kNone:
        continue;
    }
    failures.messages.push_back(entry.message);
  }
  return failures;
}

}  // namespace tw::batch
