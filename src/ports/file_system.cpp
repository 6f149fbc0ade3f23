#include "ports/file_system.h"

#include <string>

namespace tw {
namespace {

// The attributes a quick listing reports, from an entry's full ones.
std::uint32_t ListedAttributes(std::uint32_t attributes) {
  if ((attributes & file_attr::kReparsePoint) != 0) return file_attr::kReparsePoint;
  if ((attributes & file_attr::kDirectory) != 0) return file_attr::kDirectory;
  return file_attr::kNormal;
}

}  // namespace

[[nodiscard]] err::Win32Error FileSystem::ListFolder(std::wstring_view path,
                                                     std::vector<FindEntry>& entries) {
  entries.clear();
  std::wstring pattern(path);
  if (!pattern.empty() && pattern.back() != L'\\') pattern += L'\\';
  pattern += L'*';
  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  const err::Win32Error first = FindFirstEntry(pattern, search, entry);
  if (first == err::kFileNotFound) return err::kSuccess;  // a drive root without entries
  if (first != err::kSuccess) return first;
  const UniqueSearchHandle searching(*this, search);
  err::Win32Error next = err::kSuccess;
  for (; next == err::kSuccess; next = FindNextEntry(search, entry)) {
    if (entry.name == L"." || entry.name == L"..") continue;
    entry.attributes = ListedAttributes(entry.attributes);
    entry.times = FileTimes{};
    if (entry.attributes != file_attr::kNormal) entry.size = 0;
    entries.push_back(std::move(entry));
  }
  return next == err::kNoMoreFiles ? err::kSuccess : next;
}

}  // namespace tw
