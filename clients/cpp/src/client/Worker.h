// An object that works on a thread of its own.
#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "client/net/WakePipe.h"
#include "sorvane/client.h"

namespace sorvane::client::detail {

/// The thread shares the object with whoever has started it, so that a callback may give it up.
class Worker {
 public:
  Worker() : isReady_(stopped_.open()) {}
  virtual ~Worker() = default;
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// Starts the thread of a worker; the error is `system`.
  static Result<void> start(const std::shared_ptr<Worker>& worker);

  /// Ends the thread and waits for that; on the thread itself, within a callback, it does not wait.
  /// To be called once.
  void stop();

  /// True within callbacks. Any thread.
  [[nodiscard]] bool isOwnThread() const { return number_ == std::this_thread::get_id(); }

 protected:
  /// What the thread does. It returns soon after `stop`.
  virtual void run() = 0;
  /// Wakes the thread from waits of its own, when it is to end.
  virtual void wakeToStop() {}

  [[nodiscard]] bool isStopping() const { return stopping_; }
  /// Readable when the thread is to end.
  [[nodiscard]] int stopDescriptor() const { return stopped_.descriptor(); }
  /// Waits for 0.2 to 2 seconds, at random, so that those who lost the same name server do not all
  /// come back at once; not longer than until the end of the thread.
  void pauseBeforeRetry() const;
  /// Waits until then, or until the end of the thread.
  void pauseUntil(std::chrono::steady_clock::time_point time) const;

 private:
  const pid_t process_ = getpid();
  WakePipe stopped_;
  const bool isReady_;
  std::atomic<bool> stopping_ = false;
  std::atomic<std::thread::id> number_;
  std::thread thread_;  // belongs to the one who starts and stops it
};

}  // namespace sorvane::client::detail
