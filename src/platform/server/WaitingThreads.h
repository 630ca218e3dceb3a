// Threads that may wait for a lock or a disk. The serving threads must not.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

#include "platform/Delivery.h"

namespace sorvane {

/// Runs work in the order in which it came, but for `runNext`, on at most `maximum` threads. One
/// thread is started at once. Further ones are started when they are needed, if the system has any.
/// Never destroyed: its threads live as long as the process. Any thread.
class WaitingThreads {
 public:
  explicit WaitingThreads(std::size_t maximum);
  WaitingThreads(const WaitingThreads&) = delete;
  WaitingThreads& operator=(const WaitingThreads&) = delete;

  /// Queues `work` and returns at once. An exception that leaves `work` ends the process.
  void run(std::function<void()> work);
  /// The same for work that comes before all that is queued.
  void runNext(std::function<void()> work);

  /// Waits until no thread has work and none is queued. Returns false if there is some at `end`.
  [[nodiscard]] bool waitUntilIdle(std::chrono::steady_clock::time_point end);
  /// Does the same. After true, what is queued waits for `goOn`.
  [[nodiscard]] bool stopWhenIdle(std::chrono::steady_clock::time_point end);
  /// Goes on after `stopWhenIdle`; nothing happens when it is not stopped.
  void goOn();

 private:
  void startThread();     // mutex_ is held
  void provideForWork();  // mutex_ is held
  [[noreturn]] void workForever();
  /// Waits as `waitUntilIdle` does. `hold` holds mutex_.
  [[nodiscard]] bool becomesIdle(std::unique_lock<std::mutex>& hold,
                                 std::chrono::steady_clock::time_point end);

  const std::size_t maximum_;
  std::mutex mutex_;
  std::condition_variable workCame_;
  std::condition_variable workEnded_;
  std::deque<std::function<void()>> queue_;  // guarded by mutex_
  std::size_t threads_ = 0;                  // guarded by mutex_
  std::size_t idle_ = 0;                     // guarded by mutex_
  bool isStopped_ = false;                   // guarded by mutex_
};

/// The one thread for work that may wait for that disk. The first call starts the threads of all
/// disks; it raises std::system_error when the system has no thread left.
WaitingThreads& threadOf(Disk disk);

}  // namespace sorvane
