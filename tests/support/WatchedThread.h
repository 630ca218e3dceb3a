// A thread of a test that can be seen waiting, and interrupted.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <functional>
#include <thread>

namespace sorvane::test {

/// Runs `body` on a thread of its own. While one lives, SIGUSR1 of this process belongs to it.
class WatchedThread {
 public:
  explicit WatchedThread(std::function<void()> body);
  /// Waits until `body` is done.
  ~WatchedThread();
  WatchedThread(const WatchedThread&) = delete;
  WatchedThread& operator=(const WatchedThread&) = delete;

  /// Returns true once the thread waits in the middle of `body`, for a lock for example, and false
  /// when it gets through without.
  [[nodiscard]] bool comesToAWait() const;
  /// Waits until the thread waits in a system call, and interrupts that.
  void interrupt();
  /// Waits until `body` is done.
  void join() { thread_.join(); }

 private:
  struct sigaction earlier_ {};
  std::atomic<pid_t> number_{0};
  std::atomic<bool> done_{false};
  std::thread thread_;
};

}  // namespace sorvane::test
