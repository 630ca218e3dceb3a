// The table of the ports: records by name.
//
// An open hash table. A name's search begins at the slot that its hash tells, and goes on slot by
// slot (the last is followed by the first) until it finds the name or an empty slot:
//
//   slot      0        1        2        3        4        5        6        7
//          +--------+--------+--------+--------+--------+--------+--------+--------+
//   hash   | empty  | 9b..1  | 41..1  |removed | 07..1  | empty  | c2..6  | empty  |
//   name   |        | db1    | db7    |        | db3    |        | web    |        |
//   record |        |   *    |   *    |        |   *    |        |   *    |        |
//          +--------+--------+--------+--------+--------+--------+--------+--------+
//                       |  db1, db7 and db3 hash to slot 1. A search for db3 compares hashes in
//                       +-> slots 1 to 4 and texts in slot 4 alone. A removed slot does not end a
//                           search; an entry may use it again.
//
// Each slot is one cache line and holds a name of up to 15 bytes itself, so finding a short name
// costs one or two cache misses however many names there are.
//
// The entries of one record form a ring in the order in which they were made: each slot has the
// numbers of its neighbours in the ring. When the record's connection ends, what is left of its
// ring is put to the end of one ring of all entries that ended connections have left behind.
//
// Beside the slots stands the order of the last changes. What changes is a record, under all of its
// names: so the order has the slot of its oldest entry, and a change costs the same with one name
// and with many.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "registry/ChangeOrder.h"
#include "registry/PortDescriptor.h"
#include "registry/PortName.h"

namespace sorvane {

/// Names are compared byte by byte. A record may be entered under several names. A slot keeps its
/// place until the next `enter`, whatever is removed meanwhile. Not synchronised.
class PortTable {
 private:
  using Hash = PortName::Hash;
  static constexpr std::size_t kNone = ~std::size_t{0};

 public:
  using Record = std::shared_ptr<PortDescriptor>;

  /// An entry that was removed. Destroying it frees memory, so do that where no lock is held.
  struct Entry {
    std::string name;
    std::size_t hash = 0;  ///< of the name
    Record record;
  };

  /// Where a name is, or that it is not there. Valid until the table is changed.
  class Place {
   public:
    [[nodiscard]] bool isTaken() const { return index_ != kNone; }

   private:
    friend class PortTable;
    Place(Hash hash, std::size_t index) : hash_(hash), index_(index) {}
    Hash hash_;
    std::size_t index_;  // of the slot, or kNone
  };

  [[nodiscard]] std::size_t size() const { return size_; }

  [[nodiscard]] Place placeOf(const PortName& name) const { return {name.hash(), indexOf(name)}; }
  /// Returns the record at a place that is taken. Valid until the table is changed.
  [[nodiscard]] const Record& at(Place place) const { return slots_[place.index_].record; }
  /// Returns the record under the name, or null. Valid until the table is changed.
  [[nodiscard]] const Record* find(const PortName& name) const {
    const Place place = placeOf(name);
    return place.isTaken() ? &at(place) : nullptr;
  }

  /// Enters a record, which must not be null, under the name, whose place is `place`. Takes the
  /// text of the name unless the place is taken. The record's connection must not have ended.
  /// Returns the record that it replaces, or null.
  Record enter(Place place, OwnedPortName&& name, Record record);

  /// Removes the entry at a place that is taken.
  Entry remove(Place place);

  /// The number of slots, with a record or without.
  [[nodiscard]] std::size_t slotCount() const { return slots_.size(); }
  /// The record in a slot, or null.
  [[nodiscard]] const Record& inSlot(std::size_t index) const { return slots_[index].record; }

  /// What the slots take, bytes. One slot takes `kSlotBytes`.
  [[nodiscard]] std::size_t bytes() const { return slots_.size() * kSlotBytes; }
  /// What they take in addition while a name is entered that is not there yet, bytes.
  [[nodiscard]] std::size_t bytesToEnter() const { return slotsToMoveTo() * kSlotBytes; }
  static constexpr std::size_t kSlotBytes = 64 + ChangeOrder::kBytes;

  // ---- The order of the last changes

  /// Notes a change of this record. Without an entry it has no place in the order.
  void noteChange(const PortDescriptor& record) {
    if (record.holdings().entries > 0) {
      changes_.makeNewest(oldestOf(record), ++lastChange_);
    }
  }
  /// Returns a number for a change that is no change of a record.
  [[nodiscard]] ChangeOrder::Number nextChange() { return ++lastChange_; }
  /// Returns the number of the last change.
  [[nodiscard]] ChangeOrder::Number lastChange() const { return lastChange_; }

