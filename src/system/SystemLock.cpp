#include "system/SystemLock.h"

#include <memory>

namespace sorvane {
namespace {

/// Returns the mutex; the first call makes it. When several threads make one at the same time, one
/// of these is kept and all threads get it.
pthread_mutex_t* theMutex() {
  pthread_mutex_t* existing = systemLock.load(std::memory_order_acquire);
  if (existing != nullptr) {
    return existing;
  }
  auto fresh = std::make_unique<pthread_mutex_t>();
  pthread_mutex_init(fresh.get(), nullptr);
  if (systemLock.compare_exchange_strong(existing, fresh.get(), std::memory_order_acq_rel)) {
    return fresh.release();
  }
  pthread_mutex_destroy(fresh.get());
  return existing;
}

}  // namespace

std::atomic<pthread_mutex_t*> systemLock{nullptr};

int QB_lock_mutex(pthread_mutex_t* mutex) { return pthread_mutex_lock(mutex); }

int QB_unlock_mutex(pthread_mutex_t* mutex) { return pthread_mutex_unlock(mutex); }

SystemLock::SystemLock() { QB_lock_mutex(theMutex()); }

SystemLock::~SystemLock() {
  if (held_) {
    release();
  }
}

int SystemLock::release() {
  held_ = false;
  return QB_unlock_mutex(theMutex());
}

}  // namespace sorvane
