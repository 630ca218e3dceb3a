#include "registry/Registry.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <mutex>
#include <new>
#include <random>
#include <utility>

#include "platform/NSException.h"
#include "platform/TimeSource.h"

namespace sorvane {
namespace {

constexpr std::size_t kLongAlertList = 65536;
constexpr int kInstanceWords = 4;
constexpr std::size_t kDigitsOfWord = 8;

std::string drawInstance() {
  std::random_device random;
  std::string name;
  for (int word = 0; word < kInstanceWords; ++word) {
    char digits[kDigitsOfWord + 1];
    std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(random()));
    name += digits;
  }
  return name;
}

bool isInstance(std::string_view name) {
  return name.size() == kInstanceWords * kDigitsOfWord && std::ranges::all_of(name, [](char each) {
           return (each >= '0' && each <= '9') || (each >= 'a' && each <= 'f');
         });
}

}  // namespace

Registry::Registry(const RegistryLimits& limits) : instance_(drawInstance()), state_(limits) {
  stampTime();
}

void Registry::enterPort(OwnedPortName name, std::shared_ptr<PortDescriptor> record,
                         int connection) {
  // The replaced record is released outside the lock.
  const PortMap::Record replaced = with([&](RegistryState& state) {
    return state.map.enter(std::move(name), std::move(record), connection);
  });
}

void Registry::endPort(PortDescriptor& record, int connection) {
  PortMap::Record removed;
  const auto name = PortMap::nameThatEndsWith(record);
  const bool leavesTooMuch = with([&](RegistryState& state) {
    removed = state.map.end(record, name, connection);
    return state.map.hasTooMuchLeftBehind();
  });
  if (leavesTooMuch) {
    dropOldestLeftBehind();
  }
}

void Registry::dropOldestLeftBehind() {
  constexpr std::size_t kSliceOfEntries = 32;
  bool more = true;
  while (more) {
    std::array<PortMap::Record, kSliceOfEntries> dropped;  // destroyed outside the lock
    std::size_t count = 0;
    more = with([&](RegistryState& state) {
      while (count < dropped.size() && state.map.hasTooMuchLeftBehind()) {
        dropped[count++] = state.map.removeOldestLeftBehind();
      }
      return count == dropped.size();
    });
    droppedPorts_ += count;
  }
}

std::shared_ptr<PortDescriptor> Registry::port(const PortName& name) const {
  return state_.with([&](const RegistryState& state) {
    const PortMap::Record* const found = state.map.find(name);
    return found == nullptr ? nullptr : *found;
  });
}

std::size_t Registry::portCount() const {
  return state_.with([](const RegistryState& state) { return state.map.size(); });
}

void Registry::setWatchToDirty() {
  dirtyIsDue_ = true;
  while (dirtyIsDue_ && setDirtyLock_.tryLock()) {
    const std::lock_guard<VNThreadLock> hold(setDirtyLock_, std::adopt_lock);
    dirtyIsDue_ = false;
    try {
      setWatchersDirty();
    } catch (const NSException&) {  // NOLINT(bugprone-empty-catch): goes on as if it had worked
    }
  }
}

void Registry::setWatchersDirty() {
  std::shared_ptr<const std::string> dropped;
  std::shared_ptr<const std::string> droppedAlerts;
  const double now = timeIntervalSinceReferenceDate();
  with([&](RegistryState& state) {
    dropped.swap(state.databaseStateString);
    if (state.databaseAlertString != nullptr &&
        state.databaseAlertString->size() > kLongAlertList) {
      droppedAlerts.swap(state.databaseAlertString);
    }
    ++state.stateVersion;
    if (journal_ != nullptr) {
      journal_->setTimesSetDirty(watchingPortsList_.timesSetDirty() + 1);
      journal_->setChangeTime(now);
      journal_->changesAreTold();
    }
    watchingPortsList_.setAllDirty();
    state.timestampFlag = now;
  });
}

void Registry::setForceRefreshToDirty() {
  state_.with([&](RegistryState& state) {
    const std::int32_t next = state.forceRefreshNumber + 1;
    state.forceRefreshNumber = next < 10001 ? next : 1;
    if (journal_ != nullptr) {
      journal_->setRefreshNumber(state.forceRefreshNumber);
    }
  });
}

