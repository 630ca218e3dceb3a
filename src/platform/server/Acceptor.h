// Accepts connections, within the limits, and gives each to the serving loop with the fewest.
#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "platform/Console.h"
#include "platform/Descriptor.h"
#include "platform/server/Poller.h"
#include "platform/server/ServingLoop.h"

namespace sorvane {

/// Belongs to the loop that watches the listening socket. It keeps a spare descriptor. When
/// descriptors run out, it frees the spare one, so that the process can still open a file, and
/// pauses. Meanwhile new connections wait in the system's queue. It goes on when it can open a
/// spare descriptor again.
class Acceptor {
 public:
  /// How long it pauses when descriptors have run out.
  static constexpr std::chrono::milliseconds kBackOff{100};

  /// Allows `maximumConnections` at once. A further connection is closed.
  Acceptor(int listener, int maximumConnections, ServerContext& context,
           const std::vector<std::unique_ptr<ServingLoop>>& loops);

  /// Accepts the connection that has waited longest.
  void acceptOne(Poller& poller);

  /// True while accepting is paused. Call `goOn` at `pausedUntil` then.
  [[nodiscard]] bool isPaused() const { return paused_; }
  [[nodiscard]] DeadlineQueue::Clock::time_point pausedUntil() const { return pausedUntil_; }
  /// Accepts again, or goes on pausing if no descriptor is free yet.
  void goOn(Poller& poller);

 private:
  [[nodiscard]] bool mayConnect(int descriptor) const;
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
