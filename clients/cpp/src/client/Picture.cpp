#include "client/Picture.h"

#include <utility>

namespace sorvane::client::detail {
namespace {

std::size_t bytesOf(const Entry& entry) {
  return 512 + 2 * entry.name.size() + entry.host.size() + entry.address.size() +
         entry.type.size() + entry.state.size() + entry.alert.size();
}

}  // namespace

Result<void> Picture::apply(Page page) {
  if (page.restart) {
    beginRound();
  }
  for (PageEntry& each : page.entries) {
    if (isOwnName(each.entry.name)) {
      continue;
    }
    if (each.gone) {
      remove(each.entry.name);
    } else if (auto entered = enter(std::move(each.entry)); !entered) {
      return entered;
    }
  }
  if (!page.more) {
    endRound();
  }
  return {};
}

Result<void> Picture::applyAll(std::vector<Entry> entries) {
  beginRound();
  for (Entry& each : entries) {
    if (auto entered = enter(std::move(each)); !entered) {
      return entered;
    }
  }
  endRound();
  return {};
}

Result<void> Picture::enter(Entry entry) {
  const auto place = known_.find(entry.name);
  const bool isNew = place == known_.end();
  const std::size_t bytes = bytes_ - (isNew ? 0 : bytesOf(place->second.entry)) + bytesOf(entry);
  if (bytes > mostBytes_) {
    return Error{ErrorCode::protocol, "the name server tells more than this program can keep"};
  }
  bytes_ = bytes;
  if (isNew) {
    told_({Change::Kind::registered,
           known_.emplace(entry.name, Known{entry, round_}).first->second.entry});
    return {};
  }
  place->second.round = round_;
  if (place->second.entry != entry) {
    place->second.entry = std::move(entry);
    told_({Change::Kind::changed, place->second.entry});
  }
  return {};
}

void Picture::remove(const std::string& name) {
  const auto place = known_.find(name);
  if (place != known_.end()) {
    const auto removed = known_.extract(place);
    bytes_ -= bytesOf(removed.mapped().entry);
    told_({Change::Kind::gone, removed.mapped().entry});
  }
}

void Picture::beginRound() {
  ++round_;
  inRound_ = true;
}

void Picture::endRound() {
  if (!std::exchange(inRound_, false)) {
    return;
  }
  for (auto place = known_.begin(); place != known_.end();) {
    const auto next = std::next(place);
    if (place->second.round != round_) {
      remove(std::string(place->first));
    }
    place = next;
  }
}

std::vector<Entry> Picture::entries() const {
  std::vector<Entry> all;
  all.reserve(known_.size());
  for (const auto& [name, known] : known_) {
    all.push_back(known.entry);
  }
  return all;
}

}  // namespace sorvane::client::detail
