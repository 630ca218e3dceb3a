// A walk over the names of the port map in the order of their last changes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "registry/ChangePosition.h"
#include "registry/PortMap.h"

namespace sorvane {

/// Tells each name that has changed since a position. The walk may be interrupted at any place,
/// while the map changes or not: what was told and changes afterwards is told again. Not
/// synchronised.
class ChangeWalk {
 public:
  explicit ChangeWalk(const ChangePosition& from) : position_(from) {}

  enum class Stop : std::uint8_t {
    steps,  ///< there may be more
    full,   ///< there is more, and the caller wants no more
    end,    ///< everything was told
  };

  /// Goes on for a number of steps. Calls `tell(name, record)` for each name, with null for one
  /// that was removed. If that returns false, the walk stops before that name. Costs a step for
  /// each name, and for each change since the position if that does not say where to go on.
  template <typename Tell>
  [[nodiscard]] Stop goOn(PortMap& map, std::size_t steps, Tell&& tell);

  [[nodiscard]] const ChangePosition& position() const { return position_; }

 private:
  using Index = ChangeOrder::Index;
  static constexpr Index kNone = ChangeOrder::kNone;

  // Find the slot and the removed name to go on with. Return false if the steps were not enough.
  bool findSlot(const PortTable& table, std::size_t& steps);
  bool findGone(const RemovedNames& removed, std::size_t& steps);

  ChangePosition position_;
  ChangeOrder::Search slotSearch_;
  ChangeOrder::Search goneSearch_;
};

template <typename Tell>
ChangeWalk::Stop ChangeWalk::goOn(PortMap& map, std::size_t steps, Tell&& tell) {
  const PortTable& table = map.table();
  const RemovedNames& removed = map.removedNames();
  if (!findSlot(table, steps) || !findGone(removed, steps)) {
    return Stop::steps;
  }
  position_.moves = table.moves();
  Index& slot = position_.slot;
  Index& gone = position_.gone;
  while (slot != kNone || gone != kNone) {
    if (steps == 0) {
      return Stop::steps;
    }
    --steps;
    const Index first = slot == kNone ? kNone : table.oldestOfRecordIn(slot);
    if (slot == kNone ||
        (gone != kNone && removed.order().numberOf(gone) < table.changes().numberOf(first))) {
      const std::string_view name = removed.nameAt(gone);
      if (map.find(name) == nullptr && !tell(name, static_cast<PortDescriptor*>(nullptr))) {
        return Stop::full;
      }
      position_.number = removed.order().numberOf(gone);
      gone = removed.order().newerThan(gone);
    } else {
      if (!tell(table.nameIn(slot), table.inSlot(slot).get())) {
        return Stop::full;
      }
      slot = table.nextOfRecord(slot);
      const ChangePosition::Number number = table.changes().numberOf(first);
      if (slot == kNone) {
        position_.number = number;
        slot = table.changes().newerThan(first);
      } else {
        position_.number = number - 1;  // all before this record was told: see findSlot
      }
    }
  }
  position_ = {.number = map.lastChange()};
  return Stop::end;
}

}  // namespace sorvane
