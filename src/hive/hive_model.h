// The in-memory form of a registry hive: what the reader builds, the offline-registry functions
// change and the writer serialises.
//
// Decisions:
// - Names and classes are wide strings: std::wstring, and ValueName for value names (short ones
//   are kept without an allocation). Hive files hold UTF-16; on platforms whose wchar_t is 32
//   bits a surrogate pair becomes one character and lengths count wchar_t units.
// - A key owns its sub keys, kept sorted by their upper-cased names (code-unit order, the order
//   of the on-disk lists), so that lookup is a binary search and the writer needs no sorting.
// - Values keep the order of the key's value list (new values are appended).
// - Security descriptors are self-relative bytes held by shared pointer: keys that share a
//   security cell on disk share one descriptor object, and the writer writes one cell per
//   distinct descriptor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hive/value_name.h"

namespace tw::hive {

using SecurityBytes = std::vector<std::uint8_t>;
using SharedSecurity = std::shared_ptr<const SecurityBytes>;

// Key node flags kept in the model (the rest are derived by the writer).
constexpr std::uint16_t kKeyFlagSymLink = 0x0010;

struct Value {
  ValueName name;
  std::uint32_t type = 0;
  std::vector<std::uint8_t> data;
};

struct Key {
  std::wstring name;
  std::wstring className;
  std::uint64_t lastWriteTime = 0;  // FILETIME, 100 ns since 1601 (UTC)
  SharedSecurity security;
  // Flags of the key node other than the ones the writer derives (name form, hive entry).
  std::uint16_t flags = 0;
  // Bits 16-31 of the "largest sub key name" field: virtualization, user and debug flags.
  std::uint16_t extraFlags = 0;
  Key* parent = nullptr;
  std::vector<std::unique_ptr<Key>> children;  // sorted by upper-cased name
  std::vector<Value> values;
  // Handle bookkeeping of the offline-registry functions.
  std::uint32_t openHandles = 0;
  bool deleted = false;
};

// One open hive: its root key, and the deleted keys that still have open handles (they are
// freed when their last handle closes, or with the hive).
struct Hive {
  std::unique_ptr<Key> root;
  std::vector<std::unique_ptr<Key>> detached;
  std::uint32_t minorVersion = 5;  // the regf minor version read (5 for a new hive)
  // What was done to the file before it was read (hive_log_recovery.h: RecoveryState).
  std::uint32_t recovery = 0;
};

// Position of `name` among `key.children` (the first child not less than it); `found` tells
// whether that child has the name, compared without regard to case.
std::size_t LowerBoundChild(const Key& key, std::wstring_view name, bool* found);
Key* FindChild(const Key& key, std::wstring_view name);
// Inserts a child keeping the order; the caller made sure no child has that name.
Key* InsertChild(Key& key, std::unique_ptr<Key> child);
// Takes a child out of the list and hands it over.
std::unique_ptr<Key> RemoveChild(Key& key, const Key* child);

Value* FindValue(Key& key, std::wstring_view name);
const Value* FindValue(const Key& key, std::wstring_view name);

// The current time as a FILETIME.
std::uint64_t CurrentFileTime();

}  // namespace tw::hive
