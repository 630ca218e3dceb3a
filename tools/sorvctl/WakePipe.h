// Wakes a thread that waits in poll(2).
#pragma once

#include "platform/Descriptor.h"

namespace sorvctl {

class WakePipe {
 public:
  /// Throws a Failure of `saidNo` when the system has no pipe for it.
  WakePipe();

  /// Can be read from after `wake`, until `clear`.
  [[nodiscard]] int descriptor() const { return ends_.reading.number(); }
  /// Any thread.
  void wake() const;
  void clear() const;

 private:
  sorvane::PipeEnds ends_;
};

}  // namespace sorvctl