  /// The records, each by the slot of its oldest entry.
  [[nodiscard]] const ChangeOrder& changes() const { return changes_; }
  /// Returns the slot of the oldest entry of the record in a slot that has one.
  [[nodiscard]] std::uint32_t oldestOfRecordIn(std::uint32_t index) const {
    return oldestOf(*slots_[index].record);
  }
  /// Returns the slot of the record's next entry; kNone after the last one.
  [[nodiscard]] std::uint32_t nextOfRecord(std::uint32_t index) const {
    const std::uint32_t next = nextOf(index);
    const bool isOther = changes_.contains(next) || slots_[next].record != slots_[index].record;
    return isOther ? ChangeOrder::kNone : next;
  }
  /// Changes when entries have got other slots. Four decimal digits.
  [[nodiscard]] std::uint32_t moves() const { return moves_; }
  [[nodiscard]] std::string_view nameIn(std::size_t index) const { return slots_[index].name; }
  /// Returns the slot of the oldest entry of a record that has entries.
  [[nodiscard]] std::uint32_t oldestOf(const PortDescriptor& record) const;
  /// Has the processor fetch what `oldestOf` is about to look at.
  void prefetchOldestOf(const PortDescriptor& record) const {
    if (record.holdings().entries > 0) {
      const std::size_t slot = record.holdings().anchor & (slots_.size() - 1);
      __builtin_prefetch(&slots_[slot]);
      changes_.prefetch(static_cast<ChangeOrder::Index>(slot));
    }
  }

  // ---- What ended connections have left behind

  /// Notes that the connection of this record, which has entries, has ended.
  void leaveBehind(const PortDescriptor& record);
  [[nodiscard]] bool hasLeftBehind() const { return leftBehind_ != kAlone; }
  /// Returns the place of the entry that was left behind first. There must be one.
  [[nodiscard]] Place oldestLeftBehind() const { return {slots_[leftBehind_].hash, leftBehind_}; }

  // ---- What is kept for a program that goes on (KeptPorts.cpp)

  /// Writes each entry with its slot and each record once.
  void keep(KeptWriter& writer, KeptPart part = KeptPart::all) const;
  /// Makes this, which is empty, the table that was kept. `key` is that of the names' hashes. The
  /// bytes of the names are not noted. Raises NSException, most often KeptFault.
  void restore(KeptReader& reader, const SipKey& key, const PortDescriptor::Watched& list);

 private:
  // What a slot without a record holds in place of a hash.
  static constexpr Hash kEmpty = 0;
  static constexpr Hash kRemoved = 1;
  static constexpr Hash kLeastHash = PortName::kLeastHash;
  // The neighbour of a slot that is alone in its ring. No table has that many slots.
  static constexpr std::uint32_t kAlone = ~std::uint32_t{0};

  static constexpr std::size_t kLeastSlots = 16;
  static constexpr std::uint32_t kMostMoves = 10000;
  // Anchors are the low bits of hashes.
  static std::uint32_t anchorOf(Hash hash) { return static_cast<std::uint32_t>(hash); }

  static constexpr std::size_t kCacheLineBytes = 64;
  struct alignas(kCacheLineBytes) Slot {
    Hash hash = kEmpty;
    std::string name;
    Record record;
    std::uint32_t next = kAlone;
    std::uint32_t previous = kAlone;
  };
  static_assert(sizeof(Slot) == kCacheLineBytes);

  // Returns the slot of a name, or kNone.
  [[nodiscard]] std::size_t indexOf(const PortName& name) const {
    if (size_ == 0) {
      return kNone;
    }
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t index = name.hash() & mask; slots_[index].hash != kEmpty;
         index = (index + 1) & mask) {
      if (slots_[index].hash == name.hash() && slots_[index].name == name.text()) {
        return index;
      }
    }
    return kNone;
  }
  [[nodiscard]] std::size_t freeSlot(Hash hash) const;
  // Returns how many slots the table must get before another name is entered; 0: it has room.
  [[nodiscard]] std::size_t slotsToMoveTo() const;
  void moveTo(std::size_t slots);

  // The ring of a slot.
  [[nodiscard]] std::uint32_t nextOf(std::uint32_t index) const {
    return slots_[index].next == kAlone ? index : slots_[index].next;
  }
  [[nodiscard]] std::uint32_t previousOf(std::uint32_t index) const {
    return slots_[index].previous == kAlone ? index : slots_[index].previous;
  }
  void link(std::uint32_t index, std::uint32_t next);
  // Puts the ring that begins at `first` to the end of the ring that begins at `to`.
  void append(std::uint32_t first, std::uint32_t to);
  void unlink(std::uint32_t index);

  void put(std::size_t index, Record record);
  Record take(std::size_t index);

  void keepRecords(KeptWriter& writer, KeptPart part) const;
  void keepEntries(KeptWriter& writer, std::uint32_t oldest) const;
  void keepRemovedSlots(KeptWriter& writer) const;
  void restoreRemovedSlots(KeptReader& reader);
  // Reads a record and its entries, of which `left` are left.
  void restoreEntries(KeptReader& reader, std::uint32_t oldest, Record record, const SipKey& key,
                      std::size_t& left);
  void restoreLeftBehind(KeptReader& reader);
  // Returns true if a search for the name in this slot ends here.
  [[nodiscard]] bool isFoundIn(std::size_t index) const;

  std::vector<Slot> slots_;  // a power of two of them, or none; at least one is empty
  ChangeOrder changes_;      // as many indices as there are slots
  ChangeOrder::Number lastChange_ = 0;
  std::uint32_t moves_ = 0;
  std::size_t size_ = 0;               // slots with a record
  std::size_t removed_ = 0;            // slots that hold kRemoved
  std::uint32_t leftBehind_ = kAlone;  // the first slot of the ring of those left behind
};

}  // namespace sorvane
