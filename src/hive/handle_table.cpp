#include "hive/handle_table.h"

namespace tw::hive {

namespace {
constexpr std::uintptr_t kIndexBits = 20;
constexpr std::uintptr_t kIndexMask = (std::uintptr_t{1} << kIndexBits) - 1;
constexpr std::uint32_t kGenerationMask = 0xFFF;
constexpr std::size_t kMaxSlots = kIndexMask - 1;  // index + 1 never reaches all ones
}  // namespace

std::uintptr_t HandleTable::Add(Hive* hive, Key* key, bool isRoot) {
  std::uint32_t index = 0;
  if (!free_.empty()) {
    index = free_.back();
    free_.pop_back();
  } else {
    if (slots_.size() >= kMaxSlots) return 0;
    index = static_cast<std::uint32_t>(slots_.size());
    slots_.emplace_back();
  }
  Slot& slot = slots_[index];
  slot.entry = {hive, key, isRoot};
  slot.inUse = true;
  return (static_cast<std::uintptr_t>(slot.generation) << kIndexBits) | (index + 1);
}

HandleEntry* HandleTable::Find(std::uintptr_t handle) {
  const std::uintptr_t indexPlusOne = handle & kIndexMask;
  const std::uintptr_t generation = handle >> kIndexBits;
  if (indexPlusOne == 0 || indexPlusOne > slots_.size()) return nullptr;
  Slot& slot = slots_[indexPlusOne - 1];
  if (!slot.inUse || generation != slot.generation) return nullptr;
  return &slot.entry;
}

void HandleTable::Remove(std::uintptr_t handle) {
  if (Find(handle) == nullptr) return;
  const auto index = static_cast<std::uint32_t>((handle & kIndexMask) - 1);
  Slot& slot = slots_[index];
  slot.inUse = false;
  slot.entry = {};
  slot.generation = (slot.generation % kGenerationMask) + 1;  // 1..0xFFF, never 0
  free_.push_back(index);
}

void HandleTable::RemoveHive(const Hive* hive) {
  for (std::size_t i = 0; i < slots_.size(); ++i) {
    Slot& slot = slots_[i];
    if (slot.inUse && slot.entry.hive == hive) {
      Remove((static_cast<std::uintptr_t>(slot.generation) << kIndexBits) | (i + 1));
    }
  }
}

}  // namespace tw::hive
