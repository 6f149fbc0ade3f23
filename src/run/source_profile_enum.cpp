#include "run/source_profile_enum.h"

#include <algorithm>

#include "base/format.h"
#include "base/shell_path.h"
#include "base/wide_string.h"

namespace tw {
namespace {

constexpr std::wstring_view kHiveFileName = L"ntuser.dat";
constexpr std::wstring_view kV2Extension = L".V2";
constexpr std::size_t kWildcardTestLength = 4;

// PathFileExistsW of folder\ntuser.dat, the path built in a MAX_PATH buffer (a path that does
// not fit is empty and exists nowhere).
bool HoldsHiveFile(FileSystem& files, std::wstring_view folder) {
  std::wstring hivePath;
  if (!PathCombineW(hivePath, folder, kHiveFileName)) return false;
  return files.PathExists(hivePath);
}

}  // namespace

CSourceProfileEnum::CSourceProfileEnum(FileSystem& files, std::wstring_view sourcePath)
    : files_(files), sourcePath_(sourcePath), findHandle_(files, kInvalidSearchHandle) {}

std::wstring CSourceProfileEnum::ParentOfSource() const {
  std::wstring parent = sourcePath_;
  PathRemoveFileSpecW(parent);
  return parent;
}

bool CSourceProfileEnum::IsProfileFolder(const std::wstring& parent, const FindEntry& entry) {
  if ((entry.attributes & file_attr::kDirectory) == 0) return false;
  if (entry.name == L"." || entry.name == L"..") return false;
  if ((entry.attributes & file_attr::kReparsePoint) != 0) return false;

  std::wstring folder;
  PathCombineW(folder, parent, entry.name);
  if (!HoldsHiveFile(files_, folder)) return false;
  const std::wstring_view extension = std::wstring_view(folder).substr(PathFindExtensionW(folder));
  // Only ".V2" counts here, in every mode, deliberately.
  return CompareNoCaseCrt(extension, kV2Extension) != 0;
}

bool CSourceProfileEnum::FindFirstProfile(std::wstring& profilePath, const wchar_t* suffix) {
  const std::wstring pattern = suffix != nullptr ? Format(L"*.%s", suffix) : std::wstring(L"*");

  // The deliberate four-character test.
  const std::size_t tailLength = std::min(sourcePath_.size(), kWildcardTestLength);
  const std::wstring_view tail =
      std::wstring_view(sourcePath_).substr(sourcePath_.size() - tailLength);
  const bool wildcard = CompareNoCaseCrt(tail, pattern) == 0;

  const std::wstring parent = wildcard ? ParentOfSource() : sourcePath_;
  if (HoldsHiveFile(files_, parent)) {
    profilePath = parent;  // a parent that is itself a profile is returned alone
    return true;
  }
  profilePath.clear();
  if (!wildcard) return false;

  findHandle_.reset();
  SearchHandle search = kInvalidSearchHandle;
  FindEntry entry;
  if (files_.FindFirstEntry(sourcePath_, search, entry) != err::kSuccess) return false;
  findHandle_ = UniqueSearchHandle(files_, search);
  for (;;) {
    if (IsProfileFolder(parent, entry)) {
      profilePath = parent;
      PathAppendW(profilePath, entry.name);
      return true;
    }
    if (files_.FindNextEntry(findHandle_.get(), entry) != err::kSuccess) break;
  }
  findHandle_.reset();
  return false;
}

bool CSourceProfileEnum::FindNextProfile(std::wstring& profilePath) {
  profilePath.clear();
  if (!findHandle_.is_valid()) return false;

  const std::wstring parent = ParentOfSource();
  FindEntry entry;
  while (files_.FindNextEntry(findHandle_.get(), entry) == err::kSuccess) {
    if (IsProfileFolder(parent, entry)) {
      profilePath = parent;
      PathAddBackslashW(profilePath);
      profilePath += entry.name;
      return true;
    }
  }
  findHandle_.reset();
  return false;
}

}  // namespace tw
