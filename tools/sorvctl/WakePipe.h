// Wakes a thread that waits in poll(2).
#pragma once

#include <array>

namespace sorvctl {

class WakePipe {
 public:
  /// Throws a Failure of `saidNo` when the system has no pipe for it.
  WakePipe();
  ~WakePipe();
  WakePipe(const WakePipe&) = delete;
  WakePipe& operator=(const WakePipe&) = delete;

  /// Can be read from after `wake`, until `clear`.
  [[nodiscard]] int descriptor() const { return ends_[0]; }
  /// Any thread.
  void wake() const;
  void clear() const;

 private:
  std::array<int, 2> ends_{};
};

}  // namespace sorvctl
