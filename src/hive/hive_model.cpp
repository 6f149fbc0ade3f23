#include "hive/hive_model.h"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "hive/name_compare.h"

namespace tw::hive {

std::size_t LowerBoundChild(const Key& key, std::wstring_view name, bool* found) {
  const auto it = std::lower_bound(key.children.begin(), key.children.end(), name,
                                   [](const std::unique_ptr<Key>& child, std::wstring_view n) {
                                     return CompareNames(child->name, n) < 0;
                                   });
  if (found != nullptr) *found = it != key.children.end() && NamesEqual((*it)->name, name);
  return static_cast<std::size_t>(std::distance(key.children.begin(), it));
}

Key* FindChild(const Key& key, std::wstring_view name) {
  bool found = false;
  const std::size_t at = LowerBoundChild(key, name, &found);
  return found ? key.children[at].get() : nullptr;
}

Key* InsertChild(Key& key, std::unique_ptr<Key> child) {
  const std::size_t at = LowerBoundChild(key, child->name, nullptr);
  child->parent = &key;
  Key* raw = child.get();
  key.children.insert(key.children.begin() + static_cast<std::ptrdiff_t>(at), std::move(child));
  return raw;
}

std::unique_ptr<Key> RemoveChild(Key& key, const Key* child) {
  for (auto it = key.children.begin(); it != key.children.end(); ++it) {
    if (it->get() == child) {
      std::unique_ptr<Key> taken = std::move(*it);
      key.children.erase(it);
      return taken;
    }
  }
  return nullptr;
}

const Value* FindValue(const Key& key, std::wstring_view name) {
  for (const Value& value : key.values) {
    if (NamesEqual(value.name, name)) return &value;
  }
  return nullptr;
}

Value* FindValue(Key& key, std::wstring_view name) {
  return const_cast<Value*>(FindValue(static_cast<const Key&>(key), name));
}

std::uint64_t CurrentFileTime() {
  // 11,644,473,600 seconds lie between 1601-01-01 and 1970-01-01.
  constexpr std::uint64_t kEpochDifference = 116444736000000000ull;
  const auto since1970 = std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  return kEpochDifference + static_cast<std::uint64_t>(since1970.count() / 100);
}

}  // namespace tw::hive
