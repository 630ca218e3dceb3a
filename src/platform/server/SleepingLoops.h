// The serving loops that hold requests and wait for a change.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/server/Poller.h"

namespace sorvane {

/// Whoever may have made changes announces how many there have been in all. That wakes the loops
/// which sleep, each once. It costs two loads when nobody sleeps and the last change was announced.
///
/// No change is missed: a loop goes on the list first and looks then whether there is news, and who
/// announces leaves the news first and looks then who is on the list. Both are done in one order
/// that all threads agree on (`std::memory_order_seq_cst`), so one of the two sees the other.
class SleepingLoops {
 public:
  /// The place of a loop in the list. Lives as long as the list is used.
  class Sleeper {
   public:
    explicit Sleeper(Poller& poller) : poller_(poller) {}
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;

   private:
    friend class SleepingLoops;
    Poller& poller_;
    std::atomic<bool> isListed_ = false;
    Sleeper* next_ = nullptr;  // belongs to the one who lists it, then to the one who wakes it
  };

  /// Puts a loop on the list, if it is not there, so that the next announcement wakes it. Returns
  /// whether it may sleep: false if more than the `told` changes were announced. Called by the
  /// loop's own thread.
  [[nodiscard]] bool maySleep(Sleeper& sleeper, std::uint64_t told) {
    if (!sleeper.isListed_.load(std::memory_order_acquire)) {
      sleeper.isListed_.store(true, std::memory_order_relaxed);
      Sleeper* first = first_.load(std::memory_order_relaxed);
      do {
        sleeper.next_ = first;
      } while (!first_.compare_exchange_weak(first, &sleeper));
    }
    return announced_.load() <= told;
  }

  /// Notes that there have been so many changes in all, and wakes all loops on the list but `self`,
  /// which may be null. They are off the list then. Any thread, outside all locks.
  void announce(std::uint64_t changes, const Sleeper* self) {
    std::uint64_t before = announced_.load();
    do {
      if (before >= changes) {
        return;
      }
    } while (!announced_.compare_exchange_weak(before, changes));
    if (first_.load() != nullptr) {
      wakeAll(first_.exchange(nullptr), self);
    }
  }

 private:
  static void wakeAll(Sleeper* each, const Sleeper* self) {
    while (each != nullptr) {
      Sleeper& sleeper = *each;
      each = sleeper.next_;
      sleeper.isListed_.store(false, std::memory_order_release);
      if (&sleeper != self) {
        sleeper.poller_.wake();
      }
    }
  }

  std::atomic<std::uint64_t> announced_ = 0;  // changes; never becomes less
  std::atomic<Sleeper*> first_ = nullptr;
};

}  // namespace sorvane
