// Survey port: what the share survey asks of the system beyond the file-system and security
// ports, all of it read-only: the first bytes of a file (a hive's base block), the account name
// of a SID, and the temporary profile a run left registered for a SID. Paths are Windows-form,
// as for the file-system port. Implementations are safe to call from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/win32_error.h"
#include "descriptor/sid.h"

namespace tw {

class SurveyPort {
 public:
  SurveyPort() = default;
  SurveyPort(const SurveyPort&) = delete;
  SurveyPort& operator=(const SurveyPort&) = delete;
  SurveyPort(SurveyPort&&) = delete;
  SurveyPort& operator=(SurveyPort&&) = delete;
  virtual ~SurveyPort() = default;

  // Reads at most `count` bytes from the start of the regular file at path, never following a
  // link (a link or anything but a regular file gives kFileNotFound) and without changing its
  // access time where the system allows. `bytes` holds what was read (fewer at the end of the
  // file). Errors as the file-system port's Open gives them.
  [[nodiscard]] virtual err::Win32Error ReadFileHead(std::wstring_view path, std::size_t count,
                                                     std::vector<std::uint8_t>& bytes) = 0;

  // The account name the server gives sid ("DOMAIN\user"), or empty when it cannot name it.
  virtual std::wstring AccountNameOf(const security::Sid& sid) = 0;

  // The folder (Windows-form path) of the temporary profile registered for sid by an earlier
  // run that is still there, or empty when there is none.
  virtual std::wstring TemporaryProfileOf(const security::Sid& sid) = 0;
};

}  // namespace tw
