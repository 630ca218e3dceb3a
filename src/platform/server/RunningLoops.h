// The loops and threads that serve, as a delegate sees them that asks whether they do.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "platform/RunningServer.h"
#include "platform/server/ServingLoop.h"
#include "platform/server/WaitingThreads.h"

namespace sorvane {

class Acceptor;

/// See RunningServer. A round takes no memory but its place in the queue of the waiting threads.
class RunningLoops final : public RunningServer {
 public:
  using Clock = std::chrono::steady_clock;
  /// A try to pause lets the loops stand at most so long before it is given up.
  static constexpr std::chrono::milliseconds kStanding{20};
  /// So long the first try waits, while the loops serve, for the requests that waiting threads and
  /// disks have. Each further one waits twice as long as the one before, up to `kLongestWait`.
  static constexpr std::chrono::milliseconds kFirstWait{20};
  static constexpr std::chrono::milliseconds kLongestWait{2560};

  /// All of it must live as long as this object.
  RunningLoops(ServerContext& context, const std::vector<std::unique_ptr<ServingLoop>>& loops,
               const Acceptor& acceptor);

  void goRound(const Round& round) override;
  [[nodiscard]] int listener() const override;
  [[nodiscard]] int connections() const override;
  [[nodiscard]] bool pause(Clock::time_point end) override;
  void keep(KeptWriter& writer) const override;
  void goOn() override;

 private:
  /// Tries once to pause. Returns false, and goes on, if not everything has stopped by `end`.
  [[nodiscard]] bool tryToPause(std::chrono::milliseconds wait, Clock::time_point end);
  /// Lets the loops stand and the threads stop.
  [[nodiscard]] bool stand(Clock::time_point end);
  void wakeLoops() const;

  // Constant after construction. Each step makes a loop perform the next one.
  ServerContext& context_;
  const std::vector<std::unique_ptr<ServingLoop>>& loops_;
  const Acceptor& acceptor_;
  const std::vector<WaitingThreads*> threads_;  // those that hand work on before those that get it
  std::vector<std::function<void()>> steps_;
  // Handed on from thread to thread with the round.
  const Round* round_ = nullptr;
};

}  // namespace sorvane
