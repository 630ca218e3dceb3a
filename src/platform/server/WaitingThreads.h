// Threads that may wait: for a lock, for a disk, for a console. The serving threads never do.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace sorvane {

/// Runs what it is given, in the order in which it came, on at most `maximum` threads: one that is
/// there from the start, and further ones when they are needed and to be had. It is never
/// destroyed: its threads live as long as the process. Any thread.
class WaitingThreads {
 public:
  explicit WaitingThreads(std::size_t maximum);
  WaitingThreads(const WaitingThreads&) = delete;
  WaitingThreads& operator=(const WaitingThreads&) = delete;

  /// An exception that leaves `work` ends the process.
  void run(std::function<void()> work);

 private:
  void startThread();  // mutex_ is held
  [[noreturn]] void workForever();

  const std::size_t maximum_;
  std::mutex mutex_;
  std::condition_variable workCame_;
  std::deque<std::function<void()>> queue_;  // guarded by mutex_
  std::size_t threads_ = 0;                  // guarded by mutex_
  std::size_t idle_ = 0;                     // guarded by mutex_
};

}  // namespace sorvane
