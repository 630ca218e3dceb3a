// The port map: records by name.
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
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "registry/PortDescriptor.h"

namespace sorvane {

/// Names are compared byte by byte. A record may be entered under several names. A slot keeps its
/// place until the next `enter`, whatever is removed meanwhile. Not synchronised.
class PortTable {
 public:
  using Record = std::shared_ptr<PortDescriptor>;

  [[nodiscard]] std::size_t size() const { return size_; }

  /// Returns the record under the name, or null. Valid until the table is changed.
  [[nodiscard]] const Record* find(std::string_view name) const {
    const std::size_t index = indexOf(name, hashOf(name));
    return index == kNone ? nullptr : &slots_[index].record;
  }

  /// Enters a record, which must not be null, under the name. Returns the record that it replaces,
  /// or null.
  Record enter(std::string_view name, Record record);

  /// Removes the record under the name and returns it, or null.
  Record remove(std::string_view name);

  /// The number of slots, with a record or without.
  [[nodiscard]] std::size_t slotCount() const { return slots_.size(); }
  /// The record in a slot, or null.
  [[nodiscard]] const Record& inSlot(std::size_t index) const { return slots_[index].record; }

 private:
  using Hash = std::size_t;
  // What a slot without a record holds in place of a hash. The hash of a name is never below
  // `kLeastHash`.
  static constexpr Hash kEmpty = 0;
  static constexpr Hash kRemoved = 1;
  static constexpr Hash kLeastHash = 2;
  static constexpr std::size_t kNone = ~std::size_t{0};

  // Each is one cache line.
  struct alignas(64) Slot {
    Hash hash = kEmpty;
    std::string name;
    Record record;
  };

  [[nodiscard]] static Hash hashOf(std::string_view name) {
    const Hash hash = std::hash<std::string_view>{}(name);
    return hash < kLeastHash ? hash + kLeastHash : hash;
  }
  // Returns the slot of a name, or kNone.
  [[nodiscard]] std::size_t indexOf(std::string_view name, Hash hash) const {
    if (size_ == 0) {
      return kNone;
    }
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t index = hash & mask; slots_[index].hash != kEmpty;
         index = (index + 1) & mask) {
      if (slots_[index].hash == hash && slots_[index].name == name) {
        return index;
      }
    }
    return kNone;
  }
  [[nodiscard]] Slot& freeSlot(Hash hash);
  void makeRoom();

  std::vector<Slot> slots_;  // a power of two of them, or none; at least one is empty
  std::size_t size_ = 0;     // slots with a record
  std::size_t removed_ = 0;  // slots that hold kRemoved
};

}  // namespace sorvane
