#include "profile/case_twins.h"

#include "base/hresult.h"
#include "base/wide_string.h"
#include "base/win32_error.h"
#include "log/log.h"

namespace tw {

bool CaseTwins::Add(std::wstring_view name) {
  std::wstring folded(name);
  for (wchar_t& c : folded) c = ToUpperWindows(c);
  return seen_.insert(std::move(folded)).second;
}

void LogCaseTwin(std::wstring_view folder, std::wstring_view name) {
  Log(L"Name differs from another only in case, not migrated (0x%08X): %s: %s",
      HResultFromWin32(err::kAlreadyExists), folder, name);
}

}  // namespace tw
