// The pause of the serving loops between two of their turns.
//
// The one who pauses                          Each loop
//
//   beginSettingAside()                         hands no further request to a waiting thread
//        waits until waiting threads and disks have worked off what they have
//   askToStand(), wakes the loops               stand(), after the turn that it is in
//   waitForLoops()                                |
//        waits until the threads and disks        |
//        have nothing to do                       |
//   settle()                                      calls `settle`
//        whatever; no loop touches a              |
//        connection                               |
//   goOn(), wakes the loops                     goes on
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>

namespace sorvane {

/// One thread pauses at a time; it is no loop's.
class ServingPause {
 public:
  using Clock = std::chrono::steady_clock;

  // ---- For the loops. Each takes the time of one load.

  /// True when the loops are to stand.
  [[nodiscard]] bool isAskedFor() const { return wish() == Wish::standing; }
  /// True when a request that has to wait must not go to a waiting thread yet.
  [[nodiscard]] bool setsAside() const { return wish() != Wish::none; }
  /// Stands until the pause is over. Calls `settle` when the one who pauses wants it.
  void stand(const std::function<void()>& settle);

  // ---- For the one who pauses

  void beginSettingAside() { wish_.store(Wish::settingAside); }
  /// From now on a loop stands after its turn. Wake all of them then.
  void askToStand();
  /// Waits until `loops` of them stand. Returns false if they do not at `end`.
  [[nodiscard]] bool waitForLoops(std::size_t loops, Clock::time_point end);
  /// Lets `loops` of them, which stand, call `settle`, and waits for the end of that. Returns false
  /// if one has not come to it at `end`.
  [[nodiscard]] bool settle(std::size_t loops, Clock::time_point end);
  /// The loops go on, and set nothing aside any more. Wake all of them then.
  void goOn();

 private:
  enum class Wish : std::uint8_t { none, settingAside, standing };
  [[nodiscard]] Wish wish() const { return wish_.load(std::memory_order_relaxed); }

  std::atomic<Wish> wish_{Wish::none};  // changed for `standing`, and from it, with mutex_ held
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t standing_ = 0;    // loops; guarded by mutex_
  std::uint64_t settling_ = 0;  // how often `settle` was called; guarded by mutex_
  std::size_t settled_ = 0;     // loops, since the last of these calls; guarded by mutex_
};

}  // namespace sorvane
