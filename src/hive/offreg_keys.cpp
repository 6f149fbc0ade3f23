// OROpenKey, ORCreateKey, ORCloseKey, ORDeleteKey, ORQueryInfoKey, OREnumKey.
#include <algorithm>

#include "hive/offreg_api.h"
#include "hive/offreg_state.h"
#include "hive/regf_text.h"
#include "hive/security_parts.h"

namespace tw::hive {

using detail::Engine;

using detail::Locked;
using detail::View;

namespace {

constexpr std::size_t kMaxKeyNameLength = 255;
constexpr std::size_t kMaxLevelsPerCreate = 32;

// Creates the missing keys of `parts` below `key`; the last one gets the class, descriptor and
// options. Returns the last key and whether it was created.
DWORD CreatePath(Engine& engine, Key* key, const std::vector<std::wstring_view>& parts,
                 std::wstring_view cls, const void* descriptor, DWORD options, Key** result,
                 bool* created) {
  const std::uint64_t now = CurrentFileTime();
  *created = false;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (Key* existing = FindChild(*key, parts[i])) {
      key = existing;
      continue;
    }
    const bool last = i + 1 == parts.size();
    auto child = std::make_unique<Key>();
    child->name.assign(parts[i]);
    child->lastWriteTime = now;
    if (last && descriptor != nullptr) {
      const auto* bytes = static_cast<const std::uint8_t*>(descriptor);
      child->security =
          std::make_shared<const SecurityBytes>(bytes, bytes + SelfRelativeLength(bytes));
    } else {
      // Inherited from the parent: see security_parts.h for the owner and group it gets.
      child->security =
          engine.security.Inherited(key->security ? *key->security : DefaultSecurityDescriptor());
    }
    if (last) {
      child->className.assign(cls);
      if ((options & kRegOptionCreateLink) != 0) child->flags |= kKeyFlagSymLink;
    }
    key->lastWriteTime = now;
    key = InsertChild(*key, std::move(child));
    *created = last;
  }
  *result = key;
  return err::kSuccess;
}

void ReleaseKeyHandle(Engine& engine, HandleEntry* entry, ORHKEY handle) {
  Key* key = entry->key;
  Hive* hive = entry->hive;
  engine.handles.Remove(detail::RawHandle(handle));
  if (key->openHandles > 0) --key->openHandles;
  if (key->deleted && key->openHandles == 0) {
    auto& detached = hive->detached;
    detached.erase(std::remove_if(detached.begin(), detached.end(),
                                  [key](const std::unique_ptr<Key>& k) { return k.get() == key; }),
                   detached.end());
  }
}

}  // namespace

extern "C" {

DWORD TW_OR_CALL tw_OROpenKey(ORHKEY Handle, PCWSTR lpSubKeyName, PORHKEY phkResult) {
  return Locked([&](Engine& engine) -> DWORD {
    if (phkResult == nullptr) return err::kInvalidParameter;
    *phkResult = nullptr;
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    Key* key = nullptr;
    const DWORD resolved = detail::ResolvePath(entry->key, View(lpSubKeyName), &key);
    if (resolved != err::kSuccess) return resolved;
    if (key == entry->hive->root.get()) return err::kInvalidParameter;  // never yields the root
    if (key == entry->key) {
      // Deliberate deviation: a name without any component ("", or one whose first character is
      // NUL, as a key name read from a damaged hive can be) is refused instead of naming the key
      // itself, so that a walk that opens each enumerated sub key by name never revisits the key
      // it stands on (and never recurses until its stack runs out).
      if (lpSubKeyName != nullptr) return err::kInvalidParameter;
      *phkResult = Handle;  // no sub key: the same handle, as the platform does
      return err::kSuccess;
    }
    if (detail::KeyDepth(key) > detail::kMaxKeyDepth) return err::kInvalidParameter;
    *phkResult = detail::OpenHandle(engine, entry->hive, key, false);
    return *phkResult != nullptr ? err::kSuccess : err::kNotEnoughMemory;
  });
}

DWORD TW_OR_CALL tw_ORCreateKey(ORHKEY Handle, PCWSTR lpSubKey, PWSTR lpClass, DWORD dwOptions,
                                PSECURITY_DESCRIPTOR pSecurityDescriptor, PORHKEY phkResult,
                                PDWORD pdwDisposition) {
  return Locked([&](Engine& engine) -> DWORD {
    if (phkResult == nullptr) return err::kInvalidParameter;
    *phkResult = nullptr;
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    if (lpSubKey == nullptr || (dwOptions & ~kRegOptionCreateLink) != 0) {
      return err::kInvalidParameter;
    }
    std::vector<std::wstring_view> parts;
    const DWORD split = detail::SplitPath(lpSubKey, &parts);
    if (split != err::kSuccess) return split;
    if (parts.empty() && entry->isRoot) return err::kInvalidParameter;
    if (parts.size() > kMaxLevelsPerCreate ||
        detail::KeyDepth(entry->key) + parts.size() > detail::kMaxKeyDepth) {
      return err::kInvalidParameter;
    }
    for (const std::wstring_view part : parts) {
      if (part.size() > kMaxKeyNameLength) return err::kInvalidParameter;
    }
    if (pSecurityDescriptor != nullptr &&
        SelfRelativeLength(static_cast<const std::uint8_t*>(pSecurityDescriptor)) == 0) {
      return err::kInvalidSecurityDescr;
    }
    Key* key = nullptr;
    bool created = false;
    const DWORD made = CreatePath(engine, entry->key, parts, View(lpClass), pSecurityDescriptor,
                                  dwOptions, &key, &created);
    if (made != err::kSuccess) return made;
    if (!created && (dwOptions & kRegOptionCreateLink) != 0 &&
        (key->flags & kKeyFlagSymLink) == 0) {
      return err::kAlreadyExists;
    }
    *phkResult = detail::OpenHandle(engine, entry->hive, key, false);
    if (*phkResult == nullptr) return err::kNotEnoughMemory;
    if (pdwDisposition != nullptr) {
      *pdwDisposition = created ? kRegCreatedNewKey : kRegOpenedExistingKey;
    }
    return err::kSuccess;
  });
}

DWORD TW_OR_CALL tw_ORCloseKey(ORHKEY Handle) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = engine.handles.Find(detail::RawHandle(Handle));
    if (entry == nullptr) return err::kInvalidHandle;
    if (entry->isRoot) return err::kInvalidParameter;  // the root closes with ORCloseHive
    ReleaseKeyHandle(engine, entry, Handle);
    return err::kSuccess;
  });
}

