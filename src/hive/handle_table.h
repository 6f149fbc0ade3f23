// The table behind offline-registry handles. A handle is never a pointer: it encodes a slot
// index (low 20 bits, plus one, so that 0 is never a handle) and the slot's generation (the next
// 12 bits); every other bit is zero. A slot's generation changes when its handle closes, so a
// closed handle, a handle of a closed hive, a garbage value, NULL and -1 (all bits set) are all
// recognised as invalid (ERROR_INVALID_HANDLE) instead of being followed.
#pragma once

#include <cstdint>
#include <vector>

#include "hive/hive_model.h"

namespace tw::hive {

struct HandleEntry {
  Hive* hive = nullptr;
  Key* key = nullptr;
  bool isRoot = false;
};

class HandleTable {
 public:
  // A new handle value for the key; 0 when the table is full.
  std::uintptr_t Add(Hive* hive, Key* key, bool isRoot);
  // The entry of a live handle, or null.
  HandleEntry* Find(std::uintptr_t handle);
  void Remove(std::uintptr_t handle);
  // Closes every handle of the hive.
  void RemoveHive(const Hive* hive);

 private:
  struct Slot {
    HandleEntry entry;
    std::uint32_t generation = 1;
    bool inUse = false;
  };
  std::vector<Slot> slots_;
  std::vector<std::uint32_t> free_;
};

}  // namespace tw::hive
