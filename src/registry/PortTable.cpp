#include "registry/PortTable.h"

#include <algorithm>
#include <bit>

namespace sorvane {

PortTable::Record PortTable::enter(Place place, OwnedPortName&& name, Record record) {
  if (place.isTaken()) {
    Record replaced = take(place.index_);
    put(place.index_, std::move(record));
    return replaced;
  }
  if (const std::size_t slots = slotsToMoveTo(); slots > 0) {
    moveTo(slots);
  }
  const std::size_t index = freeSlot(place.hash_);
  Slot& slot = slots_[index];
  slot.name = name.takeText();
  removed_ -= slot.hash == kRemoved ? 1 : 0;
  slot.hash = place.hash_;
  put(index, std::move(record));
  ++size_;
  return nullptr;
}

PortTable::Entry PortTable::remove(Place place) {
  Slot& slot = slots_[place.index_];
  Record record = take(place.index_);
  const Hash hash = std::exchange(slot.hash, kRemoved);
  --size_;
  ++removed_;
  return {std::exchange(slot.name, std::string()), hash, std::move(record)};
}

void PortTable::put(std::size_t index, Record record) {
  Slot& slot = slots_[index];
  const auto number = static_cast<std::uint32_t>(index);
  PortDescriptor::Holdings& held = record->holdings();
  slot.next = kAlone;
  slot.previous = kAlone;
  if (held.entries == 0) {
    held.anchor = anchorOf(slot.hash);
    changes_.makeNewest(number, ++lastChange_);
  } else {
    append(number, oldestOf(*record));
  }
  ++held.entries;
  slot.record = std::move(record);
}

PortTable::Record PortTable::take(std::size_t index) {
  Slot& slot = slots_[index];
  const auto number = static_cast<std::uint32_t>(index);
  PortDescriptor::Holdings& held = slot.record->holdings();
  const std::uint32_t next = nextOf(number);
  unlink(number);
  if (leftBehind_ == number) {
    leftBehind_ = next == number ? kAlone : next;
  }
  if (changes_.contains(number)) {
    if (held.entries == 1) {
      changes_.remove(number);
    } else {
      changes_.replace(number, next);
      held.anchor = anchorOf(slots_[next].hash);
    }
  }
  --held.entries;
  return std::exchange(slot.record, nullptr);
}

void PortTable::leaveBehind(const PortDescriptor& record) {
  const std::uint32_t oldest = oldestOf(record);
  if (leftBehind_ == kAlone) {
    leftBehind_ = oldest;
  } else {
    append(oldest, leftBehind_);
  }
}

// Two entries of one record may have the same low bits. The order of changes has the oldest one.
std::uint32_t PortTable::oldestOf(const PortDescriptor& record) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t index = record.holdings().anchor & mask;
  while (slots_[index].record.get() != &record ||
         !changes_.contains(static_cast<std::uint32_t>(index))) {
    index = (index + 1) & mask;
  }
  return static_cast<std::uint32_t>(index);
}

void PortTable::link(std::uint32_t index, std::uint32_t next) {
  slots_[index].next = next;
  slots_[next].previous = index;
}

void PortTable::append(std::uint32_t first, std::uint32_t to) {
  const std::uint32_t last = previousOf(first);
  const std::uint32_t lastBefore = previousOf(to);
  link(lastBefore, first);
  link(last, to);
}

void PortTable::unlink(std::uint32_t index) {
  const std::uint32_t next = nextOf(index);
  const std::uint32_t previous = previousOf(index);
  if (next == previous) {
    slots_[next].next = kAlone;
    slots_[next].previous = kAlone;
  } else {
    link(previous, next);
  }
}

std::size_t PortTable::freeSlot(Hash hash) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t index = hash & mask;
  while (slots_[index].hash >= kLeastHash) {
    index = (index + 1) & mask;
  }
  return index;
}

// At least a quarter of the slots stays empty, so that searches are short. At least an eighth has a
// record, so that a walk over all slots is short. Otherwise the records move to another table that
// is at most half full and has no removed slots.
std::size_t PortTable::slotsToMoveTo() const {
  const bool isRoomy = (size_ + removed_ + 1) * 4 <= slots_.size() * 3;
  const bool isBare = (size_ + 1) * 8 < slots_.size() && slots_.size() > kLeastSlots;
  return isRoomy && !isBare ? 0 : std::max(kLeastSlots, std::bit_ceil((size_ + 1) * 2));
}

void PortTable::moveTo(std::size_t slots) {
  std::vector<Slot> before(slots);
  std::vector<ChangeOrder::Index> places(slots_.size());  // where each slot is now
  ChangeOrder changes(slots);
  before.swap(slots_);
  removed_ = 0;
  moves_ = (moves_ + 1) % kMostMoves;
  bool hasRings = false;
  for (Slot& slot : before) {
    if (slot.hash >= kLeastHash) {
      const std::size_t index = freeSlot(slot.hash);
      hasRings = hasRings || slot.next != kAlone;
      slots_[index] = std::move(slot);
      places[static_cast<std::size_t>(&slot - before.data())] = static_cast<std::uint32_t>(index);
    }
  }
  if (leftBehind_ != kAlone) {
    leftBehind_ = places[leftBehind_];
  }
  changes.takeOver(changes_, places);
  changes_ = std::move(changes);
  if (!hasRings) {
    return;
  }
  for (Slot& slot : slots_) {
    if (slot.next != kAlone) {
      slot.next = places[slot.next];
      slot.previous = places[slot.previous];
    }
  }
}

}  // namespace sorvane
