// The system lock. It is held while a file is opened or closed, and while a shell command runs.
#pragma once

#include <pthread.h>

#include <atomic>

namespace sorvane {

/// The mutex of the system lock. It is null until the first call that needs it, and is never
/// destroyed.
extern std::atomic<pthread_mutex_t*> systemLock;

/// Locks or unlocks `mutex`. Returns what the system returns, 0 for success.
int QB_lock_mutex(pthread_mutex_t* mutex);
int QB_unlock_mutex(pthread_mutex_t* mutex);

/// Holds the system lock from its construction until `release` or its destruction. The first object
/// makes the mutex.
class SystemLock {
 public:
  SystemLock();
  ~SystemLock();
  SystemLock(const SystemLock&) = delete;
  SystemLock& operator=(const SystemLock&) = delete;

  /// Releases the lock early. Returns what the system returns, 0 for success.
  int release();

 private:
  bool held_ = true;
};

}  // namespace sorvane
