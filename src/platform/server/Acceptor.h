// Accepts connections and spreads them over the serving loops, within the limits.
#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "platform/Console.h"
#include "platform/Descriptor.h"
#include "platform/server/Poller.h"
#include "platform/server/ServingLoop.h"

namespace sorvane {

/// Belongs to the loop that watches the listening socket. When descriptors run out it stops for a
/// while, so that it does not spin, and goes on when some are free; those who want to connect wait
/// in the system's queue meanwhile. It never takes the last descriptor: it goes on only once it has
/// a spare one in hand, so that the process can still open a file.
class Acceptor {
 public:
  static constexpr std::chrono::milliseconds kBackOff{100};

  /// At most `maximumConnections` at once; a further one is closed.
  Acceptor(int listener, int maximumConnections, ServerContext& context,
           const std::vector<std::unique_ptr<ServingLoop>>& loops);

  /// Accepts the connection that has waited longest.
  void acceptOne(Poller& poller);

  /// True when accepting has stopped; `goOn` is then due at `pausedUntil`.
  [[nodiscard]] bool isPaused() const { return paused_; }
  [[nodiscard]] DeadlineQueue::Clock::time_point pausedUntil() const { return pausedUntil_; }
  void goOn(Poller& poller);

 private:
  void pause(Poller& poller);
  [[nodiscard]] ServingLoop& leastLoaded() const;

  const int listener_;
  const int maximumConnections_;
  ServerContext& context_;
  const std::vector<std::unique_ptr<ServingLoop>>& loops_;
  ConsoleRateLimit console_;
  Descriptor spare_;
  bool paused_ = false;
  DeadlineQueue::Clock::time_point pausedUntil_;
};

}  // namespace sorvane
