// The connections that watch for changes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "registry/PortDescriptor.h"

namespace sorvane {

/// A list that may hold a record more than once. Setting all its records dirty costs the same with
/// one watcher as with a hundred thousand: the list only counts how often that was done. Each
/// record remembers the count at which its flag was last cleared, and how often it is on the list.
///
/// `append` and `remove` of one record must not run at the same time; both belong to the record's
/// own connection. Otherwise any thread may call anything without a lock. The list must live for as
/// long as records are on it.
class WatchList {
 public:
  /// Appends the record, even when it is on the list already, and sets it dirty.
  void append(PortDescriptor& record) {
    if (record.joinWatchList(timesSetDirty_)) {
      count_.fetch_add(1, std::memory_order_relaxed);
    }
    record.setDirty(true);
  }

  /// Removes every occurrence of the record. Its dirty flag stays as it is.
  void remove(PortDescriptor& record) {
    count_.fetch_sub(record.leaveWatchList(), std::memory_order_relaxed);
  }

  /// Sets every record that is on the list now dirty.
  void setAllDirty() { timesSetDirty_.fetch_add(1, std::memory_order_release); }

  [[nodiscard]] static bool contains(const PortDescriptor& record) {
    return record.timesOnWatchList() > 0;
  }

  /// How often all records were set dirty. Lives as long as the list.
  [[nodiscard]] const std::atomic<std::uint64_t>& timesSetDirty() const { return timesSetDirty_; }

  /// Returns the length of the list. A record counts as often as it is on it.
  [[nodiscard]] std::size_t count() const { return count_.load(std::memory_order_relaxed); }

  /// Returns what is kept of the list: `timesSetDirty`. Its records tell their places on it.
  [[nodiscard]] std::uint64_t kept() const {
    [[maybe_unused]] const auto& [timesSetDirty, count] = *this;
    return timesSetDirty;
  }
  /// Makes this list, which is empty, what was kept; then adds a record that was kept.
  void restore(std::uint64_t kept) { timesSetDirty_ = kept; }
  void addRestored(const PortDescriptor& record) { count_ += record.timesOnWatchList(); }

 private:
  std::atomic<std::uint64_t> timesSetDirty_ = 0;
  std::atomic<std::size_t> count_ = 0;
};

}  // namespace sorvane
