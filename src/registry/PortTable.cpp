#include "registry/PortTable.h"

#include <algorithm>
#include <bit>

namespace sorvane {
namespace {

constexpr std::size_t kLeastSlots = 16;

}  // namespace

PortTable::Record PortTable::enter(std::string_view name, Record record) {
  const Hash hash = hashOf(name);
  if (const std::size_t index = indexOf(name, hash); index != kNone) {
    return std::exchange(slots_[index].record, std::move(record));
  }
  makeRoom();
  Slot& slot = freeSlot(hash);
  slot.name = name;
  removed_ -= slot.hash == kRemoved ? 1 : 0;
  slot.hash = hash;
  slot.record = std::move(record);
  ++size_;
  return nullptr;
}

PortTable::Record PortTable::remove(std::string_view name) {
  const std::size_t index = indexOf(name, hashOf(name));
  if (index == kNone) {
    return nullptr;
  }
  Slot& slot = slots_[index];
  slot.hash = kRemoved;
  slot.name = std::string();
  --size_;
  ++removed_;
  return std::move(slot.record);
}

PortTable::Slot& PortTable::freeSlot(Hash hash) {
  const std::size_t mask = slots_.size() - 1;
  std::size_t index = hash & mask;
  while (slots_[index].hash >= kLeastHash) {
    index = (index + 1) & mask;
  }
  return slots_[index];
}

// At least a quarter of the slots stays empty, so that searches are short. At least an eighth has a
// record, so that a walk over all slots is short. Otherwise the records move to another table that
// is at most half full and has no removed slots.
void PortTable::makeRoom() {
  const bool isRoomy = (size_ + removed_ + 1) * 4 <= slots_.size() * 3;
  const bool isBare = (size_ + 1) * 8 < slots_.size() && slots_.size() > kLeastSlots;
  if (isRoomy && !isBare) {
    return;
  }
  std::vector<Slot> before(std::max(kLeastSlots, std::bit_ceil((size_ + 1) * 2)));
  before.swap(slots_);
  removed_ = 0;
  for (Slot& slot : before) {
    if (slot.hash >= kLeastHash) {
      freeSlot(slot.hash) = std::move(slot);
    }
  }
}

}  // namespace sorvane
