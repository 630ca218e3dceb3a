// A thread whose system calls a test can interrupt by a signal.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <functional>
#include <thread>

namespace sorvane::test {

/// Runs `body` on a thread of its own. While one lives, SIGUSR1 of this process belongs to it.
class InterruptedThread {
 public:
  explicit InterruptedThread(std::function<void()> body);
  ~InterruptedThread();
  InterruptedThread(const InterruptedThread&) = delete;
  InterruptedThread& operator=(const InterruptedThread&) = delete;

  /// Waits until the thread waits in a system call, and interrupts that.
  void interrupt();
  /// Waits until `body` is done.
  void join() { thread_.join(); }

 private:
  struct sigaction earlier_ {};
  std::atomic<pid_t> number_{0};
  std::thread thread_;
};

}  // namespace sorvane::test
