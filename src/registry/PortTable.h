// The port map: records by name.
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

/// An open hash table, so that finding a name among many costs few cache misses: a name of up to 15
/// bytes lies in its slot. Names are compared byte by byte; a record may be there under several. A
/// slot keeps its place until the next `enter`, whatever is removed meanwhile. Not synchronised.
class PortTable {
 public:
  using Record = std::shared_ptr<PortDescriptor>;

  [[nodiscard]] std::size_t size() const { return size_; }

  /// The record under the name, null when there is none. Valid until the table is changed.
  [[nodiscard]] const Record* find(std::string_view name) const {
    const std::size_t index = indexOf(name, hashOf(name));
    return index == kNone ? nullptr : &slots_[index].record;
  }

  /// Enters a record, which is not null, under the name; answers the one that it replaces, or null.
  Record enter(std::string_view name, Record record);

  /// Removes what is under the name; answers it, or null.
  Record remove(std::string_view name);

  /// Number of slots; each holds a record or none.
  [[nodiscard]] std::size_t slotCount() const { return slots_.size(); }
  /// The record in a slot, or null.
  [[nodiscard]] const Record& inSlot(std::size_t index) const { return slots_[index].record; }

 private:
  using Hash = std::size_t;
  // Hashes of slots without a record; that of a name is never below `kLeastHash`.
  static constexpr Hash kEmpty = 0;
  static constexpr Hash kRemoved = 1;
  static constexpr Hash kLeastHash = 2;
  static constexpr std::size_t kNone = ~std::size_t{0};

  // A line of the cache each.
  struct alignas(64) Slot {
    Hash hash = kEmpty;
    std::string name;
    Record record;
  };

  [[nodiscard]] static Hash hashOf(std::string_view name) {
    const Hash hash = std::hash<std::string_view>{}(name);
    return hash < kLeastHash ? hash + kLeastHash : hash;
  }
  /// The slot of a name, or `kNone`.
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

  std::vector<Slot> slots_;  // a power of two of them, or none; one at least is empty
  std::size_t size_ = 0;     // with a record
  std::size_t removed_ = 0;  // without one, but passed over by a search
};

}  // namespace sorvane
