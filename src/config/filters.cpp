#include "config/filters.h"

#include <string>

#include "base/hresult.h"
#include "base/hresult_error.h"
#include "base/wide_string.h"
#include "log/log.h"

namespace tw {

namespace {

// The one filter algorithm. `compared(row)` gives the string the item is compared with,
// `bitOf(row)` the row's bit (0 ends the table), `reportInvalid(item)` logs an unknown item.
template <class Row, class Compared, class BitOf, class ReportInvalid>
std::uint32_t ParseFilter(std::span<const Row> table, std::wstring_view text, Compared compared,
                          BitOf bitOf, ReportInvalid reportInvalid) {
  std::uint32_t result = 0;
  std::size_t position = 0;
  for (;;) {
    position = text.find_first_not_of(L',', position);
    if (position == std::wstring_view::npos) break;
    std::size_t end = text.find(L',', position);
    if (end == std::wstring_view::npos) end = text.size();
    const std::wstring item = TrimWhitespace(text.substr(position, end - position));
    position = end;

    bool matched = false;
    for (const Row& row : table) {
      if (bitOf(row) == 0) break;
      if (CompareNoCaseCrt(item, compared(row)) == 0) {
        result |= bitOf(row);
        matched = true;
        break;
      }
    }
    if (!matched) reportInvalid(item);
  }
  return result;
}

}  // namespace

std::uint32_t ParseFolderFilterOver(std::span<const SpecialFolderRow> table,
                                    std::wstring_view text) {
  return ParseFilter(
      table, text,
      [](const SpecialFolderRow& row) -> const std::wstring& {
        if (row.name.empty()) ThrowHResult(hr::kFail);
        return row.sourceLocation;
      },
      [](const SpecialFolderRow& row) { return row.bit; },
      [](const std::wstring& item) {
        Log(L"Invalid folder filter found in the configuration file: %s", item);
      });
}

std::uint32_t ParseRegistryFilterOver(std::span<const RegistryKeyRow> table,
                                      std::wstring_view text) {
  return ParseFilter(
      table, text, [](const RegistryKeyRow& row) { return row.name; },
      [](const RegistryKeyRow& row) { return row.flag; },
      [](const std::wstring& item) {
        Log(L"Invalid registry filter found in the configuration file: %s", item);
      });
}

std::uint32_t ParseFolderFilter(const MigrationSettings& /*settings*/, std::wstring_view text) {
  return ParseFolderFilterOver(std::span<const SpecialFolderRow>(g_specialFolderTable), text);
}

std::uint32_t ParseRegistryFilter(const MigrationSettings& /*settings*/, std::wstring_view text) {
  return ParseRegistryFilterOver(std::span<const RegistryKeyRow>(RegistryKeyTable), text);
}

}  // namespace tw
