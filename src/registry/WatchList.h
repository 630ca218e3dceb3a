// The connections that watch for changes.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "registry/PortDescriptor.h"

namespace sorvane {

/// A list that may hold a record more than once. It behaves as if marking went through it and set
/// the flag of each record, and costs the same with one watcher as with a hundred thousand: the
/// list only counts its markings, and each record remembers the count at which it was last cleared
/// and how often it is on the list.
///
/// `append` and `remove` of one record are never called at the same time (both belong to the
/// record's own connection); everything else may be, from any thread and without a lock. Outlives
/// the records' stay on it.
class WatchList {
 public:
  /// Appends the record, be it there already or not, and sets its flag.
  void append(PortDescriptor& record) {
    record.joinWatchList(markings_);
    record.setDirty(true);
    count_.fetch_add(1, std::memory_order_relaxed);
  }

  /// Takes out every occurrence of the record; its flag stays as it is.
  void remove(PortDescriptor& record) {
    count_.fetch_sub(record.leaveWatchList(), std::memory_order_relaxed);
  }

  /// Sets the flag of every record that is on the list now.
  void markAll() { markings_.fetch_add(1, std::memory_order_release); }

  [[nodiscard]] static bool contains(const PortDescriptor& record) {
    return record.timesOnWatchList() > 0;
  }

  /// Length of the list, a record counted as often as it is on it.
  [[nodiscard]] std::size_t count() const { return count_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::uint64_t> markings_ = 0;
  std::atomic<std::size_t> count_ = 0;
};

}  // namespace sorvane
