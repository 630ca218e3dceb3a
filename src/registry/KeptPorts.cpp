// What is kept of the port map for a program that goes on.
//
// First come the numbers of the slots, of the entries and of the removed slots, then the removed
// slots, the order of the changes, and in that order each record with its entries. A slot may have
// any name in the description. So the table is built first, and then each name is searched.
#include <array>
#include <bit>
#include <span>
#include <string>
#include <utility>

#include "registry/PortMap.h"

namespace sorvane {
namespace {

// A record's number of entries has 30 bits.
constexpr std::uint64_t kMostSlots = std::uint64_t{1} << 30;
// The change after the last one has a number, too.
constexpr ChangeOrder::Number kMostChanges = ~ChangeOrder::Number{0} >> 1;
constexpr std::size_t kLeastEntryBytes = 2;

bool haveANumberInCommon(const ChangeOrder& left, const ChangeOrder& right) {
  auto atLeft = left.oldest();
  auto atRight = right.oldest();
  while (atLeft != ChangeOrder::kNone && atRight != ChangeOrder::kNone) {
    const ChangeOrder::Number ofLeft = left.numberOf(atLeft);
    const ChangeOrder::Number ofRight = right.numberOf(atRight);
    if (ofLeft == ofRight) {
      return true;
    }
    if (ofLeft < ofRight) {
      atLeft = left.newerThan(atLeft);
    } else {
      atRight = right.newerThan(atRight);
    }
  }
  return false;
}

}  // namespace

void PortTable::keep(KeptWriter& writer, KeptPart part) const {
  const auto& [slots, changes, lastChange, moves, size, removed, leftBehind] = *this;
  writer.number(slots.size());
  writer.number(size);
  writer.number(removed);
  keepRemovedSlots(writer);
  writer.number(lastChange);
  writer.number(moves);
  changes.keep(writer, 0);
  keepRecords(writer, part);
  if (leftBehind != kAlone) {
    std::uint32_t index = leftBehind;
    do {
      if (changes.contains(index)) {
        writer.number(std::uint64_t{index} + 1);
      }
      index = nextOf(index);
    } while (index != leftBehind);
  }
  writer.number(0);
}

void PortTable::restore(KeptReader& reader, const SipKey& key,
                        const PortDescriptor::Watched& list) {
  [[maybe_unused]] auto& [slots, changes, lastChange, moves, size, removed, leftBehind] = *this;
  const std::uint64_t count = reader.number(kMostSlots);
  size = reader.count(kLeastEntryBytes);
  removed = reader.count();
  // What `slotsToMoveTo` keeps: a removal changes no sum of the two.
  const std::uint64_t used = size + removed;
  const bool canBe = count == 0
                         ? used == 0
                         : std::has_single_bit(count) && count >= kLeastSlots &&
                               used * 4 <= count * 3 && (count == kLeastSlots || used * 8 >= count);
  if (!canBe) {
    throw KeptFault("what was kept has a table of a size that cannot be");
  }
  slots = std::vector<Slot>(count);
  changes = ChangeOrder(count);
  restoreRemovedSlots(reader);
  lastChange = reader.number(kMostChanges);
  moves = static_cast<std::uint32_t>(reader.number(kMostMoves - 1));
  changes.restore(reader, 0, lastChange);
  std::size_t left = size;
  for (auto index = changes.oldest(); index != ChangeOrder::kNone;
       index = changes.newerThan(index)) {
    auto record = std::make_shared<PortDescriptor>();
    record->restore(reader, list);
    restoreEntries(reader, index, std::move(record), key, left);
  }
  if (left > 0) {
    throw KeptFault("what was kept has less names than it says");
  }
  for (std::size_t index = 0; index < slots.size(); ++index) {
    if (slots[index].record != nullptr && !isFoundIn(index)) {
      throw KeptFault("what was kept has a name in the wrong place, or twice");
    }
  }
  restoreLeftBehind(reader);
}

// The records of a long table are scattered over the memory. Fetching some of them at the same time
// takes a fraction of fetching one after the other.
void PortTable::keepRecords(KeptWriter& writer, KeptPart part) const {
  std::array<std::uint32_t, 64> slots;
  for (auto next = changes_.oldest(); next != ChangeOrder::kNone;) {
    std::size_t count = 0;
    for (; next != ChangeOrder::kNone && count < slots.size(); next = changes_.newerThan(next)) {
      __builtin_prefetch(&slots_[next]);
      slots[count++] = next;
    }
    const std::span<const std::uint32_t> fetched(slots.data(), count);
    for (const std::uint32_t slot : fetched) {
      __builtin_prefetch(slots_[slot].record.get());
    }
    for (const std::uint32_t slot : fetched) {
      slots_[slot].record->prefetchTexts();
    }
    for (const std::uint32_t slot : fetched) {
      slots_[slot].record->keep(writer, part);
      keepEntries(writer, slot);
    }
  }
}

void PortTable::keepEntries(KeptWriter& writer, std::uint32_t oldest) const {
  writer.number(slots_[oldest].record->holdings().entries);
  for (std::uint32_t index = oldest; index != ChangeOrder::kNone; index = nextOfRecord(index)) {
    [[maybe_unused]] const auto& [hash, name, record, next, previous] = slots_[index];
    if (index != oldest) {
      writer.number(index);
    }
    writer.text(name);
  }
}

void PortTable::restoreEntries(KeptReader& reader, std::uint32_t oldest, Record record,
                               const SipKey& key, std::size_t& left) {
  const std::uint64_t entries = reader.number(left);
  if (entries == 0) {
    throw KeptFault("what was kept has a record in the table without a name");
  }
  left -= entries;
  for (std::uint64_t entry = 0; entry < entries; ++entry) {
    const auto index =
        entry == 0 ? oldest : static_cast<std::uint32_t>(reader.number(slots_.size() - 1));
    const PortName name(reader.text(), key);
    Slot& slot = slots_[index];
    if (slot.hash != kEmpty) {
      throw KeptFault("what was kept has two things in one place of the table");
    }
    slot.hash = name.hash();
    slot.name = name.text();
    slot.record = record;
    if (index != oldest) {
      append(index, oldest);
    }
  }
  record->holdings().entries = static_cast<std::uint32_t>(entries);
  record->holdings().anchor = anchorOf(slots_[oldest].hash);
}

void PortTable::keepRemovedSlots(KeptWriter& writer) const {
  std::size_t next = 0;
  for (std::size_t index = 0; index < slots_.size(); ++index) {
    if (slots_[index].hash == kRemoved) {
      writer.number(index - next);
      next = index + 1;
    }
  }
}

void PortTable::restoreRemovedSlots(KeptReader& reader) {
  std::size_t next = 0;
  for (std::size_t left = removed_; left > 0; --left) {
    const std::uint64_t between = reader.number();
    if (between >= slots_.size() - next) {
      throw KeptFault("what was kept has a removed name outside the table");
    }
    next += between;
    slots_[next++].hash = kRemoved;
  }
}

void PortTable::restoreLeftBehind(KeptReader& reader) {
  while (const std::uint64_t next = reader.number(slots_.size())) {
    const auto index = static_cast<std::uint32_t>(next - 1);
    PortDescriptor* const record = changes_.contains(index) ? slots_[index].record.get() : nullptr;
    if (record == nullptr || record->holdings().hasLeft != 0 || record->timesOnWatchList() > 0) {
      throw KeptFault("what was kept has an end of a connection that cannot be");
    }
    record->holdings().hasLeft = 1;
    leaveBehind(*record);
  }
}

bool PortTable::isFoundIn(std::size_t index) const {
  const std::size_t mask = slots_.size() - 1;
  const Slot& sought = slots_[index];
  for (std::size_t at = sought.hash & mask; at != index; at = (at + 1) & mask) {
    const Slot& slot = slots_[at];
    if (slot.hash == kEmpty || (slot.hash == sought.hash && slot.name == sought.name)) {
      return false;
    }
  }
  return true;
}

void PortMap::keep(KeptWriter& writer, KeptPart part) const {
  const auto& [limits, table, removed, recordBytes, leftBehindBytes, stateEntryBytes,
               alertEntryBytes, journal] = *this;
  table.keep(writer, part);
  removed.keep(writer);
}

void PortMap::restore(KeptReader& reader, const SipKey& key, const PortDescriptor::Watched& list) {
  auto& [limits, table, removed, recordBytes, leftBehindBytes, stateEntryBytes, alertEntryBytes,
         journal] = *this;
  table.restore(reader, key, list);
  removed.restore(reader, table.lastChange(), key);
  const ChangeOrder& changes = table.changes();
  if (haveANumberInCommon(changes, removed.order())) {
    throw KeptFault("what was kept has two changes of one number");
  }
  for (auto oldest = changes.oldest(); oldest != ChangeOrder::kNone;
       oldest = changes.newerThan(oldest)) {
    PortDescriptor::Holdings& held = table.inSlot(oldest)->holdings();
    for (auto index = oldest; index != ChangeOrder::kNone; index = table.nextOfRecord(index)) {
      held.nameBytes += static_cast<std::uint32_t>(nameBytes(table.nameIn(index)));
    }
    countRestored(*table.inSlot(oldest));
  }
}

}  // namespace sorvane
