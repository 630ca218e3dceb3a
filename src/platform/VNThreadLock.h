// A mutual-exclusion lock that can be tried.
#pragma once

#include <mutex>

namespace sorvane {

/// Not recursive: the thread that holds the lock must not take it again. The thread that took the
/// lock releases it.
class VNThreadLock {
 public:
  /// Waits until this thread holds the lock.
  void lock() { mutex_.lock(); }

  void unlock() { mutex_.unlock(); }

  /// Takes the lock if it is free. Returns true if this thread holds it now. Never waits.
  [[nodiscard]] bool tryLock() { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

}  // namespace sorvane
