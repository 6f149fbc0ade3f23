#include <string>
#include <vector>

#include "base/format.h"
#include "base/shell_path.h"
#include "profile/case_twins.h"
#include "survey/survey_parts.h"

namespace tw::survey {
namespace {

struct Walker {
  FileSystem& files;
  const std::wstring& root;
  const std::wstring& classesFolder;
  SurveyRow& row;
  WalkFacts& facts;

  void Walk(const std::wstring& folder, const std::wstring& target) {
    const bool keepFiles = EqualsNoCase(folder, root) || EqualsNoCase(folder, classesFolder);
    // The copy searches "<folder>\*": a folder whose pattern does not fit is not copied.
    std::wstring pattern;
    if (!PathCombineW(pattern, folder, L"*")) {
      row.longPaths.push_back(folder);
      return;
    }
    std::vector<FindEntry> entries;
    const err::Win32Error error = files.ListFolder(folder, entries);
    if (error != err::kSuccess) {
      if (error != err::kFileNotFound) {
        row.unreadable.push_back(Format(L"%s (error %u)", folder, error));
      }
      return;
    }
    CaseTwins names;
    for (const FindEntry& entry : entries) {
      if ((entry.attributes & file_attr::kReparsePoint) != 0) {
        // Never followed, never copied.
        if (keepFiles) facts.links[folder + L"\\" + entry.name] = true;
        continue;
      }
      std::wstring item;
      std::wstring targetItem;
      if (!PathCombineW(item, folder, entry.name) ||
          (!target.empty() && !PathCombineW(targetItem, target, entry.name))) {
        row.longPaths.push_back(folder + L"\\" + entry.name);
        continue;
      }
      if (!names.Add(entry.name)) {
        row.caseCollisions.push_back(item);
        continue;
      }
      if ((entry.attributes & file_attr::kDirectory) != 0) {
        Walk(item, targetItem);
        continue;
      }
      ++row.files;
      row.bytes += entry.size;
      if (keepFiles) facts.files[item] = entry.size;
    }
  }
};

}  // namespace

void WalkProfileTree(FileSystem& files, const std::wstring& folder,
                     const std::wstring& targetFolder, const std::wstring& classesFolder,
                     SurveyRow& row, WalkFacts& facts) {
  Walker walker{files, folder, classesFolder, row, facts};
  walker.Walk(folder, targetFolder);
}

}  // namespace tw::survey
