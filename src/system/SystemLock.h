// The one lock around whatever creates or destroys an open file, and around shell commands.
#pragma once

#include <pthread.h>

#include <atomic>

namespace sorvane {

/// The system lock: null until the first call that needs it makes it; never destroyed.
extern std::atomic<pthread_mutex_t*> systemLock;

/// Locks or unlocks `mutex`; the answer is the system's, 0 for success.
int QB_lock_mutex(pthread_mutex_t* mutex);
int QB_unlock_mutex(pthread_mutex_t* mutex);

/// Holds the system lock, made at its first use, until `release` or the end of its life.
class SystemLock {
 public:
  SystemLock();
  ~SystemLock();
  SystemLock(const SystemLock&) = delete;
  SystemLock& operator=(const SystemLock&) = delete;

  /// Lets go of the lock early; the answer is the system's, 0 for success.
  int release();

 private:
  bool held_ = true;
};

}  // namespace sorvane
