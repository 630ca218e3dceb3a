// A mutual-exclusion lock that can be tried.
#pragma once

#include <mutex>

namespace sorvane {

/// Not recursive: the thread that holds it must not take it again. Unlocked by the thread that
/// locked it.
class VNThreadLock {
 public:
  /// Waits until this thread holds the lock.
  void lock() { mutex_.lock(); }

  void unlock() { mutex_.unlock(); }

  /// True when the lock was free and this thread now holds it; never waits.
  [[nodiscard]] bool tryLock() { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

}  // namespace sorvane
