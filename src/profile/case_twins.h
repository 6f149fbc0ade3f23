// Names of one folder that Windows would take for the same name. A Linux file server can hold
// "Readme.txt" and "README.TXT" side by side; a Windows profile cannot, so the second of such
// names would land on the first one's target. The folder loops of the copy keep the first,
// refuse every later twin and log it, so that nothing is lost without a line in the log.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

namespace tw {

class CaseTwins {
 public:
  // Records name; false when a name equal to it ignoring case (Windows' upper-case rule) was
  // recorded before.
  bool Add(std::wstring_view name);

 private:
  std::unordered_set<std::wstring> seen_;
};

// Logs "Name differs from another only in case, not migrated (0x800700B7): <folder>: <name>"
// (ERROR_ALREADY_EXISTS: the target object of that name is the first twin's).
void LogCaseTwin(std::wstring_view folder, std::wstring_view name);

}  // namespace tw
