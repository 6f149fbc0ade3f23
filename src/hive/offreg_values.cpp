// OREnumValue, ORGetValue, ORSetValue, ORDeleteValue.
#include <algorithm>
#include <cstring>

#include "hive/offreg_api.h"
#include "hive/offreg_state.h"

namespace tw::hive {

using detail::Engine;

using detail::Locked;
using detail::View;

namespace {

constexpr DWORD kRegSz = 1;
constexpr DWORD kRegExpandSz = 2;
constexpr DWORD kRegMultiSz = 7;
constexpr std::size_t kMaxValueNameLength = 16383;

// Bytes ORGetValue appends to string data that lacks its terminator(s).
std::size_t MissingTerminatorBytes(const Value& value) {
  const std::size_t needed = value.type == kRegMultiSz ? 2 : 1;
  if (value.type != kRegSz && value.type != kRegExpandSz && value.type != kRegMultiSz) return 0;
  const std::vector<std::uint8_t>& data = value.data;
  const std::size_t units = data.size() / 2;
  std::size_t zeros = 0;
  while (zeros < needed && zeros < units) {
    const std::size_t at = (units - 1 - zeros) * 2;
    if (data[at] != 0 || data[at + 1] != 0) break;
    ++zeros;
  }
  // An odd byte count is padded to whole characters first.
  return (data.size() % 2) + 2 * (needed - zeros);
}

}  // namespace

extern "C" {

DWORD TW_OR_CALL tw_OREnumValue(ORHKEY Handle, DWORD dwIndex, PWSTR lpValueName,
                                PDWORD lpcValueName, PDWORD lpType, PBYTE lpData, PDWORD lpcbData) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    if (lpValueName == nullptr || lpcValueName == nullptr) return err::kInvalidParameter;
    if (lpData != nullptr && lpcbData == nullptr) return err::kInvalidParameter;
    const Key& key = *entry->key;
    if (dwIndex >= key.values.size()) return err::kNoMoreItems;
    const Value& value = key.values[dwIndex];
    const DWORD named = detail::CopyName(value.name, lpValueName, lpcValueName);
    if (named != err::kSuccess) return named;
    if (lpType != nullptr) *lpType = value.type;
    if (lpcbData == nullptr) return err::kSuccess;
    const auto size = static_cast<DWORD>(value.data.size());
    if (lpData != nullptr && *lpcbData < size) {
      *lpcbData = size;
      return err::kMoreData;
    }
    if (lpData != nullptr && size != 0) std::memcpy(lpData, value.data.data(), size);
    *lpcbData = size;
    return err::kSuccess;
  });
}

DWORD TW_OR_CALL tw_ORGetValue(ORHKEY Handle, PCWSTR lpSubKey, PCWSTR lpValue, PDWORD pdwType,
                               void* pvData, PDWORD pcbData) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    if (pvData != nullptr && pcbData == nullptr) return err::kInvalidParameter;
    Key* key = nullptr;
    const DWORD resolved = detail::ResolvePath(entry->key, View(lpSubKey), &key);
    if (resolved != err::kSuccess) return resolved;
    const Value* value = FindValue(*key, View(lpValue));
    if (value == nullptr) return err::kFileNotFound;
    if (pdwType != nullptr) *pdwType = value->type;
    if (pcbData == nullptr) return err::kSuccess;
    const std::size_t stored = value->data.size();
    const auto size = static_cast<DWORD>(stored + MissingTerminatorBytes(*value));
    if (pvData == nullptr) {
      *pcbData = size;
      return err::kSuccess;
    }
    if (*pcbData < size) {
      *pcbData = size;
      return err::kMoreData;
    }
    auto* out = static_cast<std::uint8_t*>(pvData);
    if (stored != 0) std::memcpy(out, value->data.data(), stored);
    std::fill(out + stored, out + size, std::uint8_t{0});
    *pcbData = size;
    return err::kSuccess;
  });
}

DWORD TW_OR_CALL tw_ORSetValue(ORHKEY Handle, PCWSTR lpValueName, DWORD dwType,
                               const std::uint8_t* lpData, DWORD cbData) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    if (lpData == nullptr && cbData != 0) return err::kInvalidParameter;
    const std::wstring_view name = View(lpValueName);
    if (name.size() > kMaxValueNameLength) return err::kInvalidParameter;
    Key& key = *entry->key;
    Value* value = FindValue(key, name);
    if (value == nullptr) {
      key.values.push_back(Value{ValueName(name), 0, {}});
      value = &key.values.back();
    }
    value->type = dwType;
    value->data.assign(lpData, lpData + cbData);
    key.lastWriteTime = CurrentFileTime();
    return err::kSuccess;
  });
}

DWORD TW_OR_CALL tw_ORDeleteValue(ORHKEY Handle, PCWSTR lpValueName) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    Key& key = *entry->key;
    const Value* value = FindValue(key, View(lpValueName));
    if (value == nullptr) return err::kFileNotFound;
    key.values.erase(key.values.begin() + (value - key.values.data()));
    key.lastWriteTime = CurrentFileTime();
    return err::kSuccess;
  });
}

}  // extern "C"

}  // namespace tw::hive
