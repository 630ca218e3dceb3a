// Accepts connections, within the limits, and gives each to the serving loop with the fewest.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/Console.h"
#include "platform/Descriptor.h"
#include "platform/server/Poller.h"
#include "platform/server/ServingLoop.h"
#include "platform/server/SocketCalls.h"

namespace sorvane {

/// Belongs to the loop that watches the listening socket. It keeps a spare descriptor. When
/// descriptors run out, it frees the spare one, so that the process can still open a file, and
/// pauses. Meanwhile new connections wait in the system's queue. It goes on when it can open a
/// spare descriptor again. An error that belongs to one connection, which is gone, costs the others
/// nothing.
class Acceptor {
 public:
  /// How long it pauses when descriptors have run out.
  static constexpr std::chrono::milliseconds kBackOff{100};
  /// How many connections it accepts at most in one turn of the loop.
  static constexpr std::size_t kMostOfATurn = 16;
  /// It may accept one for so many events of a turn.
  static constexpr std::size_t kEventsForOne = 8;

  /// Does what `acceptConnection` does.
  using AcceptCall = int (*)(int listener);

  /// Allows `maximumConnections` at once. A further connection is closed.
  Acceptor(int listener, int maximumConnections, ServerContext& context,
           const std::vector<std::unique_ptr<ServingLoop>>& loops,
           AcceptCall accept = acceptConnection);

  /// Returns the listening socket, which is all that is handed on to another program.
  [[nodiscard]] int listener() const;

  /// Accepts those connections that have waited longest: one, or more when the turn of the loop has
  /// many events, and twice as many as in the turn before when even those were there.
  void acceptSome(std::uint64_t turn, std::size_t eventsOfTurn, Poller& poller);

  /// True while accepting is paused. Call `goOn` at `pausedUntil` then.
  [[nodiscard]] bool isPaused() const { return paused_; }
  [[nodiscard]] DeadlineQueue::Clock::time_point pausedUntil() const { return pausedUntil_; }
  /// Accepts again, or goes on pausing if no descriptor is free yet or the poller refuses.
  void goOn(Poller& poller);

 private:
  /// Accepts one connection. Returns false if the rest has to wait: none is there, or accepting is
  /// paused.
  [[nodiscard]] bool acceptOne(Poller& poller);
  [[nodiscard]] bool mayConnect(int descriptor) const;
  void pause(Poller& poller);
  void stopWatching(Poller& poller);
  [[nodiscard]] ServingLoop& leastLoaded() const;

  const int listener_;
  const int maximumConnections_;
  ServerContext& context_;
  const std::vector<std::unique_ptr<ServingLoop>>& loops_;
  const AcceptCall accept_;
  ConsoleRateLimit console_;
  Descriptor spare_;
  std::uint64_t fullTurn_ = 0;  // the last turn in which all were there that it may accept
  std::size_t accepted_ = 0;    // how many these were
  bool paused_ = false;
  DeadlineQueue::Clock::time_point pausedUntil_;
};

}  // namespace sorvane
