// The registry: ports by name, watchers, launcher hosts, and what is derived from them.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Guarded.h"
#include "platform/VNThreadLock.h"
#include "registry/RegistryState.h"
#include "registry/WatchList.h"

namespace sorvane {

/// Protects itself, because the end of a connection changes it without `serverLock`: each operation
/// takes the inner lock for its own length, does memory work only, and calls nobody outside. Order
/// of locks: `serverLock`, then `setDirtyLock` (only ever tried), then the inner lock.
class Registry {
 public:
  Registry();

  // ---- Ports

  /// Enters the record under the name, in place of any earlier record of that name.
  void enterPort(std::string_view name, std::shared_ptr<PortDescriptor> record);
  /// Removes what is entered under the name, whichever record that is.
  void removePort(std::string_view name);
  /// The record under the name, or null.
  [[nodiscard]] std::shared_ptr<PortDescriptor> port(std::string_view name) const;
  /// Calls `use(const PortDescriptor&)` with the record under the name, inside the inner lock, and
  /// takes no share in it. Answers whether there is one.
  template <typename Use>
  [[nodiscard]] bool withPort(std::string_view name, Use&& use) const {
    return state_.with([&](const RegistryState& state) {
      const PortTable::Record* const found = state.map.find(name);
      if (found == nullptr) {
        return false;
      }
      use(static_cast<const PortDescriptor&>(**found));
      return true;
    });
  }
  /// Calls `use(PortDescriptor&)` with the record of each entry, a slice of the map at a time, so
  /// that a long map keeps no closing connection waiting. Needs `serverLock`: nothing is entered
  /// meanwhile, though entries may go.
  template <typename Use>
  void forEachPort(Use&& use);
  [[nodiscard]] std::size_t portCount() const;

  /// The next port number of the counter, which begins above the base port.
  [[nodiscard]] std::int64_t takePortNumber(std::int64_t basePort);

  // ---- Watchers

  [[nodiscard]] WatchList& watchingPortsList() { return watchingPortsList_; }

  /// What every change calls: marks all watchers, notes the time and drops the state list. Does
  /// nothing when a marking is under way on another thread, which marks the same watchers: once
  /// more when the change came too late for it.
  void setWatchToDirty();
  /// The marking itself. The alert list deliberately stays.
  void markWatchers();
  /// Advances the forced-refresh number: 1 to 10000, then 1 again.
  void setForceRefreshToDirty();
  /// Notes the time of a change.
  void stampTime();

  struct ChangeStamp {
    double timestampFlag;
    std::int32_t forceRefreshNumber;
  };
  [[nodiscard]] ChangeStamp changeStamp() const;

  /// Guards the marking of watchers; only ever tried.
  [[nodiscard]] VNThreadLock& setDirtyLock() { return setDirtyLock_; }

  // ---- The rest, an operation at a time: host lists and the two kept lists

  /// Calls `operation(RegistryState&)` inside the inner lock.
  template <typename Operation>
  decltype(auto) with(Operation&& operation) {
    return state_.with(std::forward<Operation>(operation));
  }

 private:
  static constexpr std::size_t kSlice = 256;  // slots

  // Protecting themselves.
  Guarded<RegistryState> state_;
  WatchList watchingPortsList_;
  VNThreadLock setDirtyLock_;
  std::atomic<bool> markingIsDue_ = false;  // a change was made and no marking has begun since
};

template <typename Use>
void Registry::forEachPort(Use&& use) {
  std::size_t next = 0;
  for (bool more = true; more;) {
    state_.with([&](const RegistryState& state) {
      const PortTable& map = state.map;
      std::array<PortDescriptor*, kSlice> records;
      std::size_t count = 0;
      const std::size_t end = std::min(next + kSlice, map.slotCount());
      for (; next < end; ++next) {
        if (PortDescriptor* const record = map.inSlot(next).get()) {
          __builtin_prefetch(record);
          records[count++] = record;
        }
      }
      // A long map's records lie all over the memory: fetching those of a slice beside each other
      // takes a fraction of waiting for one after the other.
      for (std::size_t each = 0; each < count; ++each) {
        records[each]->prefetchTexts();
      }
      for (std::size_t each = 0; each < count; ++each) {
        use(*records[each]);
      }
      more = next < map.slotCount();
    });
  }
}

}  // namespace sorvane
