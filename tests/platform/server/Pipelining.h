// Clients that do not wait for one reply before they send the next request.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "support/RawConnection.h"

namespace sorvane::test {

/// A request to a ScriptedDelegate that is its own reply. Some of them wait for a thread or a disk.
[[nodiscard]] std::string numbered(int number);

/// Sends numbered requests, many at once, until it is told to stop. It expects each reply once and
/// in order: anything else fails the running test.
class Pipelining {
 public:
  explicit Pipelining(RawConnection connection);
  /// Stops it.
  ~Pipelining();
  Pipelining(const Pipelining&) = delete;
  Pipelining& operator=(const Pipelining&) = delete;

  [[nodiscard]] int answered() const { return answered_; }
  /// Waits until further requests are answered.
  [[nodiscard]] bool getsOn() const;

 private:
  void run();

  RawConnection connection_;
  std::atomic<bool> isOver_{false};
  std::atomic<int> answered_{0};
  std::thread thread_;
};

}  // namespace sorvane::test
