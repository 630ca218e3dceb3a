#include "registry/Registry.h"

#include <array>
#include <cstdio>
#include <mutex>
#include <random>
#include <utility>

#include "platform/NSException.h"
#include "platform/TimeSource.h"

namespace sorvane {
namespace {

constexpr std::size_t kLongAlertList = 65536;

std::string drawInstance() {
  std::random_device random;
  std::string name;
  for (int word = 0; word < 4; ++word) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(random()));
    name += digits;
  }
  return name;
}

}  // namespace

Registry::Registry(const RegistryLimits& limits) : state_(limits), instance_(drawInstance()) {
  stampTime();
}

void Registry::enterPort(OwnedPortName name, std::shared_ptr<PortDescriptor> record) {
  // The replaced record is released outside the lock.
  const PortMap::Record replaced = state_.with(
      [&](RegistryState& state) { return state.map.enter(std::move(name), std::move(record)); });
}

void Registry::endPort(PortDescriptor& record) {
  PortMap::Record removed;
  const auto name = PortMap::nameThatEndsWith(record);
  const bool leavesTooMuch = state_.with([&](RegistryState& state) {
    removed = state.map.end(record, name);
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
    more = state_.with([&](RegistryState& state) {
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
  state_.with([&](RegistryState& state) {
    dropped.swap(state.databaseStateString);
    if (state.databaseAlertString != nullptr &&
        state.databaseAlertString->size() > kLongAlertList) {
      droppedAlerts.swap(state.databaseAlertString);
    }
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
