#include "registry/ChangeOrder.h"

namespace sorvane {

void ChangeOrder::makeNewest(Index index, Number number) {
  if (index == newest_) {
    things_[index].number = number;
    return;
  }
  if (contains(index)) {
    remove(index);
  }
  append(index, number);
}

void ChangeOrder::append(Index index, Number number) {
  things_[index] = {.number = number};
  link(newest_, index);
  newest_ = index;
}

void ChangeOrder::remove(Index index) {
  const Thing thing = things_[index];
  things_[index] = {};
  link(thing.older, thing.newer);
  if (newest_ == index) {
    newest_ = thing.older;
  }
}

void ChangeOrder::replace(Index index, Index by) {
  const Thing thing = things_[index];
  things_[index] = {};
  things_[by] = thing;
  link(thing.older, by);
  if (newest_ == index) {
    newest_ = by;
  } else {
    link(by, thing.newer);
  }
}

void ChangeOrder::link(Index older, Index newer) {
  if (older == kNone) {
    oldest_ = newer;
  } else {
    things_[older].newer = newer;
  }
  if (newer != kNone) {
    things_[newer].older = older;
  }
}

void ChangeOrder::takeOver(const ChangeOrder& before, const std::vector<Index>& places) {
  const auto placeOf = [&](Index index) { return index == kNone ? kNone : places[index]; };
  for (Index index = 0; index < before.size(); ++index) {
    const Thing& thing = before.things_[index];
    if (thing.number != 0) {
      things_[places[index]] = {thing.number, placeOf(thing.newer), placeOf(thing.older)};
    }
  }
  newest_ = placeOf(before.newest_);
  oldest_ = placeOf(before.oldest_);
}

void ChangeOrder::keep(KeptWriter& writer, Number after) const {
  const auto& [things, newest, oldest] = *this;
  Number before = after;
  for (Index index = oldest; index != kNone; index = newerThan(index)) {
    const auto& [number, newer, older] = things[index];
    writer.number(number - before);
    writer.number(index);
    before = number;
  }
  writer.number(0);
}

void ChangeOrder::restore(KeptReader& reader, Number after, Number last) {
  [[maybe_unused]] const auto& [things, newest, oldest] = *this;
  Number number = after;
  while (const Number more = reader.number(last - number)) {
    number += more;
    const std::uint64_t index = reader.number(kNone);
    if (index >= things.size() || contains(static_cast<Index>(index))) {
      throw KeptFault("what was kept has a change of nothing, or two of one");
    }
    append(static_cast<Index>(index), number);
  }
}

bool ChangeOrder::find(Number after, Search& search, std::size_t& steps) const {
  const bool goesOn =
      search.at < size() && search.seen > after && numberOf(search.at) == search.seen;
  Index at = goesOn ? search.at : newest_;
  if (oldest_ != kNone && numberOf(oldest_) > after) {
    at = oldest_;  // a search for everything
  }
  if (at != kNone && numberOf(at) <= after) {
    at = kNone;
  }
  while (at != kNone && !isFirstAfter(after, at)) {
    if (steps == 0) {
      search = {at, numberOf(at)};
      return false;
    }
    --steps;
    at = olderThan(at);
  }
  search = {at, 0};
  return true;
}

}  // namespace sorvane
