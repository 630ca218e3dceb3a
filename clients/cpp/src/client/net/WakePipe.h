// Lets one thread wake another one that waits in poll(2).
#pragma once

#include "client/net/Descriptor.h"

namespace sorvane::client::detail {

/// A pipe of which one end is readable from a call of `wake` until the next one of `rest`.
class WakePipe {
 public:
  /// Opens it. False when the process has no descriptor left.
  [[nodiscard]] bool open();

  /// Any thread.
  void wake() const;
  void rest() const;
  /// For poll(2).
  [[nodiscard]] int descriptor() const { return reading_.number(); }

 private:
  Descriptor reading_;
  Descriptor writing_;
};

}  // namespace sorvane::client::detail