void Registry::stampTime() {
  const double now = timeIntervalSinceReferenceDate();
  state_.with([&](RegistryState& state) {
    state.timestampFlag = now;
    if (journal_ != nullptr) {
      journal_->setChangeTime(now);
    }
  });
}

Registry::ChangeStamp Registry::changeStamp() const {
  return state_.with([](const RegistryState& state) {
    return ChangeStamp{state.timestampFlag, state.forceRefreshNumber};
  });
}

// Here, and in each `keep` and `restore` of what the registry consists of, a structured binding has
// all members of the class. So a member that is added does not compile until somebody has decided
// whether it is kept: docs/continuity.md tells how to add it.
void Registry::keep(KeptWriter& writer, const RegistryState& kept, KeptPart part) const {
  [[maybe_unused]] const auto& [instance, state, watchers, setDirtyLock, droppedPorts, dirtyIsDue,
                                journal] = *this;
  const auto& [low, high] = SipKey::ofThisProcess();
  writer.number(low);
  writer.number(high);
  writer.text(instance);
  writer.number(watchers.kept());
  writer.number(droppedPorts);
  writer.flag(dirtyIsDue);
  kept.keep(writer, part);
}

void Registry::keep(KeptWriter& writer, KeptRecords& records) const {
  state_.with([&](const RegistryState& state) { keep(writer, state, KeptPart::all); });
  records.registry_ = this;
}

Registry::Kept Registry::readKept(KeptReader& reader) const {
  Kept kept(state_.with([](const RegistryState& now) { return now.map.limits(); }));
  kept.key.low = reader.number();
  kept.key.high = reader.number();
  kept.instance = reader.text();
  if (!isInstance(kept.instance)) {
    throw KeptFault("what was kept has no name of the registry");
  }
  kept.timesSetDirty = reader.number();
  kept.droppedPorts = reader.number();
  kept.dirtyIsDue = reader.flag();
  kept.state.restore(reader, kept.key, {watchingPortsList_.timesSetDirty(), kept.timesSetDirty});
  return kept;
}

void Registry::become(Kept&& kept) {
  instance_.swap(kept.instance);
  watchingPortsList_.restore(kept.timesSetDirty);
  const PortTable& table = kept.state.map.table();
  for (auto index = table.changes().oldest(); index != ChangeOrder::kNone;
       index = table.changes().newerThan(index)) {
    watchingPortsList_.addRestored(*table.inSlot(index));
  }
  droppedPorts_ = kept.droppedPorts;
  dirtyIsDue_ = kept.dirtyIsDue;
  state_.with([&](RegistryState& now) { std::swap(now, kept.state); });
}

void Registry::restore(KeptReader& reader, RestoredRecords& records) {
  Kept kept = readKept(reader);
  std::vector<bool> isClaimed(kept.state.map.slotCount());
  if (!SipKey::setOfThisProcess(kept.key)) {
    throw KeptFault("what was kept has another key of hashes than this process");
  }
  become(std::move(kept));
  records.registry_ = this;
  records.isClaimed_.swap(isClaimed);
}

bool Registry::beginJournal(Journal& journal) {
  return state_.with([&](RegistryState& state) {
    journal_ = &journal;
    state.map.setJournal(&journal);
    journal.setTimesSetDirty(watchingPortsList_.timesSetDirty());
    journal.setChangeTime(state.timestampFlag);
    journal.setNextPortNumber(state.maxport);
    journal.setRefreshNumber(state.forceRefreshNumber);
    journal.changesAreTold();
    writeJournalBase(state);
    journal.startThread(state.map.limits());
    return !journal.hasEnded();
  });
}

void Registry::trimJournal(const RegistryState& state) noexcept {
  if (!journal_->beginOnThread(state.map.bytes())) {
    writeJournalBase(state);
  }
}

void Registry::writeJournalBase(const RegistryState& state) noexcept {
  try {
    KeptWriter base;
    journal_->keepChanges(base);
    keep(base, state, KeptPart::inJournal);
    journal_->keepConnections(base, state.map.table());
    journal_->begin(base);
  } catch (const std::bad_alloc&) {
    journal_->cannotBegin();
  }
}

}  // namespace sorvane
