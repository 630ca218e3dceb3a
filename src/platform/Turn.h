// Requests that came together on one connection.
#pragma once

#include <array>
#include <cstddef>

namespace sorvane {

/// Spans several deliveries, one after the other, on one serving thread. The delegate may keep
/// locks from one delivery to the next instead of taking them for each. A turn is short: it ends,
/// and releases the locks, before the server sends or waits.
class Turn {
 public:
  Turn() = default;
  ~Turn() {
    while (count_ > 0) {
      const Kept& last = kept_[--count_];
      last.unlock(last.lock);
    }
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  /// True when the turn keeps any lock.
  [[nodiscard]] bool holdsLocks() const { return count_ > 0; }
  /// Takes over a lock that this thread holds. The lock taken over last is released first. A turn
  /// keeps two locks at most.
  template <typename Lock>
  void keep(Lock& lock) {
    kept_[count_++] = {&lock, [](void* kept) { static_cast<Lock*>(kept)->unlock(); }};
  }

 private:
  struct Kept {
    void* lock;
    void (*unlock)(void* lock);
  };

  std::array<Kept, 2> kept_;
  std::size_t count_ = 0;
};

}  // namespace sorvane