DWORD TW_OR_CALL tw_ORDeleteKey(ORHKEY Handle, PCWSTR lpSubKey) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    Key* key = nullptr;
    const DWORD resolved = detail::ResolvePath(entry->key, View(lpSubKey), &key);
    if (resolved != err::kSuccess) return resolved;
    if (key == entry->hive->root.get()) return err::kInvalidParameter;
    if (!key->children.empty()) return err::kKeyHasChildren;
    Key* parent = key->parent;
    std::unique_ptr<Key> removed = RemoveChild(*parent, key);
    parent->lastWriteTime = CurrentFileTime();
    removed->deleted = true;
    removed->parent = nullptr;
    if (removed->openHandles > 0) entry->hive->detached.push_back(std::move(removed));
    return err::kSuccess;
  });
}

DWORD TW_OR_CALL tw_ORQueryInfoKey(ORHKEY Handle, PWSTR lpClass, PDWORD lpcClass, PDWORD lpcSubKeys,
                                   PDWORD lpcMaxSubKeyLen, PDWORD lpcMaxClassLen, PDWORD lpcValues,
                                   PDWORD lpcMaxValueNameLen, PDWORD lpcMaxValueLen,
                                   PDWORD lpcbSecurityDescriptor, PFILETIME lpftLastWriteTime) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    if (lpClass != nullptr && lpcClass == nullptr) return err::kInvalidParameter;
    const Key& key = *entry->key;
    DWORD maxSubKey = 0;
    DWORD maxClass = 0;
    for (const auto& child : key.children) {
      maxSubKey = std::max(maxSubKey, static_cast<DWORD>(child->name.size()));
      maxClass = std::max(maxClass, static_cast<DWORD>(child->className.size()));
    }
    DWORD maxValueName = 0;
    DWORD maxValueData = 0;
    for (const Value& value : key.values) {
      maxValueName = std::max(maxValueName, static_cast<DWORD>(value.name.size()));
      maxValueData = std::max(maxValueData, static_cast<DWORD>(value.data.size()));
    }
    if (lpcSubKeys != nullptr) *lpcSubKeys = static_cast<DWORD>(key.children.size());
    if (lpcMaxSubKeyLen != nullptr) *lpcMaxSubKeyLen = maxSubKey;
    if (lpcMaxClassLen != nullptr) *lpcMaxClassLen = maxClass;
    if (lpcValues != nullptr) *lpcValues = static_cast<DWORD>(key.values.size());
    if (lpcMaxValueNameLen != nullptr) *lpcMaxValueNameLen = maxValueName;
    if (lpcMaxValueLen != nullptr) *lpcMaxValueLen = maxValueData;
    if (lpcbSecurityDescriptor != nullptr) {
      *lpcbSecurityDescriptor = key.security ? static_cast<DWORD>(key.security->size()) : DWORD{0};
    }
    detail::PutFileTime(key.lastWriteTime, lpftLastWriteTime);
    if (lpcClass == nullptr) return err::kSuccess;
    if (lpClass == nullptr) {
      *lpcClass = static_cast<DWORD>(key.className.size());
      return err::kSuccess;
    }
    return detail::CopyName(key.className, lpClass, lpcClass);
  });
}

DWORD TW_OR_CALL tw_OREnumKey(ORHKEY Handle, DWORD dwIndex, PWSTR lpName, PDWORD lpcName,
                              PWSTR lpClass, PDWORD lpcClass, PFILETIME lpftLastWriteTime) {
  return Locked([&](Engine& engine) -> DWORD {
    HandleEntry* entry = nullptr;
    const DWORD found = detail::LookupKey(engine, Handle, &entry);
    if (found != err::kSuccess) return found;
    if (lpName == nullptr || lpcName == nullptr) return err::kInvalidParameter;
    if (lpClass != nullptr && lpcClass == nullptr) return err::kInvalidParameter;
    const Key& key = *entry->key;
    if (dwIndex >= key.children.size()) return err::kNoMoreItems;
    const Key& child = *key.children[dwIndex];
    if (*lpcName < child.name.size() + 1) {
      *lpcName = static_cast<DWORD>(child.name.size());
      return err::kMoreData;
    }
    if (lpClass != nullptr && *lpcClass < child.className.size() + 1) {
      *lpcClass = static_cast<DWORD>(child.className.size());
      return err::kMoreData;
    }
    detail::CopyName(child.name, lpName, lpcName);
    if (lpClass != nullptr) {
      detail::CopyName(child.className, lpClass, lpcClass);
    } else if (lpcClass != nullptr) {
      *lpcClass = static_cast<DWORD>(child.className.size());
    }
    detail::PutFileTime(child.lastWriteTime, lpftLastWriteTime);
    return err::kSuccess;
  });
}

}  // extern "C"

}  // namespace tw::hive
