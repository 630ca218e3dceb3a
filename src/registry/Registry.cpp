#include "registry/Registry.h"

#include <mutex>
#include <utility>

#include "platform/NSException.h"
#include "platform/TimeSource.h"

namespace sorvane {

Registry::Registry() { stampTime(); }

void Registry::enterPort(std::string_view name, std::shared_ptr<PortDescriptor> record) {
  // The replaced record is released outside the lock.
  const PortTable::Record replaced =
      state_.with([&](RegistryState& state) { return state.map.enter(name, std::move(record)); });
}

void Registry::removePort(std::string_view name) {
  const PortTable::Record removed =
      state_.with([&](RegistryState& state) { return state.map.remove(name); });
}

std::shared_ptr<PortDescriptor> Registry::port(std::string_view name) const {
  return state_.with([&](const RegistryState& state) {
    const PortTable::Record* const found = state.map.find(name);
    return found == nullptr ? nullptr : *found;
  });
}

std::size_t Registry::portCount() const {
  return state_.with([](const RegistryState& state) { return state.map.size(); });
}

std::int64_t Registry::takePortNumber(std::int64_t basePort) {
  return state_.with([&](RegistryState& state) {
    if (state.maxport == 0) {
      state.maxport = basePort + 1;
    }
    return state.maxport++;
  });
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
  const double now = timeIntervalSinceReferenceDate();
  state_.with([&](RegistryState& state) {
    dropped.swap(state.databaseStateString);
    ++state.stateVersion;
    watchingPortsList_.setAllDirty();
    state.timestampFlag = now;
  });
}

void Registry::setForceRefreshToDirty() {
  state_.with([](RegistryState& state) {
    const std::int32_t next = state.forceRefreshNumber + 1;
    state.forceRefreshNumber = next < 10001 ? next : 1;
  });
}

void Registry::stampTime() {
  const double now = timeIntervalSinceReferenceDate();
  state_.with([&](RegistryState& state) { state.timestampFlag = now; });
}

Registry::ChangeStamp Registry::changeStamp() const {
  return state_.with([](const RegistryState& state) {
    return ChangeStamp{state.timestampFlag, state.forceRefreshNumber};
  });
}

}  // namespace sorvane
