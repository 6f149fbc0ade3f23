// What a run's log entries say about items it could not migrate: files, folders and registry
// keys or values that the tool logs one by one and then goes on without.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "batch/log_entries.h"

namespace tw::batch {

enum class ItemKind { kNone, kFile, kFolder, kRegistry };

// The kind of item a log message reports as not copied, or kNone.
ItemKind ItemFailureKind(std::string_view message);

struct ItemFailures {
  int files = 0;
  int folders = 0;
  int registry = 0;
  std::vector<std::string> messages;  // the messages counted, in log order
  int Total() const { return files + folders + registry; }
};

ItemFailures CountItemFailures(const std::vector<LogEntry>& entries);

}  // namespace tw::batch
