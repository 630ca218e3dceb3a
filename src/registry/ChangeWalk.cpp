#include "registry/ChangeWalk.h"

namespace sorvane {

bool ChangeWalk::findSlot(const PortTable& table, std::size_t& steps) {
  const ChangeOrder& changes = table.changes();
  const Index known = position_.slot;
  if (known < table.slotCount() && table.inSlot(known) != nullptr) {
    const Index oldest = table.oldestOfRecordIn(known);
    // In the midst of a record, the names before were told. If the record has changed since, or the
    // slot has another of its names now, they are told again.
    const bool isUnchanged =
        position_.moves == table.moves() && changes.numberOf(oldest) == position_.number + 1;
    if ((known == oldest || isUnchanged) && changes.isFirstAfter(position_.number, oldest)) {
      return true;
    }
  }
  const bool isFound = changes.find(position_.number, slotSearch_, steps);
  position_.slot = isFound ? slotSearch_.at : kNone;
  return isFound;
}

bool ChangeWalk::findGone(const RemovedNames& removed, std::size_t& steps) {
  const ChangeOrder& order = removed.order();
  const ChangePosition::Number after = position_.removalsKnownUpTo();
  const Index known = position_.gone;
  if (known < order.size() && order.contains(known) && order.isFirstAfter(after, known)) {
    return true;
  }
  const bool isFound = order.find(after, goneSearch_, steps);
  position_.gone = isFound ? goneSearch_.at : kNone;
  return isFound;
}

}  // namespace sorvane
