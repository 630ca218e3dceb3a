// Requests that came together on one connection.
#pragma once

#include <mutex>

#include "platform/VNThreadLock.h"

namespace sorvane {

/// Spans several deliveries, one after the other, on one serving thread. The delegate may keep a
/// lock from one delivery to the next instead of taking it for each. A turn is short: it ends, and
/// releases the lock, before the server sends or waits.
class Turn {
 public:
  /// True when the turn holds this lock.
  [[nodiscard]] bool holds(const VNThreadLock& lock) const { return held_.mutex() == &lock; }
  /// Takes over a lock that this thread holds. A turn holds one lock at most.
  void keep(VNThreadLock& lock) { held_ = {lock, std::adopt_lock}; }

 private:
  std::unique_lock<VNThreadLock> held_;
};

}  // namespace sorvane
